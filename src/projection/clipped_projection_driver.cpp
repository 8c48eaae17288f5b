#include "projection/projection_driver.h"
#include "support/cleanup_list.h"

namespace kip {

namespace {

// What differs between the two depths.
struct Depth {
    int32_t bytesPerPixel;
    int32_t (*project)(const kimg_windowConst &source, const kmath_xformLinear &srcFromClient, kimg_window &sums,
                       const kip_affineSampleParams &params, kip_affineSampleCache &cache, kmath_xformLinear *placement,
                       uint32_t *depth);
    int32_t (*fill)(kimg_window *window, uint8_t value);
    int32_t (*copy)(const kimg_windowConst *source, kimg_window *destination);
};

// The value itself, not the value scaled to 16 bits: coverage is counted in units of it at either depth.
int32_t fill16(kimg_window *window, uint8_t value)
{
    return kip_pelSetWindow16(window, value);
}

constexpr Depth kDepth8 = {1, projectAffine8, kip_pelSetWindow8, kip_pelCopyWindow8};
constexpr Depth kDepth16 = {2, projectAffine16, fill16, kip_pelCopyWindow16};

// What the two projections of a call have in common.
struct Request {
    const kimg_windowConst &source;
    const kmath_xformLinear &srcFromClient;
    const kip_affineSampleParams &params;
    kip_affineSampleCache &cache;
    kmath_xformLinear *placement;
};

// A temporary source, for writing and for reading.
struct Padded {
    kimg_window window;
    kimg_windowConst pixels;
};

int32_t projectPadded(const Depth &depth, const Request &request, const Padded &padded, kimg_window &sums)
{
    return depth.project(padded.pixels, request.srcFromClient, sums, request.params, request.cache, request.placement,
                         nullptr);
}

// The source, and 0 round it.
int32_t padSource(const Depth &depth, const kimg_windowConst &source, Padded &padded)
{
    int32_t status = ksys_attention_check();
    if (status >= 0)
        status = depth.fill(&padded.window, 0);
    if (status >= 0)
        status = ksys_attention_check();
    if (status >= 0)
        status = depth.copy(&source, &padded.window);
    if (status >= 0)
        status = ksys_attention_check();
    return status;
}

// The coverage value where the source is; elsewhere the padding's 0 stays.
int32_t coverSource(const Depth &depth, const kimg_windowConst &source, Padded &padded, uint8_t coverageValue)
{
    kstd_rect32 common;
    int32_t empty;
    int32_t status = kimg_windowConst_gcr(&padded.pixels, &source, &common, &empty);
    if (status < 0)
        return status;
    if (empty != 0)
        return kip_statusProjectionOutsideSource;
    kimg_window covered = padded.window;
    status = kimg_window_windowRect(&covered, &common, 0);
    return status < 0 ? status : depth.fill(&covered, coverageValue);
}

int32_t greatestSum(const kimg_window &sums, uint32_t *greatest)
{
    const kimg_windowConst read = {sums.width,        sums.height,    sums.x,          sums.y,     sums.originX,
                                   sums.originY,      sums.fullWidth, sums.fullHeight, sums.pitch, sums.pixels,
                                   sums.bytesPerPixel};
    return kip_pelUnaryMaxWindow32(&read, greatest);
}

int32_t projectThrough(const Depth &depth, const Request &request, Padded &padded, kimg_window &sums,
                       kimg_window &coverage, uint8_t coverageValue, uint32_t *greatestCoverage)
{
    int32_t status = padSource(depth, request.source, padded);
    if (status >= 0)
        status = projectPadded(depth, request, padded, sums);
    if (status >= 0)
        status = ksys_attention_check();
    if (status >= 0)
        status = coverSource(depth, request.source, padded, coverageValue);
    if (status >= 0)
        status = ksys_attention_check();
    if (status >= 0)
        status = projectPadded(depth, request, padded, coverage);
    if (status >= 0)
        status = ksys_attention_check();
    return status < 0 ? status : greatestSum(coverage, greatestCoverage);
}

// Only what the sampling may read is copied and padded, never the whole source.
int32_t projectClipped(const Depth &depth, const Request &request, kimg_window &sums, kimg_window &coverage,
                       uint8_t coverageValue, uint32_t *greatestCoverage)
{
    int32_t status = checkProjectionSource(request.source, depth.bytesPerPixel, request.params.mode);
    if (status < 0)
        return status;
    kstd_rect32 rect;
    status =
        kip_affineSampleParams_getMaxSrcRectWindow(&request.params, &request.source, &request.srcFromClient, &rect);
    if (status < 0)
        return status;

    CleanupList cleanup;
    kimg_image image;
    status = kimg_image_construct(&image, depth.bytesPerPixel, rect.width, rect.height);
    addCleanup<kimg_image_destruct>(cleanup, &image);
    image.x = rect.x;
    image.y = rect.y;
    Padded padded;
    if (status >= 0)
        status = kimg_window_init(&padded.window, &image);
    if (status >= 0)
        status = kimg_windowConst_init(&padded.pixels, &image);
    if (status >= 0)
        status = projectThrough(depth, request, padded, sums, coverage, coverageValue, greatestCoverage);
    return runCleanup(cleanup, status);
}

} // namespace

int32_t projectAffineClipped8(const kimg_windowConst &source, const kmath_xformLinear &srcFromClient, kimg_window &sums,
                              kimg_window &coverage, const kip_affineSampleParams &params, kip_affineSampleCache &cache,
                              kmath_xformLinear *placement, uint8_t coverageValue, uint32_t *depth)
{
    return projectClipped(kDepth8, {source, srcFromClient, params, cache, placement}, sums, coverage, coverageValue,
                          depth);
}

int32_t projectAffineClipped16(const kimg_windowConst &source, const kmath_xformLinear &srcFromClient,
                               kimg_window &sums, kimg_window &coverage, const kip_affineSampleParams &params,
                               kip_affineSampleCache &cache, kmath_xformLinear *placement, uint8_t coverageValue,
                               uint32_t *depth)
{
    return projectClipped(kDepth16, {source, srcFromClient, params, cache, placement}, sums, coverage, coverageValue,
                          depth);
}

} // namespace kip
