#include "parse.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <filesystem>
#include <system_error>

namespace kiptool {
namespace {

[[noreturn]] void refuse(const std::string &text, const std::string &wanted)
{
    throw CLI::ValidationError("'" + text + "' is not " + wanted);
}

template <typename Number>
bool readWhole(const std::string &text, Number *number)
{
    const char *const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, *number);
    return error == std::errc() && stop == end;
}

} // namespace

double parseNumber(const std::string &text)
{
    double number = 0;
    if (!readWhole(text, &number) || !std::isfinite(number))
        refuse(text, "a number");
    return number;
}

int32_t parseInteger(const std::string &text, int32_t least)
{
    int32_t number = 0;
    if (!readWhole(text, &number) || number < least)
        refuse(text, "a whole number from " + std::to_string(least) + " to 2147483647");
    return number;
}

std::vector<double> parseNumbers(const std::string &text, size_t count)
{
    std::vector<double> numbers;
    for (size_t from = 0; from <= text.size();) {
        const size_t comma = std::min(text.find(',', from), text.size());
        numbers.push_back(parseNumber(text.substr(from, comma - from)));
        from = comma + 1;
    }
    if (numbers.size() != count)
        refuse(text, std::to_string(count) + " numbers with commas between them");
    return numbers;
}

Size parseSize(const std::string &text)
{
    const size_t cross = text.find('x');
    if (cross == std::string::npos)
        refuse(text, "a size like 640x480");
    return {parseInteger(text.substr(0, cross), 0), parseInteger(text.substr(cross + 1), 0)};
}

CLI::Option *addParsedOption(CLI::App &command, const std::string &name, const std::string &shape,
                             const std::string &help, const std::function<void(const std::string &)> &store)
{
    const auto storeNamed = [name, store](const std::string &text) {
        try {
            store(text);
        } catch (const CLI::ValidationError &error) {
            throw CLI::ValidationError(name, error.what());
        }
    };
    return command.add_option_function<std::string>(name, storeNamed, help)->type_name(shape);
}

CLI::Option *addFileOption(CLI::App &command, const std::string &name, const std::vector<std::string> &extensions,
                           const std::string &help, std::string &file)
{
    std::string list;
    for (const std::string &extension : extensions)
        list += (list.empty() ? "" : "|") + extension;
    const auto store = [extensions, list, &file](const std::string &text) {
        const std::string extension = std::filesystem::path(text).extension().string();
        if (std::find(extensions.begin(), extensions.end(), extension) == extensions.end())
            refuse(text, "a file's name that ends in " + list);
        file = text;
    };
    return addParsedOption(command, name, "FILE" + list, help, store);
}

} // namespace kiptool
