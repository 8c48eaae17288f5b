#ifndef KIP_TESTS_TOOLS_SAMPLE_VALUES_H
#define KIP_TESTS_TOOLS_SAMPLE_VALUES_H

#include "picture.h"

#include <random>

namespace kiptool {

using Values = std::vector<uint32_t>;

// The samples of a picture of either depth.
inline Values valuesOf(const Picture &picture)
{
    return std::visit([](const auto &samples) { return Values(samples.begin(), samples.end()); }, picture.samples);
}

// A picture of these samples, which fill whole rows.
inline Picture pictureOf(int32_t width, int32_t channels, int depth, const Values &values)
{
    const auto height = static_cast<int64_t>(values.size()) / width / channels;
    Picture picture = makePicture(width, height, channels, depth);
    std::visit([&values](auto &samples) { samples.assign(values.begin(), values.end()); }, picture.samples);
    return picture;
}

inline Picture randomPicture(int32_t width, int32_t height, int32_t channels, int depth)
{
    std::mt19937 random(5);
    Values values(static_cast<size_t>(width) * static_cast<size_t>(height) * static_cast<size_t>(channels));
    for (uint32_t &value : values)
        value = static_cast<uint32_t>(random()) >> (32 - depth);
    return pictureOf(width, channels, depth, values);
}

} // namespace kiptool

#endif
