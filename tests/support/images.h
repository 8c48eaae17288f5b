#ifndef KIP_TESTS_SUPPORT_IMAGES_H
#define KIP_TESTS_SUPPORT_IMAGES_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include <gtest/gtest.h>
#include <kimg/kimg.h>

namespace kip::test {

// An image that destructs itself.
class Image {
public:
    Image() { EXPECT_EQ(kimg_image_constructUnbound(&record), 0); }
    Image(int32_t bytesPerPixel, int32_t width, int32_t height)
    {
        EXPECT_EQ(kimg_image_construct(&record, bytesPerPixel, width, height), 0);
    }
    Image(int32_t bytesPerPixel, int32_t width, int32_t height, int32_t pitch, void *pixels)
    {
        EXPECT_EQ(kimg_image_constructExternal(&record, bytesPerPixel, width, height, pitch, pixels), 0);
    }
    Image(const Image &) = delete;
    Image &operator=(const Image &) = delete;
    ~Image() { kimg_image_destruct(&record); }

    kimg_image *get() { return &record; }
    const kimg_image *get() const { return &record; }

    kmath_xformLinear map() const
    {
        kmath_xformLinear xform{};
        EXPECT_EQ(kimg_imageConst_getLinearImageFromClientXform(&record, &xform), 0);
        return xform;
    }

    // Of all pixels, row by row.
    std::vector<uint8_t> bytes() const
    {
        kimg_windowConst window;
        EXPECT_EQ(kimg_windowConst_init(&window, &record), 0);
        std::vector<uint8_t> all;
        const auto *row = static_cast<const uint8_t *>(window.pixels);
        for (int32_t y = 0; y < window.height; ++y, row += ptrdiff_t{window.pitch} * window.bytesPerPixel)
            all.insert(all.end(), row, row + ptrdiff_t{window.width} * window.bytesPerPixel);
        return all;
    }

private:
    kimg_image record;
};

} // namespace kip::test

#endif
