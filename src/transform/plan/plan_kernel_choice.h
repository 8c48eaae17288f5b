#ifndef KIP_TRANSFORM_PLAN_PLAN_KERNEL_CHOICE_H
#define KIP_TRANSFORM_PLAN_PLAN_KERNEL_CHOICE_H

#include <cstdint>

#include "transform/plan/plan_rows.h"

namespace kip {

// The kernels of the table-driven modes for a set of ksys_feature... bits: the portable ones, replaced level by level
// by what runs, and runs well, on such a processor. A pure function; an operation asks once.
//
// Rule: Linear8, CubicPacked8 of the optimised 8-bit path, Linear16 or Cubic16.
template <typename Rule>
PlanRowKernels<typename Rule::Pixel, typename Rule::Entry> planRowKernels(uint32_t features, uint32_t accumulate);

} // namespace kip

#endif
