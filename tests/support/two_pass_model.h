#ifndef KIP_TESTS_SUPPORT_TWO_PASS_MODEL_H
#define KIP_TESTS_SUPPORT_TWO_PASS_MODEL_H

#include <cstdint>
#include <vector>

#include <kip/kip.h>

namespace kip::test {

// The map from pixel coordinates of the destination to those of the source's image.
kmath_xformLinear sourceFromDest(const kmath_xformLinear &srcFromClient, const kip_affineSampleParams &params);

// All pixels of a transform in a table-driven mode, row by row, as its two passes are defined; -1 where the definition
// gives none. roundsDown: the first pass of the optimised 8-bit path.
std::vector<int64_t> resampleInTwoPasses(const kimg_windowConst &source, const kmath_xformLinear &srcFromClient,
                                         const kip_affineSampleParams &params, bool roundsDown);

} // namespace kip::test

#endif
