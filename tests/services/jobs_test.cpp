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

struct Outcome {
    int32_t status;
    std::vector<int32_t> statuses;
};

// Runs jobs on a group of what setThreadCount last said.
Outcome dispatch(std::vector<Job> jobs)
{
    ksys_jobThreadGroup group;
    ksys_jobParams params;
    ksys_jobRequestSet requests;
    ksys_jobResultSet results;
    EXPECT_EQ(ksys_jobThreadGroup_construct(&group), 0);
    EXPECT_EQ(ksys_jobParams_construct(&params), 0);
    EXPECT_EQ(ksys_jobRequestSet_construct(&requests), 0);
    EXPECT_EQ(ksys_jobResultSet_construct(&results), 0);
    for (Job &job : jobs) {
        Job *data = &job;
        EXPECT_EQ(ksys_jobParams_takeData(&params, &data, keepData), 0);
        EXPECT_EQ(ksys_jobRequestSet_addFuncAndParams(&requests, runJob, &params), 0);
    }
    Outcome outcome;
    outcome.status = ksys_jobThreadGroup_dispatchAndWait(&group, &requests, &results);
    outcome.statuses.assign(results.statuses, results.statuses + results.count);
    EXPECT_EQ(ksys_jobResultSet_destruct(&results), 0);
    EXPECT_EQ(ksys_jobRequestSet_destruct(&requests), 0);
    EXPECT_EQ(ksys_jobParams_destruct(&params), 0);
    EXPECT_EQ(ksys_jobThreadGroup_destruct(&group), 0);
    return outcome;
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
                expected.push_back(i % 5 == 3 ? -i : i);
                jobs.emplace_back([&runs, status = expected.back()] { return ++runs, status; });
            }
            const Outcome outcome = dispatch(jobs);
            EXPECT_EQ(outcome.status, count > 3 ? -3 : 0);
            EXPECT_EQ(outcome.statuses, expected);
            EXPECT_EQ(runs, count);
        }
    }
}

