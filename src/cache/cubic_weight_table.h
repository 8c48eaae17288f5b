#ifndef KIP_CACHE_CUBIC_WEIGHT_TABLE_H
#define KIP_CACHE_CUBIC_WEIGHT_TABLE_H

#include <cstdint>

namespace kip {

// The four tap weights of the cubic convolution kernel (a = -0.5) for each of 256 fractions, scaled by 32768.
struct CubicWeightTable {
    uint32_t phaseBits; // fraction bits that select a phase: 8
    int16_t *weights;   // four per phase: the samples at -1, 0, +1 and +2 from the one at or left of the position
};

inline constexpr int32_t kCubicPhases = 256;
inline constexpr int32_t kCubicTaps = 4;

// Builds the process-wide table if it is not built yet. Returns a negative status of the lock, the allocation
// or the registration of its release; the table then stays unbuilt and the next call tries again.
int32_t ensureCubicWeightTable();

// The built table; ensureCubicWeightTable must have succeeded.
const CubicWeightTable &cubicWeightTable();

// The four weights of phase 0, behind which those of the other phases lie in order.
const int16_t *getCubicWeightsBase(const CubicWeightTable &table);

} // namespace kip

#endif
