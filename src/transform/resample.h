#ifndef KIP_TRANSFORM_RESAMPLE_H
#define KIP_TRANSFORM_RESAMPLE_H

#include <cstdint>

#include <kip/kip.h>

#include "cache/sample_cache.h"

namespace kip {

// A resampling path: fills a destination window (or a band of it) from the sampling's rectangle, or adds the
// samples to column sums (accumulate not 0; the destination's first pixel is then the first of destWidth
// zeroed uint32_t sums).
using ResamplePath = int32_t(uint32_t accumulate, const kimg_windowConst &source,
                             const kmath_xformLinear &srcFromClient, const kimg_window &destination,
                             const kip_affineSampleParams &params, kip_affineSampleCache &cache);

// The portable paths serve every request. Returns kip_statusSourceTooLarge for a source that 16.16 cannot
// address (16-bit pixels), kip_statusUnknownMode for a mode above 3, or a status of the geometry.
ResamplePath resamplePortable8;
ResamplePath resamplePortable16;

// The optimised 8-bit path: serves a request wholly or answers kip_statusOptimizationDeclined at once.
ResamplePath resampleFast8;

// Tells whether resampleFast8 would serve a source.
bool isServedByFast8(const kimg_windowConst &source);

// The walker that the portable 8-bit path uses for a request of mode 0 or 1.
enum class Walker8 { fixed, rebased, inDoubles };

int32_t chooseWalker8(const kimg_windowConst &source, const kmath_xformLinear &srcFromClient,
                      const kip_affineSampleParams &params, int32_t tileSize, Walker8 *walker);

} // namespace kip

#endif
