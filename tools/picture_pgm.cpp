// Binary portable grey maps: "P5", width, height and greatest value in ASCII, then the samples; two bytes a
// sample, the high one first, when the greatest value is above 255.

#include "failure.h"
#include "picture_io.h"

#include <algorithm>
#include <bit>
#include <string>

namespace kiptool {
namespace {

struct Header {
    Input &input;
    uint64_t position; // of what has not been read yet
};

bool isSpace(uint8_t c)
{
    return c == ' ' || (c >= '\t' && c <= '\r');
}

uint8_t take(Header &header)
{
    uint8_t next = 0;
    if (header.input.read(header.position++, &next, 1) == 0)
        throw Failure("the PGM header ends early");
    return next;
}

// Reads white space and comments, a number, and the one character after it.
int64_t takeNumber(Header &header)
{
    uint8_t c = take(header);
    while (isSpace(c) || c == '#') {
        if (c == '#')
            while (c != '\n' && c != '\r')
                c = take(header);
        c = take(header);
    }
    int64_t value = 0;
    bool any = false;
    for (; c >= '0' && c <= '9'; c = take(header), any = true)
        value = std::min<int64_t>(value * 10 + (c - '0'), kMaxPixels + 1);
    if (!any || !isSpace(c))
        throw Failure("a number is missing in the PGM header");
    return value;
}

} // namespace

Picture decodePgm(Input &input)
{
    Header header{input, 2};
    const uint8_t separator = take(header);
    if (!isSpace(separator) && separator != '#')
        throw Failure("not a binary PGM picture");
    --header.position;
    const int64_t width = takeNumber(header);
    const int64_t height = takeNumber(header);
    const int64_t greatest = takeNumber(header);
    checkPictureSize(width, height);
    if (greatest < 1 || greatest > 65535)
        throw Failure("the greatest value of a PGM picture must be 1 to 65535");
    const int depth = greatest > 255 ? 16 : 8;
    const auto size = static_cast<size_t>(width * height * (depth / 8));
    if (input.size() - header.position < size) // told before memory is taken
        throw Failure("the file ends early");

    Picture picture = makePicture(width, height, 1, depth);
    if (input.read(header.position, bytesOf(picture), size) != size)
        throw Failure("cannot be read");
    if constexpr (std::endian::native == std::endian::little)
        if (auto *const wide = std::get_if<std::vector<uint16_t>>(&picture.samples))
            for (uint16_t &sample : *wide)
                sample = static_cast<uint16_t>(sample << 8 | sample >> 8);
    return picture;
}

std::vector<uint8_t> encodePgm(const Picture &picture)
{
    if (picture.channels != 1)
        throw Failure("a PGM file cannot hold colour: use .png or .tif");
    const bool wide = depthOf(picture) == 16;
    const std::string header = "P5\n" + std::to_string(picture.width) + ' ' + std::to_string(picture.height) + '\n' +
                               (wide ? "65535\n" : "255\n");
    std::vector<uint8_t> file(header.begin(), header.end());
    if (wide) {
        for (const uint16_t sample : std::get<std::vector<uint16_t>>(picture.samples)) {
            file.push_back(static_cast<uint8_t>(sample >> 8));
            file.push_back(static_cast<uint8_t>(sample & 255));
        }
    } else {
        file.insert(file.end(), samples8(picture).begin(), samples8(picture).end());
    }
    return file;
}

} // namespace kiptool
