#ifndef KIP_TRANSFORM_PLAN_PLAN_LINEAR_H
#define KIP_TRANSFORM_PLAN_PLAN_LINEAR_H

#include <cstdint>

namespace kip {

// The separable bilinear mode's samples and pixels: two taps each, 15-bit weights; values stay pixel values throughout.
template <typename PixelType>
struct LinearRule {
    using Pixel = PixelType;
    using Entry = PixelType; // a sample, as the line keeps it
    static constexpr bool kCubic = false;
    static constexpr int32_t kFirstTap = 0;
    static constexpr int32_t kTaps = 2;

    static Entry blend(uint32_t fraction, uint32_t a, uint32_t b)
    {
        const uint32_t w = fraction >> 1;
        return static_cast<Entry>(((32768 - w) * a + w * b) >> 15);
    }
    // at(tap): the source pixel, or the entry, that many places on.
    template <typename At>
    static Entry sample(uint32_t fraction, const int16_t *, At at)
    {
        return blend(fraction, static_cast<uint32_t>(at(0)), static_cast<uint32_t>(at(1)));
    }
    template <typename At>
    static Pixel output(uint32_t fraction, const int16_t *, At at)
    {
        return sample(fraction, nullptr, at);
    }
};

using Linear8 = LinearRule<uint8_t>;
using Linear16 = LinearRule<uint16_t>;

} // namespace kip

#endif
