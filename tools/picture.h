#ifndef KIP_TOOLS_PICTURE_H
#define KIP_TOOLS_PICTURE_H

#include <cstddef>
#include <cstdint>
#include <variant>
#include <vector>

namespace kiptool {

/** A picture in memory: rows from the top, without gaps between them, samples interleaved. */
struct Picture {
    int32_t width = 0;
    int32_t height = 0;
    int32_t channels = 1;                                              /**< 1: grey; 3: red, green, blue */
    std::variant<std::vector<uint8_t>, std::vector<uint16_t>> samples; /**< 8 or 16 bits a sample */
};

/** The most pixels that a picture may have; a file that claims more is refused before memory is taken. */
constexpr int64_t kMaxPixels = int64_t{1} << 30;

/** Ends with a Failure unless 1 <= width, height and width * height <= kMaxPixels. */
void checkPictureSize(int64_t width, int64_t height);

/** Makes a black picture of checked size; channels 1 or 3, depth 8 or 16. */
Picture makePicture(int64_t width, int64_t height, int32_t channels, int depth);

/** Bits of a sample: 8 or 16. */
int depthOf(const Picture &picture);

/** Samples of one row. */
size_t rowSamples(const Picture &picture);

/** The samples of a picture that is known to have 8 bits. */
std::vector<uint8_t> &samples8(Picture &picture);
const std::vector<uint8_t> &samples8(const Picture &picture);

/** The samples as bytes, in the machine's byte order. */
uint8_t *bytesOf(Picture &picture);
const uint8_t *bytesOf(const Picture &picture);

/**
 * Turns colour into grey at the same depth: (299 red + 587 green + 114 blue + 500) / 1000 in whole numbers,
 * the luma of standard-definition television, rounded to nearest. Equal channels keep their value.
 */
Picture toGrey(Picture picture);

/**
 * Makes an 8-bit colour picture to look at or draw on. 8-bit samples stay; 16-bit ones are stretched from
 * the picture's least and greatest value, since cameras often fill only the lower 10 or 12 bits.
 */
Picture toColour8(const Picture &picture);

} // namespace kiptool

#endif
