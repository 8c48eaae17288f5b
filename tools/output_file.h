#ifndef KIP_TOOLS_OUTPUT_FILE_H
#define KIP_TOOLS_OUTPUT_FILE_H

#include <cstdint>
#include <filesystem>
#include <span>

namespace kiptool {

/**
 * Writes a file that appears whole or not at all: the bytes go into a temporary file beside it, which then
 * takes its name. A link is followed, and what it points to replaced; a target that is no file is refused.
 * Ends with a Failure, without the file's name; the temporary file is then removed.
 */
void writeFileWhole(const std::filesystem::path &path, std::span<const uint8_t> bytes);

/** Writes bytes as they are to the standard output; ends with a Failure. */
void writeStandardOutput(std::span<const uint8_t> bytes);

} // namespace kiptool

#endif
