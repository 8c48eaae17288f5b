#include "cache/cubic_weight_table.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>

#include <gtest/gtest.h>
#include <kip/kip.h>

namespace {

std::array<int16_t, 4> weightsOf(int32_t phase)
{
    const int16_t *const weights = kip::getCubicWeightsBase(kip::cubicWeightTable()) + ptrdiff_t{4} * phase;
    return {weights[0], weights[1], weights[2], weights[3]};
}

TEST(CubicWeightTable, HoldsTheKernel)
{
    ASSERT_GE(kip_affineTransform_setup(), 0);
    EXPECT_EQ(weightsOf(0), (std::array<int16_t, 4>{0, 32767, 0, 0}));
    EXPECT_EQ(weightsOf(1), (std::array<int16_t, 4>{-63, 32766, 64, 0}));
    EXPECT_EQ(weightsOf(64), (std::array<int16_t, 4>{-2304, 28416, 7424, -768}));
    EXPECT_EQ(weightsOf(128), (std::array<int16_t, 4>{-2048, 18432, 18432, -2048}));
    int32_t sums[3] = {};
    for (int32_t phase = 0; phase < 256; ++phase) {
        const auto w = weightsOf(phase);
        const int32_t sum = w[0] + w[1] + w[2] + w[3];
        ASSERT_TRUE(sum >= 32767 && sum <= 32769) << phase;
        ++sums[sum - 32767];
        EXPECT_GE(std::min(w[0], w[3]), -2427);
        if (phase > 0) {
            const auto mirrored = weightsOf(256 - phase);
            EXPECT_EQ(w, (std::array<int16_t, 4>{mirrored[3], mirrored[2], mirrored[1], mirrored[0]})) << phase;
        }
    }
    EXPECT_EQ(sums[0], 25);
    EXPECT_EQ(sums[1], 205);
    EXPECT_EQ(sums[2], 26);
}

} // namespace
