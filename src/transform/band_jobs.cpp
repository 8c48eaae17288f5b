#include "transform/band_jobs.h"

#include <algorithm>
#include <new>
#include <type_traits>

#include "support/optimized_path.h"
#include "transform/job_queue.h"
#include "transform/resample.h"

namespace kip {

namespace {

// What a job needs. All but its band of the destination and its copy of the parameters is shared, read only.
struct kip_affineJobData {
    kimg_window window; // the whole destination, with the band's height and minus its first row in originY
    uint32_t accumulate;
    const kimg_windowConst *src;
    const kmath_xformLinear *srcFromClient;
    const kip_affineSampleParams *params; // the copy below
    kip_affineSampleCache *cache;
    kip_affineSampleParams paramsCopy;
};

template <typename Pixel>
int32_t runJob(const ksys_jobParams *jobParams)
{
    const kip_affineJobData *data = nullptr;
    const int32_t status = ksys_jobParams_getDataConst(jobParams, &data);
    if (status < 0)
        return status;
    kimg_window band = data->window;
    return resample<Pixel>(isInhibited(kInhibitName<Pixel>),
                           {*data->src, *data->srcFromClient, band, *data->params, *data->cache, data->accumulate});
}

int32_t kip_affineProcessJob8(const ksys_jobParams *jobParams)
{
    return runJob<uint8_t>(jobParams);
}

int32_t kip_affineProcessJob16(const ksys_jobParams *jobParams)
{
    return runJob<uint16_t>(jobParams);
}

int32_t queueBand(const Sampling &sampling, int32_t firstRow, int32_t rows, ksys_jobFunction job, JobQueue *queue)
{
    void *block = nullptr;
    const int32_t status = ksys_memory_alloc_internal(sizeof(kip_affineJobData), &block);
    if (status < 0)
        return status;

    auto *const data = new (block)
        kip_affineJobData{sampling.destination, sampling.accumulate, &sampling.source, &sampling.srcFromClient, nullptr,
                          &sampling.cache,      sampling.params};
    data->params = &data->paramsCopy;
    data->window.height = rows;
    data->window.originY = sampling.destination.originY - firstRow;
    return queueJob(queue, job, block);
}

} // namespace

template <typename Pixel>
int32_t runBands(const Sampling &sampling, int32_t bandHeight, ksys_jobThreadGroup *group)
{
    constexpr auto job = std::is_same_v<Pixel, uint8_t> ? kip_affineProcessJob8 : kip_affineProcessJob16;
    return runJobs(group, [&](JobQueue *queue) {
        const int64_t height = sampling.destination.height;
        int32_t status = 0;
        for (int64_t first = 0; status >= 0 && first < height; first += bandHeight)
            status = queueBand(sampling, static_cast<int32_t>(first),
                               static_cast<int32_t>(std::min<int64_t>(bandHeight, height - first)), job, queue);
        return status;
    });
}

template int32_t runBands<uint8_t>(const Sampling &sampling, int32_t bandHeight, ksys_jobThreadGroup *group);
template int32_t runBands<uint16_t>(const Sampling &sampling, int32_t bandHeight, ksys_jobThreadGroup *group);

} // namespace kip
