#ifndef KIP_PROJECTION_NORMALIZE_PROJECTION_H
#define KIP_PROJECTION_NORMALIZE_PROJECTION_H

#include <cstdint>

#include <kip/kip.h>

namespace kip {

// Turns the sums of a clipped projection into means over the samples that lie inside the source, and its coverage
// into the numbers of those samples.
//
//   result, coverage  row 0 of each holds columns 0 to columns - 1, as far as the image reaches; 4-byte pixels
//   coverageValue     what one sample wholly inside counts in coverage
//   depth             receives 1, unless there is no coverage at all; may be null
//   first, end        receive the range of the columns whose coverage rounds above 0; an empty one if there are none
// Returns 0 or a status of the image library.
int32_t normalizeProjection(kimg_image *result, kimg_image *coverage, uint8_t coverageValue, int32_t columns,
                            uint32_t *depth, int32_t *first, int32_t *end);

} // namespace kip

#endif
