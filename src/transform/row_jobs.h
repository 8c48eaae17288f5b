#ifndef KIP_TRANSFORM_ROW_JOBS_H
#define KIP_TRANSFORM_ROW_JOBS_H

// Filling and copying by rows, which is most of what a clipped call does on one thread beside its sampling.

#include <algorithm>
#include <cstdint>
#include <new>

#include <kip/kip.h>

#include "transform/job_queue.h"

namespace kip {

template <typename Work>
struct RowsJob {
    const Work *work;
    kimg_window part;

    static int32_t run(const ksys_jobParams *params)
    {
        const RowsJob *job = nullptr;
        const int32_t status = ksys_jobParams_getDataConst(params, &job);
        if (status < 0)
            return status;
        kimg_window part = job->part;
        return (*job->work)(part);
    }
};

// Whether rows of a window are worth a dispatch. Their places have to be numbers, too.
inline bool isWorthRowJobs(const kimg_window &window, const ksys_jobThreadState &state)
{
    constexpr int64_t leastBytes = 0x20000;
    return state.threadCount > 1 && state.splitsAll != 0 &&
           int64_t{window.width} * window.height * window.bytesPerPixel >= leastBytes &&
           int64_t{window.y} + window.height <= INT32_MAX;
}

template <typename Work>
int32_t queueRows(JobQueue *queue, const kimg_window &window, int32_t y, int32_t rows, const Work &work)
{
    kimg_window part = window;
    int32_t status = kimg_window_window(&part, window.x, y, window.width, rows, nullptr);
    if (status < 0)
        return status;
    void *block = nullptr;
    status = ksys_memory_alloc_internal(sizeof(RowsJob<Work>), &block);
    return status < 0 ? status : queueJob(queue, RowsJob<Work>::run, new (block) RowsJob<Work>{&work, part});
}

// Gives work(part), which returns a status, a window; or, where all work may be split over the pool and this is worth
// it, as many parts of it as there are threads, of some rows each, as jobs. Returns the first failure.
template <typename Work>
int32_t forRows(kimg_window window, const Work &work)
{
    return withThreadGroup([&](ksys_jobThreadGroup *group, const ksys_jobThreadState &state) {
        if (!isWorthRowJobs(window, state))
            return work(window);
        return runJobs(group, [&](JobQueue *queue) {
            const int32_t rows = (window.height - 1) / state.threadCount + 1;
            int32_t status = 0;
            for (int32_t first = 0; status >= 0 && first < window.height; first += rows)
                status = queueRows(queue, window, window.y + first, std::min(rows, window.height - first), work);
            return status;
        });
    });
}

} // namespace kip

#endif
