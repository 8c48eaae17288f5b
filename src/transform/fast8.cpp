#include "transform/resample.h"

namespace kip {

// No optimised 8-bit variant exists yet: the path declines every source, and bands follow the portable tiles.
bool isServedByFast8(const kimg_windowConst &)
{
    return false;
}

int32_t resampleFast8(uint32_t, const kimg_windowConst &, const kmath_xformLinear &, const kimg_window &,
                      const kip_affineSampleParams &, kip_affineSampleCache &)
{
    return kip_statusOptimizationDeclined;
}

} // namespace kip
