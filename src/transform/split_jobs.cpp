#include "transform/split_jobs.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstring>
#include <new>

#include "cache/cubic_weight_table.h"
#include "cache/sample_cache.h"
#include "transform/job_queue.h"
#include "transform/resample.h"

namespace kip {

namespace {

// What the jobs of a call share. There is one for each thread, and each takes bands until none is left.
struct SharedWork {
    const Sampling &sampling;
    bool isInhibited;
    int32_t bandHeight;
    uint32_t bands;
    std::atomic<uint32_t> taken{0};
};

// Bytes of a job's own memory, which no other's shares a cache line with, nor one that is fetched beside it.
struct JobMemory {
    size_t sums, scratch;

    size_t total() const { return sums + scratch; }
};

struct SplitJob {
    SharedWork *work;
    JobMemory sizes;
    uint8_t *memory;

    void *sums() const { return memory; }
    void *scratch() const { return memory + sizes.sums; }
};

JobMemory memoryOf(const Sampling &sampling, const Route &route)
{
    const kip_affineTilePlan &plan = sampling.source.bytesPerPixel == 1 ? sampling.cache.plan8 : sampling.cache.plan16;
    const auto padded = [](size_t bytes) { return (bytes + 127) / 128 * 128; };
    return {sampling.adds() ? padded(static_cast<size_t>(sampling.destination.width) * sizeof(uint32_t)) : 0,
            route.walker == Walker::plan ? padded(plan.allocatedBytes) : 0};
}

template <typename Pixel>
int32_t resampleBand(const SplitJob &job, uint32_t number)
{
    const SharedWork &work = *job.work;
    const Sampling &whole = work.sampling;
    const auto first = static_cast<int32_t>(static_cast<int64_t>(number) * work.bandHeight);
    const int32_t rows = std::min(work.bandHeight, whole.rows() - first);
    kimg_window band = whole.destination;
    band.originY -= first;
    if (whole.adds())
        band.pixels = job.sums();
    else
        band.height = rows;
    return resample<Pixel>(work.isInhibited, {whole.source, whole.srcFromClient, band, whole.params, whole.cache,
                                              whole.accumulate, rows, job.scratch()});
}

template <typename Pixel>
int32_t runJob(const ksys_jobParams *params)
{
    const SplitJob *job = nullptr;
    int32_t status = ksys_jobParams_getDataConst(params, &job);
    if (status < 0)
        return status;
    SharedWork &work = *job->work;
    std::memset(job->memory, 0, job->sizes.sums);
    while (status >= 0) {
        const uint32_t number = work.taken.fetch_add(1, std::memory_order_relaxed);
        if (number >= work.bands)
            break;
        status = resampleBand<Pixel>(*job, number);
    }
    return status;
}

int32_t queueSplitJob(const SplitJob &job, ksys_jobFunction function, JobQueue *queue)
{
    void *block = nullptr;
    const int32_t status = ksys_memory_alloc_internal(sizeof job, &block);
    return status < 0 ? status : queueJob(queue, function, new (block) SplitJob(job));
}

// Sums are modulo 2^32, in whatever order they are added up.
void addUp(const uint8_t *memory, size_t stride, size_t jobs, const kimg_window &destination)
{
    auto *const sums = static_cast<uint32_t *>(destination.pixels);
    std::fill_n(sums, destination.width, uint32_t{0});
    for (size_t j = 0; j < jobs; ++j) {
        const auto *const added = reinterpret_cast<const uint32_t *>(memory + j * stride);
        for (int32_t x = 0; x < destination.width; ++x)
            sums[x] += added[x];
    }
}

} // namespace

bool isWorthSplit(const Sampling &sampling, const Route &route)
{
    return isWorthJobs(sampling, route, int64_t{sampling.destination.width} * sampling.rows());
}

template <typename Pixel>
int32_t runSplit(const Sampling &sampling, bool isInhibited, const Route &route, ksys_jobThreadGroup *group,
                 int32_t threadCount)
{
    // The jobs find the table built: one that failed to build it would leave a part of a result.
    int32_t status = route.walker == Walker::plan ? ensureCubicWeightTable() : 0;
    if (status < 0)
        return status;
    const int32_t bands = (sampling.rows() - 1) / route.tileSize + 1;
    const JobMemory sizes = memoryOf(sampling, route);
    // Fewer where there is no such number of bytes.
    const auto wanted = static_cast<size_t>(std::min(threadCount, bands));
    const size_t jobs = std::min(wanted, SIZE_MAX / std::max<size_t>(sizes.total(), 1));
    void *memory;
    status = kip_affineSampleCache_lendScratch(&sampling.cache, jobs * sizes.total(), &memory);
    if (status < 0)
        return status;

    SharedWork work = {sampling, isInhibited, route.tileSize, static_cast<uint32_t>(bands)};
    status = runJobs(group, [&](JobQueue *queue) {
        int32_t queued = 0;
        auto *at = static_cast<uint8_t *>(memory);
        for (size_t j = 0; queued >= 0 && j < jobs; ++j, at += sizes.total())
            queued = queueSplitJob({&work, sizes, at}, runJob<Pixel>, queue);
        return queued;
    });
    if (status >= 0 && sampling.adds())
        addUp(static_cast<const uint8_t *>(memory), sizes.total(), jobs, sampling.destination);
    return status;
}

template int32_t runSplit<uint8_t>(const Sampling &sampling, bool isInhibited, const Route &route,
                                   ksys_jobThreadGroup *group, int32_t threadCount);
template int32_t runSplit<uint16_t>(const Sampling &sampling, bool isInhibited, const Route &route,
                                    ksys_jobThreadGroup *group, int32_t threadCount);

} // namespace kip
