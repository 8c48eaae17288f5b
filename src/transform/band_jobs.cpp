#include "transform/band_jobs.h"

#include <algorithm>
#include <new>
#include <type_traits>

#include "support/cleanup_list.h"
#include "support/optimized_path.h"
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

int32_t queueBand(const Sampling &sampling, int32_t firstRow, int32_t rows, ksys_jobFunction job,
                  ksys_jobParams *jobParams, ksys_jobRequestSet *requests)
{
    void *block = nullptr;
    int32_t status = ksys_memory_alloc_internal(sizeof(kip_affineJobData), &block);
    if (status < 0)
        return status;

    auto *const data = new (block)
        kip_affineJobData{sampling.destination, sampling.accumulate, &sampling.source, &sampling.srcFromClient, nullptr,
                          &sampling.cache,      sampling.params};
    data->params = &data->paramsCopy;
    data->window.height = rows;
    data->window.originY = sampling.destination.originY - firstRow;

    status = ksys_jobParams_takeData(jobParams, &block, ksys_memory_free_internal);
    if (status < 0) {
        ksys_memory_free_internal(&block);
        return status;
    }
    return ksys_jobRequestSet_addFuncAndParams(requests, job, jobParams);
}

} // namespace

template <typename Pixel>
int32_t runBands(const Sampling &sampling, int32_t bandHeight, ksys_jobThreadGroup *group)
{
    constexpr auto job = std::is_same_v<Pixel, uint8_t> ? kip_affineProcessJob8 : kip_affineProcessJob16;
    CleanupList cleanup;
    ksys_jobParams jobParams;
    ksys_jobRequestSet requests;
    ksys_jobResultSet results;
    int32_t status = ksys_jobParams_construct(&jobParams);
    if (status >= 0) {
        addCleanup<ksys_jobParams_destruct>(cleanup, &jobParams);
        status = ksys_jobRequestSet_construct(&requests);
    }
    if (status >= 0) {
        addCleanup<ksys_jobRequestSet_destruct>(cleanup, &requests);
        status = ksys_jobResultSet_construct(&results);
    }
    if (status >= 0)
        addCleanup<ksys_jobResultSet_destruct>(cleanup, &results);

    const int64_t height = sampling.destination.height;
    for (int64_t first = 0; status >= 0 && first < height; first += bandHeight)
        status =
            queueBand(sampling, static_cast<int32_t>(first),
                      static_cast<int32_t>(std::min<int64_t>(bandHeight, height - first)), job, &jobParams, &requests);
    if (status >= 0)
        status = ksys_jobThreadGroup_dispatchAndWait(group, &requests, &results);
    return runCleanup(cleanup, status);
}

template int32_t runBands<uint8_t>(const Sampling &sampling, int32_t bandHeight, ksys_jobThreadGroup *group);
template int32_t runBands<uint16_t>(const Sampling &sampling, int32_t bandHeight, ksys_jobThreadGroup *group);

} // namespace kip
