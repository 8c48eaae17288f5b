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

// Gives the four weights of a phase (0 to 255) as one word, the first in the lowest 16 bits. Returns 0.
int32_t getCubicWeightsForPhase(const CubicWeightTable &table, int32_t phase, uint64_t *weights);

// Gives the weights of phase 0, where all of them begin. Returns 0.
int32_t getCubicWeightsBase(const CubicWeightTable &table, const int16_t **weights);

} // namespace kip

#endif
