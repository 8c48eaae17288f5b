// Jobs: statuses, ownership of their data, who runs them, and how processes with a pool fork and end.

#include <ksys/ksys.h>

#include <algorithm>
#include <atomic>
#include <cfenv>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <numeric>
#include <stdexcept>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "support/failing_allocator.h"

#if defined(__unix__)
#include <sys/wait.h>
#include <unistd.h>
#endif

namespace {

using kip::test::FailingAllocator;

using Job = std::function<int32_t()>;

int32_t runJob(const ksys_jobParams *params)
{
    return (*static_cast<const Job *>(params->data))();
}

// Returns the jobs' statuses. Whether the dispatch itself reports the first failure is checked here.
std::vector<int32_t> dispatch(std::vector<Job> jobs)
{
    ksys_jobThreadGroup group;
    ksys_jobRequestSet requests{};
    ksys_jobResultSet results{};
    EXPECT_EQ(ksys_jobThreadGroup_construct(&group), 0);
    for (Job &job : jobs) {
        ksys_jobParams params{&job, [](void *) { return 0; }};
        EXPECT_EQ(ksys_jobRequestSet_addFuncAndParams(&requests, runJob, &params), 0);
    }
    const int32_t status = ksys_jobThreadGroup_dispatchAndWait(&group, &requests, &results);
    const std::vector<int32_t> statuses(results.statuses, results.statuses + results.count);
    const auto failed = std::find_if(statuses.begin(), statuses.end(), [](int32_t result) { return result < 0; });
    EXPECT_EQ(status, failed == statuses.end() ? 0 : *failed);
    EXPECT_EQ(ksys_jobResultSet_destruct(&results), 0);
    EXPECT_EQ(ksys_jobRequestSet_destruct(&requests), 0);
    return statuses;
}

// Waits for what another thread is about to do. The bound is there to fail rather than hang.
bool waitFor(const std::function<bool()> &isMet)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(1);
    while (!isMet() && std::chrono::steady_clock::now() < end)
        std::this_thread::yield();
    return isMet();
}

// Jobs that end only when all of them run at the same time, each on a thread of its own; they return the way of
// rounding there.
std::vector<Job> jobsThatMeet(int32_t count, std::atomic<int32_t> &present)
{
    const Job job = [count, &present] {
        ++present;
        return waitFor([&] { return present >= count; }) ? std::fegetround() : -1;
    };
    return std::vector<Job>(static_cast<size_t>(count), job);
}

// The group's thread count for one test, then the default again.
struct Jobs : testing::Test {
    ~Jobs() override { ksys_jobThreadGroup_setThreadCount(0); }
};

TEST_F(Jobs, statusesComeInTheOrderOfTheRequests)
{
    for (const int32_t threads : {1, 2, 3, 8}) {
        ksys_jobThreadGroup_setThreadCount(threads);
        for (const int32_t count : {0, 1, 2, 7, 100}) {
            SCOPED_TRACE(testing::Message() << threads << " threads, " << count << " jobs");
            std::vector<int32_t> expected;
            std::vector<Job> jobs;
            std::atomic<int32_t> runs{0};
            for (int32_t i = 0; i < count; ++i) {
                expected.push_back(i % 7 == 5 ? ksys_statusJobAborted : i % 5 == 3 ? -i : i);
                jobs.emplace_back([&runs, i, status = expected.back()] {
                    ++runs;
                    return i % 7 == 5 ? throw std::runtime_error("thrown by a job") : status;
                });
            }
            EXPECT_EQ(dispatch(jobs), expected);
            EXPECT_EQ(runs, count);
        }
    }
}

TEST_F(Jobs, aGroupUsesAllItsThreadsAndNoMoreAndTheyRoundAsTheCallerDoes)
{
    for (const int32_t threads : {8, 3, 2, 1, 2}) { // the pool keeps the threads of the first
        SCOPED_TRACE(threads);
        ksys_jobThreadGroup_setThreadCount(threads);
        for (const int rounding : {FE_UPWARD, FE_TOWARDZERO, FE_TONEAREST}) {
            std::atomic<int32_t> present{0};
            std::fesetround(rounding);
            const std::vector<int32_t> found = dispatch(jobsThatMeet(threads, present));
            std::fesetround(FE_TONEAREST);
            EXPECT_EQ(found, std::vector<int32_t>(static_cast<size_t>(threads), rounding));
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5)); // far longer than a worker spins
        std::atomic<int32_t> running{0};
        const std::vector<int32_t> seen = dispatch(std::vector<Job>(100, [&running] {
            const int32_t now = ++running;
            for (int i = 0; i < 20; ++i)
                std::this_thread::yield();
            return --running, now;
        }));
        EXPECT_LE(*std::max_element(seen.begin(), seen.end()), threads);
    }
}

// Dispatches four jobs that each dispatch four, and so on; returns the number of leaves.
int32_t dispatchTree(int32_t depth)
{
    if (depth == 0)
        return 1;
    const std::vector<int32_t> leaves = dispatch(std::vector<Job>(4, [depth] { return dispatchTree(depth - 1); }));
    return std::accumulate(leaves.begin(), leaves.end(), 0);
}

TEST_F(Jobs, jobsDispatchJobsOnManyThreads)
{
    for (const int32_t threads : {1, 2, 3, 8}) {
        ksys_jobThreadGroup_setThreadCount(threads);
        std::atomic<int32_t> leaves{0};
        std::vector<std::jthread> callers;
        for (int caller = 0; caller < 6; ++caller)
            callers.emplace_back([&] {
                for (int round = 0; round < 20; ++round)
                    leaves += dispatchTree(1 + round % 3);
            });
        callers.clear(); // joins them
        EXPECT_EQ(leaves, 6 * (7 * 4 + 7 * 16 + 6 * 64));
    }
}

