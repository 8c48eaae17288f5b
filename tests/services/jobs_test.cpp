// Jobs: statuses, ownership of their data, who runs them, and how processes with a pool fork and end.

#include <ksys/ksys.h>

#include <algorithm>
#include <atomic>
#include <cfenv>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "support/failing_allocator.h"

#if defined(__unix__)
#include <sys/wait.h>
#include <unistd.h>
#endif

namespace {

using kip::test::FailingAllocator;

constexpr int32_t kThreadCounts[] = {1, 2, 3, 8};

using Job = std::function<int32_t()>;

int32_t runJob(const ksys_jobParams *params)
{
    const Job *job = nullptr;
    const int32_t status = ksys_jobParams_getDataConst(params, &job);
    return status < 0 ? status : (*job)();
}

int32_t keepData(void *dataPointer)
{
    *static_cast<Job **>(dataPointer) = nullptr;
    return 0;
}

// A group of what setThreadCount last said, and what a dispatch on it needs.
struct Records {
    ksys_jobThreadGroup group;
    ksys_jobParams params;
    ksys_jobRequestSet requests;
    ksys_jobResultSet results;

    Records()
    {
        EXPECT_EQ(ksys_jobThreadGroup_construct(&group), 0);
        EXPECT_EQ(ksys_jobParams_construct(&params), 0);
        EXPECT_EQ(ksys_jobRequestSet_construct(&requests), 0);
        EXPECT_EQ(ksys_jobResultSet_construct(&results), 0);
    }
    Records(const Records &) = delete;
    Records &operator=(const Records &) = delete;
    ~Records()
    {
        EXPECT_EQ(ksys_jobResultSet_destruct(&results), 0);
        EXPECT_EQ(ksys_jobRequestSet_destruct(&requests), 0);
        EXPECT_EQ(ksys_jobParams_destruct(&params), 0);
        EXPECT_EQ(ksys_jobThreadGroup_destruct(&group), 0);
    }

    int32_t dispatch() { return ksys_jobThreadGroup_dispatchAndWait(&group, &requests, &results); }
};

struct Outcome {
    int32_t status;
    std::vector<int32_t> statuses;
};

Outcome dispatch(std::vector<Job> jobs)
{
    Records records;
    for (Job &job : jobs) {
        Job *data = &job;
        EXPECT_EQ(ksys_jobParams_takeData(&records.params, &data, keepData), 0);
        EXPECT_EQ(ksys_jobRequestSet_addFuncAndParams(&records.requests, runJob, &records.params), 0);
    }
    const int32_t status = records.dispatch();
    const ksys_jobResultSet &results = records.results;
    return {status, {results.statuses, results.statuses + results.count}};
}

// Waits for what another thread is about to do. The bound is there to fail rather than hang.
bool waitFor(const std::function<bool()> &isMet)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(1);
    while (!isMet()) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        std::this_thread::yield();
    }
    return true;
}

// Jobs that end only when all of them run at the same time, each on a thread of its own.
std::vector<Job> jobsThatMeet(int32_t count, std::atomic<int32_t> &present)
{
    const Job job = [count, &present] {
        ++present;
        return waitFor([&] { return present >= count; }) ? 0 : -1;
    };
    return std::vector<Job>(static_cast<size_t>(count), job);
}

// The group's thread count for one test, then the default again.
struct Jobs : testing::Test {
    ~Jobs() override { ksys_jobThreadGroup_setThreadCount(0); }
};

TEST_F(Jobs, statusesComeInTheOrderOfTheRequests)
{
    for (const int32_t threads : kThreadCounts) {
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
                    if (i == 5)
                        throw std::runtime_error("thrown by a job");
                    if (i % 7 == 5)
                        throw i;
                    return status;
                });
            }
            const Outcome outcome = dispatch(jobs);
            EXPECT_EQ(outcome.status, count > 3 ? -3 : 0);
            EXPECT_EQ(outcome.statuses, expected);
            EXPECT_EQ(runs, count);
        }
    }
}

