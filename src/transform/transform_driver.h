#ifndef KIP_TRANSFORM_TRANSFORM_DRIVER_H
#define KIP_TRANSFORM_TRANSFORM_DRIVER_H

#include <cstdint>

#include "support/sampling.h"

namespace kip {

// Resample a destination of destWidth x destHeight pixels: bring the cache up to date, then copy, turn or mirror if the
// map moves whole pixels, and resample otherwise, on the calling thread or in bands that run as jobs. Return a status
// of the cache, the geometry, the jobs or the resampling paths; a failure of the cache leaves the destination
// untouched.
int32_t kip_affineTransformWindow8(const Sampling &sampling);
int32_t kip_affineTransformWindow16(const Sampling &sampling);

} // namespace kip

#endif
