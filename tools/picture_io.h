#ifndef KIP_TOOLS_PICTURE_IO_H
#define KIP_TOOLS_PICTURE_IO_H

#include "input.h"
#include "picture.h"

#include <filesystem>
#include <functional>
#include <optional>
#include <string>

namespace kiptool {

/** File formats of pictures; JPEG is only read. */
enum class Format { png, tiff, pgm, jpeg };

/** A format's name for the user. */
const char *formatName(Format format);

/** A format's name on the command line: png, tiff, pgm, jpeg. */
const char *optionOf(Format format);

/** A picture as a file holds it. */
struct PictureFile {
    Format format;
    Picture picture; /**< grey or colour; an alpha channel is dropped */
    int32_t page = 1, pages = 1;
};

/** Takes a page of a file. */
using TakePage = std::function<void(PictureFile)>;

/** A file's name for the user; "-", as everywhere here, stands for the standard input. */
std::string shownName(const std::filesystem::path &path);

/**
 * Reads a picture; the content decides the format, not the name. A Failure tells the file and the reason. Any number
 * of threads may read.
 *
 * Samples come as they are stored (no gamma, no colour profile), except that grey of less than 8 bits is spread over
 * 8, palettes are looked up, other colour models become red, green and blue, and "white is 0" is turned round.
 *
 * page  of a TIFF, from 1; other formats have one.
 */
PictureFile readPicture(const std::filesystem::path &path, int32_t page = 1);

/** Reads every page of a file in order, one at a time. */
void readPages(const std::filesystem::path &path, const TakePage &take);

/** The format of an output file: what is asked for or else what the extension tells; a Failure when it tells none. */
Format formatOfOutput(const std::filesystem::path &path, std::optional<Format> asked = {});

/** Writes a picture; a file appears whole or not at all. "-" stands for the standard output. */
void writePicture(const std::filesystem::path &path, const Picture &picture, std::optional<Format> asked = {});

/** @name Codecs
 * Between a picture and a file. They end with a Failure, without the file's name.
 * @{ */

constexpr int32_t kEveryPage = 0;

/** Reads one page or, in order, every one. */
void decodePages(Input &input, int32_t page, const TakePage &take);

Picture decodePng(Input &input);
Picture decodePgm(Input &input);
Picture decodeJpeg(Input &input);
void decodeTiff(Input &input, int32_t page, const TakePage &take);

std::vector<uint8_t> encodePng(const Picture &picture);
std::vector<uint8_t> encodeTiff(const Picture &picture);
std::vector<uint8_t> encodePgm(const Picture &picture); /**< grey only */

/** @} */

} // namespace kiptool

#endif
