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

// Pixels in memory of their own, with spare rows above and below and whatever the pitch leaves beside them. A
// test compares all of the memory, so a write that goes astray is seen wherever it lands.
class Pixels {
public:
    // Random pixels, the spare ones too. rowPitch: 0 for rows without gaps, below 0 for bottom-up rows.
    Pixels(int32_t pixelBytes, int32_t columns, int32_t rows, int32_t rowPitch = 0, uint64_t seed = 1)
        : bytesPerPixel(pixelBytes), width(columns), height(rows), pitch(rowPitch == 0 ? columns : rowPitch),
          memory(static_cast<size_t>(rows + 2 * kSpareRows) * static_cast<size_t>(std::abs(pitch)) *
                 static_cast<size_t>(pixelBytes))
    {
        Random random(seed);
        for (unsigned char &byte : memory)
            byte = static_cast<unsigned char>(random.next());
    }

    uint32_t at(int32_t x, int32_t y) const
    {
        uint16_t value = memory[offset(x, y)];
        if (bytesPerPixel == 2)
            std::memcpy(&value, &memory[offset(x, y)], sizeof value);
        return value;
    }

    void set(int32_t x, int32_t y, uint32_t value)
    {
        if (bytesPerPixel == 1) {
            memory[offset(x, y)] = static_cast<unsigned char>(value);
        } else {
            const auto wide = static_cast<uint16_t>(value);
            std::memcpy(&memory[offset(x, y)], &wide, sizeof wide);
        }
    }

    void *first() { return &memory[offset(0, 0)]; }

    kimg_window window() { return {width, height, 0, 0, 0, 0, width, height, pitch, first(), bytesPerPixel}; }

    kimg_windowConst windowConst() const
    {
        return {width, height, 0, 0, 0, 0, width, height, pitch, &memory[offset(0, 0)], bytesPerPixel};
    }

    // Tells where the memory of two blocks of the same shape differs first.
    friend testing::AssertionResult isSameMemory(const Pixels &expected, const Pixels &actual)
    {
        for (size_t i = 0; i < expected.memory.size(); ++i) {
            if (expected.memory[i] == actual.memory[i])
                continue;
            for (int32_t y = 0; y < expected.height; ++y)
                for (int32_t x = 0; x < expected.width; ++x)
                    if (expected.at(x, y) != actual.at(x, y))
                        return testing::AssertionFailure() << "pixel (" << x << ", " << y << ") is " << actual.at(x, y)
                                                           << " instead of " << expected.at(x, y);
            return testing::AssertionFailure() << "byte " << i << ", outside the pixels, was written";
        }
        return testing::AssertionSuccess();
    }

    int32_t bytesPerPixel, width, height, pitch;

private:
    static constexpr int32_t kSpareRows = 2;

    size_t offset(int32_t x, int32_t y) const
    {
        const int32_t row = pitch > 0 ? y : height - 1 - y;
        return (static_cast<size_t>(row + kSpareRows) * static_cast<size_t>(std::abs(pitch)) + static_cast<size_t>(x)) *
               static_cast<size_t>(bytesPerPixel);
    }

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
                                               pixels.first()),
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
