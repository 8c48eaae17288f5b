#ifndef KIP_PROJECTION_SUM_KERNELS_H
#define KIP_PROJECTION_SUM_KERNELS_H

#include <cstdint>

#include "projection/sum_memory.h"
#include "support/target_region.h"

namespace kip {

using PixelRows8 = PixelRows<uint8_t>;

// ---- The loops that define the sums, modulo 2^32, of pixels of either size ----------------------------------------

// Adds every pixel to the sum of its column, row after row, as they lie in memory. The rows are a copy, as a record
// that the sums' bytes might lie in would be read again for every pixel.
template <typename Pixel>
void sumColumnsPortable(PixelRows<Pixel> rows, SumRow sums);

// Sums every row: sum number y goes to place y * step, step being 1 or -1.
template <typename Pixel>
void sumRowsPortable(const PixelRows<Pixel> &rows, SumRow sums, int32_t step);

// ---- The kernels of the optimised routines, which sum 8-bit columns by way of 16-bit partial sums ------------------

// Adds the pixels of rows to the partial sums of their columns, of which 16 bits hold 256 times 255. A kernel may keep
// the sums of neighbouring columns in a form of its own, which its widening kernel knows. It goes down the rows vector
// by vector, so it is given kRowsAtATime rows, for which it is best, or fewer: memory is then read nearly in order.
inline constexpr int32_t kRowsAtATime = 8;
using AddRowsKernel = void(const PixelRows8 &rows, uint16_t *partials);

// Adds partial sums to the columns' sums and clears them.
using WidenKernel = void(uint16_t *partials, int32_t width, SumRow sums);

// As sumRowsPortable, for a width of at least 1.
using SumRowsKernel = void(const PixelRows8 &rows, SumRow sums, int32_t step);

struct SumKernels8 {
    AddRowsKernel *addRows;
    WidenKernel *widen;
    SumRowsKernel *sumRows;
};

// For a set of ksys_feature... bits: the portable kernels, replaced level by level. A pure function.
SumKernels8 sumKernels8(uint32_t features);

AddRowsKernel addRowsToPartialsPortable;
WidenKernel widenPartialsPortable;

#if defined(KIP_HAS_X86_VARIANTS)

AddRowsKernel addRowsToPartialsSse2;
WidenKernel widenPartialsSse2;
SumRowsKernel sumRowsSse2;

AddRowsKernel addRowsToPartialsAvx2;
WidenKernel widenPartialsAvx2;
SumRowsKernel sumRowsAvx2;

AddRowsKernel addRowsToPartialsAvx512;
WidenKernel widenPartialsAvx512;
SumRowsKernel sumRowsAvx512;

#endif

} // namespace kip

#endif