TEST_F(Jobs, aGroupUsesAllItsThreadsAndNoMore)
{
    for (const int32_t threads : {8, 3, 2, 1, 2}) { // the pool keeps the threads of the first
        SCOPED_TRACE(threads);
        ksys_jobThreadGroup_setThreadCount(threads);
        std::atomic<int32_t> present{0};
        EXPECT_EQ(dispatch(jobsThatMeet(threads, present)).status, 0);

        std::atomic<int32_t> running{0};
        const Job job = [&] {
            const int32_t now = ++running;
            for (int i = 0; i < 20; ++i)
                std::this_thread::yield();
            return --running, now;
        };
        const std::vector<int32_t> seen = dispatch(std::vector<Job>(100, job)).statuses;
        EXPECT_LE(*std::max_element(seen.begin(), seen.end()), threads);
    }
}

TEST_F(Jobs, groupsOfferWhatWasSetWhenTheyWereMade)
{
    FailingAllocator allocator;
    const auto offered = [] {
        ksys_jobThreadGroup group;
        ksys_jobThreadState state{-1};
        EXPECT_EQ(ksys_jobThreadGroup_construct(&group), 0);
        EXPECT_EQ(ksys_jobGetCurrentThreadState(&state, &group), 0);
        EXPECT_EQ(ksys_jobThreadGroup_destruct(&group), 0);
        return state.threadCount;
    };
    const auto processors = static_cast<int32_t>(std::max(1u, std::thread::hardware_concurrency()));
    for (const auto &[set, expected] : {std::pair{0, processors}, {5, 5}, {-1, 5}, {1 << 30, 1024}, {0, processors}}) {
        EXPECT_EQ(ksys_jobThreadGroup_setThreadCount(set), set < 0 ? ksys_statusBadArgument : 0);
        EXPECT_EQ(offered(), expected);
    }
    EXPECT_EQ(allocator.requests(), 0);
}

// Dispatches four jobs that each dispatch four, and so on; returns the number of leaves.
int32_t dispatchTree(int32_t depth)
{
    if (depth == 0)
        return 1;
    std::vector<Job> jobs;
    for (int32_t i = 0; i < 4; ++i)
        jobs.emplace_back([i, depth] { return 100 * i + dispatchTree(depth - 1); });
    const std::vector<int32_t> statuses = dispatch(jobs).statuses;
    for (size_t i = 0; i < statuses.size(); ++i)
        if (statuses[i] != static_cast<int32_t>(100 * i) + (1 << (2 * depth - 2)))
            return -1000;
    return static_cast<int32_t>(statuses.size()) << (2 * depth - 2);
}

TEST_F(Jobs, jobsDispatchJobsOnManyThreads)
{
    for (const int32_t threads : kThreadCounts) {
        ksys_jobThreadGroup_setThreadCount(threads);
        std::atomic<int32_t> leaves{0};
        std::vector<std::thread> callers;
        for (int caller = 0; caller < 6; ++caller)
            callers.emplace_back([&] {
                for (int round = 0; round < 20; ++round)
                    leaves += dispatchTree(1 + round % 3);
            });
        for (std::thread &caller : callers)
            caller.join();
        EXPECT_EQ(leaves, 6 * (7 * 4 + 7 * 16 + 6 * 64));
    }
}

TEST_F(Jobs, everyThreadRoundsAsTheCallerDoes)
{
    ksys_jobThreadGroup_setThreadCount(3);
    for (const int rounding : {FE_UPWARD, FE_TOWARDZERO, FE_TONEAREST}) {
        std::atomic<int32_t> present{0};
        const Job meet = jobsThatMeet(3, present).front();
        std::fesetround(rounding);
        const Outcome outcome = dispatch(std::vector<Job>(3, [&] { return meet() < 0 ? -1 : std::fegetround(); }));
        std::fesetround(FE_TONEAREST);
        EXPECT_EQ(outcome.statuses, std::vector<int32_t>(3, rounding));
    }
}

// The system's own numbers: they do not come again soon, as the names of ended threads do.
std::set<std::string> threadsOfTheProcess()
{
    std::set<std::string> numbers;
#if defined(__linux__)
    for (const auto &entry : std::filesystem::directory_iterator("/proc/self/task"))
        numbers.insert(entry.path().filename());
#endif
    return numbers;
}

