#ifndef KIP_TRANSFORM_PLAN_PLAN_BANDS_H
#define KIP_TRANSFORM_PLAN_PLAN_BANDS_H

#include <cstdint>

#include "transform/plan/plan_rows.h"

namespace kip {

// A band of a tile's rows, both passes of which run in one call. Sample m of row j, counted from sample 0 of row 0,
// lies at position + j * positionRowStep + m * shear: a row's samples are a window into this grid, which moves along
// the primary axis by outputRowStep from row to row.
template <typename Pixel>
struct BandRun {
    const Pixel *origin;               // where sample 0 of row 0 would lie at position 0
    int64_t majorStep, minorStep;      // pixels of a step along the primary and the secondary axis: one is 1 or -1
    int64_t leastLine, greatestLine;   // what the source holds along the secondary axis, counted from origin
    int32_t position, positionRowStep; // 16.16 across the primary axis, not wrapping
    int32_t shear;                     // the advance of a position per sample
    int32_t outputPosition;            // of row 0's first pixel on its line of samples: a fraction
    int32_t outputStep, outputRowStep;
    int32_t width, rows;
    const int16_t *weights; // of the cubic table
    void *dst;              // pixels to store, or uint32_t sums to add to
    int64_t rowAdvance;     // bytes from a row of these to the next
};

inline constexpr int32_t kBandRows = 32;
inline constexpr int32_t kBandWidth = 96;
// 1.875: the samples of 32 pixels, or the lines of 32 rows and their taps, then fit into 64.
inline constexpr int32_t kBandStep = 0x1E000;

// Tells whether the rows of a tile may run in bands.
inline bool isBandGeometry(int32_t shear, int32_t positionRowStep, int32_t outputStep, int32_t outputRowStep,
                           int32_t width)
{
    const auto isWithin = [](int32_t step, int32_t most) { return step >= -most && step <= most; };
    return isWithin(shear, 0x10000) && isWithin(positionRowStep, kBandStep) && outputStep >= 0 &&
           outputStep <= kBandStep && isWithin(outputRowStep, kBandStep) && width >= 1 && width <= kBandWidth;
}

// How many samples the pixels of a row may need, wherever on its first sample it starts.
template <typename Rule>
int32_t countBandSamples(const BandRun<typename Rule::Pixel> &run)
{
    return ((0xFFFF + run.outputStep * (run.width - 1)) >> 16) + Rule::kTaps;
}

// All taps of countBandSamples samples of each row must lie inside the source.
template <typename Rule, bool kAdd>
void resampleBandPortable(const BandRun<typename Rule::Pixel> &run)
{
    constexpr int32_t firstSample = Rule::kCubic ? -1 : 0;
    typename Rule::Entry line[2 * kBandWidth];
    for (int32_t j = 0; j < run.rows; ++j) {
        const int32_t along = run.outputPosition + j * run.outputRowStep;
        const int32_t first = (along >> 16) + firstSample;
        const int64_t position = run.position + int64_t{j} * run.positionRowStep + int64_t{first} * run.shear;
        sampleLinePortable<Rule>({run.origin + first * run.majorStep, run.majorStep, run.minorStep,
                                  static_cast<uint32_t>(position), static_cast<uint32_t>(run.shear),
                                  countBandSamples<Rule>(run), run.weights},
                                 line);
        outputLinePortable<Rule, kAdd>({line, static_cast<uint32_t>(along & 0xFFFF),
                                        static_cast<uint32_t>(run.outputStep), run.width, run.weights,
                                        static_cast<uint8_t *>(run.dst) + j * run.rowAdvance});
    }
}

} // namespace kip

#endif
