#ifndef KIP_TOOLS_JSON_TEXT_H
#define KIP_TOOLS_JSON_TEXT_H

#include <string>
#include <string_view>

namespace kiptool {

/** Any bytes as a string of JSON, with its quotes. What is not UTF-8 becomes the replacement character U+FFFD. */
std::string jsonString(std::string_view bytes);

} // namespace kiptool

#endif
