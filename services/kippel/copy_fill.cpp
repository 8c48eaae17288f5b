#include <kippel/kippel.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include <ksys/ksys.h>

namespace {

template <typename Window>
bool isEmpty(const Window &window)
{
    return window.width < 1 || window.height < 1 || !window.pixels;
}

// An empty window has no pixel of a wrong size.
template <typename Window>
bool hasOtherPixels(const Window &window, int32_t bytesPerPixel)
{
    return !isEmpty(window) && window.bytesPerPixel != bytesPerPixel;
}

int32_t copyWindow(const kimg_windowConst *source, const kimg_window *destination, int32_t bytesPerPixel)
{
    if (hasOtherPixels(*source, bytesPerPixel) || hasOtherPixels(*destination, bytesPerPixel))
        return kip_pelStatusPixelSize;
    if (isEmpty(*source) || isEmpty(*destination))
        return 0;
    kimg_windowConst from = *source;
    kimg_window to = *destination;
    kimg_windowConst_window(&from, to.x, to.y, to.width, to.height, nullptr);
    kimg_window_window(&to, from.x, from.y, from.width, from.height, nullptr);
    const int64_t pixel = bytesPerPixel;
    return ksys_memory_copyRect(from.width * pixel, from.height, from.pitch * pixel, to.pitch * pixel, from.pixels,
                                to.pixels);
}

int32_t copyImage(const kimg_imageConst *source, kimg_image *destination, int32_t bytesPerPixel)
{
    kimg_windowConst from;
    int32_t status = kimg_windowConst_init(&from, source);
    if (status < 0)
        return status;
    kimg_window to;
    status = kimg_window_init(&to, destination);
    if (status < 0)
        return status;
    return copyWindow(&from, &to, bytesPerPixel);
}

template <typename Pixel>
int32_t fillWindow(const kimg_window *window, Pixel value)
{
    constexpr int64_t kPixel = sizeof(Pixel);
    if (hasOtherPixels(*window, kPixel))
        return kip_pelStatusPixelSize;
    if (isEmpty(*window))
        return 0;
    // Bytes, since the caller's memory need not be aligned for its pixels. They could alias the window's record,
    // so that its numbers are read before the first is written.
    const int64_t width = window->width;
    const int64_t height = window->height;
    const int64_t pitch = window->pitch * kPixel;
    auto *const first = static_cast<unsigned char *>(window->pixels);
    for (int64_t y = 0; y < height; ++y) {
        unsigned char *const row = first + y * pitch;
        if constexpr (kPixel == 1) {
            std::memset(row, value, static_cast<size_t>(width));
        } else {
            for (int64_t x = 0; x < width; ++x)
                std::memcpy(row + x * kPixel, &value, kPixel);
        }
    }
    return 0;
}

template <typename Pixel>
int32_t fillImage(const kimg_image *image, Pixel value)
{
    kimg_window window;
    const int32_t status = kimg_window_init(&window, image);
    return status < 0 ? status : fillWindow(&window, value);
}

} // namespace

int32_t kip_pelCopy8(const kimg_imageConst *source, kimg_image *destination)
{
    return copyImage(source, destination, 1);
}

int32_t kip_pelCopy16(const kimg_imageConst *source, kimg_image *destination)
{
    return copyImage(source, destination, 2);
}

int32_t kip_pelCopyWindow8(const kimg_windowConst *source, kimg_window *destination)
{
    return copyWindow(source, destination, 1);
}

int32_t kip_pelCopyWindow16(const kimg_windowConst *source, kimg_window *destination)
{
    return copyWindow(source, destination, 2);
}

int32_t kip_pelCopyWindow32(const kimg_windowConst *source, kimg_window *destination)
{
    return copyWindow(source, destination, 4);
}

int32_t kip_pelSet8(kimg_image *image, uint8_t value)
{
    return fillImage(image, value);
}

int32_t kip_pelSet16(kimg_image *image, uint16_t value)
{
    return fillImage(image, value);
}

int32_t kip_pelSetWindow8(kimg_window *window, uint8_t value)
{
    return fillWindow(window, value);
}

int32_t kip_pelSetWindow16(kimg_window *window, uint16_t value)
{
    return fillWindow(window, value);
}

int32_t kip_pelUnaryMaxWindow32(const kimg_windowConst *window, uint32_t *maximum)
{
    constexpr int64_t kPixel = sizeof(uint32_t);
    if (isEmpty(*window))
        return kip_pelStatusEmpty;
    if (window->bytesPerPixel != kPixel)
        return kip_pelStatusPixelSize;
    const auto *const first = static_cast<const unsigned char *>(window->pixels);
    uint32_t greatest = 0;
    for (int64_t y = 0; y < window->height; ++y) {
        const unsigned char *const row = first + y * window->pitch * kPixel;
        for (int64_t x = 0; x < window->width; ++x) {
            uint32_t value;
            std::memcpy(&value, row + x * kPixel, sizeof value);
            greatest = std::max(greatest, value);
        }
    }
    *maximum = greatest;
    return 0;
}
