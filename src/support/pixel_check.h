#ifndef KIP_SUPPORT_PIXEL_CHECK_H
#define KIP_SUPPORT_PIXEL_CHECK_H

#include <cstdint>

#include <kip/kip.h>

namespace kip {

// Tells whether pixels of two or more bytes lie where they cannot be read or written as such: an image or a window
// may stand for any memory.
template <typename Window>
bool isMisaligned(const Window &window, int32_t bytesPerPixel)
{
    return reinterpret_cast<uintptr_t>(window.pixels) % static_cast<uintptr_t>(bytesPerPixel) != 0;
}

// Tells whether a window has pixels that an operation cannot work on. Returns 0 for one without pixels.
template <typename Window>
int32_t checkPixels(const Window &window, int32_t bytesPerPixel)
{
    if (window.pixels == nullptr)
        return 0;
    if (window.bytesPerPixel != bytesPerPixel)
        return kip_statusPixelDepth;
    return isMisaligned(window, bytesPerPixel) ? kip_statusMisaligned : 0;
}

} // namespace kip

#endif
