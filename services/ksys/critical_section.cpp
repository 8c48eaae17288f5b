// Critical sections in the caller's static storage.

#include <ksys/ksys.h>

#include <atomic>
#include <mutex>
#include <new>
#include <system_error>
#include <thread>

namespace {

static_assert(sizeof(std::mutex) <= sizeof(ksys_criticalSection), "the mutex lives in the section's storage");
static_assert(alignof(std::mutex) <= alignof(ksys_criticalSection), "the mutex lives in the section's storage");

// Values of the once word. Static storage starts as zero.
enum : uint32_t { kAbsent = 0, kBeingMade = 1, kMade = 2 };

std::mutex &mutexOf(ksys_criticalSection *section)
{
    return *std::launder(reinterpret_cast<std::mutex *>(section->implementation));
}

} // namespace

// NOLINTNEXTLINE(readability-non-const-parameter): the word changes through atomic_ref
int32_t ksys_criticalSection_constructSingleton(ksys_criticalSection *section, uint32_t *onceWord)
{
    if (section == nullptr || onceWord == nullptr)
        return ksys_statusBadArgument;
    const std::atomic_ref<uint32_t> once(*onceWord);
    uint32_t seen = kAbsent;
    if (once.compare_exchange_strong(seen, kBeingMade, std::memory_order_acq_rel, std::memory_order_acquire)) {
        // Never destroyed: calls may still come while the process winds down.
        new (section->implementation) std::mutex;
        once.store(kMade, std::memory_order_release);
        return 0;
    }
    // Whoever won needs a few instructions, unless it was interrupted between them.
    // GCOVR_EXCL_BR_START: a race that no test can order
    while (seen != kMade) {
        std::this_thread::yield();
        seen = once.load(std::memory_order_acquire);
    }
    // GCOVR_EXCL_BR_STOP
    return 0;
}

int32_t ksys_criticalSection_wait(ksys_criticalSection *section, uint32_t *)
{
    if (section == nullptr)
        return ksys_statusBadArgument;
    try {
        mutexOf(section).lock();
    } catch (const std::system_error &) { // GCOVR_EXCL_BR_LINE: no sound mutex fails
        return ksys_statusLockFailed;
    }
    return 0;
}

int32_t ksys_criticalSection_release(ksys_criticalSection *section)
{
    if (section == nullptr)
        return ksys_statusBadArgument;
    mutexOf(section).unlock();
    return 0;
}
