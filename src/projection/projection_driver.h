#ifndef KIP_PROJECTION_PROJECTION_DRIVER_H
#define KIP_PROJECTION_PROJECTION_DRIVER_H

#include <cstdint>
#include <type_traits>

#include <kip/kip.h>

#include "support/sampling.h"

namespace kip {

// The drivers of the affine projection. What they share:
//
//   sampling   adds to its destination, one row of exactly destWidth sums, aligned as such, at place (0, 0); the
//              parameters have sizes of at least 1 and a known mode; the cache is brought up to date for one row
//   placement  receives the map from client coordinates to the row of sums
//
// The status is the first negative one of what they call. placement and depth then hold nothing defined. With
// kip_statusProjectionModeUnsupported (16-bit pixels in a table-driven mode, whatever the driver's),
// kip_statusPixelDepth (pixels of another size), kip_statusMisaligned (16-bit ones at an odd address),
// kimg_statusNoPixels (a window without memory) and kip_statusSourceTooLarge nothing is written.

// Adds up the columns of a rectangle whose samples all lie inside the source: exactly from its pixels if the map
// moves whole ones, else through the resampling paths. depth, if not null, receives destHeight, the number of samples
// in each sum.
int32_t projectAffine8(const Sampling &sampling, kmath_xformLinear *placement, uint32_t *depth);
int32_t projectAffine16(const Sampling &sampling, kmath_xformLinear *placement, uint32_t *depth);

// The same for any rectangle: pixels outside the source count as 0. coverage, a second row of the shape of the first,
// receives what the same rectangle gives for a source whose pixels are all coverageValue; depth, its greatest sum.
// A rectangle whose maximal source rectangle does not meet the source gives kip_statusProjectionOutsideSource, the
// sums then being 0. Asks for attention between its steps.
int32_t projectAffineClipped8(const Sampling &sampling, kimg_window &coverage, kmath_xformLinear *placement,
                              uint8_t coverageValue, uint32_t *depth);
int32_t projectAffineClipped16(const Sampling &sampling, kimg_window &coverage, kmath_xformLinear *placement,
                               uint8_t coverageValue, uint32_t *depth);

template <typename Pixel>
inline constexpr auto projectAffine = std::is_same_v<Pixel, uint8_t> ? projectAffine8 : projectAffine16;
template <typename Pixel>
inline constexpr auto projectAffineClipped =
    std::is_same_v<Pixel, uint8_t> ? projectAffineClipped8 : projectAffineClipped16;

// Tells whether the source has pixels that a driver of these can read: kip_statusMisaligned or kimg_statusNoPixels, and
// for pixels of another size what the drivers answer. A window without a pixel has none of a wrong size.
int32_t checkProjectionPixels(const Sampling &sampling, int32_t bytesPerPixel);

// Fills the library's record of the processor, of which nothing but the status of filling it is used.
int32_t checkProcessor();

} // namespace kip

#endif
