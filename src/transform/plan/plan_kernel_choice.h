#ifndef KIP_TRANSFORM_PLAN_PLAN_KERNEL_CHOICE_H
#define KIP_TRANSFORM_PLAN_PLAN_KERNEL_CHOICE_H

#include <cstdint>

#include "transform/plan/plan_row_groups.h"
#include "transform/plan/plan_rows.h"
#include "transform/plan/plan_strip.h"

namespace kip {

template <typename Pixel>
using RowGroupKernel = void(const RowGroup<Pixel> &group);

// The kernels of a table-driven mode.
template <typename Rule>
struct PlanKernels {
    using Pixel = typename Rule::Pixel;
    using Entry = typename Rule::Entry;

    void (*samples)(const SampleRun<Pixel> &run, Entry *out);
    void (*outputs)(const OutputRun<Entry> &run);
    // Both passes of a row at once, where isSparseGeometry allows it.
    void (*sparseRow)(const SampleRun<Pixel> &samples, const OutputRun<Entry> &outputs);
    int32_t leastSparseStep; // of the pixels on the line, 16.16: from here on that is faster
    // Set where samples run much faster along the source's rows: tiles of other scans are copied first, and
    // samples then see a majorStep of 1. Null: every run reads the source itself.
    void (*copyStrip)(const StripCopy<Pixel> &copy);
    // Resample the rows of a tile together, where its shear is gentle and isGroupGeometry allows it: for steps of at
    // most kGroupStep, and of at most kCoarseGroupStep. Null: there is no such kernel.
    RowGroupKernel<Pixel> *rowGroup;
    RowGroupKernel<Pixel> *coarseRowGroup;
};

template <typename Rule, bool kAdd>
PlanKernels<Rule> portablePlanKernels()
{
    // At half a sample less, both ways take as long.
    constexpr int32_t leastSparseStep = Rule::kTaps * 65536 + 32768;
    return {sampleLinePortable<Rule>,
            outputLinePortable<Rule, kAdd>,
            sparseRowPortable<Rule, kAdd>,
            leastSparseStep,
            nullptr,
            nullptr,
            nullptr};
}

// The kernels for a set of ksys_feature... bits: the portable ones, replaced level by level by what runs, and runs
// well, on such a processor. A pure function; an operation asks once.
//
// Rule: Linear8, CubicOptimized8, Linear16 or Cubic16. kAdd: pixels are added to sums, which is for 8 bits alone.
template <typename Rule, bool kAdd>
PlanKernels<Rule> planKernels(uint32_t features);

} // namespace kip

#endif
