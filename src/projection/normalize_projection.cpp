#include "projection/normalize_projection.h"

#include <algorithm>
#include <cstdint>
#include <type_traits>

#include "projection/sum_memory.h"
#include "support/cleanup_list.h"

namespace kip {

namespace {

// Columns [first, end) of a row of sums.
struct SumColumns {
    int32_t first, end;

    bool isEmpty() const { return first >= end; }
};

// Those of columns 0 to columns - 1 that an image holds. The end lies before the first if it holds none.
SumColumns columnsOf(const kimg_image &image, int32_t columns)
{
    const int64_t end = int64_t{image.x} + image.width;
    return {std::max(0, image.x), static_cast<int32_t>(std::min<int64_t>(columns, end))};
}

// The part of row 0 in some columns; false if the image does not hold all of it.
int32_t openRow(const kimg_image *image, const SumColumns &range, kimg_window *window, bool *holdsRow)
{
    int32_t status = kimg_window_init(window, image);
    if (status < 0)
        return status;
    const int32_t count = range.end - range.first;
    status = kimg_window_window(window, range.first, 0, count, 1, nullptr);
    *holdsRow = window->width == count && window->height == 1;
    return status;
}

// Leaves out columns without coverage at both ends.
SumColumns trim(SumRow coverage, SumColumns range)
{
    while (!range.isEmpty() && coverage.get(range.first) == 0)
        ++range.first;
    while (!range.isEmpty() && coverage.get(range.end - 1) == 0)
        --range.end;
    return range;
}

// Nearest, halves up; modulo 2^32, which only sums that have wrapped themselves can reach.
uint32_t rounded(double value)
{
    const double raised = value + 0.5;
    return static_cast<uint32_t>(static_cast<uint64_t>(raised));
}

void normalizeColumns(SumRow result, SumRow coverage, const SumColumns &range, double samplesPerCoverage)
{
    for (int32_t c = range.first; c < range.end; ++c) {
        const double samples = coverage.get(c) * samplesPerCoverage;
        const uint32_t count = rounded(samples);
        coverage.set(c, count);
        // By the fraction, not by the count: the sum holds the same part of a sample.
        result.set(c, count != 0 ? rounded(result.get(c) / samples) : 0);
    }
}

// The most that the mask of an 8-bit picture can hold: the finest share of a sample.
constexpr uint8_t kCoverageValue = 255;

template <typename Pixel>
int32_t projectMeans(const kimg_imageConst *source, kimg_image *result, kimg_image *coverage,
                     const kip_affineSampleParams *params, kip_affineSampleCache **cache, uint32_t *depth,
                     SumColumns *range)
{
    constexpr auto projectClipped =
        std::is_same_v<Pixel, uint8_t> ? kip_affineProjectClipped : kip_affineProjectClipped16;
    uint32_t samples = 0;
    uint32_t willClip = 0;
    const int32_t status = projectClipped(source, result, coverage, params, cache, kCoverageValue, &samples, &willClip);
    if (status < 0)
        return status;
    if (willClip != 0)
        return normalizeProjection(result, coverage, kCoverageValue, params->destWidth, depth, &range->first,
                                   &range->end);
    *range = columnsOf(*result, params->destWidth);
    if (depth != nullptr)
        *depth = samples;
    return status;
}

template <typename Pixel>
int32_t projectNorm(const kimg_imageConst *source, kimg_image *result, const kip_affineSampleParams *params,
                    uint32_t clip, kip_affineSampleCache **cache, uint32_t *depth, int32_t *first, int32_t *end)
{
    SumColumns range = {0, 0};
    int32_t status;
    if (clip == 0) {
        constexpr auto project = std::is_same_v<Pixel, uint8_t> ? kip_affineProject : kip_affineProject16;
        status = project(source, result, params, cache, depth);
        range = columnsOf(*result, params->destWidth);
    } else {
        CleanupList cleanup;
        kimg_image coverage;
        status = kimg_image_constructUnbound(&coverage);
        addCleanup<kimg_image_destruct>(cleanup, &coverage);
        if (status >= 0)
            status = projectMeans<Pixel>(source, result, &coverage, params, cache, depth, &range);
        status = runCleanup(cleanup, status);
    }
    if (status < 0)
        return status;
    if (first != nullptr)
        *first = range.first;
    if (end != nullptr)
        *end = range.end;
    return status;
}

} // namespace

int32_t normalizeProjection(kimg_image *result, kimg_image *coverage, uint8_t coverageValue, int32_t columns,
                            uint32_t *depth, int32_t *first, int32_t *end)
{
    *first = 0;
    *end = 0;
    const SumColumns inResult = columnsOf(*result, columns);
    const SumColumns inCoverage = columnsOf(*coverage, columns);
    const SumColumns range = {std::max(inResult.first, inCoverage.first), std::min(inResult.end, inCoverage.end)};
    if (range.isEmpty())
        return 0;

    kimg_window resultRow;
    kimg_window coverageRow;
    bool resultHoldsRow;
    bool coverageHoldsRow;
    int32_t status = openRow(result, range, &resultRow, &resultHoldsRow);
    if (status < 0)
        return status;
    status = openRow(coverage, range, &coverageRow, &coverageHoldsRow);
    if (status < 0 || !resultHoldsRow || !coverageHoldsRow)
        return status;

    // From here on columns count from the range's first one.
    const SumRow sums(resultRow.pixels);
    const SumRow covered(coverageRow.pixels);
    *first = range.end;
    *end = range.end;
    const SumColumns touched = trim(covered, {0, range.end - range.first});
    if (touched.isEmpty())
        return status;
    normalizeColumns(sums, covered, touched, 1.0 / coverageValue);
    if (depth != nullptr)
        *depth = 1;
    const SumColumns valid = trim(covered, touched);
    if (valid.isEmpty())
        return status;
    *first = range.first + valid.first;
    *end = range.first + valid.end;
    return status;
}

} // namespace kip

int32_t kip_affineProjectNorm(const kimg_imageConst *source, kimg_image *result, const kip_affineSampleParams *params,
                              uint32_t clip, kip_affineSampleCache **cache, uint32_t *depth, int32_t *first,
                              int32_t *end)
{
    return kip::projectNorm<uint8_t>(source, result, params, clip, cache, depth, first, end);
}

int32_t kip_affineProjectNorm16(const kimg_imageConst *source, kimg_image *result, const kip_affineSampleParams *params,
                                uint32_t clip, kip_affineSampleCache **cache, uint32_t *depth, int32_t *first,
                                int32_t *end)
{
    return kip::projectNorm<uint16_t>(source, result, params, clip, cache, depth, first, end);
}
