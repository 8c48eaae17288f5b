// Images and windows: life, sharing, statuses, windows near the ends of 32 bits; the memory overlap test; what the
// pixel operations refuse.

#include <kimg/kimg.h>
#include <kippel/kippel.h>

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>
#include <vector>

#include <gtest/gtest.h>

#include "support/failing_allocator.h"
#include "support/images.h"
#include "support/random.h"
#include "support/records.h"

namespace {

using namespace kip::test;

kimg_window windowOf(const kimg_image &image)
{
    kimg_window window;
    EXPECT_EQ(kimg_window_init(&window, &image), 0);
    return window;
}

template <typename Record>
kstd_rect32 rectOf(const Record &record)
{
    return {record.x, record.y, record.width, record.height};
}

void expectUnbound(const kimg_image &image)
{
    EXPECT_EQ(rectOf(image), kstd_rect32{});
    EXPECT_EQ(windowOf(image).pixels, nullptr);
}

template <typename Window = kimg_window>
Window windowOver(void *pixels, int32_t bytesPerPixel, int32_t width, int32_t height, int32_t pitch)
{
    return {width, height, 0, 0, 0, 0, width, height, pitch, pixels, bytesPerPixel};
}

// Anywhere in the buffer: any byte of it may be the first. Its rows may overlap. One like another has its pitch.
kimg_window randomWindow(Random &random, std::vector<uint8_t> &buffer, const kimg_window *like = nullptr)
{
    const int32_t width = random.between32(1, like ? like->width : 7);
    const int32_t height = random.between32(1, like ? like->height : 6);
    const int32_t pitch = like ? like->pitch : random.between32(0, width + 9) * random.sign();
    const int32_t bytesPerPixel = like ? like->bytesPerPixel : 1 << random.between32(0, 2);
    const int32_t reach = (height - 1) * pitch * bytesPerPixel;
    const int32_t above = std::max(0, reach) + width * bytesPerPixel;
    const int32_t first = random.between32(std::max(0, -reach), static_cast<int32_t>(buffer.size()) - above);
    return windowOver(buffer.data() + first, bytesPerPixel, width, height, pitch);
}

int32_t overlap(const kimg_window &read, const kimg_window &write)
{
    const auto readable = std::bit_cast<kimg_windowConst>(read);
    return kip_pelfunc_checkMemoryOverlap(&readable, &write);
}

} // namespace

TEST(Image, OwnsAlignedRowsThatCanAllBeWritten)
{
    const FailingAllocator allocator; // its memory comes filled with junk
    for (const int32_t bytesPerPixel : {1, 2, 4}) {
        for (const int32_t width : {1, 63, 64, 65, 128, 511, 512, 32767, 32768}) {
            const Image image(bytesPerPixel, width, 3);
            const kimg_window window = windowOf(*image.get());
            EXPECT_TRUE(window.pitch <= 32767 || width > 32767) << "padding took it beyond fixed-point positions";
            EXPECT_EQ(reinterpret_cast<uintptr_t>(window.pixels) % 64, 0u);
            const int32_t pitchBytes = window.pitch * bytesPerPixel;
            if (width * bytesPerPixel >= 64 && width != 32767) {
                EXPECT_EQ(pitchBytes % 64, 0) << width;
                EXPECT_NE(pitchBytes % 512, 0) << width;
            }
            auto *const first = static_cast<unsigned char *>(window.pixels);
            for (int32_t y = 0; y < 3; ++y)
                std::memset(first + y * pitchBytes, 1, static_cast<size_t>(width * bytesPerPixel));
            EXPECT_EQ(std::count(first, first + 3 * pitchBytes, 0), 3 * (pitchBytes - width * bytesPerPixel));
        }
    }
}