TEST_F(Jobs, aJobThatThrowsFailsAlone)
{
    for (const int32_t threads : kThreadCounts) {
        ksys_jobThreadGroup_setThreadCount(threads);
        const Outcome outcome =
            dispatch({[] { return 1; }, []() -> int32_t { throw std::runtime_error("thrown by a job"); },
                      []() -> int32_t { throw 3; }, [] { return -4; }, [] { return 5; }});
        EXPECT_EQ(outcome.status, ksys_statusJobAborted);
        EXPECT_EQ(outcome.statuses, (std::vector<int32_t>{1, ksys_statusJobAborted, ksys_statusJobAborted, -4, 5}));
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
        std::atomic<int32_t> most{0};
        const Job job = [&] {
            const int32_t now = ++running;
            for (int32_t seen = most; now > seen && !most.compare_exchange_weak(seen, now);) {
            }
            for (int i = 0; i < 20; ++i)
                std::this_thread::yield();
            return --running, 0;
        };
        dispatch(std::vector<Job>(100, job));
        EXPECT_LE(most, threads);
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
    EXPECT_EQ(offered(), processors);
    EXPECT_EQ(ksys_jobThreadGroup_setThreadCount(5), 0);
    EXPECT_EQ(offered(), 5);
    EXPECT_EQ(ksys_jobThreadGroup_setThreadCount(-1), ksys_statusBadArgument);
    EXPECT_EQ(offered(), 5);
    EXPECT_EQ(ksys_jobThreadGroup_setThreadCount(1 << 30), 0);
    EXPECT_EQ(offered(), 1024);
    EXPECT_EQ(ksys_jobThreadGroup_setThreadCount(0), 0);
    EXPECT_EQ(offered(), processors);
    EXPECT_EQ(allocator.requests(), 0);
}

int32_t dispatchTree(int32_t depth)
{
    if (depth == 0)
        return 1;
    std::atomic<int32_t> leaves{0};
    const Job job = [&leaves, depth] { return leaves += dispatchTree(depth - 1), 0; };
    return dispatch(std::vector<Job>(4, job)).status == 0 ? leaves.load() : -1000;
}

TEST_F(Jobs, jobsDispatchJobs)
{
    for (const int32_t threads : kThreadCounts) {
        ksys_jobThreadGroup_setThreadCount(threads);
        EXPECT_EQ(dispatchTree(4), 4 * 4 * 4 * 4);
    }
}

TEST_F(Jobs, aJobDispatchesWhileEveryThreadIsBusy)
{
    ksys_jobThreadGroup_setThreadCount(2);
    std::atomic<int32_t> present{0};
    std::atomic<int32_t> done{0};
    const Job outer = [&] {
        ++present;
        if (!waitFor([&] { return present >= 2; }))
            return -1;
        const int32_t status = dispatch(std::vector<Job>(10, [] { return 0; })).status;
        ++done;
        return waitFor([&] { return done >= 2; }) ? status : -2;
    };
    EXPECT_EQ(dispatch({outer, outer}).status, 0);
}

TEST_F(Jobs, everyThreadRoundsAsTheCallerDoes)
{
    ksys_jobThreadGroup_setThreadCount(3);
    for (const int rounding : {FE_UPWARD, FE_TOWARDZERO, FE_TONEAREST}) {
        std::atomic<int32_t> present{0};
        std::vector<Job> jobs = jobsThatMeet(3, present);
        for (Job &job : jobs)
            job = [meet = job] { return meet() < 0 ? -1 : std::fegetround(); };
        std::fesetround(rounding);
        const Outcome outcome = dispatch(jobs);
        std::fesetround(FE_TONEAREST);
        EXPECT_EQ(outcome.statuses, std::vector<int32_t>(3, rounding));
    }
}

TEST_F(Jobs, manyThreadsDispatchAtOnce)
{
    ksys_jobThreadGroup_setThreadCount(3);
    std::atomic<int32_t> failures{0};
    std::vector<std::thread> callers;
    for (int32_t caller = 0; caller < 6; ++caller) {
        callers.emplace_back([&failures, caller] {
            for (int32_t round = 0; round < 300; ++round) {
                std::vector<Job> jobs;
                std::vector<int32_t> expected;
                for (int32_t i = 0; i < 1 + (round + caller) % 9; ++i) {
                    expected.push_back(caller * 1000 + i);
                    jobs.emplace_back([status = expected.back()] { return status; });
                }
                failures += dispatch(jobs).statuses == expected ? 0 : 1;
            }
        });
    }
    for (std::thread &caller : callers)
        caller.join();
    EXPECT_EQ(failures, 0);
}

#if defined(__linux__)
// The system's own numbers: they do not come again soon, as the names of ended threads do.
std::set<std::string> threadsOfTheProcess()
{
    std::set<std::string> numbers;
    for (const auto &entry : std::filesystem::directory_iterator("/proc/self/task"))
        numbers.insert(entry.path().filename());
    return numbers;
}

TEST_F(Jobs, noThreadIsMadePerDispatch)
{
    std::atomic<int32_t> present{0};
    ksys_jobThreadGroup_setThreadCount(4);
    dispatch(jobsThatMeet(4, present));
    const std::set<std::string> before = threadsOfTheProcess();
    for (int i = 0; i < 200; ++i) {
        ksys_jobThreadGroup_setThreadCount(2 + i % 3);
        dispatch(std::vector<Job>(5, [] { return 0; }));
    }
    EXPECT_EQ(threadsOfTheProcess(), before);
}
#endif

TEST_F(Jobs, sleepingWorkersWake)
{
    ksys_jobThreadGroup_setThreadCount(3);
    for (int i = 0; i < 5; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5)); // far longer than a worker spins
        std::atomic<int32_t> present{0};
        EXPECT_EQ(dispatch(jobsThatMeet(3, present)).status, 0);
    }
}

int32_t deletions;
int32_t deleterStatus;

int32_t deleteData(void *dataPointer)
{
    ++deletions;
    ksys_memory_free_internal(dataPointer);
    return deleterStatus;
}

void *someData()
{
    void *data = nullptr;
    EXPECT_EQ(ksys_memory_alloc_internal(8, &data), 0);
    return data;
}

