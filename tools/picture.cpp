#include "picture.h"

#include "failure.h"

#include <algorithm>
#include <string>
#include <utility>

namespace kiptool {
namespace {

template <typename Sample>
std::vector<Sample> greyFromColour(const std::vector<Sample> &colour)
{
    std::vector<Sample> grey(colour.size() / 3);
    for (size_t i = 0; i < grey.size(); ++i) {
        const uint32_t red = colour[3 * i], green = colour[3 * i + 1], blue = colour[3 * i + 2];
        grey[i] = static_cast<Sample>((299 * red + 587 * green + 114 * blue + 500) / 1000);
    }
    return grey;
}

std::vector<uint8_t> stretched(const std::vector<uint16_t> &samples)
{
    const auto [least, greatest] = std::minmax_element(samples.begin(), samples.end());
    const uint32_t base = *least, range = std::max<uint32_t>(1, static_cast<uint32_t>(*greatest) - base);
    std::vector<uint8_t> result(samples.size());
    std::transform(samples.begin(), samples.end(), result.begin(), [base, range](uint16_t sample) {
        return static_cast<uint8_t>(((sample - base) * 255 + range / 2) / range);
    });
    return result;
}

} // namespace

void checkPictureSize(int64_t width, int64_t height)
{
    if (width < 1 || height < 1)
        throw Failure("the picture has no pixels");
    if (width > kMaxPixels || height > kMaxPixels / width)
        throw Failure("the picture is too large: " + std::to_string(width) + " x " + std::to_string(height) +
                      ", at most " + std::to_string(kMaxPixels) + " pixels are read or written");
}

Picture makePicture(int64_t width, int64_t height, int32_t channels, int depth)
{
    checkPictureSize(width, height);
    Picture picture;
    picture.width = static_cast<int32_t>(width);
    picture.height = static_cast<int32_t>(height);
    picture.channels = channels;
    const auto count = static_cast<size_t>(width * height * channels);
    if (depth == 16)
        picture.samples = std::vector<uint16_t>(count);
    else
        picture.samples = std::vector<uint8_t>(count);
    return picture;
}

int depthOf(const Picture &picture)
{
    return std::holds_alternative<std::vector<uint16_t>>(picture.samples) ? 16 : 8;
}

size_t rowSamples(const Picture &picture)
{
    return static_cast<size_t>(picture.width) * static_cast<size_t>(picture.channels);
}

std::vector<uint8_t> &samples8(Picture &picture)
{
    return std::get<std::vector<uint8_t>>(picture.samples);
}

const std::vector<uint8_t> &samples8(const Picture &picture)
{
    return std::get<std::vector<uint8_t>>(picture.samples);
}

uint8_t *bytesOf(Picture &picture)
{
    return std::visit([](auto &samples) { return reinterpret_cast<uint8_t *>(samples.data()); }, picture.samples);
}

const uint8_t *bytesOf(const Picture &picture)
{
    return std::visit([](const auto &samples) { return reinterpret_cast<const uint8_t *>(samples.data()); },
                      picture.samples);
}

Picture toGrey(Picture picture)
{
    if (picture.channels == 1)
        return picture;
    std::visit([](auto &samples) { samples = greyFromColour(samples); }, picture.samples);
    picture.channels = 1;
    return picture;
}

Picture toColour8(const Picture &picture)
{
    Picture result = makePicture(picture.width, picture.height, 3, 8);
    const auto *wide = std::get_if<std::vector<uint16_t>>(&picture.samples);
    const std::vector<uint8_t> &narrow = wide != nullptr ? stretched(*wide) : samples8(picture);
    std::vector<uint8_t> &to = samples8(result);
    if (picture.channels == 3) {
        to = narrow;
        return result;
    }
    for (size_t i = 0; i < narrow.size(); ++i)
        to[3 * i] = to[3 * i + 1] = to[3 * i + 2] = narrow[i];
    return result;
}

} // namespace kiptool
