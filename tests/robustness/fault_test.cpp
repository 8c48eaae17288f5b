// Whatever memory or threads a call cannot have, and whatever numbers it is given: a status comes back that the headers
// name, what they promise to be left alone is, nothing leaks, and the next call is right.

#include <atomic>
#include <cstdint>

#include <gtest/gtest.h>

#include "support/crash_note.h"
#include "support/draw_call.h"
#include "support/failing_allocator.h"
#include "support/levels.h"

#if defined(__linux__) && !defined(KIP_TEST_SANITIZED)
#define KIP_TEST_REFUSES_THREADS
#include <cerrno>
#include <dlfcn.h>
#include <pthread.h>

namespace {

std::atomic<int32_t> threadsAllowed{INT32_MAX};
std::atomic<int32_t> threadsRefused{0};

} // namespace

// Stands before the system's own, for the libraries too.
extern "C" __attribute__((visibility("default"))) int
pthread_create(pthread_t *thread, const pthread_attr_t *attributes, void *(*start)(void *), void *argument) noexcept
{
    using Create = int (*)(pthread_t *, const pthread_attr_t *, void *(*)(void *), void *);
    static const auto create = reinterpret_cast<Create>(dlsym(RTLD_NEXT, "pthread_create"));
    if (threadsAllowed.fetch_sub(1) > 0)
        return create(thread, attributes, start, argument);
    ++threadsRefused;
    return EAGAIN;
}

#endif

namespace kip::test {

namespace {

// A call that succeeds, and what it gives.
struct Served {
    SamplingCall call;
    Outcome outcome;
};

// isLarge: one that is cut into jobs.
Served drawServed(Random &random, Operation operation, bool isLarge, const CallMemory &memory)
{
    for (;;) {
        Served served = {drawCall(random, operation), {}};
        if (isLarge && !isWorthJobs(served.call, true))
            continue;
        noteForCrash(describe(served.call));
        served.outcome = runCall(served.call, memory, nullptr);
        EXPECT_EQ(served.outcome.fault, "") << describe(served.call);
        if (served.outcome.status >= 0)
            return served;
    }
}

// The first test, as threads that once were started stay.
TEST(FaultsOfThreads, ThoseThatCannotStartAreNotMissed)
{
#if defined(KIP_TEST_REFUSES_THREADS)
    ksys_jobThreadGroup_setThreadCount(1);
    const CallMemory memory{};
    Random random(69999);
    const Served served = drawServed(random, Operation::transform, true, memory);
    ksys_jobThreadGroup_setThreadCount(8);
    ksys_jobThreadGroup_setSplitAll(1);
    int32_t refused = 0;
    for (const int32_t allowed : {0, 1, INT32_MAX}) {
        threadsAllowed = allowed;
        threadsRefused = 0;
        EXPECT_EQ(runCall(served.call, memory, nullptr).digest, served.outcome.digest);
        refused += threadsRefused;
    }
    ksys_jobThreadGroup_setThreadCount(0);
    ksys_jobThreadGroup_setSplitAll(0);
    EXPECT_GT(refused, 0);
#else
    GTEST_SKIP() << "threads cannot be refused here";
#endif
}

class Faults : public testing::TestWithParam<Operation> {
protected:
    Faults()
    {
        ksys_jobThreadGroup_setThreadCount(3);
        ksys_jobThreadGroup_setSplitAll(1);
    }
    ~Faults() override
    {
        ksys_jobThreadGroup_setThreadCount(0);
        ksys_jobThreadGroup_setSplitAll(0);
    }

    Served drawServed(bool isLarge = false) { return kip::test::drawServed(random, GetParam(), isLarge, memory); }

    // Refuses every allocation of a call in turn, and of an earlier one with the same cache if there is one. Returns
    // how many there were.
    int64_t refuseAllocations(const Served &served, const Served *earlier)
    {
        SCOPED_TRACE(describe(served.call));
        return failEachAllocation([&] {
            ksys_shutdown_run(); // the table of cubic weights is made anew
            kip_affineSampleCache *cache = nullptr;
            kip_affineSampleCache **const handle = earlier != nullptr ? &cache : nullptr;
            int32_t status = earlier != nullptr ? kip_affineSampleCache_construct(&cache) : 0;
            // After a failure again, with the same cache. They fail again if memory does.
            for (const bool isAgain : {false, true}) {
                for (const Served *const each : {earlier, &served}) {
                    if (each == nullptr || isAgain != (status < 0))
                        continue;
                    const Outcome outcome = runCall(each->call, memory, handle);
                    EXPECT_EQ(outcome.fault, "");
                    EXPECT_TRUE(outcome.status < 0 || outcome.digest == each->outcome.digest);
                    status = isAgain ? status : outcome.status;
                }
            }
            EXPECT_EQ(kip_affineSampleCache_destruct(&cache), 0);
            ksys_shutdown_run();
            return status;
        });
    }

    const CallMemory memory{};
    Random random{70000 + static_cast<uint64_t>(GetParam())};
};

INSTANTIATE_TEST_SUITE_P(Operations, Faults, testing::ValuesIn(kOperations),
                         [](const auto &operation) { return nameOf(operation.param); });

TEST_P(Faults, FailedAllocationsLeaveNoTrace)
{
    int64_t requests = 0;
    for (int n = 0; n < 60; ++n) {
        const Served earlier = drawServed();
        requests += refuseAllocations(drawServed(), takesCache(GetParam()) && n % 2 == 0 ? &earlier : nullptr);
    }
    EXPECT_GT(requests, 60);
    for (int n = 0; samples(GetParam()) && n < 4; ++n) {
        const Served earlier = drawServed(true);
        EXPECT_GT(refuseAllocations(drawServed(true), takesCache(GetParam()) && n % 2 == 0 ? &earlier : nullptr), 3)
            << "no jobs";
    }
}

// Any numbers in any argument, in bounded memory: the same bytes at every level of the processor, too.
TEST_P(Faults, HostileCallsGiveAStatusAndKeepTheirPromises)
{
    FailingAllocator allocator;
    allocator.failBeyond(kMostMemory);
    const auto levels = availableLevels();
    const uint32_t features = levels.empty() ? uint32_t{ksys_featurePackedInteger} : levels.back().features;
    random = Random(80000 + static_cast<uint64_t>(GetParam()));
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
    SamplingCall call = {Operation::transformClipped, 2, 122, 7, 122};
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
