#ifndef KIP_TOOLS_PICTURE_IO_H
#define KIP_TOOLS_PICTURE_IO_H

#include "picture.h"

#include <filesystem>
#include <span>
#include <string>

namespace kiptool {

/** File formats of pictures. */
enum class Format { png, tiff, pgm };

/** A format's name for the user. */
const char *formatName(Format format);

/** A picture as a file holds it. */
struct PictureFile {
    Format format;
    Picture picture; /**< grey or colour; an alpha channel is dropped */
};

/**
 * Reads a picture; the content decides the format, not the name. A Failure tells the file and the reason.
 *
 * Samples come as they are stored (no gamma, no colour profile), except that 1-, 2- and 4-bit grey is
 * spread over 8 bits, palettes are looked up, and "white is 0" is turned round. The first page counts.
 */
PictureFile readPicture(const std::filesystem::path &path);

/** The format that an output file's extension asks for; a Failure for any other extension. */
Format formatOfName(const std::filesystem::path &path);

/** Writes a picture in the format of the extension. The file appears whole or not at all. */
void writePicture(const std::filesystem::path &path, const Picture &picture);

/** @name Codecs
 * Between a picture and a whole file in memory. They end with a Failure, without the file's name.
 * @{ */

Picture decodePicture(std::span<const uint8_t> file, Format *format);

Picture decodePng(std::span<const uint8_t> file);
Picture decodeTiff(std::span<const uint8_t> file);
Picture decodePgm(std::span<const uint8_t> file);

std::vector<uint8_t> encodePng(const Picture &picture);
std::vector<uint8_t> encodeTiff(const Picture &picture);
std::vector<uint8_t> encodePgm(const Picture &picture); /**< grey only */

/** @} */

} // namespace kiptool

#endif
