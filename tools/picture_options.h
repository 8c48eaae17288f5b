#ifndef KIP_TOOLS_PICTURE_OPTIONS_H
#define KIP_TOOLS_PICTURE_OPTIONS_H

#include "picture_io.h"

#include <CLI/CLI.hpp>
#include <optional>
#include <string>

namespace kiptool {

/** The picture that a command works on. */
struct InputOptions {
    std::string file;            /**< "-" for the standard input */
    std::optional<int32_t> page; /**< of a TIFF; the first when not given */
};

/** Adds IN and --page; options must outlive the command. */
void addInputOptions(CLI::App &command, InputOptions &options, const std::string &help);

/**
 * What a user may not expect of the grey picture that is made of a file, in one line, such as "has 3 pages, page 1 is
 * read; colour read as grey"; empty when it is the whole file.
 */
std::string noteOn(const PictureFile &file, bool pageIsChosen);

/** Reads the picture, and tells the note on it, if there is one, on the standard error. */
Picture readInput(const InputOptions &options);

/** Adds --format, for a picture whose name does not tell it; format must outlive the command. */
void addFormatOption(CLI::App &command, std::optional<Format> &format);

} // namespace kiptool

#endif
