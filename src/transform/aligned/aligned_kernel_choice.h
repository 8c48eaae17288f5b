#ifndef KIP_TRANSFORM_ALIGNED_ALIGNED_KERNEL_CHOICE_H
#define KIP_TRANSFORM_ALIGNED_ALIGNED_KERNEL_CHOICE_H

#include <cstdint>

#include "transform/aligned/aligned_rows.h"

namespace kip {

// What aligned maps are made of, from one memory to another that does not overlap it.
template <typename Pixel>
struct AlignedKernels {
    void (*transpose)(const Rows<const Pixel> &input, const Rows<Pixel> &output);
    void (*mirror)(const Rows<const Pixel> &input, const Rows<Pixel> &output);
};

// The kernels for a set of ksys_feature... bits: the portable ones, replaced level by level by what runs, and runs
// well, on such a processor. A pure function; for uint8_t and uint16_t.
template <typename Pixel>
AlignedKernels<Pixel> alignedKernels(uint32_t features);

} // namespace kip

#endif
