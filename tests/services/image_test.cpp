// Images and windows: life, sharing, statuses, and windows near the ends of 32 bits.

#include <kimg/kimg.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <latch>
#include <limits>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "support/failing_allocator.h"
#include "support/random.h"

namespace {

using kip::test::Random;

constexpr int32_t kMin32 = std::numeric_limits<int32_t>::min();
constexpr int32_t kMax32 = std::numeric_limits<int32_t>::max();
constexpr kmath_xformLinear kIdentity{0, 0, 1, 0, 0, 1};
constexpr kmath_xformLinear kSomeMap{1, 2, 3, 4, 5, 6};

kimg_window windowOf(const kimg_image &image)
{
    kimg_window window;
    EXPECT_EQ(kimg_window_init(&window, &image), 0);
    return window;
}

bool isBound(const kimg_image &image)
{
    int32_t bound = -1;
    int32_t boundConst = -1;
    EXPECT_EQ(kimg_image_getIsBound(&image, &bound), 0);
    EXPECT_EQ(kimg_imageConst_getIsBound(&image, &boundConst), 0);
    EXPECT_EQ(bound, boundConst);
    return bound != 0;
}

void expectMap(const kimg_image &image, const kmath_xformLinear &expected)
{
    kmath_xformLinear map{};
    int32_t equal = 0;
    EXPECT_EQ(kimg_imageConst_getLinearImageFromClientXform(&image, &map), 0);
    kmath_xformLinear_compareEqual(&map, &expected, &equal);
    EXPECT_NE(equal, 0);
}

void expectUnbound(const kimg_image &image)
{
    EXPECT_FALSE(isBound(image));
    EXPECT_EQ(image.width, 0);
    EXPECT_EQ(image.height, 0);
    const kimg_window window = windowOf(image);
    EXPECT_EQ(window.width, 0);
    EXPECT_EQ(window.height, 0);
    EXPECT_EQ(window.pixels, nullptr);
}

void expectRect(const kstd_rect32 &actual, const kstd_rect32 &expected)
{
    EXPECT_EQ(actual.x, expected.x);
    EXPECT_EQ(actual.y, expected.y);
    EXPECT_EQ(actual.width, expected.width);
    EXPECT_EQ(actual.height, expected.height);
}

} // namespace

