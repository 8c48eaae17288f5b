#ifndef KIP_TRANSFORM_PLAN_PLAN_CUBIC_H
#define KIP_TRANSFORM_PLAN_PLAN_CUBIC_H

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace kip {

// Divides by 2^bits, toward zero: the portable rounding of sums that may be negative.
struct TruncatingDivision {
    template <typename Wide>
    static Wide divide(Wide value, int bits)
    {
        return value / (Wide{1} << bits);
    }
};

// Divides by 2^bits, toward minus infinity: the rounding of packed shifts.
struct ArithmeticShift {
    template <typename Wide>
    static Wide divide(Wide value, int bits)
    {
        return value >> bits;
    }
};

// The bicubic mode's samples and pixels: four taps each, weighted by the cubic table. Samples are signed, 64 times a
// pixel value. Wide holds four products: 32 bits for 8-bit pixels (255 * 64 * 1.25 * 32768 * 1.25 < 2^31), 64 bits for
// 16-bit ones.
template <typename PixelType, typename EntryType, typename WideType, typename Rounding>
struct CubicRule {
    using Pixel = PixelType;
    using Entry = EntryType; // a sample, as the line keeps it
    using Wide = WideType;
    static constexpr bool kCubic = true;
    static constexpr int32_t kFirstTap = -1;
    static constexpr int32_t kTaps = 4;
    static constexpr int kSampleBits = 9;  // 32768 / 64
    static constexpr int kOutputBits = 21; // 32768 * 64

    template <typename At>
    static Wide weigh(uint32_t fraction, const int16_t *weights, At at)
    {
        const int16_t *const w = weights + size_t{4} * (fraction >> 8);
        return Wide{w[0]} * at(0) + Wide{w[1]} * at(1) + Wide{w[2]} * at(2) + Wide{w[3]} * at(3);
    }
    // at(tap): the source pixel that many places on, the first one being -1.
    template <typename At>
    static Entry sample(uint32_t fraction, const int16_t *weights, At at)
    {
        const Wide sum = weigh(fraction, weights, [&](int32_t tap) { return Wide{at(tap - 1)}; });
        return static_cast<Entry>(Rounding::divide(static_cast<Wide>(sum + 256), kSampleBits));
    }
    // at(tap): the entry that many places on, the first one being 0.
    template <typename At>
    static Pixel output(uint32_t fraction, const int16_t *weights, At at)
    {
        constexpr Wide greatest = (Wide{1} << (8 * sizeof(Pixel))) - 1;
        const Wide sum = weigh(fraction, weights, [&](int32_t tap) { return Wide{at(tap)}; });
        const Wide value = Rounding::divide(static_cast<Wide>(sum + 0x100000), kOutputBits);
        return static_cast<Pixel>(std::clamp<Wide>(value, 0, greatest));
    }
};

using Cubic8 = CubicRule<uint8_t, int16_t, int32_t, TruncatingDivision>;
using Cubic16 = CubicRule<uint16_t, int32_t, int64_t, TruncatingDivision>;
// The optimised 8-bit path's: a first-pass sum that is negative may come out one lower.
using CubicOptimized8 = CubicRule<uint8_t, int16_t, int32_t, ArithmeticShift>;

} // namespace kip

#endif
