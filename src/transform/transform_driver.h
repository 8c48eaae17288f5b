#ifndef KIP_TRANSFORM_TRANSFORM_DRIVER_H
#define KIP_TRANSFORM_TRANSFORM_DRIVER_H

#include <kip/kip.h>

#include "cache/sample_cache.h"

namespace kip {

// Resamples a destWidth x destHeight destination window: brings the cache up to date, then copies, turns or
// mirrors if the map moves whole pixels, and resamples otherwise, on the calling thread or in bands that run
// as jobs. Returns a status of the cache, the geometry, the jobs or the resampling paths; a failure of the
// cache leaves the destination untouched.
int32_t kip_affineTransformWindow8(const kimg_windowConst &source, const kmath_xformLinear &srcFromClient,
                                   kimg_window &destination, const kip_affineSampleParams &params,
                                   kip_affineSampleCache &cache);
int32_t kip_affineTransformWindow16(const kimg_windowConst &source, const kmath_xformLinear &srcFromClient,
                                    kimg_window &destination, const kip_affineSampleParams &params,
                                    kip_affineSampleCache &cache);

} // namespace kip

#endif
