#include "projection/window_sums.h"

#include <algorithm>
#include <cstddef>
#include <type_traits>

#include "projection/sum_kernels.h"
#include "support/cleanup_list.h"
#include "support/optimized_path.h"

namespace kip {

namespace {

constexpr int32_t kRowsPerWidening = 256; // of 255 each, they fill a 16-bit partial sum

// ---- The order of sums ----------------------------------------------------------------------------------------

// Puts sums that were made from left to right the other way round.
void reverseSums(SumRow sums, int32_t count)
{
    for (int32_t i = 0; i < count / 2; ++i) {
        const uint32_t sum = sums.get(i);
        sums.set(i, sums.get(count - 1 - i));
        sums.set(count - 1 - i, sum);
    }
}

template <typename Pixel>
void sumRowsInOrder(void (*sumRows)(const PixelRows<Pixel> &rows, SumRow sums, int32_t step),
                    const PixelRows<Pixel> &rows, SumRow sums, uint32_t reverse)
{
    if (rows.height < 1)
        return;
    if (reverse != 0)
        sumRows(rows, SumRow(sums.at(rows.height - 1)), -1);
    else
        sumRows(rows, sums, 1);
}

// ---- The portable loops ---------------------------------------------------------------------------------------

template <typename Pixel>
PixelRows<Pixel> rowsOf(const kimg_windowConst &window)
{
    return {static_cast<const uint8_t *>(window.pixels), int64_t{window.pitch} * int64_t{sizeof(Pixel)}, window.width,
            window.height};
}

template <typename Pixel>
int32_t sumColumns(const kimg_windowConst &source, const kimg_window &destination, uint32_t reverse)
{
    const SumRow sums(destination.pixels);
    const int32_t status =
        ksys_memory_fill(0, static_cast<size_t>(source.width) * sizeof(uint32_t), destination.pixels);
    if (status < 0)
        return status;
    sumColumnsPortable(rowsOf<Pixel>(source), sums);
    if (reverse != 0)
        reverseSums(sums, source.width);
    return status;
}

template <typename Pixel>
void sumRows(const kimg_windowConst &source, const kimg_window &destination, uint32_t reverse)
{
    sumRowsInOrder(sumRowsPortable<Pixel>, rowsOf<Pixel>(source), SumRow(destination.pixels), reverse);
}

// ---- The optimised routines -----------------------------------------------------------------------------------

// Takes the kernels of a kind of processor that has packed integer instructions.
int32_t takeKernels(SumKernels8 *kernels)
{
    ksys_cpuinfo processor;
    const int32_t status = ksys_cpuinfo_init(&processor);
    if (status < 0)
        return status;
    if ((processor.kind != 1 && processor.kind != 5) || (processor.features & ksys_featurePackedInteger) == 0)
        return kip_statusOptimizationDeclined;
    *kernels = sumKernels8(processor.features);
    return status;
}

void sumColumnsByPartials(const SumKernels8 &kernels, const PixelRows8 &rows, uint16_t *partials, SumRow sums)
{
    for (int32_t y = 0; y < rows.height;) {
        const int32_t end = y + std::min(kRowsPerWidening, rows.height - y);
        while (y < end) {
            const int32_t count = std::min(kRowsAtATime, end - y);
            kernels.addRows({rows.row(y), rows.pitch, rows.width, count}, partials);
            y += count;
        }
        kernels.widen(partials, rows.width, sums);
    }
}

// ---- What an alignment code asks for --------------------------------------------------------------------------

bool isReversed(kip_affine_imageAlignment alignCode)
{
    switch (alignCode) {
    case kip_affine_alignRotate90Transpose:
    case kip_affine_alignRotate180:
    case kip_affine_alignRotate180Transpose:
    case kip_affine_alignRotate270:
        return true;
    default:
        return false;
    }
}

int32_t checkDestination(const kimg_window &destination, int32_t count)
{
    if (count == 0)
        return 0;
    if (destination.bytesPerPixel != static_cast<int32_t>(sizeof(uint32_t)))
        return kip_statusPixelDepth;
    if (destination.width < count || destination.height < 1)
        return kip_statusWindowMismatch;
    return destination.pixels == nullptr ? kimg_statusNoPixels : 0;
}

template <typename Pixel>
int32_t projectWindowOriented(const kimg_windowConst &source, const kimg_window &destination,
                              kip_affine_imageAlignment alignCode)
{
    int32_t status = checkSumSource(source, sizeof(Pixel));
    if (status < 0)
        return status;
    const bool ofColumns = isColumnProjection(alignCode);
    status = checkDestination(destination, ofColumns ? source.width : source.height);
    if (status < 0)
        return status;
    const uint32_t reverse = isReversed(alignCode) ? 1 : 0;
    if constexpr (std::is_same_v<Pixel, uint8_t>)
        return (ofColumns ? kf_projection_horizontal8_core : kf_projection_vertical8_core)(source, destination,
                                                                                           reverse);
    if (ofColumns)
        return sumColumns<Pixel>(source, destination, reverse);
    sumRows<Pixel>(source, destination, reverse);
    return 0;
}

} // namespace

int32_t checkSumSource(const kimg_windowConst &source, int32_t bytesPerPixel)
{
    if (source.width < 0 || source.height < 0)
        return kip_statusWindowMismatch;
    if (source.width == 0 || source.height == 0)
        return 0;
    if (source.bytesPerPixel != bytesPerPixel)
        return kip_statusPixelDepth;
    return source.pixels == nullptr ? kimg_statusNoPixels : 0;
}

bool isColumnProjection(kip_affine_imageAlignment alignCode)
{
    switch (alignCode) {
    case kip_affine_alignIdentity:
    case kip_affine_alignRotate180:
    case kip_affine_alignRotate90Transpose:
    case kip_affine_alignRotate270Transpose:
        return true;
    default:
        return false;
    }
}

int32_t sumColumnsPacked8(const uint8_t *first, int32_t width, int32_t height, int32_t pitch, void *sums,
                          uint32_t reverse)
{
    SumKernels8 kernels;
    int32_t status = takeKernels(&kernels);
    if (status < 0)
        return status;

    CleanupList cleanup;
    void *partials = nullptr;
    const auto columns = static_cast<size_t>(width);
    status = ksys_memory_allocClear_internal(columns * sizeof(uint16_t) + 64, &partials);
    addCleanup<ksys_memory_free_internal>(cleanup, &partials);
    if (status >= 0)
        status = ksys_memory_fill(0, columns * sizeof(uint32_t), sums);
    if (status >= 0 && width > 0 && height > 0) {
        sumColumnsByPartials(kernels, {first, pitch, width, height}, static_cast<uint16_t *>(partials), SumRow(sums));
        if (reverse != 0)
            reverseSums(SumRow(sums), width);
    }
    return runCleanup(cleanup, status);
}

int32_t sumRowsPacked8(const uint8_t *first, int32_t width, int32_t height, int32_t pitch, void *sums, uint32_t reverse)
{
    SumKernels8 kernels;
    const int32_t status = takeKernels(&kernels);
    if (status < 0)
        return status;
    if (width == 0)
        return ksys_memory_fill(0, static_cast<size_t>(height) * sizeof(uint32_t), sums);
    sumRowsInOrder(kernels.sumRows, {first, pitch, width, height}, SumRow(sums), reverse);
    return status;
}

int32_t kf_projection_horizontal8_core(const kimg_windowConst &source, const kimg_window &destination, uint32_t reverse)
{
    const int32_t status = isInhibited(L"kf_projection_horizontal8_core")
                               ? kip_statusOptimizationDeclined
                               : sumColumnsPacked8(static_cast<const uint8_t *>(source.pixels), source.width,
                                                   source.height, source.pitch, destination.pixels, reverse);
    return isDeclined(status) ? sumColumns<uint8_t>(source, destination, reverse) : status;
}

int32_t kf_projection_vertical8_core(const kimg_windowConst &source, const kimg_window &destination, uint32_t reverse)
{
    const int32_t status = isInhibited(L"kf_projection_vertical8_core")
                               ? kip_statusOptimizationDeclined
                               : sumRowsPacked8(static_cast<const uint8_t *>(source.pixels), source.width,
                                                source.height, source.pitch, destination.pixels, reverse);
    if (!isDeclined(status))
        return status;
    sumRows<uint8_t>(source, destination, reverse);
    return 0;
}

int32_t projectWindowOriented8(const kimg_windowConst &source, const kimg_window &destination,
                               kip_affine_imageAlignment alignCode)
{
    return projectWindowOriented<uint8_t>(source, destination, alignCode);
}

int32_t projectWindowOriented16(const kimg_windowConst &source, const kimg_window &destination,
                                kip_affine_imageAlignment alignCode)
{
    return projectWindowOriented<uint16_t>(source, destination, alignCode);
}

} // namespace kip
