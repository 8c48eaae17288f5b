#ifndef KIP_TRANSFORM_PLAN_X86_PLAN_KERNELS_X86_H
#define KIP_TRANSFORM_PLAN_X86_PLAN_KERNELS_X86_H

#include "transform/plan/plan_kernel_choice.h"

namespace kip {

// Variants of the plan's kernels for x86-64 processors. There are some for Linear8, CubicOptimized8, Linear16 and
// Cubic16, each in files named after it and its level; kAdd for 8-bit pixels alone.

// Runs whose majorStep is not 1 go to the portable twins.
template <typename Rule, bool kAdd>
PlanKernels<Rule> planKernelsAvx2();

// AVX-512 F, BW, DQ, VL, VBMI.
template <typename Rule, bool kAdd>
RowGroupKernel<typename Rule::Pixel> *rowGroupKernelAvx512();

// SSE2, which every x86-64 processor has. For uint8_t and uint16_t.
template <typename Pixel>
void copyStripSse2(const StripCopy<Pixel> &copy);

} // namespace kip

#endif
