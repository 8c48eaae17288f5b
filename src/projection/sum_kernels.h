#ifndef KIP_PROJECTION_SUM_KERNELS_H
#define KIP_PROJECTION_SUM_KERNELS_H

#include <cstdint>

#include "projection/sum_memory.h"
#include "support/target_region.h"

namespace kip {

// Rows of 8-bit pixels.
struct PixelRows8 {
    const uint8_t *first;
    int64_t pitch;
    int32_t width, height;

    const uint8_t *row(int64_t y) const { return first + y * pitch; }
};

// Adds the pixels of rows to the partial sums of their columns, of which 16 bits hold 256 times 255. A kernel may keep
// the sums of neighbouring columns in a form of its own, which its widening kernel knows. It goes down the rows vector
// by vector, so it is given kRowsPerBand rows at a time, for which it is best, or fewer: memory is then read nearly in
// order.
inline constexpr int32_t kRowsPerBand = 8;
using AddRowsKernel = void (*)(const PixelRows8 &rows, uint16_t *partials);

// Adds partial sums to the columns' sums and clears them.
using WidenKernel = void (*)(uint16_t *partials, int32_t width, SumRow sums);

// Sums every row: sum number y goes to place y * step, step being 1 or -1.
using SumRowsKernel = void (*)(const PixelRows8 &rows, SumRow sums, int32_t step);

struct SumKernels8 {
    AddRowsKernel addRows;
    WidenKernel widen;
    SumRowsKernel sumRows;
};

// For a set of ksys_feature... bits: the portable kernels, replaced level by level. A pure function.
SumKernels8 sumKernels8(uint32_t features);

void addRowsToPartialsPortable(const PixelRows8 &rows, uint16_t *partials);
void widenPartialsPortable(uint16_t *partials, int32_t width, SumRow sums);
void sumRowsPortable8(const PixelRows8 &rows, SumRow sums, int32_t step);

#if defined(KIP_HAS_X86_VARIANTS)

void addRowsToPartialsSse2(const PixelRows8 &rows, uint16_t *partials);
void widenPartialsSse2(uint16_t *partials, int32_t width, SumRow sums);
void sumRowsSse2(const PixelRows8 &rows, SumRow sums, int32_t step);

void addRowsToPartialsAvx2(const PixelRows8 &rows, uint16_t *partials);
void widenPartialsAvx2(uint16_t *partials, int32_t width, SumRow sums);
void sumRowsAvx2(const PixelRows8 &rows, SumRow sums, int32_t step);

void addRowsToPartialsAvx512(const PixelRows8 &rows, uint16_t *partials);
void widenPartialsAvx512(uint16_t *partials, int32_t width, SumRow sums);
void sumRowsAvx512(const PixelRows8 &rows, SumRow sums, int32_t step);

#endif

} // namespace kip

#endif
