#ifndef KIP_TESTS_SUPPORT_IMAGES_H
#define KIP_TESTS_SUPPORT_IMAGES_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include <kimg/kimg.h>

namespace kip::test {

inline kimg_windowConst constWindowOf(const kimg_image &image)
{
    kimg_windowConst window{};
    kimg_windowConst_init(&window, &image);
    return window;
}

// The pixel or sum in a column and row of a window.
inline int64_t valueAt(const kimg_windowConst &window, int64_t x, int64_t y)
{
    const auto *const at =
        static_cast<const uint8_t *>(window.pixels) + (y * window.pitch + x) * int64_t{window.bytesPerPixel};
    if (window.bytesPerPixel == 1)
        return *at;
    uint16_t narrow;
    uint32_t value = 0;
    window.bytesPerPixel == 2 ? std::memcpy(&narrow, at, 2) : std::memcpy(&value, at, 4);
    return window.bytesPerPixel == 2 ? narrow : value;
}

// An image that destructs itself.
class Image {
public:
    Image() : status(kimg_image_constructUnbound(&image)) {}
    Image(int32_t bytesPerPixel, int32_t width, int32_t height)
        : status(kimg_image_construct(&image, bytesPerPixel, width, height))
    {}
    Image(int32_t bytesPerPixel, int32_t width, int32_t height, int32_t pitch, void *pixels)
        : status(kimg_image_constructExternal(&image, bytesPerPixel, width, height, pitch, pixels))
    {}
    Image(const Image &) = delete;
    Image &operator=(const Image &) = delete;
    ~Image() { kimg_image_destruct(&image); }

    kimg_image *get() { return &image; }
    const kimg_image *get() const { return &image; }

    kmath_xformLinear map() const
    {
        kmath_xformLinear xform{};
        kimg_imageConst_getLinearImageFromClientXform(&image, &xform);
        return xform;
    }

    // Of all pixels, row by row.
    std::vector<uint8_t> bytes() const
    {
        const kimg_windowConst window = constWindowOf(image);
        std::vector<uint8_t> all;
        const auto *row = static_cast<const uint8_t *>(window.pixels);
        for (int32_t y = 0; y < window.height; ++y, row += ptrdiff_t{window.pitch} * window.bytesPerPixel)
            all.insert(all.end(), row, row + ptrdiff_t{window.width} * window.bytesPerPixel);
        return all;
    }

    kimg_image image{};
    int32_t status; // of the constructor
};

} // namespace kip::test

#endif
