#ifndef KIP_TRANSFORM_JOB_QUEUE_H
#define KIP_TRANSFORM_JOB_QUEUE_H

// What every dispatch of jobs is made of.

#include <cstdint>

#include <ksys/ksys.h>

#include "support/cleanup_list.h"

namespace kip {

// Gives work(&group, state) a group of threads and what it offers. Returns the status of that, or of the work.
template <typename Work>
int32_t withThreadGroup(Work work)
{
    CleanupList cleanup;
    ksys_jobThreadGroup group;
    int32_t status = ksys_jobThreadGroup_construct(&group);
    if (status < 0)
        return status;
    addCleanup<ksys_jobThreadGroup_destruct>(cleanup, &group);
    ksys_jobThreadState state;
    status = ksys_jobGetCurrentThreadState(&state, &group);
    if (status >= 0)
        status = work(&group, state);
    return runCleanup(cleanup, status);
}

// Jobs that are not yet run, and the holder in which each one's data comes to them.
struct JobQueue {
    ksys_jobParams params;
    ksys_jobRequestSet requests;
};

// Queues a job with its data, a block of ksys_memory_alloc_internal, which is freed on failure, too.
inline int32_t queueJob(JobQueue *queue, ksys_jobFunction job, void *block)
{
    const int32_t status = ksys_jobParams_takeData(&queue->params, &block, ksys_memory_free_internal);
    if (status < 0) {
        ksys_memory_free_internal(&block);
        return status;
    }
    return ksys_jobRequestSet_addFuncAndParams(&queue->requests, job, &queue->params);
}

// Runs the jobs that fill(&queue) queues, and returns when all of them are done. Returns the first failure of queueing
// the jobs, with none of them run, or the status of the dispatch.
template <typename Fill>
int32_t runJobs(ksys_jobThreadGroup *group, Fill fill)
{
    CleanupList cleanup;
    JobQueue queue;
    ksys_jobResultSet results;
    int32_t status = ksys_jobParams_construct(&queue.params);
    if (status >= 0) {
        addCleanup<ksys_jobParams_destruct>(cleanup, &queue.params);
        status = ksys_jobRequestSet_construct(&queue.requests);
    }
    if (status >= 0) {
        addCleanup<ksys_jobRequestSet_destruct>(cleanup, &queue.requests);
        status = ksys_jobResultSet_construct(&results);
    }
    if (status >= 0) {
        addCleanup<ksys_jobResultSet_destruct>(cleanup, &results);
        status = fill(&queue);
    }
    if (status >= 0)
        status = ksys_jobThreadGroup_dispatchAndWait(group, &queue.requests, &results);
    return runCleanup(cleanup, status);
}

} // namespace kip

#endif