TEST(Image, OwnsAlignedRowsThatCanAllBeWritten)
{
    for (const int32_t bytesPerPixel : {1, 2, 4}) {
        for (const int32_t width : {1, 13, 16, 63, 64, 65, 100, 128, 129, 511, 512, 1024, 4096, 32767, 32768, 40000}) {
            constexpr int32_t kHeight = 3;
            kimg_image image;
            ASSERT_EQ(kimg_image_construct(&image, bytesPerPixel, width, kHeight), 0);
            const kimg_window window = windowOf(image);
            EXPECT_TRUE(isBound(image));
            EXPECT_EQ(window.width, width);
            EXPECT_EQ(window.height, kHeight);
            EXPECT_EQ(window.fullWidth, width);
            EXPECT_EQ(window.fullHeight, kHeight);
            EXPECT_EQ(window.bytesPerPixel, bytesPerPixel);
            EXPECT_EQ(window.x | window.y | window.originX | window.originY, 0);
            EXPECT_GE(window.pitch, width);
            EXPECT_TRUE(window.pitch <= 32767 || width > 32767) << "padding took it beyond fixed-point positions";
            EXPECT_EQ(reinterpret_cast<uintptr_t>(window.pixels) % 64, 0u);
            const int32_t pitchBytes = window.pitch * bytesPerPixel;
            if (width * bytesPerPixel >= 64 && width != 32767) {
                EXPECT_EQ(pitchBytes % 64, 0) << width;
                EXPECT_NE(pitchBytes % 512, 0) << width;
            }
            auto *const first = static_cast<unsigned char *>(window.pixels);
            for (int32_t y = 0; y < kHeight; ++y)
                std::memset(first + y * pitchBytes, y + 1, static_cast<size_t>(width * bytesPerPixel));
            EXPECT_EQ(first[width * bytesPerPixel - 1], 1) << "rows overlap";
            EXPECT_EQ(kimg_image_destruct(&image), 0);
            expectUnbound(image);
            EXPECT_EQ(kimg_image_destruct(&image), 0);
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
    } cases[] = {
        {3, 4, 4, 4, pixels, kimg_statusBadPixelSize},       {0, 4, 4, 4, pixels, kimg_statusBadPixelSize},
        {-1, 4, 4, 4, pixels, kimg_statusBadPixelSize},      {1, 0, 4, 4, pixels, kimg_statusBadSize},
        {1, 4, -1, 4, pixels, kimg_statusBadSize},           {1, kMin32, 4, 4, pixels, kimg_statusBadSize},
        {1, 4, 4, 3, pixels, kimg_statusBadPitch},           {1, 4, 4, -3, pixels, kimg_statusBadPitch},
        {1, 4, 4, 0, pixels, kimg_statusBadPitch},           {4, kMax32, kMax32, kMax32, pixels, kimg_statusTooLarge},
        {4, 1, kMax32, kMin32, pixels, kimg_statusTooLarge}, {1, 4, 4, 4, nullptr, kimg_statusNoPixels},
    };
    for (const auto &c : cases) {
        kimg_image image;
        EXPECT_EQ(kimg_image_constructExternal(&image, c.bytesPerPixel, c.width, c.height, c.pitch, c.pixels),
                  c.status);
        expectUnbound(image);
        EXPECT_EQ(kimg_image_destruct(&image), 0);
        if (c.status != kimg_statusBadPixelSize && c.status != kimg_statusBadSize)
            continue;
        EXPECT_EQ(kimg_image_construct(&image, c.bytesPerPixel, c.width, c.height), c.status);
        expectUnbound(image);
        EXPECT_EQ(kimg_image_destruct(&image), 0);
    }
    kimg_image image;
    EXPECT_EQ(kimg_image_construct(&image, 4, kMax32, kMax32), kimg_statusTooLarge);
    expectUnbound(image);
    EXPECT_EQ(kimg_image_destruct(&image), 0);
}

TEST(Image, OverTheCallersMemoryKeepsItsPitch)
{
    uint16_t pixels[12] = {};
    for (const int32_t pitch : {4, -4, kMin32}) {
        const int32_t height = pitch == kMin32 ? 1 : 3;
        uint16_t *const first = pitch == -4 ? pixels + 8 : pixels;
        kimg_image image;
        ASSERT_EQ(kimg_image_constructExternal(&image, 2, 4, height, pitch, first), 0);
        kimg_window window = windowOf(image);
        EXPECT_EQ(window.pitch, pitch);
        EXPECT_EQ(window.pixels, first);
        kimg_window_window(&window, 1, height - 1, 2, 1, nullptr);
        EXPECT_EQ(window.pixels, pitch == kMin32 ? pixels + 1 : pitch == 4 ? pixels + 9 : pixels + 1);
        EXPECT_EQ(kimg_image_destruct(&image), 0);
    }
}

TEST(Image, SharesItsPixelsUntilTheLastHolderLetsGo)
{
    kimg_image first;
    kimg_image second;
    kimg_image third;
    ASSERT_EQ(kimg_image_construct(&first, 1, 5, 2), 0);
    ASSERT_EQ(kimg_image_construct(&second, 4, 50, 20), 0); // gives up pixels of its own
    ASSERT_EQ(kimg_image_constructUnbound(&third), 0);
    first.x = -3;
    first.y = 9;
    ASSERT_EQ(kimg_image_setLinearImageFromClientXform(&first, &kSomeMap), 0);
    std::memset(windowOf(first).pixels, 77, 5);

    EXPECT_EQ(kimg_image_assign(&second, &first), 0);
    EXPECT_EQ(kimg_image_assign(&third, &second), 0);
    EXPECT_EQ(kimg_image_assign(&third, &first), 0); // holds them already
    EXPECT_EQ(kimg_image_assign(&third, &third), 0);
    EXPECT_EQ(windowOf(third).pixels, windowOf(first).pixels);
    EXPECT_EQ(kimg_image_destruct(&first), 0);
    EXPECT_EQ(kimg_image_setUnbound(&second), 0);
    expectUnbound(second);
    expectMap(second, kSomeMap);

    const kimg_window window = windowOf(third);
    expectRect({window.x, window.y, window.width, window.height}, {-3, 9, 5, 2});
    EXPECT_EQ(window.bytesPerPixel, 1);
    EXPECT_EQ(static_cast<unsigned char *>(window.pixels)[4], 77);
    expectMap(third, kSomeMap);

    EXPECT_EQ(kimg_image_assign(&third, &first), 0); // unbound, with the identity as its map
    expectUnbound(third);
    expectMap(third, kIdentity);
    EXPECT_EQ(kimg_image_assign(&third, &second), 0); // unbound, with a map
    expectUnbound(third);
    expectMap(third, kSomeMap);
    for (kimg_image *image : {&first, &second, &third})
        EXPECT_EQ(kimg_image_destruct(image), 0);
}

TEST(Image, KeepsItsMapThroughNewPixels)
{
    kimg_image image;
    kimg_image other;
    ASSERT_EQ(kimg_image_construct(&image, 1, 8, 8), 0);
    ASSERT_EQ(kimg_image_constructUnbound(&other), 0);
    expectMap(image, kIdentity);
    expectMap(other, kIdentity);
    ASSERT_EQ(kimg_image_setLinearImageFromClientXform(&image, &kSomeMap), 0);
    image.x = 4;
    EXPECT_EQ(kimg_image_assignNew(&image, 2, 9, 7), 0);
    expectMap(image, kSomeMap);
    expectRect({image.x, image.y, image.width, image.height}, {0, 0, 9, 7});
    EXPECT_EQ(windowOf(image).bytesPerPixel, 2);
    EXPECT_EQ(kimg_image_copyXforms(&other, &image), 0);
    expectMap(other, kSomeMap);
    expectUnbound(other);
    image.y = 5;
    EXPECT_EQ(kimg_image_setUnbound(&image), 0);
    expectRect({image.x, image.y, image.width, image.height}, {0, 0, 0, 0});
    expectMap(image, kSomeMap);
    EXPECT_EQ(kimg_image_destruct(&image), 0);
    EXPECT_EQ(kimg_image_copyXforms(&other, &image), 0);
    expectMap(other, kIdentity);
    EXPECT_EQ(kimg_image_destruct(&other), 0);
}

TEST(Image, StaysAsItWasWhenMemoryIsRefused)
{
    unsigned char pixels[20] = {};
    const auto expectStill = [&](const kimg_image &image) { // external, 5 x 4, at (3, 0), with a map
        EXPECT_EQ(windowOf(image).pixels, pixels);
        expectRect({image.x, image.y, image.width, image.height}, {3, 0, 5, 4});
        expectMap(image, kSomeMap);
    };
    const int64_t requests = kip::test::failEachAllocation([&] {
        kimg_image image;
        kimg_image other;
        kimg_image_constructUnbound(&other);
        int32_t status = kimg_image_constructExternal(&image, 1, 5, 4, 5, pixels);
        if (status < 0)
            expectUnbound(image);
        if (status >= 0) {
            image.x = 3;
            kimg_image_setLinearImageFromClientXform(&image, &kSomeMap);
            status = kimg_image_assign(&other, &image);
            if (status < 0)
                expectUnbound(other);
        }
        if (status >= 0) {
            status = kimg_image_assignNew(&image, 2, 6, 7);
            expectStill(other);
            if (status < 0)
                expectStill(image);
        }
        kimg_image_destruct(&other);
        if (status >= 0) {
            status = kimg_image_copyXforms(&other, &image);
            expectMap(other, status < 0 ? kIdentity : kSomeMap);
        }
        kimg_image_destruct(&image);
        kimg_image_destruct(&other);
        return status;
    });
    EXPECT_EQ(requests, 4);

    kip::test::failEachAllocation([] {
        kimg_image image;
        const int32_t status = kimg_image_construct(&image, 4, 9, 9);
        if (status < 0)
            expectUnbound(image);
        kimg_image_destruct(&image);
        return status;
    });
}

TEST(Image, TakesNoMemoryForAnotherMapWhileBound)
{
    kip::test::FailingAllocator allocator;
    kimg_image image;
    kimg_image other;
    ASSERT_EQ(kimg_image_construct(&image, 1, 5, 5), 0);
    ASSERT_EQ(kimg_image_construct(&other, 1, 6, 6), 0);
    allocator.failFrom(1);
    EXPECT_EQ(kimg_image_setLinearImageFromClientXform(&image, &kSomeMap), 0);
    EXPECT_EQ(kimg_image_copyXforms(&other, &image), 0);
    EXPECT_EQ(kimg_image_assign(&other, &image), 0);
    EXPECT_EQ(allocator.requests(), 0);
    EXPECT_EQ(kimg_image_destruct(&image), 0);
    EXPECT_EQ(kimg_image_destruct(&other), 0);
    EXPECT_EQ(allocator.liveBlocks(), 0);
}

TEST(Image, CanBeSharedByThreads)
{
    kimg_image source;
    ASSERT_EQ(kimg_image_construct(&source, 1, 64, 4), 0);
    std::memset(windowOf(source).pixels, 5, 64);
    std::latch start(4); // or the first would be done before the last exists
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&source, &start] {
            start.arrive_and_wait();
            for (int i = 0; i < 3000; ++i) {
                kimg_image own;
                kimg_image_constructUnbound(&own);
                EXPECT_EQ(kimg_image_assign(&own, &source), 0);
                EXPECT_EQ(static_cast<unsigned char *>(windowOf(own).pixels)[63], 5);
                kimg_image_destruct(&own);
            }
        });
    }
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(static_cast<unsigned char *>(windowOf(source).pixels)[63], 5);
    EXPECT_EQ(kimg_image_destruct(&source), 0);
}

