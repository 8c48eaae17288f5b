// Critical sections in the caller's static storage.

#include <ksys/ksys.h>

#include <mutex>
#include <new>
#include <system_error>

#include "process_once.h"

namespace {

static_assert(sizeof(std::mutex) <= sizeof(ksys_criticalSection), "the mutex lives in the section's storage");
static_assert(alignof(std::mutex) <= alignof(ksys_criticalSection), "the mutex lives in the section's storage");

std::mutex &mutexOf(ksys_criticalSection *section)
{
    return *std::launder(reinterpret_cast<std::mutex *>(section->implementation));
}

} // namespace

int32_t ksys_criticalSection_constructSingleton(ksys_criticalSection *section, uint32_t *onceWord)
{
    if (section == nullptr || onceWord == nullptr)
        return ksys_statusBadArgument;
    // Never destroyed: calls may still come while the process winds down.
    const bool isMade = makeOncePerProcess(*onceWord, [section] { new (section->implementation) std::mutex; });
    return isMade ? 0 : ksys_statusOutOfMemory; // GCOVR_EXCL_BR_LINE: a few bytes that no test can refuse
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
