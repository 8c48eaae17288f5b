#ifndef KIP_TRANSFORM_PLAN_PLAN_ROWS_H
#define KIP_TRANSFORM_PLAN_PLAN_ROWS_H

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace kip {

// The row kernels of the table-driven modes, in two passes: samples along the source's primary axis, then
// destination pixels from the line of samples.

// One row's samples, sample i at base + i * majorStep + int(position + i * shear) * minorStep (in pixels).
template <typename Pixel>
struct SampleRun {
    const Pixel *base;
    int64_t majorStep, minorStep;
    uint32_t position; // 16.16 across the primary axis, wrapping
    uint32_t shear;
    int32_t count;          // nothing is computed below 1
    const int16_t *weights; // of the cubic table
};

// One row's pixels, pixel n at position + n * step along the line.
template <typename Entry>
struct OutputRun {
    const Entry *line;
    uint32_t position; // 16.16, from the line's first entry, wrapping
    uint32_t step;
    int32_t count;          // nothing is computed below 1
    const int16_t *weights; // of the cubic table
    void *dst;              // pixels to store, or uint32_t sums to add to
};

// A block of the source, brought into the order of a scan: strip(secondary, primary) of a band, where primary counts
// in the scan's direction.
template <typename Pixel>
struct StripCopy {
    const Pixel *src;             // the band's first pixel in the order of the scan
    int64_t majorStep, minorStep; // source pixels of a step along the primary and the secondary axis
    int32_t primary, secondary;   // the band's size
    Pixel *strip;
    int64_t stripPitch; // at least primary
};

template <typename Pixel>
struct BandRun; // plan_bands.h

template <typename Pixel>
using BandKernel = void(const BandRun<Pixel> &run);

// All taps of a run must lie inside the source, or the line.
template <typename Pixel, typename Entry>
struct PlanRowKernels {
    void (*samples)(const SampleRun<Pixel> &run, Entry *out);
    void (*outputs)(const OutputRun<Entry> &run);
    // Set where samples run much faster along the source's rows: tiles of other scans are copied first, and
    // samples then see a majorStep of 1. Null: every run reads the source itself.
    void (*copyStrip)(const StripCopy<Pixel> &copy);
    // Resamples the rows of a tile together, where isBandGeometry allows it. Null: there is no such kernel.
    BandKernel<Pixel> *band;
};

// ---- What a sample and a pixel are -----------------------------------------------------------------------------

// Linear: 15-bit weights; values stay pixel values throughout.
template <typename PixelType>
struct LinearRule {
    using Pixel = PixelType;
    using Entry = PixelType;
    static constexpr bool kCubic = false;
    static constexpr int32_t kFirstTap = 0;
    static constexpr int32_t kTaps = 2;

    static Entry blend(uint32_t fraction, uint32_t a, uint32_t b)
    {
        const uint32_t w = fraction >> 1;
        return static_cast<Entry>(((32768 - w) * a + w * b) >> 15);
    }
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

// Cubic: samples are signed, 64 times a pixel value. Wide holds four products: 32 bits for 8-bit pixels
// (255 * 64 * 1.25 * 32768 * 1.25 < 2^31), 64 bits for 16-bit ones.
template <typename PixelType, typename EntryType, typename WideType, typename Rounding>
struct CubicRule {
    using Pixel = PixelType;
    using Entry = EntryType;
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
    template <typename At>
    static Entry sample(uint32_t fraction, const int16_t *weights, At at)
    {
        const Wide sum = weigh(fraction, weights, [&](int32_t tap) { return Wide{at(tap - 1)}; });
        return static_cast<Entry>(Rounding::divide(static_cast<Wide>(sum + 256), kSampleBits));
    }
    template <typename At>
    static Pixel output(uint32_t fraction, const int16_t *weights, At at)
    {
        constexpr Wide greatest = (Wide{1} << (8 * sizeof(Pixel))) - 1;
        const Wide sum = weigh(fraction, weights, [&](int32_t tap) { return Wide{at(tap)}; });
        const Wide value = Rounding::divide(static_cast<Wide>(sum + 0x100000), kOutputBits);
        return static_cast<Pixel>(std::clamp<Wide>(value, 0, greatest));
    }
};

using Linear8 = LinearRule<uint8_t>;
using Linear16 = LinearRule<uint16_t>;
using Cubic8 = CubicRule<uint8_t, int16_t, int32_t, TruncatingDivision>;
using Cubic16 = CubicRule<uint16_t, int32_t, int64_t, TruncatingDivision>;
// The fast 8-bit path's cubic: a first-pass sum that is negative may come out one lower.
using CubicPacked8 = CubicRule<uint8_t, int16_t, int32_t, ArithmeticShift>;

inline int32_t fixedInteger(uint32_t position)
{
    return static_cast<int32_t>(position) >> 16;
}

inline uint32_t fixedFraction(uint32_t position)
{
    return position & 0xFFFF;
}

// ---- The portable kernels ----------------------------------------------------------------------------------------

template <typename Rule>
void sampleLinePortable(const SampleRun<typename Rule::Pixel> &run, typename Rule::Entry *out)
{
    uint32_t position = run.position;
    for (int32_t i = 0; i < run.count; ++i) {
        const auto *const at = run.base + i * run.majorStep + fixedInteger(position) * run.minorStep;
        out[i] = Rule::sample(fixedFraction(position), run.weights,
                              [at, &run](int32_t tap) { return at[tap * run.minorStep]; });
        position += run.shear;
    }
}

template <typename Rule, bool kAdd>
void outputLinePortable(const OutputRun<typename Rule::Entry> &run)
{
    uint32_t position = run.position;
    for (int32_t n = 0; n < run.count; ++n) {
        const auto *const at = run.line + fixedInteger(position);
        const auto value = Rule::output(fixedFraction(position), run.weights, [at](int32_t tap) { return at[tap]; });
        if constexpr (kAdd)
            static_cast<uint32_t *>(run.dst)[n] += value;
        else
            static_cast<typename Rule::Pixel *>(run.dst)[n] = value;
        position += run.step;
    }
}

// Copies in blocks, so that neither side of a transpose leaves the first-level cache.
template <typename Pixel>
void copyStripPortable(const StripCopy<Pixel> &copy)
{
    constexpr int32_t block = 16;
    for (int32_t s0 = 0; s0 < copy.secondary; s0 += block) {
        const int32_t sEnd = std::min(s0 + block, copy.secondary);
        for (int32_t p0 = 0; p0 < copy.primary; p0 += block) {
            const int32_t pEnd = std::min(p0 + block, copy.primary);
            for (int32_t s = s0; s < sEnd; ++s)
                for (int32_t p = p0; p < pEnd; ++p)
                    copy.strip[s * copy.stripPitch + p] = copy.src[p * copy.majorStep + s * copy.minorStep];
        }
    }
}

template <typename Rule>
PlanRowKernels<typename Rule::Pixel, typename Rule::Entry> portableRowKernels(uint32_t accumulate)
{
    return {sampleLinePortable<Rule>,
            accumulate == 0 ? outputLinePortable<Rule, false> : outputLinePortable<Rule, true>, nullptr, nullptr};
}

} // namespace kip

#endif