TEST(Image, RefusesWhatCannotBeAndStaysUnbound)
{
    unsigned char pixels[64] = {};
    const struct {
        bool isExternal;
        int32_t bytesPerPixel, width, height, pitch, status;
        void *pixels = nullptr;
    } cases[] = {
        {true, 3, 4, 4, 4, kimg_statusBadPixelSize, pixels},
        {true, 1, 0, 4, 4, kimg_statusBadSize, pixels},
        {false, 1, 4, kMin32, 4, kimg_statusBadSize},
        {false, 4, kMax32, kMax32, 0, kimg_statusTooLarge},
        {true, 4, 1, kMax32, kMin32, kimg_statusTooLarge, pixels},
        {true, 1, 4, 4, -3, kimg_statusBadPitch, pixels},
        {true, 1, 4, 4, 4, kimg_statusNoPixels},
    };
    for (const auto &[isExternal, bytesPerPixel, width, height, pitch, status, at] : cases) {
        kimg_image image;
        EXPECT_EQ(isExternal ? kimg_imageConst_constructExternal(&image, bytesPerPixel, width, height, pitch, at)
                             : kimg_image_construct(&image, bytesPerPixel, width, height),
                  status);
        expectUnbound(image);
    }
}

TEST(Image, SharesPixelsAndKeepsItsMap)
{
    const FailingAllocator allocator;
    const kmath_xformLinear map{1, 2, 3, 4, 5, 6};
    {
        Image a(2, 5, 3), b;
        const void *const pixels = windowOf(*a.get()).pixels;
        kimg_image_setLinearImageFromClientXform(a.get(), &map);
        EXPECT_EQ(kimg_image_assign(b.get(), a.get()), 0);
        EXPECT_EQ(kimg_image_assign(a.get(), b.get()), 0);    // what it holds already
        EXPECT_EQ(kimg_image_assignNew(a.get(), 1, 2, 2), 0); // other pixels, the same map
        EXPECT_EQ(windowOf(*b.get()).pixels, pixels);
        EXPECT_EQ(kimg_image_setUnbound(b.get()), 0);
        expectUnbound(*b.get());
        EXPECT_EQ(kimg_image_copyXforms(b.get(), a.get()), 0);
        EXPECT_EQ(b.map(), map);
        EXPECT_EQ(kimg_image_assign(a.get(), Image().get()), 0);
        expectUnbound(*a.get());
        EXPECT_EQ(a.map(), kIdentity);
    }
    EXPECT_EQ(allocator.liveBlocks(), 0);
}

// The pixels of windows in the middle are for the operations to show.
TEST(Window, NarrowsNearTheEndsOf32Bits)
{
    unsigned char pixels[80] = {};
    const struct {
        kstd_rect32 asked;
        int32_t x, y; // of the image of 8 x 6 pixels
        kstd_rect32 common;
        bool clips;
    } rows[] = {
        {{-2, 2, 8, 6}, -2, 1, {-2, 2, 8, 5}, true}, // in its rows alone
        {{kMin32, kMin32, kMax32, kMax32}, -20, -30, {-20, -30, 8, 6}, true},
        {{kMax32 - 3, 0, kMax32, 2}, kMax32 - 7, 0, {kMax32 - 3, 0, 4, 2}, true},
        {{0, kMin32, 2, 3}, 0, kMin32, {0, kMin32, 2, 3}, false},
        {{kMax32 - 1, 0, 9, 9}, kMin32, 0, {kMin32, 0, 0, 0}, true},
        {{kMax32, kMax32, kMin32, kMin32}, 0, 0, {0, 0, 0, 0}, false},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.asked));
        Image image(1, 8, 6, -9, pixels + 60);
        image.get()->x = row.x;
        image.get()->y = row.y;
        kimg_windowConst window;
        kimg_windowConst_init(&window, image.get());
        const auto &[x, y, width, height] = row.asked;
        int32_t clipped = -1;
        EXPECT_EQ(kimg_windowConst_window(&window, x, y, width, height, &clipped), 0);
        EXPECT_EQ(rectOf(window), row.common);
        EXPECT_EQ(clipped != 0, row.clips);
        EXPECT_EQ(window.pixels, pixels + 60 - 9 * (window.y - row.y) + (window.x - row.x));
    }
}

