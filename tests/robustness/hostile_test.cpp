// Any numbers in any argument: a status that the headers name, within bounds of time and memory, every promise kept and
// the same bytes at every level of the processor.

#include <cstdint>

#include <gtest/gtest.h>

#include "support/crash_note.h"
#include "support/draw_call.h"
#include "support/failing_allocator.h"
#include "support/levels.h"

namespace kip::test {

namespace {

class Hostile : public testing::TestWithParam<Operation> {};

INSTANTIATE_TEST_SUITE_P(Operations, Hostile, testing::ValuesIn(kOperations),
                         [](const auto &operation) { return nameOf(operation.param); });

TEST_P(Hostile, CallsGiveAStatusAndKeepTheirPromises)
{
    FailingAllocator allocator;
    allocator.failBeyond(kMostMemory);
    const CallMemory memory{};
    const auto levels = availableLevels();
    const uint32_t features = levels.empty() ? uint32_t{ksys_featurePackedInteger} : levels.back().features;
    Random random(80000 + static_cast<uint64_t>(GetParam()));
    for (int n = 0; n < (GetParam() == Operation::analyse ? 40000 : 4000); ++n) {
        SamplingCall call = drawCall(random, GetParam());
        spoilCall(random, &call);
        noteForCrash(describe(call));
        Outcome outcomes[2];
        for (const bool isVector : {false, true}) {
            const ProcessorLevel level(isVector ? features : 0);
            outcomes[isVector] = runCall(call, memory, nullptr, Check::promises, isVector);
            ASSERT_EQ(outcomes[isVector].fault, "") << describe(call);
        }
        ASSERT_EQ(outcomes[0].status, outcomes[1].status) << describe(call);
        ASSERT_EQ(outcomes[0].digest, outcomes[1].digest) << describe(call);
    }
    ksys_shutdown_run();
    EXPECT_EQ(allocator.liveBlocks(), 0);
}

// Cubic tiles read beside the pixels that count, here into the gaps between the rows of the copy that a clipped
// transform makes.
TEST(Memory, ThatNobodyWroteDoesNotCount)
{
    FailingAllocator allocator;
    const CallMemory memory{};
    SamplingCall call;
    call.operation = Operation::transformClipped;
    call.bytesPerPixel = 2;
    call.width = call.pitch = 122;
    call.height = 7;
    call.x = 682;
    call.y = 273;
    call.srcFromClient = {40, 8, 8, 0, 0, 2};
    call.params = {{71.22019162765136, 134.75000386824271, 5e-07, 14.602461233726535, -5.8343804015826102e-08,
                    -1.9290453588211929e-05},
                   kip_affineModeBicubic,
                   8,
                   193};
    uint64_t digests[2];
    for (const int turn : {0, 1}) {
        allocator.fillWith(turn == 0 ? 0xFF : 0);
        const Outcome outcome = runCall(call, memory);
        ASSERT_EQ(outcome.status, 0) << outcome.fault;
        digests[turn] = outcome.digest;
    }
    EXPECT_EQ(digests[0], digests[1]);
}

} // namespace

} // namespace kip::test
