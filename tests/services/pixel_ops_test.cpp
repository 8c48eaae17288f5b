// Copies, fills, maximum and the memory overlap test, against models that work byte by byte.

#include <kippel/kippel.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/random.h"
#include "support/records.h"

namespace {

using namespace kip::test;

using Bytes = std::vector<unsigned char>;

kimg_windowConst readOnly(const kimg_window &w)
{
    return {w.width,     w.height,     w.x,     w.y,      w.originX,      w.originY,
            w.fullWidth, w.fullHeight, w.pitch, w.pixels, w.bytesPerPixel};
}

kimg_window windowOver(void *pixels, int32_t bytesPerPixel, int32_t width, int32_t height, int32_t pitch)
{
    return {width, height, 0, 0, 0, 0, width, height, pitch, pixels, bytesPerPixel};
}

unsigned char *at(const kimg_window &window, int32_t x, int32_t y)
{
    return static_cast<unsigned char *>(window.pixels) + (y * window.pitch + x) * window.bytesPerPixel;
}

// Puts a window anywhere into a buffer; any byte of it may be the first.
void place(Random &random, Bytes &buffer, kimg_window *window)
{
    const int32_t reach = (window->height - 1) * window->pitch * window->bytesPerPixel;
    const int32_t above = std::max(0, reach) + window->width * window->bytesPerPixel;
    window->pixels = buffer.data() + random.between32(std::max(0, -reach), static_cast<int32_t>(buffer.size()) - above);
}

// A window of random shape, pitch and place; its rows may overlap when the least pitch is 0.
kimg_window randomWindow(Random &random, Bytes &buffer, int32_t bytesPerPixel, bool mayOverlap = false)
{
    const int32_t width = random.between32(1, 7);
    const int32_t pitch = random.between32(mayOverlap ? 0 : width, width + 9) * random.sign();
    kimg_window window = windowOver(nullptr, bytesPerPixel, width, random.between32(1, 6), pitch);
    window.x = random.between32(-4, 4);
    window.y = random.between32(-4, 4);
    place(random, buffer, &window);
    return window;
}

std::string describe(const kimg_window &w)
{
    return std::to_string(w.width) + "x" + std::to_string(w.height) + " at " + std::to_string(w.x) + "," +
           std::to_string(w.y) + " pitch " + std::to_string(w.pitch) + " of " + std::to_string(w.bytesPerPixel);
}

int32_t overlap(const kimg_window &read, const kimg_window &write)
{
    const kimg_windowConst readable = readOnly(read);
    return kip_pelfunc_checkMemoryOverlap(&readable, &write);
}

} // namespace

TEST(MemoryOverlap, AgreesWithTheSetsOfBytes)
{
    Random random(21);
    int sharing = 0;
    constexpr int kRounds = 40000;
    for (int round = 0; round < kRounds; ++round) {
        Bytes buffer(round % 2 ? 360 : 800);
        kimg_window a = randomWindow(random, buffer, 1 << random.between32(0, 2), true);
        kimg_window b = randomWindow(random, buffer, 1 << random.between32(0, 2), true);
        if (round % 3 == 0) { // equal pitches are decided by a formula of their own
            b = windowOver(nullptr, a.bytesPerPixel, random.between32(1, a.width), random.between32(1, a.height),
                           a.pitch);
            place(random, buffer, &b);
        }
        bool shared = false;
        for (kimg_window *window : {&a, &b}) {
            for (int32_t y = 0; y < window->height; ++y) {
                for (unsigned char *byte = at(*window, 0, y); byte != at(*window, window->width, y); ++byte) {
                    shared = shared || (window == &b && *byte != 0);
                    *byte = window == &a ? 1 : *byte;
                }
            }
        }
        sharing += shared ? 1 : 0;
        const int32_t expected = shared ? kip_pelStatusOverlap : 0;
        ASSERT_EQ(overlap(a, b), expected) << describe(a) << " and " << describe(b) << ", round " << round;
        ASSERT_EQ(overlap(b, a), expected) << describe(b) << " and " << describe(a) << ", round " << round;
    }
    EXPECT_GT(sharing, kRounds / 10);
    EXPECT_LT(sharing, kRounds * 9 / 10);
}

