// The job pool: one set of worker threads behind every job thread group of the process.
//
// A dispatch lives on its caller's stack and stands in the pool's list while it has jobs that nobody has taken
// and seats for more threads. Caller and seated workers take its jobs one by one with an atomic counter, half of the
// threads from either end: two threads then work on neighbouring jobs each, whose data their caches share. The
// mutex is locked only to enter and leave. A thread that dispatches waits for nothing but the workers seated at
// its own dispatch, which are running jobs, so that dispatches inside jobs cannot wait in a circle.

#include "job_pool.h"

#include <algorithm>
#include <atomic>
#include <cfenv>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <new>
#include <thread>

#include "job_pool_platform.h"
#include "keep_loaded.h"
#include "process_once.h"

namespace {

// Waking a sleeping thread takes tens of microseconds, so a thread that expects work spins that long first.
constexpr auto kSpinTime = std::chrono::microseconds(50);

struct Dispatch {
    const ksys_jobRequest *requests;
    int32_t *statuses;
    int32_t count;
    int32_t seats;                   // workers that may still join
    Dispatch *newer = nullptr;       // in the pool's list
    std::atomic<uint64_t> taken{0};  // jobs taken from the front, and in the upper half from the back
    std::atomic<int32_t> helpers{0}; // workers seated; changed under the pool's mutex
    std::condition_variable left{};  // told when the last of them leaves
    std::fenv_t arithmetic{};        // the caller's rounding, which the jobs share wherever they run
};

struct Worker {
    std::thread thread;
    bool isWorking = false; // seated at a dispatch, that is, possibly in a job
};

struct Pool {
    std::mutex mutex; // guards all that is not atomic
    std::condition_variable wake;
    Dispatch *oldest = nullptr;
    int32_t spinning = 0; // idle workers that watch published and are not yet called for
    int32_t sleeping = 0; // idle workers that wait for wake
    bool isStopping = false;
    int32_t workerCount = 0;
    Worker workers[ksys_jobPoolThreadLimit - 1];
    // Counts what idle workers should look up for. They watch it, so it stands far from what others write.
    std::atomic<uint32_t> published{0};
};

// The pool is never destroyed: workers that are in a job when the process ends still come back to it.
alignas(Pool) unsigned char poolStorage[sizeof(Pool)];

// Returns the process's pool; null when there is no memory for noticing forks. A forked child has a copy of its
// parent's pool but none of the threads, one of which may have locked it: a new pool is made over the copy there.
Pool *pool()
{
    static uint32_t once = 0;
    const bool isMade = makeOncePerProcess(once, [] { new (poolStorage) Pool; });
    return isMade ? std::launder(reinterpret_cast<Pool *>(poolStorage)) : nullptr; // GCOVR_EXCL_BR_LINE: a few bytes
}

template <class Condition>
bool spinUntil(Condition isMet)
{
    const auto end = std::chrono::steady_clock::now() + kSpinTime;
    do {
        for (int i = 0; i < 16; ++i) {
            if (isMet())
                return true;
            relaxProcessor();
        }
    } while (std::chrono::steady_clock::now() < end);
    return isMet();
}

enum class End { front, back };

struct Taken {
    int64_t front, back;

