// Many callers at once: every call gives what it gives alone, with a cache of the caller's own or none, while the pool
// changes its size and the table of cubic weights is made.

#include <atomic>
#include <cstdint>
#include <thread>
#include <utility>
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

TEST(Threads, CallsGiveWhatTheyGiveAlone)
{
    Random random(90001);
    const CallMemory memories[kThreads];
    ksys_jobThreadGroup_setThreadCount(1);
    std::vector<std::pair<SamplingCall, uint64_t>> script; // calls, and what they give on a single thread
    while (script.size() < kCalls) {
        const SamplingCall call = drawCall(random, random.pick(kOperations));
        if (script.size() % 200 != 0 || isWorthJobs(call, true))
            script.emplace_back(call, runCall(call, memories[0], nullptr).digest);
    }

    std::atomic<bool> isOver{false};
    std::thread resizer([&] {
        for (int32_t count = 1; !isOver; count = count % 9 + 1) {
            ksys_jobThreadGroup_setThreadCount(count);
            ksys_jobThreadGroup_setSplitAll(count % 2);
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
            const auto &[call, digest] = script[(n + thread * 211) % kCalls];
            const bool isCached = (n + thread) % 2 == 0;
            const Outcome outcome =
                runCall(call, memories[thread], isCached ? &cache : nullptr, Check::promises, n % 3 == 0);
            if ((outcome.digest != digest || !outcome.fault.empty()) && ++wrong == 1)
                ADD_FAILURE() << outcome.fault << describe(call);
        }
        kip_affineSampleCache_destruct(&cache);
    };
    for (size_t round = 0; round < kRounds; ++round) {
        ksys_shutdown_run(); // the table of cubic weights is gone
        present = 0;
        std::vector<std::jthread> threads;
        for (size_t thread = 0; thread < kThreads; ++thread)
            threads.emplace_back(work, thread, round * (kCalls / kRounds));
    }
    isOver = true;
    resizer.join();
    EXPECT_EQ(wrong, 0);
    ksys_jobThreadGroup_setThreadCount(0);
    ksys_jobThreadGroup_setSplitAll(0);
}

} // namespace

} // namespace kip::test
