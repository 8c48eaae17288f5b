// Whole transforms at every level of the processor: the same bytes as with portable kernels alone.

#include <gtest/gtest.h>

#include "support/levels.h"
#include "support/random.h"
#include "support/transform_case.h"

namespace kip::test {

namespace {

// Depth and mode.
class TransformLevels : public testing::TestWithParam<std::tuple<int32_t, uint32_t>> {
protected:
    TransformMemory memory;

    void expectSameBytes(const TransformCase &c)
    {
        const TransformResult portable = [&] {
            const ProcessorLevel level(0);
            return runTransform(c, memory);
        }();
        EXPECT_EQ(portable.damage, "") << describe(c);
        for (const Level &level : availableLevels()) {
            const ProcessorLevel set(level.features);
            const TransformResult result = runTransform(c, memory);
            ASSERT_EQ(result.damage, "") << level.name << ", " << describe(c);
            ASSERT_EQ(result.status, portable.status) << level.name << ", " << describe(c);
            ASSERT_TRUE(result.pixels == portable.pixels) << level.name << ", " << describe(c);
        }
    }
};

TEST_P(TransformLevels, SameBytes)
{
    Random random(77);
    for (int n = 0; n < 600 && !HasFatalFailure(); ++n) {
        TransformCase c;
        c.bytesPerPixel = std::get<0>(GetParam());
        c.params.mode = std::get<1>(GetParam());
        c.seed = random.next();
        // Many sources of about a kernel's block, some that hold several tiles of any size.
        const bool isSmall = random.oneIn(3);
        c.width = random.between32(isSmall ? 1 : 20, isSmall ? 40 : 700);
        c.height = random.between32(isSmall ? 1 : 20, isSmall ? 40 : 500);
        c.pitch = (c.width + random.between32(0, random.oneIn(4) ? 3000 : 20)) * (random.oneIn(4) ? -1 : 1);
        c.srcFromClient = drawClientMap(random);
        c.params.destWidth = random.between32(1, isSmall ? 40 : 300);
        c.params.destHeight = random.between32(1, isSmall ? 40 : 300);
        c.destinationPitch = c.params.destWidth + random.between32(0, 5);
        c.sourceGuard = random.pick(kGuards);
        c.destinationGuard = random.pick(kGuards);
        drawRectangle(random, &c);
        expectSameBytes(c);
    }
}

INSTANTIATE_TEST_SUITE_P(DepthsAndModes, TransformLevels,
                         testing::Combine(testing::Values(1, 2), testing::Values(0u, 1u, 2u, 3u)),
                         [](const auto &suite) {
                             return std::to_string(8 * std::get<0>(suite.param)) + "Mode" +
                                    std::to_string(std::get<1>(suite.param));
                         });

} // namespace

} // namespace kip::test
