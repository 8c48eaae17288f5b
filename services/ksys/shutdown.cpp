// Shutdown callbacks, and what the library does when the process ends or unloads it.

#include <ksys/ksys.h>

#include <atomic>

#include "job_pool.h"
#include "keep_loaded.h"

namespace {

struct Callback {
    ksys_shutdownRoutine routine;
    void *argument;
    Callback *older;
};

// A list without a lock: at the end of a process other threads may have been stopped anywhere, also inside a lock.
constinit std::atomic<Callback *> newest{nullptr};

// Puts what was registered in the meantime, all of it newer, in front of a list that was taken before.
Callback *takeNewerThan(Callback *taken)
{
    Callback *first = newest.exchange(nullptr, std::memory_order_acquire);
    if (first == nullptr)
        return taken;
    Callback *last = first;
    while (last->older != nullptr)
        last = last->older;
    last->older = taken;
    return first;
}

struct ProcessEnd {
    ~ProcessEnd()
    {
        ksys_jobPool_stop(); // first: no idle thread wakes up in a library that is gone
        ksys_shutdown_run();
    }
};

// Made before everything that is built upon the library, so that it ends after that: when the shared library is loaded,
// and in a program that the static one is part of before all objects without a priority.
[[gnu::init_priority(101)]] const ProcessEnd processEnd;

} // namespace

void ksys_shutdown_link() {}

int32_t ksys_shutdown_register(ksys_shutdownRoutine routine, void *argument)
{
    if (routine == nullptr)
        return ksys_statusBadArgument;
    Callback *callback = nullptr;
    const int32_t status = ksys_memory_alloc_internal(sizeof *callback, &callback);
    if (status < 0)
        return status;
    keepLoaded(reinterpret_cast<const void *>(routine)); // code in no library stays in its owner's care
    *callback = {routine, argument, newest.load(std::memory_order_relaxed)};
    // GCOVR_EXCL_BR_START: a race that no test can order
    while (!newest.compare_exchange_weak(callback->older, callback, std::memory_order_release,
                                         std::memory_order_relaxed)) {
    }
    // GCOVR_EXCL_BR_STOP
    return 0;
}

int32_t ksys_shutdown_run(void)
{
    int32_t status = 0;
    Callback *next = nullptr;
    while ((next = takeNewerThan(next)) != nullptr) {
        Callback *callback = next;
        next = callback->older;
        const int32_t result = callback->routine(callback->argument);
        if (status >= 0 && result < 0)
            status = result;
        ksys_memory_free_internal(&callback);
    }
    return status;
}