TEST(MemoryOverlap, AnswersForWindowsWithoutPixelsAndForImpossibleOnes)
{
    Bytes buffer(64);
    const kimg_window whole = windowOver(buffer.data(), 1, 8, 8, 8);
    for (const kimg_window &empty : {windowOver(nullptr, 1, 8, 8, 8), windowOver(buffer.data(), 1, 0, 8, 8),
                                     windowOver(buffer.data(), 1, 8, -1, 8), kimg_window{}}) {
        EXPECT_EQ(overlap(whole, empty), 0);
        EXPECT_EQ(overlap(empty, whole), 0);
    }
    // Sizes that no memory can hold may lie anywhere: they count as overlapping, and nothing overflows.
    for (const int32_t pitch : {kMin32, kMax32}) {
        EXPECT_EQ(overlap(whole, windowOver(buffer.data(), 4, kMax32, kMax32, pitch)), kip_pelStatusOverlap) << pitch;
        EXPECT_EQ(overlap(windowOver(buffer.data(), 4, 1, kMax32, pitch), whole), kip_pelStatusOverlap) << pitch;
    }
    EXPECT_EQ(overlap(whole, windowOver(buffer.data(), kMax32, kMax32, kMax32, 1)), kip_pelStatusOverlap);
}

// Which pixels they write is for the operations to show.
TEST(CopyAndFill, RefuseOtherPixelSizesAndServeNothing)
{
    unsigned char bytes[16] = {1, 2, 3, 4, 5, 6, 7, 8};
    const Bytes before(bytes, bytes + 16);
    const kimg_window none = {};
    const auto copy = [](int32_t size, const kimg_window &from, kimg_window to) {
        const kimg_windowConst source = readOnly(from);
        return size == 1   ? kip_pelCopyWindow8(&source, &to)
               : size == 2 ? kip_pelCopyWindow16(&source, &to)
                           : kip_pelCopyWindow32(&source, &to);
    };
    for (const int32_t size : {1, 2, 4}) {
        for (const int32_t other : {1, 2, 4}) {
            const int32_t status = size == other ? 0 : kip_pelStatusPixelSize;
            const kimg_window from = windowOver(bytes, size, 2, 1, 2);
            kimg_window to = windowOver(bytes + 8, other, 2, 1, 2);
            to.x = 9; // away from each other, they share no pixel
            EXPECT_EQ(copy(size, from, to), status);
            EXPECT_EQ(copy(other, from, to), status);
            EXPECT_EQ(copy(size, from, none), 0);
            EXPECT_EQ(copy(size, none, from), 0);
            if (size < 4 && status != 0) {
                EXPECT_EQ(size == 1 ? kip_pelSetWindow8(&to, 9) : kip_pelSetWindow16(&to, 9), status);
            }
        }
    }
    EXPECT_EQ(Bytes(bytes, bytes + 16), before);
}

TEST(Maximum, LooksAtEveryPixelOfTheWindowAndAtNoOther)
{
    const uint32_t values[] = {9, 1, 2, 7, 3, 8, 5, 9};
    uint32_t maximum = 77;
    uint16_t pixel = 5;
    const kimg_windowConst window = {2, 2, 0, 0, 0, 0, 2, 2, 3, values + 1, 4};
    const kimg_windowConst none{};
    const kimg_windowConst narrow = readOnly(windowOver(&pixel, 2, 1, 1, 1));
    EXPECT_EQ(kip_pelUnaryMaxWindow32(&none, &maximum), kip_pelStatusEmpty);
    EXPECT_EQ(kip_pelUnaryMaxWindow32(&narrow, &maximum), kip_pelStatusPixelSize);
    EXPECT_EQ(maximum, 77u);
    EXPECT_EQ(kip_pelUnaryMaxWindow32(&window, &maximum), 0);
    EXPECT_EQ(maximum, 8u);
}
