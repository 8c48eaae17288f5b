#include <algorithm>
#include <cstdint>

#include <kip/kip.h>

#include "support/pixel_check.h"
#include "support/processor_features.h"
#include "transform/aligned/aligned_kernel_choice.h"
#include "transform/aligned/aligned_rows.h"

namespace {

using kip::AlignedKernels;
using kip::Rows;

// Steps of an aligned map, in this order.
enum Step : uint32_t { kTranspose = 1, kMirrorX = 2, kMirrorY = 4 };

uint32_t stepsOf(kip_affine_imageAlignment alignCode)
{
    switch (alignCode) {
    case kip_affine_alignTranspose:
        return kTranspose;
    case kip_affine_alignRotate90:
        return kTranspose | kMirrorY;
    case kip_affine_alignRotate90Transpose:
        return kMirrorX;
    case kip_affine_alignRotate180:
        return kMirrorX | kMirrorY;
    case kip_affine_alignRotate180Transpose:
        return kTranspose | kMirrorX | kMirrorY;
    case kip_affine_alignRotate270:
        return kTranspose | kMirrorX;
    case kip_affine_alignRotate270Transpose:
        return kMirrorY;
    default:
        return 0;
    }
}

template <typename Pixel, typename Window>
Rows<Pixel> rowsOf(const Window &window)
{
    return {static_cast<Pixel *>(window.pixels), window.pitch, std::max(window.width, 0), std::max(window.height, 0)};
}

template <typename Pixel>
void transposeInPlace(const Rows<Pixel> &square)
{
    for (int64_t r = 1; r < square.height; ++r)
        for (int64_t c = 0; c < r; ++c)
            std::swap(square.row(r)[c], square.row(c)[r]);
}

template <typename Pixel>
void mirrorXInPlace(const Rows<Pixel> &rows)
{
    for (int64_t r = 0; r < rows.height; ++r)
        std::reverse(rows.row(r), rows.row(r) + rows.width);
}

template <typename Pixel>
void mirrorYInPlace(const Rows<Pixel> &rows)
{
    for (int64_t r = 0; r < rows.height / 2; ++r)
        std::swap_ranges(rows.row(r), rows.row(r) + rows.width, rows.row(rows.height - 1 - r));
}

// The last row first.
template <typename Pixel>
Rows<Pixel> upsideDown(const Rows<Pixel> &rows)
{
    return {rows.row(rows.height - 1), -rows.pitch, rows.width, rows.height};
}

int32_t copyBlock(const kimg_windowConst &source, const kimg_window &destination)
{
    return ksys_memory_copyRect(
        int64_t{source.width} * source.bytesPerPixel, source.height, int64_t{source.pitch} * source.bytesPerPixel,
        int64_t{destination.pitch} * destination.bytesPerPixel, source.pixels, destination.pixels);
}

// Tells whether the steps stay inside both windows: a transpose fills the destination, the others (and the
// copy) empty the source.
bool doWindowsFit(const kimg_windowConst &source, const kimg_window &destination, uint32_t steps)
{
    if ((steps & kTranspose) != 0)
        return destination.width <= source.height && destination.height <= source.width;
    return source.width <= destination.width && source.height <= destination.height;
}

// In place, rows have to stay where they are, and an axis swap to keep to the window. Of a single row, or of no pixels,
// the pitch is never read.
bool canShareWindow(const kimg_windowConst &source, const kimg_window &destination, uint32_t steps)
{
    if (source.pitch != destination.pitch && source.height > 1 && source.width > 0)
        return false;
    return (steps & kTranspose) == 0 || (source.width == source.height && destination.width == destination.height &&
                                         source.width == destination.width);
}

template <typename Pixel>
void runInPlace(const Rows<Pixel> &rows, uint32_t steps)
{
    if ((steps & kTranspose) != 0)
        transposeInPlace(rows);
    if ((steps & kMirrorX) != 0)
        mirrorXInPlace(rows);
    if ((steps & kMirrorY) != 0)
        mirrorYInPlace(rows);
}

// All steps in one pass. A mirror in y is the order of the result's rows; with an axis swap, a mirror in x is that of
// the rows that its columns come from.
template <typename Pixel>
void runSteps(Rows<const Pixel> input, Rows<Pixel> result, uint32_t steps, const AlignedKernels<Pixel> &kernels)
{
    if ((steps & kMirrorY) != 0)
        result = upsideDown(result);
    if ((steps & kTranspose) != 0) {
        input = {input.first, input.pitch, result.height, result.width};
        return kernels.transpose((steps & kMirrorX) != 0 ? upsideDown(input) : input, result);
    }
    if ((steps & kMirrorX) != 0)
        return kernels.mirror(input, result);
    for (int64_t r = 0; r < result.height; ++r)
        std::copy_n(input.row(r), result.width, result.row(r));
}

template <typename Pixel>
void runSteps(const kimg_windowConst &source, const kimg_window &destination, uint32_t steps)
{
    const auto input = rowsOf<const Pixel>(source);
    const auto output = rowsOf<Pixel>(destination);
    // With an axis swap the result covers the whole destination, else a block of the source's size, so that what a
    // larger destination holds beside it stays where it is.
    const Rows<Pixel> result =
        (steps & kTranspose) != 0 ? output : Rows<Pixel>{output.first, output.pitch, input.width, input.height};
    if (result.width < 1 || result.height < 1)
        return;
    if (source.pixels == destination.pixels)
        runInPlace(result, steps);
    else
        runSteps(input, result, steps, kip::alignedKernels<Pixel>(kip::processorFeatures()));
}

template <typename Pixel>
int32_t transformAligned(const kimg_windowConst &source, const kimg_window &destination,
                         kip_affine_imageAlignment alignCode)
{
    const uint32_t steps = stepsOf(alignCode);
    if (source.bytesPerPixel != destination.bytesPerPixel ||
        (steps != 0 && source.bytesPerPixel != static_cast<int32_t>(sizeof(Pixel))))
        return kip_statusPixelDepth;
    if (!doWindowsFit(source, destination, steps))
        return kip_statusWindowMismatch;
    if (source.pixels == destination.pixels && !canShareWindow(source, destination, steps))
        return kip_statusWindowMismatch;
    if (steps == 0)
        return copyBlock(source, destination); // by bytes, wherever the pixels lie
    if (kip::isMisaligned(source, sizeof(Pixel)) || kip::isMisaligned(destination, sizeof(Pixel)))
        return kip_statusMisaligned;
    runSteps<Pixel>(source, destination, steps);
    return 0;
}

} // namespace

int32_t kip_affineTransformAligned(const kimg_windowConst *source, kimg_window *destination,
                                   kip_affine_imageAlignment alignCode)
{
    return transformAligned<uint8_t>(*source, *destination, alignCode);
}

int32_t kip_affineTransformAligned16(const kimg_windowConst *source, kimg_window *destination,
                                     kip_affine_imageAlignment alignCode)
{
    return transformAligned<uint16_t>(*source, *destination, alignCode);
}
