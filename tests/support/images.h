#ifndef KIP_TESTS_SUPPORT_IMAGES_H
#define KIP_TESTS_SUPPORT_IMAGES_H

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include <gtest/gtest.h>
#include <kimg/kimg.h>

#include "support/random.h"

namespace kip::test {

// Random pixels in memory of their own; the bytes behind the rows are random, too.
struct Pixels {
    Pixels(int32_t pixelBytes, int32_t columns, int32_t rows, int32_t rowPitch = 0)
        : bytesPerPixel(pixelBytes), width(columns), height(rows), pitch(rowPitch == 0 ? columns : rowPitch),
          memory(static_cast<size_t>(pitch * height * bytesPerPixel))
    {
        Random random(1);
        for (unsigned char &byte : memory)
            byte = static_cast<unsigned char>(random.next());
    }

    void set(int32_t x, int32_t y, uint16_t value)
    {
        const auto narrow = static_cast<uint8_t>(value);
        unsigned char *const at = &memory[static_cast<size_t>((y * pitch + x) * bytesPerPixel)];
        bytesPerPixel == 1 ? std::memcpy(at, &narrow, 1) : std::memcpy(at, &value, 2);
    }

    int32_t bytesPerPixel, width, height, pitch;
    std::vector<unsigned char> memory;
};

// An image that destructs itself.
class Image {
public:
    Image() { EXPECT_EQ(kimg_image_constructUnbound(&record), 0); }
    Image(int32_t bytesPerPixel, int32_t width, int32_t height)
    {
        EXPECT_EQ(kimg_image_construct(&record, bytesPerPixel, width, height), 0);
    }
    explicit Image(Pixels &pixels)
    {
        EXPECT_EQ(kimg_image_constructExternal(&record, pixels.bytesPerPixel, pixels.width, pixels.height, pixels.pitch,
                                               pixels.memory.data()),
                  0);
    }
    Image(const Image &) = delete;
    Image &operator=(const Image &) = delete;
    ~Image() { kimg_image_destruct(&record); }

    kimg_image *get() { return &record; }
    const kimg_image *get() const { return &record; }

    bool isBound() const
    {
        int32_t bound = -1;
        EXPECT_EQ(kimg_image_getIsBound(&record, &bound), 0);
        return bound != 0;
    }

    kmath_xformLinear map() const
    {
        kmath_xformLinear xform{};
        EXPECT_EQ(kimg_imageConst_getLinearImageFromClientXform(&record, &xform), 0);
        return xform;
    }

    void setMap(const kmath_xformLinear &xform)
    {
        EXPECT_EQ(kimg_image_setLinearImageFromClientXform(&record, &xform), 0);
    }

    void place(int32_t x, int32_t y)
    {
        record.x = x;
        record.y = y;
    }

    // The pixel in a column and row of the image, wherever it is placed.
    uint32_t at(int32_t x, int32_t y) const
    {
        kimg_windowConst window;
        EXPECT_EQ(kimg_windowConst_init(&window, &record), 0);
        const auto *const pixel =
            static_cast<const unsigned char *>(window.pixels) + (int64_t{y} * window.pitch + x) * window.bytesPerPixel;
        uint16_t value = *pixel;
        if (window.bytesPerPixel == 2)
            std::memcpy(&value, pixel, sizeof value);
        return value;
    }

private:
    kimg_image record;
};

inline void expectSamePixels(const Image &expected, const Image &actual, const char *what)
{
    for (int32_t y = 0; y < expected.get()->height; ++y)
        for (int32_t x = 0; x < expected.get()->width; ++x)
            ASSERT_EQ(actual.at(x, y), expected.at(x, y)) << what << " at (" << x << ", " << y << ")";
}

} // namespace kip::test

#endif