TEST_F(Jobs, sleepingWorkersWakeAndNoThreadIsMadePerDispatch)
{
    std::set<std::string> before;
    for (int i = 0; i < 5; ++i) {
        std::atomic<int32_t> present{0};
        ksys_jobThreadGroup_setThreadCount(4);
        EXPECT_EQ(dispatch(jobsThatMeet(4, present)).status, 0);
        if (i == 0)
            before = threadsOfTheProcess();
        for (int k = 0; k < 40; ++k) {
            ksys_jobThreadGroup_setThreadCount(2 + k % 3);
            dispatch(std::vector<Job>(5, [] { return 0; }));
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5)); // far longer than a worker spins
    }
    EXPECT_EQ(threadsOfTheProcess(), before);
}

int32_t deletions;
int32_t deleterStatus;

int32_t deleteData(void *dataPointer)
{
    ++deletions;
    ksys_memory_free_internal(dataPointer);
    return deleterStatus;
}

TEST(JobParameters, ownTheirDataUntilARequestCarriesItAway)
{
    FailingAllocator allocator;
    deletions = 0;
    Records records;
    void *data = nullptr;
    const auto take = [&](int32_t status = 0) {
        deleterStatus = status;
        return ksys_jobParams_takeData(&records.params, &data, deleteData);
    };
    const auto takeNew = [&](int32_t status = 0) {
        EXPECT_EQ(ksys_memory_alloc_internal(8, &data), 0);
        return take(status);
    };
    void *seen = nullptr;
    EXPECT_EQ(ksys_jobParams_getDataConst(&records.params, &seen), ksys_statusNoData);
    EXPECT_EQ(take(), ksys_statusBadArgument); // data is null
    EXPECT_EQ(ksys_memory_alloc_internal(8, &data), 0);
    void *const first = data;
    EXPECT_EQ(ksys_jobParams_takeData(&records.params, &data, nullptr), ksys_statusBadArgument);
    EXPECT_EQ(data, first);
    EXPECT_EQ(take(), 0);
    EXPECT_EQ(data, nullptr);
    EXPECT_EQ(ksys_jobParams_getDataConst(&records.params, &seen), 0);
    EXPECT_EQ(seen, first);
    EXPECT_EQ(deletions, 0);
    EXPECT_EQ(takeNew(), 0);
    EXPECT_EQ(deletions, 1);
    EXPECT_EQ(takeNew(-6), -6); // of the data before, which is deleted; the new one stays the caller's
    EXPECT_NE(data, nullptr);
    EXPECT_EQ(take(-7), 0);
    EXPECT_EQ(ksys_jobParams_destruct(&records.params), -7);
    EXPECT_EQ(deletions, 3);

    for (int i = 0; i < 50; ++i) {
        EXPECT_EQ(takeNew(-8), 0);
        ASSERT_EQ(ksys_jobRequestSet_addFuncAndParams(&records.requests, runJob, &records.params), 0);
        EXPECT_EQ(ksys_jobParams_getDataConst(&records.params, &seen), ksys_statusNoData);
    }
    EXPECT_EQ(ksys_jobRequestSet_addFuncAndParams(&records.requests, nullptr, &records.params), ksys_statusBadArgument);
    EXPECT_EQ(deletions, 3);
    EXPECT_EQ(ksys_jobRequestSet_destruct(&records.requests), -8);
    EXPECT_EQ(deletions, 53);
    EXPECT_EQ(allocator.liveBlocks(), 0);
}

TEST_F(Jobs, runAllOrNoneWhenMemoryRunsOut)
{
    ksys_jobThreadGroup_setThreadCount(3);
    static std::atomic<int32_t> runs;
    const int64_t requests = kip::test::failEachAllocation([] {
        runs = 0;
        Records records;
        int32_t status = 0;
        for (int32_t i = 0; i < 40 && status >= 0; ++i) {
            void *block = nullptr;
            status = ksys_memory_alloc_internal(100, &block);
            if (status >= 0)
                status = ksys_jobParams_takeData(&records.params, &block, ksys_memory_free_internal);
            if (status >= 0)
                status = ksys_jobRequestSet_addFuncAndParams(
                    &records.requests, [](const ksys_jobParams *) { return ++runs, 0; }, &records.params);
        }
        if (status < 0)
            return status;
        status = records.dispatch();
        EXPECT_EQ(runs, status < 0 ? 0 : 40);
        if (status >= 0) { // once more
            status = records.dispatch();
            EXPECT_EQ(runs, status < 0 ? 40 : 80);
        }
        return status;
    });
    EXPECT_GT(requests, 40);
}

