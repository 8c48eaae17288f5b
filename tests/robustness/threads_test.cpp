// Many callers at once: every call gives what it gives alone, with a cache of the caller's own or none, while the pool
// changes its size and the table of cubic weights is made.

#include <atomic>
#include <cstdint>
#include <memory>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "support/draw_call.h"

namespace kip::test {

namespace {

constexpr int kThreads = 8;
#if defined(KIP_TEST_SANITIZED)
constexpr size_t kCalls = 2500, kRounds = 20;
#else
constexpr size_t kCalls = 12500, kRounds = 100; // a hundred thousand in all
#endif

// Calls and what they give on a single thread.
struct Script {
    std::vector<SamplingCall> calls;
    std::vector<uint64_t> digests;
};

Script drawScript(Random &random, const CallMemory &memory)
{
    ksys_jobThreadGroup_setThreadCount(1);
    Script script;
    while (script.calls.size() < kCalls) {
        SamplingCall call = drawCall(random, random.pick(kOperations));
        if (script.calls.size() % 200 == 0 && !isWorthJobs(call))
            continue;
        script.digests.push_back(runCall(call, memory, nullptr).digest);
        script.calls.push_back(call);
    }
    return script;
}

TEST(Threads, CallsGiveWhatTheyGiveAlone)
{
    Random random(90001);
    std::vector<std::unique_ptr<CallMemory>> memories;
    for (int n = 0; n < kThreads; ++n)
        memories.push_back(std::make_unique<CallMemory>());
    const Script script = drawScript(random, *memories[0]);

    std::atomic<bool> isOver{false};
    std::thread resizer([&] {
        for (int32_t count = 1; !isOver; count = count % 9 + 1) {
            ksys_jobThreadGroup_setThreadCount(count);
            std::this_thread::yield();
        }
    });
    std::atomic<int64_t> wrong{0};
    std::atomic<int> present{0};
    const auto work = [&](size_t thread, size_t from) {
        for (++present; present < kThreads;)
            std::this_thread::yield();
        kip_affineSampleCache *cache = nullptr;
        if (kip_affineSampleCache_construct(&cache) < 0 || (thread % 3 == 0 && kip_affineTransform_setup() < 0))
            ++wrong;
        for (size_t n = from; n < from + kCalls / kRounds; ++n) {
            const size_t at = (n + thread * 211) % script.calls.size();
            const bool isCached = (n + thread) % 2 == 0;
            const Outcome outcome =
                runCall(script.calls[at], *memories[thread], isCached ? &cache : nullptr, Check::promises, n % 3 == 0);
            if ((outcome.digest != script.digests[at] || !outcome.fault.empty()) && ++wrong == 1)
                ADD_FAILURE() << outcome.fault << describe(script.calls[at]);
        }
        kip_affineSampleCache_destruct(&cache);
    };
    for (size_t round = 0; round < kRounds; ++round) {
        ksys_shutdown_run(); // the table of cubic weights is gone
        present = 0;
        std::vector<std::thread> threads;
        for (size_t thread = 0; thread < kThreads; ++thread)
            threads.emplace_back(work, thread, round * (kCalls / kRounds));
        for (std::thread &thread : threads)
            thread.join();
    }
    isOver = true;
    resizer.join();
    EXPECT_EQ(wrong, 0);
    ksys_jobThreadGroup_setThreadCount(0);
}

} // namespace

} // namespace kip::test