TEST(JobParameters, ownTheirData)
{
    FailingAllocator allocator;
    deletions = 0;
    ksys_jobParams params;
    void *seen = nullptr;
    ksys_jobParams_construct(&params);
    EXPECT_EQ(ksys_jobParams_getDataConst(&params, &seen), ksys_statusNoData);

    void *data = someData();
    void *const first = data;
    EXPECT_EQ(ksys_jobParams_takeData(&params, &data, nullptr), ksys_statusBadArgument);
    EXPECT_EQ(data, first);
    EXPECT_EQ(ksys_jobParams_takeData(&params, &data, deleteData), 0);
    EXPECT_EQ(data, nullptr);
    EXPECT_EQ(ksys_jobParams_takeData(&params, &data, deleteData), ksys_statusBadArgument); // data is null
    EXPECT_EQ(ksys_jobParams_getDataConst(&params, &seen), 0);
    EXPECT_EQ(seen, first);
    EXPECT_EQ(deletions, 0);

    data = someData();
    EXPECT_EQ(ksys_jobParams_takeData(&params, &data, deleteData), 0);
    EXPECT_EQ(deletions, 1);

    void *refused = someData();
    data = refused;
    deleterStatus = -6;
    EXPECT_EQ(ksys_jobParams_takeData(&params, &data, deleteData), -6);
    EXPECT_EQ(data, refused);
    EXPECT_EQ(ksys_jobParams_destruct(&params), 0); // nothing is left to delete
    EXPECT_EQ(ksys_jobParams_takeData(&params, &data, deleteData), 0);
    EXPECT_EQ(ksys_jobParams_destruct(&params), -6);
    deleterStatus = 0;
    EXPECT_EQ(deletions, 3);
    EXPECT_EQ(allocator.liveBlocks(), 0);
}

TEST(JobRequests, carryTheDataAway)
{
    FailingAllocator allocator;
    deletions = 0;
    ksys_jobParams params;
    ksys_jobRequestSet requests;
    ksys_jobParams_construct(&params);
    ksys_jobRequestSet_construct(&requests);
    for (int i = 0; i < 50; ++i) {
        void *data = someData();
        ASSERT_EQ(ksys_jobParams_takeData(&params, &data, deleteData), 0);
        ASSERT_EQ(ksys_jobRequestSet_addFuncAndParams(&requests, runJob, &params), 0);
        EXPECT_EQ(ksys_jobParams_getDataConst(&params, &data), ksys_statusNoData);
    }
    EXPECT_EQ(ksys_jobRequestSet_addFuncAndParams(&requests, nullptr, &params), ksys_statusBadArgument);
    EXPECT_EQ(deletions, 0);
    EXPECT_EQ(ksys_jobParams_destruct(&params), 0);
    deleterStatus = -8;
    EXPECT_EQ(ksys_jobRequestSet_destruct(&requests), -8);
    deleterStatus = 0;
    EXPECT_EQ(deletions, 50);
    EXPECT_EQ(allocator.liveBlocks(), 0);
}

// A call's worth of jobs: many blocks, added and dispatched until memory runs out somewhere.
int32_t dispatchBlocks(int32_t count, std::atomic<int32_t> &runs)
{
    static std::atomic<int32_t> *counter;
    counter = &runs;
    ksys_jobThreadGroup group;
    ksys_jobParams params;
    ksys_jobRequestSet requests;
    ksys_jobResultSet results;
    ksys_jobThreadGroup_construct(&group);
    ksys_jobParams_construct(&params);
    ksys_jobRequestSet_construct(&requests);
    ksys_jobResultSet_construct(&results);
    int32_t status = 0;
    for (int32_t i = 0; i < count && status >= 0; ++i) {
        void *block = nullptr;
        status = ksys_memory_alloc_internal(100, &block);
        if (status >= 0)
            status = ksys_jobParams_takeData(&params, &block, ksys_memory_free_internal);
        if (status >= 0) {
            const auto count1 = [](const ksys_jobParams *) { return ++*counter, 0; };
            status = ksys_jobRequestSet_addFuncAndParams(&requests, count1, &params);
        }
    }
    if (status >= 0)
        status = ksys_jobThreadGroup_dispatchAndWait(&group, &requests, &results);
    ksys_jobResultSet_destruct(&results);
    ksys_jobRequestSet_destruct(&requests);
    ksys_jobParams_destruct(&params);
    ksys_jobThreadGroup_destruct(&group);
    return status;
}