// The thread sanitizer ends a forked child that starts a thread.
#if !defined(__unix__) || defined(__SANITIZE_THREAD__)
#define KIP_TEST_FORKS 0
#elif defined(__has_feature)
#define KIP_TEST_FORKS !__has_feature(thread_sanitizer)
#else
#define KIP_TEST_FORKS 1
#endif

#if defined(__SANITIZE_ADDRESS__)
#define KIP_TEST_ADDRESS_SANITIZER 1
#elif defined(__has_feature)
#define KIP_TEST_ADDRESS_SANITIZER __has_feature(address_sanitizer)
#else
#define KIP_TEST_ADDRESS_SANITIZER 0
#endif

#if KIP_TEST_FORKS

// -1 when the child was killed, as it is after a minute.
int exitCodeOf(pid_t child)
{
    int status = 0;
    return waitpid(child, &status, 0) == child && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST_F(Jobs, dispatchInAForkedChild)
{
    ksys_jobThreadGroup_setThreadCount(3);
    std::atomic<bool> isOver{false};
    // So that some of the forks find the pool locked. The address sanitizer has locks of its own, held for ever in
    // a child that is forked while another thread allocates, starts or ends: there, this thread stays alone.
    std::thread other;
    if (!KIP_TEST_ADDRESS_SANITIZER) {
        other = std::thread([&isOver] {
            while (!isOver)
                dispatch(std::vector<Job>(3, [] { return 0; }));
        });
    }
    for (int i = 0; i < 20; ++i) {
        const pid_t child = fork();
        if (child == 0) {
            alarm(60);
            std::atomic<int32_t> present{0};
            _exit(dispatch(jobsThatMeet(3, present)).status == 0 ? 11 : 12);
        }
        EXPECT_EQ(exitCodeOf(child), 11);
    }
    isOver = true;
    if (other.joinable())
        other.join();
}

TEST_F(Jobs, aForkInsideAJobLeavesNobodyWaiting)
{
    ksys_jobThreadGroup_setThreadCount(2);
    const std::thread::id caller = std::this_thread::get_id();
    const pid_t parent = getpid();
    std::atomic<int32_t> present{0};
    std::atomic<int> code{-2};
    const Job job = [&] {
        ++present;
        if (!waitFor([&] { return present >= 2; }))
            return -1;
        if (std::this_thread::get_id() != caller)
            return waitFor([&] { return code != -2; }) ? 0 : -2;
        const pid_t child = fork();
        child == 0 ? static_cast<void>(alarm(60)) : static_cast<void>(code = exitCodeOf(child));
        return 0;
    };
    const Outcome outcome = dispatch({job, job});
    if (getpid() != parent)
        _exit(outcome.status == ksys_statusJobAborted ? 13 : 14); // the other job stayed in the parent
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(code, 13);
}

#endif

using JobsDeathTest = Jobs;

[[noreturn]] void waitForever()
{
    for (;;)
        std::this_thread::sleep_for(std::chrono::hours(1));
}

[[noreturn]] void exitInAJob()
{
    ksys_jobThreadGroup_setThreadCount(3);
    std::atomic<int32_t> present{0};
    const std::thread::id caller = std::this_thread::get_id();
    // One worker ends the process, while the caller and the other worker are in jobs that do not end.
    const Job job = [&]() -> int32_t {
        if (std::this_thread::get_id() == caller || ++present != 2)
            waitForever();
        std::exit(32);
    };
    dispatch({job, job, job});
    std::abort();
}

[[noreturn]] void exitBesideDispatches()
{
    ksys_jobThreadGroup_setThreadCount(3);
    static std::atomic<int32_t> dispatches{0};
    for (int i = 0; i < 2; ++i) {
        std::thread([] {
            for (;;) {
                dispatch(std::vector<Job>(4, [] { return 0; }));
                ++dispatches;
            }
        }).detach();
    }
    if (!waitFor([] { return dispatches > 50; }))
        std::abort();
    std::exit(34);
}

TEST_F(JobsDeathTest, theProcessEndsAtOnce)
{
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    EXPECT_EXIT(exitInAJob(), testing::ExitedWithCode(32), "");
    EXPECT_EXIT(exitBesideDispatches(), testing::ExitedWithCode(34), "");
}

} // namespace
