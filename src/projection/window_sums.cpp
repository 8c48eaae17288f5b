#include "projection/window_sums.h"

#include <cstddef>

#include "projection/sum_memory.h"
#include "projection/window_sums_packed.h"
#include "support/optimized_path.h"

namespace kip {

namespace {

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

using Core = int32_t (*)(const kimg_windowConst &source, const kimg_window &destination, uint32_t reverse);

int32_t projectWindowOriented(const kimg_windowConst &source, const kimg_window &destination, int32_t bytesPerPixel,
                              kip_affine_imageAlignment alignCode, Core sumColumns, Core sumRows)
{
    int32_t status = checkSumSource(source, bytesPerPixel);
    if (status < 0)
        return status;
    const bool ofColumns = isColumnProjection(alignCode);
    status = checkDestination(destination, ofColumns ? source.width : source.height);
    if (status < 0)
        return status;
    return (ofColumns ? sumColumns : sumRows)(source, destination, isReversed(alignCode) ? 1 : 0);
}

template <typename Pixel>
int32_t sumColumnsOfWindow(const kimg_windowConst &source, const kimg_window &destination, uint32_t reverse)
{
    return sumColumnsPortable<Pixel>(source.pixels, source.width, source.height, source.pitch, destination.pixels,
                                     reverse);
}

template <typename Pixel>
int32_t sumRowsOfWindow(const kimg_windowConst &source, const kimg_window &destination, uint32_t reverse)
{
    return sumRowsPortable<Pixel>(source.pixels, source.width, source.height, source.pitch, destination.pixels,
                                  reverse);
}

using Packed = decltype(sumColumnsPacked8);

int32_t sumInCore(const wchar_t *name, Packed *packed, Core portable, const kimg_windowConst &source,
                  const kimg_window &destination, uint32_t reverse)
{
    const int32_t status = isInhibited(name)
                               ? kip_statusOptimizationDeclined
                               : packed(static_cast<const uint8_t *>(source.pixels), source.width, source.height,
                                        source.pitch, destination.pixels, reverse != 0 ? 1 : 0);
    return isDeclined(status) ? portable(source, destination, reverse) : status;
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

// Row after row, as they lie in memory.
template <typename Pixel>
int32_t sumColumnsPortable(const void *first, int32_t width, int32_t height, int32_t pitch, void *sums,
                           uint32_t reverse)
{
    const int32_t status = ksys_memory_fill(0, static_cast<size_t>(width) * sizeof(uint32_t), sums);
    if (status < 0)
        return status;
    const SumPixels<Pixel> pixels(first, pitch);
    const SumRow columns(sums);
    for (int32_t y = 0; y < height && width > 0; ++y) {
        const unsigned char *const row = pixels.row(y);
        for (int32_t x = 0; x < width; ++x)
            columns.add(x, pixels.get(row, x));
    }
    if (reverse != 0)
        reverseSums(columns, width);
    return status;
}

template <typename Pixel>
int32_t sumRowsPortable(const void *first, int32_t width, int32_t height, int32_t pitch, void *sums, uint32_t reverse)
{
    const SumPixels<Pixel> pixels(first, pitch);
    const SumRow rows(sums);
    for (int32_t i = 0; i < height; ++i) {
        uint32_t sum = 0;
        if (width > 0) {
            const unsigned char *const row = pixels.row(reverse != 0 ? height - 1 - i : i);
            for (int32_t x = 0; x < width; ++x)
                sum += pixels.get(row, x);
        }
        rows.set(i, sum);
    }
    return 0;
}

template int32_t sumColumnsPortable<uint8_t>(const void *, int32_t, int32_t, int32_t, void *, uint32_t);
template int32_t sumColumnsPortable<uint16_t>(const void *, int32_t, int32_t, int32_t, void *, uint32_t);
template int32_t sumRowsPortable<uint8_t>(const void *, int32_t, int32_t, int32_t, void *, uint32_t);
template int32_t sumRowsPortable<uint16_t>(const void *, int32_t, int32_t, int32_t, void *, uint32_t);

int32_t kf_projection_horizontal8_core(const kimg_windowConst &source, const kimg_window &destination, uint32_t reverse)
{
    return sumInCore(L"kf_projection_horizontal8_core", sumColumnsPacked8, sumColumnsOfWindow<uint8_t>, source,
                     destination, reverse);
}

int32_t kf_projection_vertical8_core(const kimg_windowConst &source, const kimg_window &destination, uint32_t reverse)
{
    return sumInCore(L"kf_projection_vertical8_core", sumRowsPacked8, sumRowsOfWindow<uint8_t>, source, destination,
                     reverse);
}

int32_t projectWindowOriented8(const kimg_windowConst &source, const kimg_window &destination,
                               kip_affine_imageAlignment alignCode)
{
    return projectWindowOriented(source, destination, sizeof(uint8_t), alignCode, kf_projection_horizontal8_core,
                                 kf_projection_vertical8_core);
}

int32_t projectWindowOriented16(const kimg_windowConst &source, const kimg_window &destination,
                                kip_affine_imageAlignment alignCode)
{
    return projectWindowOriented(source, destination, sizeof(uint16_t), alignCode, sumColumnsOfWindow<uint16_t>,
                                 sumRowsOfWindow<uint16_t>);
}

} // namespace kip
