// Jobs as callers see them: groups, parameters, requests, results.

#include <ksys/ksys.h>

#include <algorithm>
#include <atomic>
#include <cstring>

#include "job_pool.h"

namespace {

// Threads that new groups offer; 0 until somebody asks.
constinit std::atomic<int32_t> offeredThreads{0};
// Whether they are for all work.
constinit std::atomic<int32_t> splitsAll{0};

int32_t growRequests(ksys_jobRequestSet *set)
{
    constexpr int32_t kFirstCapacity = 16;
    constexpr auto kLimit = static_cast<int32_t>(std::min<size_t>(INT32_MAX, SIZE_MAX / sizeof(ksys_jobRequest)));
    // GCOVR_EXCL_BR_START: jobs of many gigabytes
    if (set->capacity == kLimit)
        return ksys_statusSizeTooLarge;
    const int32_t capacity = set->capacity > kLimit / 2 ? kLimit : std::max(2 * set->capacity, kFirstCapacity);
    // GCOVR_EXCL_BR_STOP
    const int32_t status =
        ksys_memory_realloc_internal(static_cast<size_t>(capacity) * sizeof(ksys_jobRequest), &set->requests);
    if (status >= 0)
        set->capacity = capacity;
    return status;
}

} // namespace

int32_t ksys_jobThreadGroup_setThreadCount(int32_t count)
{
    if (count < 0)
        return ksys_statusBadArgument;
    offeredThreads.store(count == 0 ? ksys_jobPool_processorCount() : std::min(count, ksys_jobPoolThreadLimit),
                         std::memory_order_relaxed);
    return 0;
}

int32_t ksys_jobThreadGroup_setSplitAll(int32_t on)
{
    splitsAll.store(on, std::memory_order_relaxed);
    return 0;
}

int32_t ksys_jobThreadGroup_construct(ksys_jobThreadGroup *group)
{
    const int32_t offered = offeredThreads.load(std::memory_order_relaxed);
    group->threadCount = offered == 0 ? ksys_jobPool_processorCount() : offered;
    group->splitsAll = splitsAll.load(std::memory_order_relaxed);
    return 0;
}

int32_t ksys_jobThreadGroup_destruct(ksys_jobThreadGroup *group)
{
    group->threadCount = 0;
    group->splitsAll = 0;
    return 0;
}

int32_t ksys_jobGetCurrentThreadState(ksys_jobThreadState *state, const ksys_jobThreadGroup *group)
{
    state->threadCount = group->threadCount;
    state->splitsAll = group->splitsAll;
    return 0;
}

int32_t ksys_jobParams_construct(ksys_jobParams *params)
{
    *params = {nullptr, nullptr};
    return 0;
}

int32_t ksys_jobParams_destruct(ksys_jobParams *params)
{
    ksys_jobParams released = *params;
    *params = {nullptr, nullptr};
    return released.data == nullptr ? 0 : released.deleter(&released.data);
}

int32_t ksys_jobParams_takeData(ksys_jobParams *params, void *dataPointer, ksys_cleanupRoutine deleter)
{
    if (params == nullptr || dataPointer == nullptr || deleter == nullptr)
        return ksys_statusBadArgument;
    void *data;
    std::memcpy(&data, dataPointer, sizeof data); // a pointer of any type
    if (data == nullptr)
        return ksys_statusBadArgument;
    const int32_t status = ksys_jobParams_destruct(params);
    if (status < 0)
        return status;
    *params = {data, deleter};
    data = nullptr;
    std::memcpy(dataPointer, &data, sizeof data);
    return 0;
}

int32_t ksys_jobParams_getDataConst(const ksys_jobParams *params, void *dataPointer)
{
    if (params == nullptr || dataPointer == nullptr)
        return ksys_statusBadArgument;
    if (params->data == nullptr)
        return ksys_statusNoData;
    std::memcpy(dataPointer, &params->data, sizeof params->data);
    return 0;
}

int32_t ksys_jobRequestSet_construct(ksys_jobRequestSet *set)
{
    *set = {nullptr, 0, 0};
    return 0;
}

int32_t ksys_jobRequestSet_destruct(ksys_jobRequestSet *set)
{
    int32_t status = 0;
    for (int32_t i = 0; i < set->count; ++i) {
        const int32_t released = ksys_jobParams_destruct(&set->requests[i].params);
        if (status >= 0 && released < 0)
            status = released;
    }
    ksys_memory_free_internal(&set->requests);
    set->count = 0;
    set->capacity = 0;
    return status;
}

int32_t ksys_jobRequestSet_addFuncAndParams(ksys_jobRequestSet *set, ksys_jobFunction function, ksys_jobParams *params)
{
    if (set == nullptr || function == nullptr || params == nullptr)
        return ksys_statusBadArgument;
    if (set->count == set->capacity) {
        const int32_t status = growRequests(set);
        if (status < 0)
            return status;
    }
    set->requests[set->count++] = {function, *params};
    *params = {nullptr, nullptr};
    return 0;
}

int32_t ksys_jobResultSet_construct(ksys_jobResultSet *set)
{
    *set = {nullptr, 0};
    return 0;
}

int32_t ksys_jobResultSet_destruct(ksys_jobResultSet *set)
{
    set->count = 0;
    return ksys_memory_free_internal(&set->statuses);
}

int32_t ksys_jobThreadGroup_dispatchAndWait(ksys_jobThreadGroup *group, ksys_jobRequestSet *requests,
                                            ksys_jobResultSet *results)
{
    if (group == nullptr || requests == nullptr || results == nullptr)
        return ksys_statusBadArgument;
    results->count = 0;
    if (requests->count == 0)
        return 0;
    const int32_t status =
        ksys_memory_realloc_internal(static_cast<size_t>(requests->count) * sizeof(int32_t), &results->statuses);
    if (status < 0)
        return status;
    results->count = requests->count;

    int32_t *first = results->statuses;
    int32_t *last = first + results->count;
    std::fill(first, last, ksys_statusJobAborted);
    ksys_jobPool_run(*requests, *results, group->threadCount);
    const int32_t *failed = std::find_if(first, last, [](int32_t result) { return result < 0; });
    return failed == last ? 0 : *failed;
}
