#ifndef KIP_TRANSFORM_PLAN_PLAN_ROWS_H
#define KIP_TRANSFORM_PLAN_PLAN_ROWS_H

// The two passes over a row of a tile: samples along the source's primary axis, then destination pixels from the line
// of samples. The portable kernels define the results. Rule: what a sample and a pixel are (plan_linear.h,
// plan_cubic.h).

#include <cstdint>

namespace kip {

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

inline int32_t fixedInteger(uint32_t position)
{
    return static_cast<int32_t>(position) >> 16;
}

inline uint32_t fixedFraction(uint32_t position)
{
    return position & 0xFFFF;
}

// Sample i of a row, which lies at this position.
template <typename Rule>
typename Rule::Entry sampleAt(const SampleRun<typename Rule::Pixel> &run, int32_t i, uint32_t position)
{
    const auto *const at = run.base + i * run.majorStep + fixedInteger(position) * run.minorStep;
    return Rule::sample(fixedFraction(position), run.weights,
                        [at, &run](int32_t tap) { return at[tap * run.minorStep]; });
}

// All taps of the samples must lie inside the source.
template <typename Rule>
void sampleLinePortable(const SampleRun<typename Rule::Pixel> &run, typename Rule::Entry *out)
{
    uint32_t position = run.position;
    for (int32_t i = 0; i < run.count; ++i) {
        out[i] = sampleAt<Rule>(run, i, position);
        position += run.shear;
    }
}

// entryAt(index, tap): the entry of the line that is a tap of a pixel at this index.
template <typename Rule, bool kAdd, typename EntryAt>
void outputPixels(const OutputRun<typename Rule::Entry> &run, EntryAt entryAt)
{
    uint32_t position = run.position;
    for (int32_t n = 0; n < run.count; ++n) {
        const int32_t index = fixedInteger(position);
        const auto value = Rule::output(fixedFraction(position), run.weights,
                                        [index, entryAt](int32_t tap) { return entryAt(index, tap); });
        if constexpr (kAdd)
            static_cast<uint32_t *>(run.dst)[n] += value;
        else
            static_cast<typename Rule::Pixel *>(run.dst)[n] = value;
        position += run.step;
    }
}

// All taps of the pixels must lie on the line.
template <typename Rule, bool kAdd>
void outputLinePortable(const OutputRun<typename Rule::Entry> &run)
{
    outputPixels<Rule, kAdd>(run, [line = run.line](int32_t index, int32_t tap) { return (line + index)[tap]; });
}

// Both passes of a row at once: where pixels lie far apart on the line, it is sooner to make the samples of each pixel
// than all that lie between them. outputs.line is not read; its entries would be the samples.
template <typename Rule, bool kAdd>
void sparseRowPortable(const SampleRun<typename Rule::Pixel> &samples, const OutputRun<typename Rule::Entry> &outputs)
{
    outputPixels<Rule, kAdd>(outputs, [&samples](int32_t index, int32_t tap) {
        const int32_t i = index + tap;
        return sampleAt<Rule>(samples, i, samples.position + static_cast<uint32_t>(i) * samples.shear);
    });
}

} // namespace kip

#endif
