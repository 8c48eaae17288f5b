#ifndef KIP_TRANSFORM_PLAN_X86_PLAN_ROWS_X86_H
#define KIP_TRANSFORM_PLAN_X86_PLAN_ROWS_X86_H

#include <cstdint>

#include "transform/plan/plan_bands.h"
#include "transform/plan/plan_rows.h"

namespace kip {

// Variants of the row kernels for x86-64 processors; see plan_rows.h for what they compute. There are some for Linear8,
// CubicPacked8, Linear16 and Cubic16.

// Runs whose majorStep is not 1 go to the portable twins.
template <typename Rule>
PlanRowKernels<typename Rule::Pixel, typename Rule::Entry> rowKernelsAvx2(bool add);

// AVX-512 F, BW, VBMI. Null: there is none, as for sums of 16-bit pixels.
template <typename Rule>
BandKernel<typename Rule::Pixel> *bandKernelAvx512(bool add);

// SSE2, which every x86-64 processor has. For uint8_t and uint16_t.
template <typename Pixel>
void copyStripSse2(const StripCopy<Pixel> &copy);

} // namespace kip

#endif
