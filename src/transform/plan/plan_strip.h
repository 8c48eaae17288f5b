#ifndef KIP_TRANSFORM_PLAN_PLAN_STRIP_H
#define KIP_TRANSFORM_PLAN_PLAN_STRIP_H

#include <algorithm>
#include <cstdint>

namespace kip {

// A tile's footprint, brought into the order of a scan: strip(secondary, primary), where primary counts in the scan's
// direction.
template <typename Pixel>
struct StripCopy {
    const Pixel *src;             // the footprint's first pixel in the order of the scan
    int64_t majorStep, minorStep; // source pixels of a step along the primary and the secondary axis
    int32_t primary, secondary;   // the footprint's size
    Pixel *strip;
    int64_t stripPitch; // at least primary
};

// Copies in blocks, so that neither side of a transpose leaves the first-level cache.
template <typename Pixel>
void copyStripPortable(const StripCopy<Pixel> &copy)
{
    constexpr int32_t block = 16;
    for (int32_t s0 = 0; s0 < copy.secondary; s0 += block) {
        const int32_t sEnd = std::min(s0 + block, copy.secondary);
        for (int32_t p0 = 0; p0 < copy.primary; p0 += block) {
            const int32_t pEnd = std::min(p0 + block, copy.primary);
            for (int32_t s = s0; s < sEnd; ++s)
                for (int32_t p = p0; p < pEnd; ++p)
                    copy.strip[s * copy.stripPitch + p] = copy.src[p * copy.majorStep + s * copy.minorStep];
        }
    }
}

} // namespace kip

#endif
