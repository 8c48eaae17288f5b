#ifndef KIP_TESTS_SUPPORT_SLOW_MODEL_H
#define KIP_TESTS_SUPPORT_SLOW_MODEL_H

#include <cstdint>
#include <vector>

#include <kip/kip.h>

namespace kip::test {

// The transforms once more, literally as they are defined, for one destination pixel at a time. A neighbour outside
// the source is the nearest pixel of it.

// How the positions of the modes without tables are counted.
enum class ModelWalker { fixed, rebased, inDoubles };

// The walker of the portable paths: 16.16 wherever it can address the source; else doubles if a tile is 32768 or more
// client units long, or if its samples lie 32768 or more source pixels apart.
ModelWalker modelWalker(const kimg_windowConst &source, const kmath_xformLinear &srcFromClient,
                        const kip_affineSampleParams &params);

// All pixels of a transform that is no whole-pixel map, row by row, in any mode; -1 where the definition gives none:
// such a pixel would be read from outside the source. isFast: by the optimised 8-bit path wherever that serves.
std::vector<int64_t> resampleSlowly(const kimg_windowConst &source, const kmath_xformLinear &srcFromClient,
                                    const kip_affineSampleParams &params, bool isFast);

} // namespace kip::test

#endif
