#include <cstdint>

#include <kip/kip.h>

#include "projection/normalize_projection.h"
#include "support/cleanup_list.h"

namespace {

// What differs between the two depths.
struct Depth {
    int32_t (*project)(const kimg_imageConst *source, kimg_image *result, const kip_affineSampleParams *params,
                       kip_affineSampleCache **cache, uint32_t *depth);
    int32_t (*projectClipped)(const kimg_imageConst *source, kimg_image *result, kimg_image *coverage,
                              const kip_affineSampleParams *params, kip_affineSampleCache **cache,
                              uint8_t coverageValue, uint32_t *depth, uint32_t *willClip);
};

constexpr Depth kDepth8 = {kip_affineProject, kip_affineProjectClipped};
constexpr Depth kDepth16 = {kip_affineProject16, kip_affineProjectClipped16};

// The most that the mask of an 8-bit picture can hold: the finest share of a sample.
constexpr uint8_t kCoverageValue = 255;

int32_t projectMeans(const Depth &depth, const kimg_imageConst *source, kimg_image *result, kimg_image *coverage,
                     const kip_affineSampleParams *params, kip_affineSampleCache **cache, uint32_t *depthOut,
                     kip::SumColumns *range)
{
    uint32_t sampleCount = 0;
    uint32_t willClip = 0;
    const int32_t status =
        depth.projectClipped(source, result, coverage, params, cache, kCoverageValue, &sampleCount, &willClip);
    if (status < 0)
        return status;
    if (willClip != 0)
        return kip::normalizeProjection(result, coverage, kCoverageValue, params->destWidth, depthOut, &range->first,
                                        &range->end);
    *range = kip::columnsOf(*result, params->destWidth);
    if (depthOut != nullptr)
        *depthOut = sampleCount;
    return status;
}

int32_t projectNorm(const Depth &depth, const kimg_imageConst *source, kimg_image *result,
                    const kip_affineSampleParams *params, uint32_t clip, kip_affineSampleCache **cache,
                    uint32_t *depthOut, int32_t *first, int32_t *end)
{
    kip::SumColumns range = {0, 0};
    int32_t status;
    if (clip == 0) {
        status = depth.project(source, result, params, cache, depthOut);
        range = kip::columnsOf(*result, params->destWidth);
    } else {
        kip::CleanupList cleanup;
        kimg_image coverage;
        status = kimg_image_constructUnbound(&coverage);
        kip::addCleanup<kimg_image_destruct>(cleanup, &coverage);
        if (status >= 0)
            status = projectMeans(depth, source, result, &coverage, params, cache, depthOut, &range);
        status = kip::runCleanup(cleanup, status);
    }
    if (status < 0)
        return status;
    if (first != nullptr)
        *first = range.first;
    if (end != nullptr)
        *end = range.end;
    return status;
}

} // namespace

int32_t kip_affineProjectNorm(const kimg_imageConst *source, kimg_image *result, const kip_affineSampleParams *params,
                              uint32_t clip, kip_affineSampleCache **cache, uint32_t *depth, int32_t *first,
                              int32_t *end)
{
    return projectNorm(kDepth8, source, result, params, clip, cache, depth, first, end);
}

int32_t kip_affineProjectNorm16(const kimg_imageConst *source, kimg_image *result, const kip_affineSampleParams *params,
                                uint32_t clip, kip_affineSampleCache **cache, uint32_t *depth, int32_t *first,
                                int32_t *end)
{
    return projectNorm(kDepth16, source, result, params, clip, cache, depth, first, end);
}