TEST(MemoryOverlap, AgreesWithTheSetsOfBytes)
{
    Random random(21);
    for (int round = 0; round < 40000; ++round) {
        std::vector<uint8_t> buffer(round % 2 ? 360 : 800);
        const kimg_window a = randomWindow(random, buffer);
        // Equal pitches are decided by a formula of their own.
        const kimg_window b = randomWindow(random, buffer, round % 3 == 0 ? &a : nullptr);
        bool shared = false;
        for (const kimg_window *window : {&a, &b}) {
            const int32_t rowBytes = window->width * window->bytesPerPixel;
            for (int32_t y = 0; y < window->height; ++y) {
                auto *row = static_cast<uint8_t *>(window->pixels) + y * window->pitch * window->bytesPerPixel;
                shared = shared || (window == &b && std::count(row, row + rowBytes, 1) > 0);
                std::memset(row, window == &a, static_cast<size_t>(rowBytes));
            }
        }
        ASSERT_EQ(overlap(a, b) != 0, shared) << round;
        ASSERT_EQ(overlap(b, a) != 0, shared) << round;
    }
}

TEST(MemoryOverlap, AnswersForWindowsWithoutPixelsAndForImpossibleOnes)
{
    std::vector<uint8_t> buffer(64);
    const kimg_window whole = windowOver(buffer.data(), 1, 8, 8, 8);
    for (const kimg_window &empty : {windowOver(nullptr, 1, 8, 8, 8), windowOver(buffer.data(), 1, 0, 8, 8),
                                     windowOver(buffer.data(), 1, 8, 0, 8)})
        EXPECT_TRUE(overlap(whole, empty) == 0 && overlap(empty, whole) == 0);
    // Sizes that no memory can hold may lie anywhere: they count as overlapping, and nothing overflows.
    for (const int32_t pitch : {kMin32, kMax32, 1})
        EXPECT_EQ(overlap(whole, windowOver(buffer.data(), kMax32, kMax32, kMax32, pitch)), kip_pelStatusOverlap);
}

// Which pixels they write is for the operations to show.
TEST(PixelOperations, RefuseOtherPixelSizesAndServeNothing)
{
    uint32_t words[8] = {};
    uint32_t maximum = 77;
    constexpr int32_t (*kCopy[])(const kimg_windowConst *, kimg_window *) = {kip_pelCopyWindow8, kip_pelCopyWindow16,
                                                                             kip_pelCopyWindow32};
    const kimg_windowConst nothing{};
    for (int i = 0; i < 9; ++i) {
        const int32_t status = i / 3 == i % 3 ? 0 : kip_pelStatusPixelSize;
        const auto from = windowOver<kimg_windowConst>(words, 1 << i / 3, 2, 1, 2);
        kimg_window none{};
        kimg_window to = windowOver(words + 4, 1 << i % 3, 2, 1, 2);
        EXPECT_EQ(kCopy[i / 3](&from, &to), status);
        EXPECT_EQ(kCopy[i % 3](&from, &to), status);
        EXPECT_EQ(kCopy[i / 3](&from, &none), 0);
        EXPECT_EQ(kCopy[i % 3](&nothing, &to), 0);
        EXPECT_TRUE(i / 3 == 2 || kip_pelUnaryMaxWindow32(&from, &maximum) == kip_pelStatusPixelSize);
        EXPECT_TRUE(i % 3 == 0 || kip_pelSetWindow8(&to, 9) == kip_pelStatusPixelSize);
        EXPECT_TRUE(i % 3 == 1 || kip_pelSetWindow16(&to, 9) == kip_pelStatusPixelSize);
    }
    EXPECT_EQ(kip_pelUnaryMaxWindow32(&nothing, &maximum), kip_pelStatusEmpty);
    EXPECT_EQ(maximum, 77u);
}
