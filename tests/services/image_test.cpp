// Images and windows: life, sharing, statuses, and windows near the ends of 32 bits.

#include <kimg/kimg.h>

#include <algorithm>
#include <cstdint>
#include <cstring>

#include <gtest/gtest.h>

#include "support/failing_allocator.h"
#include "support/images.h"
#include "support/records.h"

namespace {

using namespace kip::test;

kimg_window windowOf(const kimg_image &image)
{
    kimg_window window;
    EXPECT_EQ(kimg_window_init(&window, &image), 0);
    return window;
}

unsigned char *firstByte(const kimg_image &image)
{
    return static_cast<unsigned char *>(windowOf(image).pixels);
}

kstd_rect32 rectOf(const kimg_image &image)
{
    return {image.x, image.y, image.width, image.height};
}

void expectUnbound(const kimg_image &image)
{
    int32_t bound[2] = {-1, -1};
    EXPECT_EQ(kimg_image_getIsBound(&image, &bound[0]), 0);
    EXPECT_EQ(kimg_imageConst_getIsBound(&image, &bound[1]), 0);
    EXPECT_EQ(bound[0] | bound[1], 0);
    EXPECT_EQ(rectOf(image), kstd_rect32{});
    EXPECT_EQ(windowOf(image).width | windowOf(image).height, 0);
    EXPECT_EQ(firstByte(image), nullptr);
}

} // namespace

TEST(Image, OwnsAlignedRowsThatCanAllBeWritten)
{
    const FailingAllocator allocator; // its memory comes filled with junk
    for (const int32_t bytesPerPixel : {1, 2, 4}) {
        for (const int32_t width : {1, 13, 63, 64, 65, 128, 511, 512, 1024, 32767, 32768, 40000}) {
            const Image image(bytesPerPixel, width, 3);
            const kimg_window window = windowOf(*image.get());
            EXPECT_EQ(rectOf(*image.get()), (kstd_rect32{0, 0, width, 3}));
            EXPECT_EQ((kstd_rect32{window.x, window.y, window.width, window.height}), rectOf(*image.get()));
            EXPECT_EQ((kstd_rect32{window.originX, window.originY, window.fullWidth, window.fullHeight}),
                      rectOf(*image.get()));
            EXPECT_EQ(window.bytesPerPixel, bytesPerPixel);
            EXPECT_TRUE(window.pitch <= 32767 || width > 32767) << "padding took it beyond fixed-point positions";
            EXPECT_EQ(reinterpret_cast<uintptr_t>(window.pixels) % 64, 0u);
            const int32_t pitchBytes = window.pitch * bytesPerPixel;
            if (width * bytesPerPixel >= 64 && width != 32767) {
                EXPECT_EQ(pitchBytes % 64, 0) << width;
                EXPECT_NE(pitchBytes % 512, 0) << width;
            }
            auto *const first = static_cast<unsigned char *>(window.pixels);
            for (int32_t y = 0; y < 3; ++y)
                std::memset(first + y * pitchBytes, y + 1, static_cast<size_t>(width * bytesPerPixel));
            EXPECT_EQ(first[width * bytesPerPixel - 1], 1) << "rows overlap";
            EXPECT_EQ(std::count(first, first + 3 * pitchBytes, 0), 3 * (pitchBytes - width * bytesPerPixel));
        }
    }
}

TEST(Image, RefusesWhatCannotBeAndStaysUnbound)
{
    unsigned char pixels[64] = {};
    const struct {
        int32_t bytesPerPixel, width, height, pitch;
        void *pixels;
        int32_t status; // of the image over the caller's memory
        int32_t ownStatus = 0;
    } cases[] = {
        {3, 4, 4, 4, pixels, kimg_statusBadPixelSize, kimg_statusBadPixelSize},
        {-1, 4, 4, 4, pixels, kimg_statusBadPixelSize, kimg_statusBadPixelSize},
        {1, 0, 4, 4, pixels, kimg_statusBadSize, kimg_statusBadSize},
        {1, 4, -1, 4, pixels, kimg_statusBadSize, kimg_statusBadSize},
        {1, kMin32, 4, 4, pixels, kimg_statusBadSize, kimg_statusBadSize},
        {4, kMax32, kMax32, kMax32, pixels, kimg_statusTooLarge, kimg_statusTooLarge},
        {4, 1, kMax32, kMin32, pixels, kimg_statusTooLarge},
        {1, 4, 4, 3, pixels, kimg_statusBadPitch},
        {1, 4, 4, -3, pixels, kimg_statusBadPitch},
        {1, 4, 4, 0, pixels, kimg_statusBadPitch},
        {1, 4, 4, 4, nullptr, kimg_statusNoPixels},
    };
    for (const auto &c : cases) {
        kimg_image image;
        EXPECT_EQ(kimg_image_constructExternal(&image, c.bytesPerPixel, c.width, c.height, c.pitch, c.pixels),
                  c.status);
        expectUnbound(image);
        EXPECT_EQ(kimg_image_destruct(&image), 0);
        if (c.ownStatus == 0)
            continue;
        EXPECT_EQ(kimg_image_construct(&image, c.bytesPerPixel, c.width, c.height), c.ownStatus);
        expectUnbound(image);
        EXPECT_EQ(kimg_image_destruct(&image), 0);
    }
}

