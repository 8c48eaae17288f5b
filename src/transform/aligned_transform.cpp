#include <algorithm>
#include <cstdint>

#include <kip/kip.h>

#include "support/pixel_check.h"

namespace {

// Steps of an aligned map, applied in this order. The first one present reads the source; the others work in
// place on the destination.
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

// Rows of pixels, without what else a window tells.
template <typename Pixel>
struct Rows {
    Pixel *first;
    int64_t pitch;
    int64_t width, height;

    Pixel *row(int64_t r) const { return first + r * pitch; }
};

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

// Walks blocks: both the rows that are written and the columns that are read then stay in the first-level cache.
template <typename Pixel>
void transpose(const Rows<const Pixel> &input, const Rows<Pixel> &output)
{
    constexpr int64_t block = 32;
    for (int64_t r0 = 0; r0 < output.height; r0 += block) {
        const int64_t rEnd = std::min(r0 + block, output.height);
        for (int64_t c0 = 0; c0 < output.width; c0 += block) {
            const int64_t cEnd = std::min(c0 + block, output.width);
            for (int64_t r = r0; r < rEnd; ++r)
                for (int64_t c = c0; c < cEnd; ++c)
                    output.row(r)[c] = input.row(c)[r];
        }
    }
}

template <typename Pixel>
void mirrorXInPlace(const Rows<Pixel> &rows)
{
    for (int64_t r = 0; r < rows.height; ++r)
        std::reverse(rows.row(r), rows.row(r) + rows.width);
}

template <typename Pixel>
void mirrorX(const Rows<const Pixel> &input, const Rows<Pixel> &output)
{
    for (int64_t r = 0; r < input.height; ++r)
        std::reverse_copy(input.row(r), input.row(r) + input.width, output.row(r));
}

template <typename Pixel>
void mirrorYInPlace(const Rows<Pixel> &rows)
{
    for (int64_t r = 0; r < rows.height / 2; ++r)
        std::swap_ranges(rows.row(r), rows.row(r) + rows.width, rows.row(rows.height - 1 - r));
}

template <typename Pixel>
void mirrorY(const Rows<const Pixel> &input, const Rows<Pixel> &output)
{
    for (int64_t r = 0; r < input.height; ++r)
        std::copy_n(input.row(r), input.width, output.row(input.height - 1 - r));
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

// In place, rows have to stay where they are, and an axis swap to keep to the window.
bool canShareWindow(const kimg_windowConst &source, const kimg_window &destination, uint32_t steps)
{
    if (source.pitch != destination.pitch)
        return false;
    return (steps & kTranspose) == 0 || (source.width == source.height && destination.width == destination.height &&
                                         source.width == destination.width);
}

template <typename Pixel>
void runSteps(const kimg_windowConst &source, const kimg_window &destination, uint32_t steps)
{
    const auto input = rowsOf<const Pixel>(source);
    const auto output = rowsOf<Pixel>(destination);
    // Every step works in the block that the result covers: with an axis swap the whole destination, else a
    // block of the source's size, so that what a larger destination holds beside it stays where it is.
    const Rows<Pixel> result =
        (steps & kTranspose) != 0 ? output : Rows<Pixel>{output.first, output.pitch, input.width, input.height};
    bool inPlace = source.pixels == destination.pixels;

    if ((steps & kTranspose) != 0) {
        inPlace ? transposeInPlace(result) : transpose(input, result);
        inPlace = true;
    }
    if ((steps & kMirrorX) != 0) {
        inPlace ? mirrorXInPlace(result) : mirrorX(input, result);
        inPlace = true;
    }
    if ((steps & kMirrorY) != 0)
        inPlace ? mirrorYInPlace(result) : mirrorY(input, result);
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