TEST(Window, NarrowsToTheCommonPixels)
{
    Random random(31);
    unsigned char pixels[4 * 400];
    for (int round = 0; round < 5000; ++round) {
        const int32_t bytesPerPixel = 1 << random.between32(0, 2);
        const int32_t pitch = random.between32(8, 11) * random.sign();
        kimg_image image;
        ASSERT_EQ(kimg_image_constructExternal(&image, bytesPerPixel, 8, 6, pitch, pixels + 800), 0);
        image.x = random.between32(-5, 5);
        image.y = random.between32(-5, 5);
        const kstd_rect32 rect{random.between32(-9, 15), random.between32(-9, 15), random.between32(-1, 16),
                               random.between32(-1, 16)};
        // The model: the pixels of the image that lie in the rectangle.
        int32_t count = 0;
        int32_t left = 0;
        int32_t top = 0;
        for (int32_t y = image.y + 5; y >= image.y; --y) {
            for (int32_t x = image.x + 7; x >= image.x; --x) {
                if (x >= rect.x && x < rect.x + rect.width && y >= rect.y && y < rect.y + rect.height) {
                    ++count;
                    left = x;
                    top = y;
                }
            }
        }
        kimg_window window;
        ASSERT_EQ(kimg_window_initWindow(&window, &image, &rect, 0), 0);
        ASSERT_EQ(window.width * window.height, count);
        if (count > 0) {
            ASSERT_EQ(window.x, left);
            ASSERT_EQ(window.y, top);
            const int32_t skipped = ((top - image.y) * pitch + left - image.x) * bytesPerPixel;
            ASSERT_EQ(window.pixels, pixels + 800 + skipped);
        } else {
            ASSERT_EQ(window.width, 0);
            ASSERT_EQ(window.height, 0);
        }
        ASSERT_EQ(window.fullWidth, 8);
        ASSERT_EQ(window.fullHeight, 6);

        kimg_windowConst narrowed;
        int32_t clipped = -1;
        ASSERT_EQ(kimg_windowConst_init(&narrowed, &image), 0);
        ASSERT_EQ(kimg_windowConst_window(&narrowed, rect.x, rect.y, rect.width, rect.height, &clipped), 0);
        ASSERT_EQ(narrowed.pixels, window.pixels);
        ASSERT_EQ(narrowed.width, window.width);
        ASSERT_EQ(clipped != 0, std::max(rect.width, 0) * std::max(rect.height, 0) != count);

        const kimg_window asked{rect.width, rect.height, rect.x, rect.y, 0, 0, 0, 0, 16, pixels, 1};
        const kimg_windowConst askedConst{rect.width, rect.height, rect.x, rect.y, 0, 0, 0, 0, 16, asked.pixels, 1};
        kimg_windowConst_init(&narrowed, &image);
        kstd_rect32 common{-1, -1, -1, -1};
        int32_t empty = -1;
        ASSERT_EQ(kimg_windowConst_gcr(&narrowed, &askedConst, &common, &empty), 0);
        ASSERT_EQ(empty != 0, count == 0);
        expectRect(common, count == 0 ? kstd_rect32{} : kstd_rect32{left, top, window.width, window.height});
        ASSERT_EQ(kimg_image_destruct(&image), 0);
    }
}