// What calls without memory leave behind is for the operations' faults to show.
TEST(Image, SharesPixelsAndKeepsItsMap)
{
    FailingAllocator allocator;
    const kmath_xformLinear map{1, 2, 3, 4, 5, 6};
    {
        Image a, b;
        EXPECT_EQ(kimg_image_assignNew(a.get(), 2, 5, 3), 0);
        firstByte(*a.get())[0] = 7;
        kimg_image_setLinearImageFromClientXform(a.get(), &map);
        a.get()->x = -4;
        a.get()->y = 9;
        EXPECT_EQ(kimg_image_assign(b.get(), a.get()), 0);
        EXPECT_EQ(firstByte(*b.get()), firstByte(*a.get()));
        EXPECT_EQ(rectOf(*b.get()), (kstd_rect32{-4, 9, 5, 3}));
        EXPECT_EQ(b.map(), map);
        kimg_image_setLinearImageFromClientXform(b.get(), &kIdentity); // its own from here on
        EXPECT_EQ(a.map(), map);
        EXPECT_EQ(kimg_image_assignNew(a.get(), 1, 2, 2), 0); // other pixels, the same map
        EXPECT_EQ(a.map(), map);
        EXPECT_EQ(firstByte(*b.get())[0], 7);
        allocator.failFrom(1);
        EXPECT_LT(kimg_image_assignNew(a.get(), 1, 99, 99), 0);
        EXPECT_EQ(rectOf(*a.get()), (kstd_rect32{0, 0, 2, 2}));
        EXPECT_EQ(kimg_image_assign(a.get(), a.get()), 0);
        EXPECT_EQ(kimg_image_copyXforms(b.get(), a.get()), 0);
        EXPECT_EQ(b.map(), map);
        EXPECT_EQ(kimg_image_setUnbound(b.get()), 0);
        expectUnbound(*b.get());
        EXPECT_EQ(b.map(), map);
    }
    EXPECT_EQ(allocator.liveBlocks(), 0);
}

// The pixels of windows in the middle are for the operations to show.
TEST(Window, NarrowsNearTheEndsOf32Bits)
{
    unsigned char pixels[80] = {};
    const struct {
        const char *name;
        kstd_rect32 asked;
        int32_t x, y; // of the image of 8 x 6 pixels
        kstd_rect32 common;
        bool clips;
    } rows[] = {
        {"inside", {-1, 2, 3, 2}, -2, 1, {-1, 2, 3, 2}, false},
        {"all of the plane", {kMin32, kMin32, kMax32, kMax32}, -20, -30, {-20, -30, 8, 6}, true},
        {"across the last column", {kMax32 - 3, 0, kMax32, 2}, kMax32 - 7, 0, {kMax32 - 3, 0, 4, 2}, true},
        {"across the first row", {0, kMin32, 2, 3}, 0, kMin32, {0, kMin32, 2, 3}, false},
        {"at the other end", {kMax32 - 1, 0, 9, 9}, kMin32, 0, {kMin32, 0, 0, 0}, true},
        {"of a negative size", {0, 0, -3, 4}, 0, 0, {0, 0, 0, 0}, false},
        {"of the least size", {kMax32, kMax32, kMin32, kMin32}, 0, 0, {0, 0, 0, 0}, false},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        kimg_image image;
        ASSERT_EQ(kimg_image_constructExternal(&image, 1, 8, 6, -9, pixels + 60), 0);
        image.x = row.x;
        image.y = row.y;
        kimg_windowConst window;
        kimg_windowConst_init(&window, &image);
        const kimg_windowConst whole = window;
        const auto &[x, y, width, height] = row.asked;
        int32_t clipped = -1;
        EXPECT_EQ(kimg_windowConst_window(&window, x, y, width, height, &clipped), 0);
        EXPECT_EQ((kstd_rect32{window.x, window.y, window.width, window.height}), row.common);
        EXPECT_EQ(clipped != 0, row.clips);
        const unsigned char *const first = pixels + 60 - 9 * (window.y - row.y) + (window.x - row.x);
        EXPECT_TRUE(window.width == 0 || window.pixels == first);
        const kimg_windowConst asked{width, height, x, y, 0, 0, 0, 0, 16, pixels, 1};
        kstd_rect32 common = {-1, -1, -1, -1};
        int32_t empty = -1;
        EXPECT_EQ(kimg_windowConst_gcr(&whole, &asked, &common, &empty), 0);
        EXPECT_EQ(empty != 0, row.common.width == 0);
        EXPECT_EQ(common, empty != 0 ? kstd_rect32{} : row.common);
        EXPECT_EQ(kimg_image_destruct(&image), 0);
    }
    kimg_window window;
    EXPECT_EQ(kimg_window_initUnbound(&window), 0);
    int32_t clipped = 0;
    EXPECT_EQ(kimg_window_window(&window, 3, 3, 5, 5, &clipped), 0);
    EXPECT_NE(clipped, 0);
    EXPECT_EQ(window.pixels, nullptr);
    window = {4, 4, 0, 0, 0, 0, 4, 4, 4, nullptr, 1}; // sized by its maker, pixels still to come
    EXPECT_EQ(kimg_window_window(&window, 1, 1, 2, 2, nullptr), 0);
    EXPECT_EQ(window.pixels, nullptr);
}