TEST(JobParameters, ownTheirDataUntilARequestCarriesItAway)
{
    const FailingAllocator allocator;
    static int32_t deletions;
    ksys_jobParams params{};
    ksys_jobRequestSet requests{};
    int32_t statuses[] = {-6, -7}; // of being deleted
    int32_t *data = nullptr;
    const auto deleteIt = [](void *at) { return ++deletions, **static_cast<int32_t **>(at); };
    const auto take = [&](int32_t *given) { return ksys_jobParams_takeData(&params, &(data = given), deleteIt); };
    for (const int32_t status :
         {take(nullptr), ksys_jobParams_takeData(&params, &data, nullptr),
          ksys_jobParams_takeData(nullptr, &data, deleteIt), ksys_jobParams_takeData(&params, nullptr, deleteIt),
          ksys_jobParams_getDataConst(nullptr, &data), ksys_jobParams_getDataConst(&params, nullptr),
          ksys_jobRequestSet_addFuncAndParams(nullptr, runJob, &params),
          ksys_jobRequestSet_addFuncAndParams(&requests, nullptr, &params),
          ksys_jobRequestSet_addFuncAndParams(&requests, runJob, nullptr), ksys_jobThreadGroup_setThreadCount(-1),
          ksys_jobThreadGroup_dispatchAndWait(nullptr, &requests, nullptr)})
        EXPECT_EQ(status, ksys_statusBadArgument);
    EXPECT_EQ(take(&statuses[0]), 0);
    EXPECT_EQ(take(&statuses[1]), -6); // of the data before, which is deleted; the new one stays the caller's
    for (int i = 0; i < 50; ++i) {
        EXPECT_EQ(take(&statuses[1]), 0);
        EXPECT_EQ(data, nullptr);
        ASSERT_EQ(ksys_jobRequestSet_addFuncAndParams(&requests, runJob, &params), 0);
        EXPECT_EQ(ksys_jobParams_getDataConst(&params, &data), ksys_statusNoData);
    }
    EXPECT_EQ(ksys_jobRequestSet_destruct(&requests), -7);
    EXPECT_EQ(deletions, 51);
    EXPECT_EQ(allocator.liveBlocks(), 0);
}

// The thread sanitizer ends a forked child that starts a thread, and the address sanitizer has locks of its own, held
// for ever in a child that is forked while another thread allocates.
#if defined(__unix__) && !defined(KIP_TEST_SANITIZED)

// Takes the locks that there are: the pool's, and a section that is held meanwhile.
bool areServicesThere()
{
    static ksys_criticalSection section;
    static uint32_t once;
    std::atomic<int32_t> present{0};
    return ksys_criticalSection_constructSingleton(&section, &once) == 0 &&
           ksys_criticalSection_wait(&section, nullptr) == 0 &&
           dispatch(jobsThatMeet(3, present)) == std::vector<int32_t>(3, FE_TONEAREST) &&
           ksys_criticalSection_release(&section) == 0;
}

// Runs work in a forked child, which has a minute; returns whether it worked there.
bool worksInAChild(const std::function<bool()> &work)
{
    const pid_t child = fork();
    if (child == 0) {
        alarm(60);
        _exit(work() ? 11 : 12);
    }
    int status = 0;
    return waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 11;
}

TEST_F(Jobs, runInAForkedChildWhateverOtherThreadsDid)
{
    ksys_jobThreadGroup_setThreadCount(3);
    for (int delay = 0; delay < 300; ++delay) {
        // Nothing is there yet in a child, and its own child is forked somewhere in the first use or a later one.
        ASSERT_TRUE(worksInAChild([delay] {
            std::atomic<bool> isStarted{false};
            std::thread([&isStarted] {
                for (isStarted = true;;)
                    areServicesThere();
            }).detach();
            while (!isStarted)
                std::this_thread::yield();
            const auto end = std::chrono::steady_clock::now() + std::chrono::nanoseconds(200) * delay;
            while (std::chrono::steady_clock::now() < end) {
            }
            return worksInAChild(areServicesThere);
        })) << delay;
    }
}

#endif

void exitInAJob()
{
    std::atomic<int32_t> present{0};
    const std::thread::id caller = std::this_thread::get_id();
    // One worker ends the process, while the caller and the other worker are in jobs that do not end.
    const Job job = [&]() -> int32_t {
        if (std::this_thread::get_id() == caller || ++present != 2)
            std::this_thread::sleep_for(std::chrono::hours(1));
        std::exit(32);
    };
    dispatch({job, job, job});
}

void exitBesideDispatches()
{
    static std::atomic<int32_t> dispatches{0};
    const auto dispatchForEver = [] {
        for (;; ++dispatches)
            dispatch(std::vector<Job>(4, [] { return 0; }));
    };
    std::thread(dispatchForEver).detach();
    std::thread(dispatchForEver).detach();
    std::exit(waitFor([] { return dispatches > 50; }) ? 34 : 35);
}

using JobsDeathTest = Jobs;

TEST_F(JobsDeathTest, theProcessEndsAtOnce)
{
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    ksys_jobThreadGroup_setThreadCount(3);
    EXPECT_EXIT(exitInAJob(), testing::ExitedWithCode(32), "");
    EXPECT_EXIT(exitBesideDispatches(), testing::ExitedWithCode(34), "");
}

} // namespace
