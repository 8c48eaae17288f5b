#include "cache/cubic_weight_table.h"

#include <algorithm>
#include <bit>
#include <cstddef>

#include <kip/kip.h>

namespace kip {

namespace {

// Process-wide: all calls share one table. The flag is read and written only while the section is held.
CubicWeightTable table;
uint32_t isBuilt;
ksys_criticalSection section;
uint32_t sectionOnceWord;

constexpr double kScale = 32768.0;
// 1.0 does not fit 16 bits at this scale: it occurs at phase 0 of the second weight only.
constexpr double kGreatest = 32767.0;

int16_t truncated(double weight)
{
    return static_cast<int16_t>(static_cast<int32_t>(weight));
}

// K(1 + t), K(t), K(1 - t) and K(2 - t) of the cubic convolution kernel (Keys, 1981) with a = -0.5. All
// values are exact in doubles: a phase has eight bits, its cube twenty-four.
void weightsOfPhase(int32_t phase, int16_t *weights)
{
    const double t = phase * 0.00390625;
    const double u = t + 1.0;
    weights[0] = truncated((u * 2.5 * u - u * 0.5 * u * u - u * 4.0 + 2.0) * kScale);
    weights[1] = truncated(std::min((t * 1.5 * t * t - t * 2.5 * t + 1.0) * kScale, kGreatest));
    const double v = t - 1.0;
    weights[2] = truncated(std::min((1.0 - (v * 1.5 + 2.5) * v * v) * kScale, kGreatest));
    const double s = t - 2.0;
    weights[3] = truncated((((s * 0.5 + 2.5) * s + 4.0) * s + 2.0) * kScale);
}

int32_t buildCubicWeights(CubicWeightTable *result)
{
    result->phaseBits = std::bit_width(static_cast<uint32_t>(kCubicPhases)) - 1;
    result->weights = static_cast<int16_t *>(kqfCacheAlloc(sizeof(int16_t) * kCubicPhases * kCubicTaps));
    if (result->weights == nullptr)
        return ksys_statusOutOfMemory;
    for (int32_t phase = 0; phase < kCubicPhases; ++phase)
        weightsOfPhase(phase, result->weights + ptrdiff_t{phase} * kCubicTaps);
    return 0;
}

// The shutdown callback. No operation runs any more, or is to come; one that comes all the same builds anew.
int32_t freeCubicWeights(void *argument)
{
    auto *const built = static_cast<CubicWeightTable *>(argument);
    kqfFree(built->weights);
    built->weights = nullptr;
    isBuilt = 0;
    return 0;
}

// Runs while the section is held.
int32_t buildTable()
{
    int32_t status = buildCubicWeights(&table);
    if (status < 0)
        return status;
    status = ksys_shutdown_register(freeCubicWeights, &table);
    if (status < 0) {
        // Nobody would free it: give it back and let a later call try again.
        freeCubicWeights(&table);
        return status;
    }
    isBuilt = 1;
    return status;
}

} // namespace

int32_t ensureCubicWeightTable()
{
    int32_t status = ksys_criticalSection_constructSingleton(&section, &sectionOnceWord);
    if (status < 0)
        return status;
    uint32_t word;
    status = ksys_criticalSection_wait(&section, &word);
    if (status < 0)
        return status;
    const int32_t buildStatus = isBuilt == 0 ? buildTable() : 0;
    status = ksys_criticalSection_release(&section);
    return buildStatus < 0 ? buildStatus : status;
}

const CubicWeightTable &cubicWeightTable()
{
    return table;
}

const int16_t *getCubicWeightsBase(const CubicWeightTable &weightTable)
{
    return weightTable.weights;
}

} // namespace kip

int32_t kip_affineTransform_setup(void)
{
    return kip::ensureCubicWeightTable();
}
