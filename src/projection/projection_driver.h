#ifndef KIP_PROJECTION_PROJECTION_DRIVER_H
#define KIP_PROJECTION_PROJECTION_DRIVER_H

#include <cstdint>

#include <kip/kip.h>

#include "cache/sample_cache.h"

namespace kip {

// The drivers of the affine projection. What they share:
//
//   source         pixels of the driver's depth
//   srcFromClient  map from client coordinates to the source's pixel coordinates
//   sums           one row of exactly destWidth 4-byte sums, aligned as such, at place (0, 0)
//   params         sizes of at least 1, a known mode
//   cache          is brought up to date for one row
//   placement      receives the map from client coordinates to the row of sums
//
// The status is the first negative one of what they call or, before anything is written, that of
// checkProjectionSource. placement and depth then hold nothing defined.

// Adds up the columns of a rectangle whose samples all lie inside the source: exactly from its pixels if the map
// moves whole ones, else through the resampling paths. depth, if not null, receives destHeight, the number of samples
// in each sum.
int32_t projectAffine8(const kimg_windowConst &source, const kmath_xformLinear &srcFromClient, kimg_window &sums,
                       const kip_affineSampleParams &params, kip_affineSampleCache &cache, kmath_xformLinear *placement,
                       uint32_t *depth);
int32_t projectAffine16(const kimg_windowConst &source, const kmath_xformLinear &srcFromClient, kimg_window &sums,
                        const kip_affineSampleParams &params, kip_affineSampleCache &cache,
                        kmath_xformLinear *placement, uint32_t *depth);

// The same for any rectangle: pixels outside the source count as 0. coverage, a second row of the shape of sums,
// receives what the same rectangle gives for a source whose pixels are all coverageValue; depth, its greatest sum.
// A rectangle whose maximal source rectangle does not meet the source gives kip_statusProjectionOutsideSource, the
// sums then being 0. Asks for attention between its steps.
int32_t projectAffineClipped8(const kimg_windowConst &source, const kmath_xformLinear &srcFromClient, kimg_window &sums,
                              kimg_window &coverage, const kip_affineSampleParams &params, kip_affineSampleCache &cache,
                              kmath_xformLinear *placement, uint8_t coverageValue, uint32_t *depth);
int32_t projectAffineClipped16(const kimg_windowConst &source, const kmath_xformLinear &srcFromClient,
                               kimg_window &sums, kimg_window &coverage, const kip_affineSampleParams &params,
                               kip_affineSampleCache &cache, kmath_xformLinear *placement, uint8_t coverageValue,
                               uint32_t *depth);

// Tells whether a driver of a depth can project a source. Returns kip_statusProjectionModeUnsupported for 16-bit pixels
// in a table-driven mode, whatever the depth; else kip_statusPixelDepth for pixels of another depth,
// kip_statusMisaligned for 16-bit ones at an odd address and kimg_statusNoPixels for a window without memory.
int32_t checkProjectionSource(const kimg_windowConst &source, int32_t bytesPerPixel, uint32_t mode);

} // namespace kip

#endif
