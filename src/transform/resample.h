#ifndef KIP_TRANSFORM_RESAMPLE_H
#define KIP_TRANSFORM_RESAMPLE_H

#include <cstdint>

#include "support/sampling.h"

namespace kip {

// A path fills a destination, or a band of it, with samples, or adds them to sums that have been zeroed. Its walker and
// tiles are those of findRoute, and so are its refusals, with which nothing is written; a status of the geometry or of
// the cubic weights may come on top. features: the ksys_feature... bits that variants may use.
using ResamplePath = int32_t(const Sampling &sampling, uint32_t features);

// The portable paths serve every sampling that can be served. What they compute does not depend on the features.
ResamplePath resamplePortable8;
ResamplePath resamplePortable16;

// The optimised paths serve a sampling wholly or decline it at once.
ResamplePath resampleFast8;
ResamplePath resampleFast16;

// Resamples by the optimised path, or by the portable one if that declines, with the variants that the processor has;
// by the portable one with portable kernels alone if isInhibited. For uint8_t and uint16_t.
template <typename Pixel>
int32_t resample(bool isInhibited, const Sampling &sampling);

} // namespace kip

#endif
