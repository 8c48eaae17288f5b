#ifndef KIP_TRANSFORM_PLAN_PLAN_EDGE_ROWS_H
#define KIP_TRANSFORM_PLAN_PLAN_EDGE_ROWS_H

// Rows of which some samples' taps lie outside the source, and pixels of which some taps lie off the line.

#include <algorithm>
#include <cstdint>

#include "transform/plan/plan_cubic.h"
#include "transform/plan/plan_scan.h"

namespace kip {

// One sample of such a row.
struct EdgeSample {
    int64_t primary, secondary;
    uint32_t fraction;
};

template <typename Rule>
EdgeSample edgeSampleAt(const Scan<Rule> &scan, const PlanRow &row, int32_t r)
{
    const uint32_t position = row.position + static_cast<uint32_t>(r) * static_cast<uint32_t>(scan.plan.secondaryShear);
    return {row.primary + int64_t{scan.plan.direction} * r, row.secondary + fixedInteger(position),
            fixedFraction(position)};
}

template <typename Rule>
bool hasTap(const Scan<Rule> &scan, const EdgeSample &sample, int32_t tap)
{
    return scan.source.contains(scan.source.offset(sample.primary, sample.secondary + tap));
}

template <typename Rule>
bool isWhollyInside(const Scan<Rule> &scan, const EdgeSample &sample)
{
    return hasTap(scan, sample, Rule::kFirstTap) && hasTap(scan, sample, Rule::kFirstTap + Rule::kTaps - 1);
}

// Such a sample counts for no pixel: both taps next to it lie before the source, or both after it (linear); the
// cubic one is left out as soon as one of the two does.
template <typename Rule>
bool isWhollyOutside(const Scan<Rule> &scan, const EdgeSample &sample)
{
    const int64_t a = scan.source.offset(sample.primary, sample.secondary);
    const int64_t b = scan.source.offset(sample.primary, sample.secondary + 1);
    if constexpr (Rule::kCubic)
        return std::min(a, b) < scan.source.lowest || std::max(a, b) > scan.source.highest;
    else
        return std::max(a, b) < scan.source.lowest || std::min(a, b) > scan.source.highest;
}

// A sample from the taps that lie inside the source: one of two, or three of four.
template <typename Rule>
typename Rule::Entry partialSample(const Scan<Rule> &scan, const EdgeSample &sample, uint32_t fraction)
{
    const bool keepLate = !hasTap(scan, sample, Rule::kFirstTap);
    const auto kept = [&](int32_t tap) -> int32_t {
        if (keepLate ? tap == Rule::kFirstTap : tap == Rule::kFirstTap + Rule::kTaps - 1)
            return 0;
        return scan.source.pixel(sample.primary, sample.secondary + tap);
    };
    if constexpr (Rule::kCubic) {
        using Portable = CubicRule<typename Rule::Pixel, typename Rule::Entry, typename Rule::Wide, TruncatingDivision>;
        return Portable::sample(fraction, scan.weights, kept);
    } else {
        return Rule::sample(fraction, scan.weights, kept);
    }
}

template <typename Rule>
void runEdgeSamples(const Scan<Rule> &scan, const PlanTile &tile, const PlanRow &row)
{
    int32_t first = scan.kFirstSample;
    int32_t last = lastSampleOf<Rule>(tile);
    if constexpr (Rule::kCubic) {
        const EdgeSample leading = edgeSampleAt(scan, row, first);
        if (!isWhollyInside(scan, leading)) {
            *scan.entry(first) = partialSample(scan, leading, leading.fraction);
            ++first;
        }
    }

    // All trailing samples take one fraction: that of the sample at which the row's run is said to start.
    const uint32_t fraction = edgeSampleAt(scan, row, Rule::kCubic ? first + 1 : first).fraction;
    while (last >= first && isWhollyOutside(scan, edgeSampleAt(scan, row, last)))
        --last;
    for (; last >= first; --last) {
        const EdgeSample sample = edgeSampleAt(scan, row, last);
        if (isWhollyInside(scan, sample))
            break;
        *scan.entry(last) = partialSample(scan, sample, fraction);
    }

    for (int32_t r = first; r <= last; ++r) {
        const EdgeSample sample = edgeSampleAt(scan, row, r);
        *scan.entry(r) = Rule::sample(sample.fraction, scan.weights, [&](int32_t tap) -> int32_t {
            return scan.source.pixel(sample.primary, sample.secondary + tap);
        });
    }
}

// Pixels whose taps may leave the line: they take its nearest entry.
template <typename Rule, bool kAdd>
void runBoundedOutputs(const OutputRun<typename Rule::Entry> &run, int32_t lineEntries)
{
    outputPixels<Rule, kAdd>(run, [line = run.line, lineEntries](int32_t index, int32_t tap) {
        return line[std::clamp(index + tap, 0, lineEntries - 1)];
    });
}

} // namespace kip

#endif
