#include "projection/normalize_projection.h"

#include <algorithm>
#include <cstdint>

#include "projection/sum_memory.h"

namespace kip {

namespace {

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
