#ifndef KSYS_PROCESS_ONCE_H
#define KSYS_PROCESS_ONCE_H

// What is made once in each process. The language's own statics are made once in a program: a child that is forked
// while another thread makes one waits for ever for a thread that it does not have.

#include <atomic>
#include <cstdint>
#include <thread>

#if !defined(_WIN32)
#include <pthread.h>
#endif

/** Grows from each process to the children that it forks. */
inline constinit std::atomic<uint32_t> processGeneration{0};

/** Lets processGeneration grow in children forked from now on. Returns false when there is no memory for that. */
inline bool noteForks()
{
#if !defined(_WIN32)
    static constinit std::atomic<bool> isNoted{false};
    if (isNoted.load(std::memory_order_acquire))
        return true;
    // Threads that come here at the same time let it grow by more than one, which does as well.
    const auto inChild = [] { processGeneration.fetch_add(1, std::memory_order_relaxed); };
    if (pthread_atfork(nullptr, nullptr, inChild) != 0) // GCOVR_EXCL_BR_LINE: a few bytes that no test can refuse
        return false;
    isNoted.store(true, std::memory_order_release);
#endif
    return true;
}

/**
 * Calls make() in the first of a process's threads that comes here with this word; the others wait until it has
 * returned. Finds what a parent has made, or was making, absent in its child.
 *
 * word  zero when the library is loaded.
 * Returns false, having called nothing, when forks would go unnoticed for want of memory.
 */
template <class Make>
bool makeOncePerProcess(uint32_t &word, Make make) noexcept
{
    if (!noteForks()) // GCOVR_EXCL_BR_LINE: as there
        return false;
    const uint32_t generation = processGeneration.load(std::memory_order_relaxed);
    const uint32_t beingMade = 2 * generation + 1;
    const uint32_t made = 2 * generation + 2;
    const std::atomic_ref<uint32_t> state(word);
    uint32_t seen = state.load(std::memory_order_acquire);
    while (seen != made) {
        // GCOVR_EXCL_BR_START: a race that no test can order
        if (seen == beingMade) {
            std::this_thread::yield(); // making takes a few instructions, unless it was interrupted between them
            seen = state.load(std::memory_order_acquire);
            continue;
        }
        if (!state.compare_exchange_strong(seen, beingMade, std::memory_order_acq_rel, std::memory_order_acquire))
            continue;
        // GCOVR_EXCL_BR_STOP
        make();
        state.store(made, std::memory_order_release);
        return true;
    }
    return true;
}

#endif
