#ifndef KIP_TOOLS_PARSE_H
#define KIP_TOOLS_PARSE_H

#include <CLI/CLI.hpp>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace kiptool {

// Strict readers of command-line values: the whole text must be the value, and numbers must be finite. Each
// ends with CLI::ValidationError, which makes it a wrong command line.

/** A finite decimal number. */
double parseNumber(const std::string &text);

/** A decimal integer of at least least. */
int32_t parseInteger(const std::string &text, int32_t least);

/** Exactly count finite numbers with commas between them. */
std::vector<double> parseNumbers(const std::string &text, size_t count);

/** A size in pixels. */
struct Size {
    int32_t width, height;
};

/** WIDTHxHEIGHT in pixels, each at least 0: what an operation refuses, it refuses with its own status. */
Size parseSize(const std::string &text);

/** Adds an option whose text store reads; what store refuses is told with the option's name. */
CLI::Option *addParsedOption(CLI::App &command, const std::string &name, const std::string &shape,
                             const std::string &help, const std::function<void(const std::string &)> &store);

/** Adds an option that takes a file's name with one of some extensions, such as ".csv". */
CLI::Option *addFileOption(CLI::App &command, const std::string &name, const std::vector<std::string> &extensions,
                           const std::string &help, std::string &file);

} // namespace kiptool

#endif