TEST_F(Jobs, runAllOrNoneWhenMemoryRunsOut)
{
    ksys_jobThreadGroup_setThreadCount(3);
    std::atomic<int32_t> runs{0};
    const int64_t requests = kip::test::failEachAllocation([&runs] {
        runs = 0;
        const int32_t status = dispatchBlocks(40, runs);
        EXPECT_EQ(runs, status < 0 ? 0 : 40);
        return status;
    });
    EXPECT_GT(requests, 40);
}

TEST_F(Jobs, dispatchedSetsCanBeDispatchedAgain)
{
    ksys_jobThreadGroup group{2};
    ksys_jobParams params;
    ksys_jobRequestSet requests;
    ksys_jobResultSet results;
    ksys_jobParams_construct(&params);
    ksys_jobRequestSet_construct(&requests);
    ksys_jobResultSet_construct(&results);
    for (int32_t jobs = 1; jobs <= 3; ++jobs) {
        ksys_jobRequestSet_addFuncAndParams(
            &requests, [](const ksys_jobParams *) { return 7; }, &params);
        EXPECT_EQ(ksys_jobThreadGroup_dispatchAndWait(&group, &requests, &results), 0);
        EXPECT_EQ(results.count, jobs);
        EXPECT_EQ(std::count(results.statuses, results.statuses + results.count, 7), jobs);
    }
    ksys_jobResultSet_destruct(&results);
    ksys_jobRequestSet_destruct(&requests);
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

// Runs body in a forked child and returns its exit code; -1 when it was killed or took longer than a minute.
int exitCodeOfChild(const std::function<int()> &body)
{
    const pid_t child = fork();
    if (child == 0) {
        alarm(60);
        _exit(body());
    }
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
        const int code = exitCodeOfChild([] {
            std::atomic<int32_t> present{0};
            return dispatch(jobsThatMeet(3, present)).status == 0 ? 11 : 12;
        });
        EXPECT_EQ(code, 11);
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
    std::atomic<bool> isForked{false};
    int code = -1;
    const Job job = [&] {
        ++present;
        if (!waitFor([&] { return present >= 2; }))
            return -1;
        if (std::this_thread::get_id() != caller)
            return waitFor([&] { return isForked.load(); }) ? 0 : -2;
        const pid_t child = fork();
        if (child == 0) {
            alarm(60);
            return 0;
        }
        int status = 0;
        if (waitpid(child, &status, 0) == child && WIFEXITED(status))
            code = WEXITSTATUS(status);
        isForked = true;
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

[[noreturn]] void exitIdle()
{
    ksys_jobThreadGroup_setThreadCount(4);
    std::atomic<int32_t> present{0};
    dispatch(jobsThatMeet(4, present));
    std::exit(31);
}

[[noreturn]] void exitInAJob()
{
    ksys_jobThreadGroup_setThreadCount(3);
    std::atomic<int32_t> present{0};
    const std::thread::id caller = std::this_thread::get_id();
    const Job job = [&]() -> int32_t {
        // One worker ends the process, while the caller and the other worker are in jobs that do not end.
        const int32_t number = std::this_thread::get_id() == caller ? 0 : ++present;
        if (number != 2)
            waitForever();
        std::exit(32);
    };
    dispatch({job, job, job});
    std::abort();
}

[[noreturn]] void exitBesideJobs()
{
    ksys_jobThreadGroup_setThreadCount(3);
    static std::atomic<int32_t> present{0};
    std::thread([] { dispatch(std::vector<Job>(2, [] { return ++present, waitForever(), 0; })); }).detach();
    if (!waitFor([] { return present == 2; }))
        std::abort();
    std::exit(33);
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
    EXPECT_EXIT(exitIdle(), testing::ExitedWithCode(31), "");
    EXPECT_EXIT(exitInAJob(), testing::ExitedWithCode(32), "");
    EXPECT_EXIT(exitBesideJobs(), testing::ExitedWithCode(33), "");
    EXPECT_EXIT(exitBesideDispatches(), testing::ExitedWithCode(34), "");
}

} // namespace
