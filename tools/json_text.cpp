#include "json_text.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>

namespace kiptool {
namespace {

// Bytes of the UTF-8 character that a text begins with; 0 if it begins with none.
size_t characterLength(std::string_view text)
{
    const auto byte = [&text](size_t i) { return static_cast<uint8_t>(text[i]); };
    const uint8_t first = byte(0);
    const size_t length = first < 0x80   ? 1
                          : first < 0xc2 ? 0
                          : first < 0xe0 ? 2
                          : first < 0xf0 ? 3
                          : first < 0xf5 ? 4
                                         : 0;
    if (length == 0 || length > text.size())
        return 0;
    for (size_t i = 1; i < length; ++i)
        if ((byte(i) & 0xc0) != 0x80)
            return 0;
    // Longer than need be, half of a surrogate pair, or beyond the last character.
    const bool wrong = (first == 0xe0 && byte(1) < 0xa0) || (first == 0xed && byte(1) > 0x9f) ||
                       (first == 0xf0 && byte(1) < 0x90) || (first == 0xf4 && byte(1) > 0x8f);
    return wrong ? 0 : length;
}

} // namespace

std::string jsonString(std::string_view bytes)
{
    std::string text = "\"";
    while (!bytes.empty()) {
        const size_t length = characterLength(bytes);
        const char first = bytes.front();
        if (length == 0) {
            text += "\\ufffd";
        } else if (static_cast<uint8_t>(first) < ' ') {
            char escape[8];
            (void)std::snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned>(first));
            text += escape;
        } else {
            if (first == '"' || first == '\\')
                text += '\\';
            text += bytes.substr(0, length);
        }
        bytes.remove_prefix(length == 0 ? 1 : length);
    }
    return text + '"';
}

} // namespace kiptool
