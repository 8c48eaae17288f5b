// Many callers at once: every call gives what it gives alone, with a cache of the caller's own or none, while the pool
// changes its size and the table of cubic weights is made.

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "support/crash_note.h"
#include "support/draw_call.h"

namespace kip::test {

namespace {

constexpr int kThreads = 8;
#if defined(KIP_TEST_SANITIZED)
constexpr size_t kCalls = 2500;
constexpr int kRaces = 20;
#else
constexpr size_t kCalls = 12500; // a hundred thousand in all
constexpr int kRaces = 100;
#endif

void runOnAllThreads(const std::function<void(int)> &work)
{
    std::atomic<int> present{0};
    std::vector<std::thread> threads;
    for (int n = 0; n < kThreads; ++n) {
        threads.emplace_back([&, n] {
            for (++present; present < kThreads;)
                std::this_thread::yield();
            work(n);
        });
    }
    for (std::thread &thread : threads)
        thread.join();
}

// Calls and what they give on a single thread.
struct Script {
    std::vector<SamplingCall> calls;
    std::vector<uint64_t> digests;
};

Script drawScript(Random &random, size_t count, const CallMemory &memory)
{
    ksys_jobThreadGroup_setThreadCount(1);
    Script script;
    while (script.calls.size() < count) {
        SamplingCall call = drawCall(random, random.pick(kOperations));
        if (script.calls.size() % 200 == 0 && !isWorthJobs(call))
            continue;
        script.digests.push_back(runCall(call, memory, nullptr).digest);
        script.calls.push_back(call);
    }
    return script;
}

struct Threads : testing::Test {
    ~Threads() override { ksys_jobThreadGroup_setThreadCount(0); }
};

TEST_F(Threads, CallsGiveWhatTheyGiveAlone)
{
    Random random(90001);
    const auto memory = std::make_unique<CallMemory>();
    const Script script = drawScript(random, kCalls, *memory);

    std::atomic<bool> isOver{false};
    std::thread resizer([&] {
        for (int32_t count = 1; !isOver; count = count % 9 + 1) {
            ksys_jobThreadGroup_setThreadCount(count);
            std::this_thread::yield();
        }
    });
    std::atomic<int64_t> wrong{0};
    runOnAllThreads([&](int thread) {
        const CallMemory own{};
        kip_affineSampleCache *cache = nullptr;
        if (kip_affineSampleCache_construct(&cache) < 0)
            ++wrong;
        for (size_t n = 0; n < script.calls.size(); ++n) {
            const size_t at = (n + static_cast<size_t>(thread) * 211) % script.calls.size();
            const bool isCached = (n + static_cast<size_t>(thread)) % 2 == 0;
            const Outcome outcome =
                runCall(script.calls[at], own, isCached ? &cache : nullptr, Check::promises, n % 3 == 0);
            if (outcome.digest != script.digests[at] || !outcome.fault.empty()) {
                if (++wrong == 1)
                    ADD_FAILURE() << outcome.fault << describe(script.calls[at]);
            }
        }
        kip_affineSampleCache_destruct(&cache);
    });
    isOver = true;
    resizer.join();
    EXPECT_EQ(wrong, 0);
}

TEST_F(Threads, RaceForTheFirstUseOfTheCubicWeights)
{
    Random random(90002);
    std::vector<std::unique_ptr<CallMemory>> memories;
    for (int n = 0; n < kThreads; ++n)
        memories.push_back(std::make_unique<CallMemory>());
    Script script;
    while (script.calls.size() < kThreads) {
        const SamplingCall call = drawCall(random, random.oneIn(2) ? Operation::transform : Operation::projectClipped);
        const Outcome outcome = runCall(call, *memories[0], nullptr);
        if (call.params.mode < kip_affineModeBilinearSeparable || outcome.status < 0)
            continue;
        script.calls.push_back(call);
        script.digests.push_back(outcome.digest);
    }
    for (int race = 0; race < kRaces; ++race) {
        ksys_shutdown_run(); // the table is gone
        runOnAllThreads([&](int thread) {
            const auto at = static_cast<size_t>(thread);
            if (thread % 3 == 0) {
                EXPECT_EQ(kip_affineTransform_setup(), 0);
            }
            EXPECT_EQ(runCall(script.calls[at], *memories[at], nullptr).digest, script.digests[at]);
        });
    }
}

} // namespace

} // namespace kip::test
