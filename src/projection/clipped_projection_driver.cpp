#include "projection/projection_driver.h"
#include "support/cleanup_list.h"
#include "support/pixel_functions.h"
#include "transform/row_jobs.h"

namespace kip {

namespace {

kimg_windowConst readOnly(const kimg_window &window)
{
    return {window.width,     window.height,     window.x,     window.y,      window.originX,      window.originY,
            window.fullWidth, window.fullHeight, window.pitch, window.pixels, window.bytesPerPixel};
}

// The source, and 0 round it.
template <typename Pixel>
int32_t padSource(const kimg_windowConst &source, kimg_window &padded)
{
    int32_t status = ksys_attention_check();
    if (status >= 0)
        status = forRows(padded, [](kimg_window &rows) { return PixelFunctions<Pixel>::setWindow(&rows, 0); });
    if (status >= 0)
        status = ksys_attention_check();
    if (status >= 0)
        status =
            forRows(padded, [&source](kimg_window &rows) { return PixelFunctions<Pixel>::copyWindow(&source, &rows); });
    return status < 0 ? status : ksys_attention_check();
}

// The coverage value where the source is; elsewhere the padding's 0 stays. Pixels of 16 bits get the value itself, not
// one scaled to their range: coverage is counted in units of it whatever their size.
template <typename Pixel>
int32_t coverSource(const kimg_windowConst &source, const kimg_window &padded, uint8_t coverageValue)
{
    const kimg_windowConst paddedPixels = readOnly(padded);
    kstd_rect32 common;
    int32_t empty;
    int32_t status = kimg_windowConst_gcr(&paddedPixels, &source, &common, &empty);
    if (status < 0)
        return status;
    if (empty != 0)
        return kip_statusProjectionOutsideSource;
    kimg_window covered = padded;
    status = kimg_window_windowRect(&covered, &common, 0);
    if (status < 0)
        return status;
    status = forRows(
        covered, [coverageValue](kimg_window &rows) { return PixelFunctions<Pixel>::setWindow(&rows, coverageValue); });
    return status < 0 ? status : ksys_attention_check();
}

template <typename Pixel>
int32_t projectThrough(kimg_window &padded, const Sampling &sampling, kimg_window &coverage,
                       kmath_xformLinear *placement, uint8_t coverageValue, uint32_t *greatestCoverage)
{
    const kimg_windowConst paddedPixels = readOnly(padded);
    const auto projectInto = [&](kimg_window &sums) {
        const int32_t status = projectAffine<Pixel>(
            {paddedPixels, sampling.srcFromClient, sums, sampling.params, sampling.cache, 1}, placement, nullptr);
        return status < 0 ? status : ksys_attention_check();
    };
    int32_t status = padSource<Pixel>(sampling.source, padded);
    if (status >= 0)
        status = projectInto(sampling.destination);
    if (status >= 0)
        status = coverSource<Pixel>(sampling.source, padded, coverageValue);
    if (status >= 0)
        status = projectInto(coverage);
    if (status < 0)
        return status;
    const kimg_windowConst sums = readOnly(coverage);
    return kip_pelUnaryMaxWindow32(&sums, greatestCoverage);
}

// Only what the sampling may read is copied and padded, never the whole source.
template <typename Pixel>
int32_t projectClipped(const Sampling &sampling, kimg_window &coverage, kmath_xformLinear *placement,
                       uint8_t coverageValue, uint32_t *greatestCoverage)
{
    // Pixels that cannot be copied are refused here; a mode that cannot be sampled, by the driver that samples.
    int32_t status = checkProjectionPixels(sampling, sizeof(Pixel));
    if (status < 0)
        return status;
    kstd_rect32 rect;
    status =
        kip_affineSampleParams_getMaxSrcRectWindow(&sampling.params, &sampling.source, &sampling.srcFromClient, &rect);
    if (status < 0)
        return status;

    CleanupList cleanup;
    kimg_image image;
    kimg_window padded;
    status = kimg_image_construct(&image, sizeof(Pixel), rect.width, rect.height);
    addCleanup<kimg_image_destruct>(cleanup, &image);
    image.x = rect.x;
    image.y = rect.y;
    if (status >= 0)
        status = kimg_window_init(&padded, &image);
    if (status >= 0)
        status = projectThrough<Pixel>(padded, sampling, coverage, placement, coverageValue, greatestCoverage);
    return runCleanup(cleanup, status);
}

} // namespace

int32_t projectAffineClipped8(const Sampling &sampling, kimg_window &coverage, kmath_xformLinear *placement,
                              uint8_t coverageValue, uint32_t *depth)
{
    return projectClipped<uint8_t>(sampling, coverage, placement, coverageValue, depth);
}

int32_t projectAffineClipped16(const Sampling &sampling, kimg_window &coverage, kmath_xformLinear *placement,
                               uint8_t coverageValue, uint32_t *depth)
{
    return projectClipped<uint16_t>(sampling, coverage, placement, coverageValue, depth);
}

} // namespace kip