TEST(Window, HoldsAtTheEndsOfThirtyTwoBits)
{
    unsigned char pixels[100] = {};
    const struct {
        int32_t place, start, size;
        int32_t expectedPlace, expectedSize;
    } cases[] = {
        {kMax32 - 4, kMin32, kMax32, kMax32 - 4, 0},
        {kMax32 - 4, kMax32 - 6, kMax32, kMax32 - 4, 10},
        {kMax32 - 4, kMax32, kMax32, kMax32, 6},
        {kMin32, kMin32, kMax32, kMin32, 10},
        {kMin32, kMin32 + 3, 4, kMin32 + 3, 4},
        {kMin32, kMax32, kMax32, kMin32, 0},
        {-5, kMin32, kMax32, -5, 4},
        {0, 0, kMin32, 0, 0},
    };
    for (const auto &c : cases) {
        kimg_image image;
        ASSERT_EQ(kimg_image_constructExternal(&image, 1, 10, 10, 10, pixels), 0);
        image.x = c.place;
        image.y = c.place;
        kimg_window window = windowOf(image);
        const kstd_rect32 rect{c.start, c.start, c.size, c.size};
        EXPECT_EQ(kimg_window_windowRect(&window, &rect, 0), 0);
        expectRect({window.x, window.y, window.width, window.height},
                   {c.expectedPlace, c.expectedPlace, c.expectedSize, c.expectedSize});
        const ptrdiff_t skipped = ptrdiff_t{c.expectedPlace} - c.place;
        EXPECT_EQ(window.pixels, pixels + (c.expectedSize > 0 ? 11 * skipped : 0));

        kimg_image other = image; // only its four numbers are read
        other.x = c.start;
        other.y = c.start;
        kstd_rect32 common;
        int32_t empty;
        EXPECT_EQ(kimg_imageConst_gcr(&image, &other, &common, &empty), 0);
        const int64_t distance = int64_t{c.start} - c.place;
        EXPECT_EQ(empty != 0, distance >= 10 || distance <= -10);
        EXPECT_EQ(kimg_image_destruct(&image), 0);
    }
}

TEST(Window, OfNothingIsEmpty)
{
    kimg_window window;
    std::memset(&window, 0x55, sizeof window);
    EXPECT_EQ(kimg_window_initUnbound(&window), 0);
    EXPECT_EQ(window.width | window.height | window.originX | window.originY | window.pitch, 0);
    EXPECT_EQ(window.pixels, nullptr);
    int32_t clipped = 0;
    EXPECT_EQ(kimg_window_window(&window, 3, 3, 5, 5, &clipped), 0);
    EXPECT_NE(clipped, 0);
    EXPECT_EQ(window.pixels, nullptr);
    window = {4, 4, 0, 0, 0, 0, 4, 4, 4, nullptr, 1}; // sized by its maker, pixels still to come
    EXPECT_EQ(kimg_window_window(&window, 1, 1, 2, 2, nullptr), 0);
    EXPECT_EQ(window.pixels, nullptr);
}
