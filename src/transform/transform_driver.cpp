#include "transform/transform_driver.h"

#include <algorithm>
#include <new>

#include "support/cleanup_list.h"
#include "support/optimized_path.h"
#include "transform/resample.h"
#include "transform/tiles/tile_kernels.h"
#include "transform/tiles/tile_size.h"

namespace kip {

namespace {

// Least work, in destination pixels, that is worth a dispatch.
constexpr int32_t kMinJobPixelsNearest = 0x40000;
constexpr int32_t kMinJobPixelsBilinear = 0x10000;

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

// Source, map, destination, parameters and cache of one call.
struct Request {
    const kimg_windowConst &source;
    const kmath_xformLinear &srcFromClient;
    kimg_window &destination;
    const kip_affineSampleParams &params;
    kip_affineSampleCache &cache;
};

int32_t declineFast16(uint32_t, const kimg_windowConst &, const kmath_xformLinear &, const kimg_window &,
                      const kip_affineSampleParams &, kip_affineSampleCache &)
{
    return noOptimisedVariant();
}

// A band must be exactly one row of tiles of the walker that will run it: only then does a job find the same
// start as the walk over the whole destination.
int32_t bandHeight8(const Request &request)
{
    if (kprt_isOptimizationInhibited(L"kip_affineProcess") != 0 || !isServedByFast8(request.source))
        return kTileSizePortable8;
    return tileSizeForPitch(request.source.pitch);
}

int32_t bandHeight16(const Request &request)
{
    return tileSizeForPitch(request.source.pitch);
}

// The walk in doubles starts a band a last bit away from where the whole walk is by then, so it is not cut.
int32_t canCutIntoBands8(const Request &request, bool *canCut)
{
    Walker8 walker;
    const int32_t status =
        chooseWalker8(request.source, request.srcFromClient, request.params, kTileSizePortable8, &walker);
    *canCut = walker != Walker8::inDoubles;
    return status;
}

int32_t canCutIntoBands16(const Request &, bool *canCut)
{
    *canCut = true;
    return 0;
}

// What differs between the two depths.
struct Depth {
    const wchar_t *inhibitName;
    ResamplePath *fast;
    ResamplePath *portable;
    int32_t (*bandHeight)(const Request &request);
    int32_t (*canCutIntoBands)(const Request &request, bool *canCut);
    ksys_jobFunction job;
    int32_t (*transformAligned)(const kimg_windowConst *source, kimg_window *destination,
                                kip_affine_imageAlignment alignCode);
};

int32_t kip_affineProcessJob8(const ksys_jobParams *jobParams);
int32_t kip_affineProcessJob16(const ksys_jobParams *jobParams);

constexpr Depth kDepth8 = {L"kip_affineProcess", resampleFast8,         resamplePortable8,         bandHeight8,
                           canCutIntoBands8,     kip_affineProcessJob8, kip_affineTransformAligned};
constexpr Depth kDepth16 = {L"kip_affineProcess16", declineFast16,          resamplePortable16,          bandHeight16,
                            canCutIntoBands16,      kip_affineProcessJob16, kip_affineTransformAligned16};

// Resamples a destination or a band of it on the calling thread: by the optimised path, or by the portable
// one if that is inhibited or declines.
int32_t resample(const Depth &depth, uint32_t accumulate, const kimg_windowConst &source,
                 const kmath_xformLinear &srcFromClient, const kimg_window &destination,
                 const kip_affineSampleParams &params, kip_affineSampleCache &cache)
{
    const int32_t status = isInhibited(depth.inhibitName)
                               ? kip_statusOptimizationDeclined
                               : depth.fast(accumulate, source, srcFromClient, destination, params, cache);
    if (!isDeclined(status))
        return status;
    return depth.portable(accumulate, source, srcFromClient, destination, params, cache);
}

int32_t runJob(const Depth &depth, const ksys_jobParams *jobParams)
{
    const kip_affineJobData *data = nullptr;
    const int32_t status = ksys_jobParams_getDataConst(jobParams, &data);
    if (status < 0)
        return status;
    return resample(depth, data->accumulate, *data->src, *data->srcFromClient, data->window, *data->params,
                    *data->cache);
}

int32_t kip_affineProcessJob8(const ksys_jobParams *jobParams)
{
    return runJob(kDepth8, jobParams);
}

int32_t kip_affineProcessJob16(const ksys_jobParams *jobParams)
{
    return runJob(kDepth16, jobParams);
}

int32_t shouldUseJobs(const Depth &depth, const Request &request, int32_t bandHeight, bool *useJobs)
{
    *useJobs = false;
    const kip_affineSampleParams &params = request.params;
    if (params.mode > kip_affineModeBilinear || request.destination.height <= 3 * bandHeight / 2)
        return 0;
    // A 32-bit product, which may wrap: an enormous destination then stays on the calling thread.
    const auto pixels = static_cast<int32_t>(static_cast<uint32_t>(request.destination.width) *
                                             static_cast<uint32_t>(request.destination.height));
    if (pixels < (params.mode == kip_affineModeNearest ? kMinJobPixelsNearest : kMinJobPixelsBilinear))
        return 0;
    return depth.canCutIntoBands(request, useJobs);
}

int32_t queueBand(const Depth &depth, const Request &request, int32_t firstRow, int32_t rows, ksys_jobParams *jobParams,
                  ksys_jobRequestSet *requests)
{
    void *block = nullptr;
    int32_t status = ksys_memory_alloc_internal(sizeof(kip_affineJobData), &block);
    if (status < 0)
        return status;

    auto *const data = new (block) kip_affineJobData{
        request.destination, 0, &request.source, &request.srcFromClient, nullptr, &request.cache, request.params,
    };
    data->params = &data->paramsCopy;
    data->window.height = rows;
    data->window.originY = request.destination.originY - firstRow;

    status = ksys_jobParams_takeData(jobParams, &block, ksys_memory_free_internal);
    if (status < 0) {
        ksys_memory_free_internal(&block);
        return status;
    }
    return ksys_jobRequestSet_addFuncAndParams(requests, depth.job, jobParams);
}

int32_t runBands(const Depth &depth, const Request &request, int32_t bandHeight, ksys_jobThreadGroup *group)
{
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

    const int64_t height = request.destination.height;
    for (int64_t first = 0; status >= 0 && first < height; first += bandHeight)
        status = queueBand(depth, request, static_cast<int32_t>(first),
                           static_cast<int32_t>(std::min<int64_t>(bandHeight, height - first)), &jobParams, &requests);
    if (status >= 0)
        status = ksys_jobThreadGroup_dispatchAndWait(group, &requests, &results);
    return runCleanup(cleanup, status);
}

int32_t processWithGroup(const Depth &depth, const Request &request, ksys_jobThreadGroup *group)
{
    ksys_jobThreadState state;
    int32_t status = ksys_jobGetCurrentThreadState(&state, group);
    if (status < 0)
        return status;
    if (state.threadCount > 1) {
        const int32_t bandHeight = depth.bandHeight(request);
        bool useJobs;
        status = shouldUseJobs(depth, request, bandHeight, &useJobs);
        if (status < 0)
            return status;
        if (useJobs)
            return runBands(depth, request, bandHeight, group);
    }
    return resample(depth, 0, request.source, request.srcFromClient, request.destination, request.params,
                    request.cache);
}

int32_t process(const Depth &depth, const Request &request)
{
    CleanupList cleanup;
    ksys_jobThreadGroup group;
    int32_t status = ksys_jobThreadGroup_construct(&group);
    if (status < 0)
        return status;
    addCleanup<ksys_jobThreadGroup_destruct>(cleanup, &group);
    status = processWithGroup(depth, request, &group);
    return runCleanup(cleanup, status);
}

int32_t copyAligned(const Depth &depth, const Request &request)
{
    const kstd_rect32 &block = request.cache.alignSrcRect;
    kimg_windowConst window = request.source;
    const int32_t status = kimg_windowConst_window(&window, block.x, block.y, block.width, block.height, nullptr);
    if (status < 0)
        return status;
    if (window.width != block.width || window.height != block.height)
        return kip_statusWindowMismatch;
    return depth.transformAligned(&window, &request.destination, request.cache.alignCode);
}

int32_t transformWindow(const Depth &depth, const Request &request)
{
    const int32_t status = kip_affineSampleCache_update(&request.cache, &request.source, &request.srcFromClient,
                                                        &request.destination, &request.params, 0);
    if (status < 0)
        return status;
    return request.cache.alignCode == kip_affine_alignNone ? process(depth, request) : copyAligned(depth, request);
}

} // namespace

int32_t kip_affineTransformWindow8(const kimg_windowConst &source, const kmath_xformLinear &srcFromClient,
                                   kimg_window &destination, const kip_affineSampleParams &params,
                                   kip_affineSampleCache &cache)
{
    return transformWindow(kDepth8, {source, srcFromClient, destination, params, cache});
}

int32_t kip_affineTransformWindow16(const kimg_windowConst &source, const kmath_xformLinear &srcFromClient,
                                    kimg_window &destination, const kip_affineSampleParams &params,
                                    kip_affineSampleCache &cache)
{
    return transformWindow(kDepth16, {source, srcFromClient, destination, params, cache});
}

} // namespace kip