    explicit Taken(uint64_t word) : front(static_cast<uint32_t>(word)), back(static_cast<int64_t>(word >> 32)) {}
};

bool hasJobsLeft(const Taken &taken, const Dispatch &dispatch)
{
    return taken.front + taken.back < dispatch.count;
}

void runJobs(Dispatch &dispatch, End end)
{
    const uint64_t one = end == End::front ? 1 : uint64_t{1} << 32;
    for (;;) {
        // Counts on past the last job, by one for each thread.
        const Taken taken(dispatch.taken.fetch_add(one, std::memory_order_relaxed));
        if (!hasJobsLeft(taken, dispatch))
            return;
        const int64_t job = end == End::front ? taken.front : dispatch.count - 1 - taken.back;
        const ksys_jobRequest &request = dispatch.requests[job];
        try {
            dispatch.statuses[job] = request.function(&request.params);
        } catch (...) {
            // The status stays that of a job which did not end.
        }
    }
}

// Seats the calling worker at the oldest dispatch that can use it.
Dispatch *joinDispatch(Pool &shared)
{
    while (Dispatch *dispatch = shared.oldest) {
        const bool hasJobs = hasJobsLeft(Taken(dispatch->taken.load(std::memory_order_relaxed)), *dispatch);
        if (hasJobs)
            --dispatch->seats;
        if (!hasJobs || dispatch->seats == 0)
            shared.oldest = dispatch->newer;
        if (hasJobs) {
            dispatch->helpers.fetch_add(1, std::memory_order_relaxed);
            return dispatch;
        }
    }
    return nullptr;
}

void leaveDispatch(Dispatch &dispatch)
{
    if (dispatch.helpers.fetch_sub(1, std::memory_order_release) == 1)
        dispatch.left.notify_one(); // under the mutex, without which the caller does not let go of the dispatch
}

void waitForDispatch(Pool &shared, std::unique_lock<std::mutex> &lock)
{
    const uint32_t seen = shared.published.load(std::memory_order_relaxed);
    const auto isNew = [&] { return shared.published.load(std::memory_order_acquire) != seen; };
    // More threads than processors would spin at the expense of those that work.
    if (shared.spinning < ksys_jobPool_processorCount() - 1) {
        ++shared.spinning;
        lock.unlock();
        spinUntil(isNew);
        lock.lock();
        if (isNew())
            return; // whoever published has emptied the count of the spinning
        --shared.spinning;
    }
    ++shared.sleeping;
    shared.wake.wait(lock, isNew);
    --shared.sleeping;
}

void work(Pool &shared, Worker &self)
{
    std::unique_lock lock(shared.mutex);
    while (!shared.isStopping) {
        Dispatch *dispatch = joinDispatch(shared);
        if (dispatch == nullptr) {
            waitForDispatch(shared, lock);
            continue;
        }
        self.isWorking = true;
        const End end = dispatch->seats % 2 == 0 ? End::back : End::front;
        lock.unlock();
        std::fesetenv(&dispatch->arithmetic);
        runJobs(*dispatch, end);
        lock.lock();
        self.isWorking = false;
        leaveDispatch(*dispatch);
    }
}

// Starts threads until there are enough or the system refuses; those that are there then do the work.
void growPool(Pool &shared, int32_t wanted)
{
    if (shared.isStopping || shared.workerCount >= wanted)
        return;
    if (!kCanJoinAtUnload && !keepLoaded(poolStorage)) // then its threads keep it loaded
        return;
    ksys_shutdown_link();
    const SignalsBlocked signalsBlocked;
    try {
        while (shared.workerCount < wanted) {
            Worker &worker = shared.workers[shared.workerCount];
            worker.thread = std::thread([&shared, &worker] { work(shared, worker); });
            ++shared.workerCount;
        }
    } catch (...) {
        return;
    }
}

void publish(Pool &shared, Dispatch &dispatch)
{
    int32_t called = 0;
    {
        const std::lock_guard lock(shared.mutex);
        growPool(shared, dispatch.seats);
        if (shared.workerCount == 0 || shared.isStopping)
            return;
        Dispatch **last = &shared.oldest;
        while (*last != nullptr)
            last = &(*last)->newer;
        *last = &dispatch;
        // Every spinning worker sees this; only what they lack is woken.
        shared.published.fetch_add(1, std::memory_order_release);
        called = std::min(shared.sleeping, dispatch.seats - shared.spinning);
        shared.spinning = 0;
    }
    for (; called > 0; --called)
        shared.wake.notify_one();
}

// Waits until no worker is seated at a dispatch whose jobs are all taken.
void withdraw(Pool &shared, Dispatch &dispatch)
{
    const auto isAlone = [&] { return dispatch.helpers.load(std::memory_order_acquire) == 0; };
    std::unique_lock lock(shared.mutex);
    for (Dispatch **link = &shared.oldest; *link != nullptr; link = &(*link)->newer) {
        if (*link == &dispatch) {
            *link = dispatch.newer;
            break;
        }
    }
    if (isAlone())
        return;
    if (ksys_jobPool_processorCount() > 1) { // GCOVR_EXCL_BR_LINE: one machine has one number
        lock.unlock();
        spinUntil(isAlone);
        lock.lock(); // also when alone: the last helper may not have let go of the dispatch yet
    }
    dispatch.left.wait(lock, isAlone);
}

} // namespace

int32_t ksys_jobPool_processorCount()
{
    // Asking takes a while. Threads that come here at the same time find the same answer.
    static constinit std::atomic<int32_t> known{0};
    int32_t count = known.load(std::memory_order_relaxed);
    if (count == 0) {
        count =
            static_cast<int32_t>(std::clamp<unsigned>(std::thread::hardware_concurrency(), 1, ksys_jobPoolThreadLimit));
        known.store(count, std::memory_order_relaxed);
    }
    return count;
}

void ksys_jobPool_run(const ksys_jobRequestSet &requests, ksys_jobResultSet &results, int32_t threadCount)
{
    const int32_t seats = std::min({threadCount, requests.count, ksys_jobPoolThreadLimit}) - 1;
    Dispatch dispatch{requests.requests, results.statuses, requests.count, seats};
    Pool *const shared = seats < 1 ? nullptr : pool();
    if (shared == nullptr) {
        runJobs(dispatch, End::front);
        return;
    }
    std::fegetenv(&dispatch.arithmetic);
    const uint32_t generation = processGeneration.load(std::memory_order_relaxed);
    publish(*shared, dispatch);
    runJobs(dispatch, End::front);
    // After a fork inside a job, the child must not wait for helpers that stayed in the parent.
    if (generation == processGeneration.load(std::memory_order_relaxed))
        withdraw(*shared, dispatch);
}

void ksys_jobPool_stop()
{
    if (!kCanJoinAtUnload)
        return; // the pool keeps the library loaded, and the end of the process has ended its threads
    Pool *const made = pool();
    if (made == nullptr) // GCOVR_EXCL_BR_LINE: a few bytes that no test can refuse
        return;
    Pool &shared = *made;
    std::unique_lock lock(shared.mutex);
    shared.isStopping = true;
    shared.published.fetch_add(1, std::memory_order_release);
    shared.wake.notify_all();
    // A worker in a job may take any time, or be the very thread that ends the process. When the library is
    // being unloaded there is none: its dispatch would still be running. Idle workers end at once.
    const int32_t workerCount = shared.workerCount;
    for (Worker *worker = shared.workers; worker != shared.workers + workerCount; ++worker) {
        if (worker->isWorking)
            worker->thread.detach();
    }
    lock.unlock();
    for (Worker *worker = shared.workers; worker != shared.workers + workerCount; ++worker) {
        if (worker->thread.joinable())
            worker->thread.join();
    }
}
