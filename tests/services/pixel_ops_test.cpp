// Copies, fills, maximum and the memory overlap test, against models that work byte by byte.

#include <kippel/kippel.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/random.h"

namespace {

using kip::test::Random;

constexpr int32_t kMin32 = std::numeric_limits<int32_t>::min();
constexpr int32_t kMax32 = std::numeric_limits<int32_t>::max();

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

int64_t offsetOf(const kimg_window &window, int32_t x, int32_t y)
{
    return (int64_t{y} * window.pitch + x) * window.bytesPerPixel;
}

// A window of random shape, pitch and place inside a buffer; any byte of it may be the first.
kimg_window randomWindow(Random &random, Bytes &buffer, int32_t bytesPerPixel, int32_t leastPitch)
{
    const int32_t width = random.between32(1, 7);
    const int32_t height = random.between32(1, 6);
    const int32_t pitch =
        random.between32(std::max(leastPitch, leastPitch ? width : 0), width + 9) * (random.between32(0, 1) ? 1 : -1);
    const int32_t reach = (height - 1) * pitch * bytesPerPixel;
    const int32_t below = std::max(0, -reach);
    const int32_t above = std::max(0, reach) + width * bytesPerPixel;
    kimg_window window = windowOver(nullptr, bytesPerPixel, width, height, pitch);
    window.pixels = buffer.data() + random.between32(below, static_cast<int32_t>(buffer.size()) - above);
    window.x = random.between32(-4, 4);
    window.y = random.between32(-4, 4);
    return window;
}

std::string describe(const kimg_window &w)
{
    return std::to_string(w.width) + "x" + std::to_string(w.height) + " at " + std::to_string(w.x) + "," +
           std::to_string(w.y) + " pitch " + std::to_string(w.pitch) + " of " + std::to_string(w.bytesPerPixel);
}

Bytes randomBytes(Random &random, size_t count)
{
    Bytes bytes(count);
    for (unsigned char &byte : bytes)
        byte = static_cast<unsigned char>(random.between32(0, 255));
    return bytes;
}

int32_t overlap(const kimg_window &read, const kimg_window &write)
{
    const kimg_windowConst readable = readOnly(read);
    return kip_pelfunc_checkMemoryOverlap(&readable, &write);
}

int32_t copyWindow(int32_t bytesPerPixel, const kimg_window &source, kimg_window destination)
{
    const kimg_windowConst readable = readOnly(source);
    if (bytesPerPixel == 1)
        return kip_pelCopyWindow8(&readable, &destination);
    if (bytesPerPixel == 2)
        return kip_pelCopyWindow16(&readable, &destination);
    return kip_pelCopyWindow32(&readable, &destination);
}

} // namespace

TEST(MemoryOverlap, AgreesWithTheSetsOfBytes)
{
    Random random(21);
    int sharing = 0;
    constexpr int kRounds = 40000;
    for (int round = 0; round < kRounds; ++round) {
        Bytes buffer(round % 2 ? 360 : 800);
        const kimg_window a = randomWindow(random, buffer, 1 << random.between32(0, 2), 0);
        kimg_window b = randomWindow(random, buffer, 1 << random.between32(0, 2), 0);
        if (round % 3 == 0 && b.height > 1 && a.height > 1) { // equal pitches are decided by a formula of their own
            b = a;
            b.width = random.between32(1, a.width);
            b.height = random.between32(1, a.height);
            const int64_t low = std::min<int64_t>(0, offsetOf(b, 0, b.height - 1));
            const int64_t high = std::max<int64_t>(0, offsetOf(b, 0, b.height - 1)) + offsetOf(b, b.width, 0);
            b.pixels =
                buffer.data() + random.between32(static_cast<int32_t>(-low),
                                                 static_cast<int32_t>(static_cast<int64_t>(buffer.size()) - high));
        }
        Bytes held(buffer.size(), 0);
        const auto forEachByte = [&](const kimg_window &window, auto visit) {
            for (int32_t y = 0; y < window.height; ++y)
                for (int64_t i = 0; i < offsetOf(window, window.width, 0); ++i)
                    visit(held[static_cast<size_t>(static_cast<unsigned char *>(window.pixels) - buffer.data() +
                                                   offsetOf(window, 0, y) + i)]);
        };
        bool shared = false;
        forEachByte(a, [](unsigned char &byte) { byte = 1; });
        forEachByte(b, [&](unsigned char &byte) { shared = shared || byte; });
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
    EXPECT_EQ(overlap(whole, windowOver(nullptr, 1, 8, 8, 8)), 0);
    EXPECT_EQ(overlap(windowOver(buffer.data(), 1, 0, 8, 8), whole), 0);
    EXPECT_EQ(overlap(whole, windowOver(buffer.data(), 1, 8, -1, 8)), 0);
    EXPECT_EQ(overlap(whole, kimg_window{}), 0);
    // Sizes that no memory can hold may lie anywhere: they count as overlapping, and nothing overflows.
    for (const int32_t pitch : {kMin32, kMax32}) {
        EXPECT_EQ(overlap(whole, windowOver(buffer.data(), 4, kMax32, kMax32, pitch)), kip_pelStatusOverlap) << pitch;
        EXPECT_EQ(overlap(windowOver(buffer.data(), 4, 1, kMax32, pitch), whole), kip_pelStatusOverlap) << pitch;
    }
    EXPECT_EQ(overlap(whole, windowOver(buffer.data(), kMax32, kMax32, kMax32, 1)), kip_pelStatusOverlap);
}

TEST(Copy, MovesExactlyTheCommonPixels)
{
    Random random(22);
    for (int round = 0; round < 6000; ++round) {
        const int32_t bytesPerPixel = 1 << (round % 3);
        Bytes from = randomBytes(random, 800);
        Bytes to = randomBytes(random, 800);
        const kimg_window source = randomWindow(random, from, bytesPerPixel, 1);
        const kimg_window destination = randomWindow(random, to, bytesPerPixel, 1);
        Bytes expected = to;
        unsigned char *const first = expected.data() + (static_cast<unsigned char *>(destination.pixels) - to.data());
        for (int32_t y = 0; y < destination.height; ++y) {
            for (int32_t x = 0; x < destination.width; ++x) {
                const int32_t sourceX = x + destination.x - source.x;
                const int32_t sourceY = y + destination.y - source.y;
                if (sourceX >= 0 && sourceX < source.width && sourceY >= 0 && sourceY < source.height)
                    std::memcpy(first + offsetOf(destination, x, y),
                                static_cast<unsigned char *>(source.pixels) + offsetOf(source, sourceX, sourceY),
                                static_cast<size_t>(bytesPerPixel));
            }
        }
        ASSERT_EQ(copyWindow(bytesPerPixel, source, destination), 0);
        ASSERT_EQ(to, expected) << describe(source) << " to " << describe(destination) << ", round " << round;
    }
}

TEST(Fill, SetsExactlyTheWindow)
{
    Random random(23);
    for (int round = 0; round < 2000; ++round) {
        const int32_t bytesPerPixel = 1 + round % 2;
        const uint16_t value = static_cast<uint16_t>(random.between32(0, 65535));
        Bytes buffer = randomBytes(random, 400);
        kimg_window window = randomWindow(random, buffer, bytesPerPixel, 1);
        Bytes expected = buffer;
        unsigned char *const first = expected.data() + (static_cast<unsigned char *>(window.pixels) - buffer.data());
        for (int32_t y = 0; y < window.height; ++y)
            for (int32_t x = 0; x < window.width; ++x)
                std::memcpy(first + offsetOf(window, x, y), &value, static_cast<size_t>(bytesPerPixel));
        const int32_t status = bytesPerPixel == 1 ? kip_pelSetWindow8(&window, static_cast<uint8_t>(value))
                                                  : kip_pelSetWindow16(&window, value);
        ASSERT_EQ(status, 0);
        ASSERT_EQ(buffer, expected) << describe(window) << ", round " << round;
    }
}

TEST(Maximum, LooksAtEveryPixelOfTheWindowAndAtNoOther)
{
    constexpr int32_t kPitch = 6;
    for (const bool bottomUp : {false, true}) {
        for (int32_t place = 0; place < 12; ++place) {
            std::vector<uint32_t> pixels(kPitch * 3, 0xffffffffu); // columns 4 and 5 do not belong to the window
            const size_t first = bottomUp ? kPitch * 2 : 0;
            for (size_t y = 0; y < 3; ++y)
                std::fill_n(pixels.begin() + static_cast<ptrdiff_t>(y * kPitch), 4, 0u);
            pixels[static_cast<size_t>(place / 4 * kPitch + place % 4)] = 0x80000000u + static_cast<uint32_t>(place);
            const kimg_windowConst window = readOnly(windowOver(&pixels[first], 4, 4, 3, bottomUp ? -kPitch : kPitch));
            uint32_t maximum = 0;
            EXPECT_EQ(kip_pelUnaryMaxWindow32(&window, &maximum), 0);
            EXPECT_EQ(maximum, 0x80000000u + static_cast<uint32_t>(place));
        }
    }
    uint32_t maximum = 77;
    const kimg_windowConst none{};
    EXPECT_EQ(kip_pelUnaryMaxWindow32(&none, &maximum), kip_pelStatusEmpty);
    uint16_t pixel = 5;
    const kimg_windowConst narrow = readOnly(windowOver(&pixel, 2, 1, 1, 1));
    EXPECT_EQ(kip_pelUnaryMaxWindow32(&narrow, &maximum), kip_pelStatusPixelSize);
    EXPECT_EQ(maximum, 77u);
}

TEST(PixelSize, OtherThanTheOperationsIsRefusedAndNothingIsWritten)
{
    for (const int32_t bytesPerPixel : {1, 2, 4}) {
        for (const int32_t operation : {1, 2, 4}) {
            if (bytesPerPixel == operation)
                continue;
            Bytes from(64, 1);
            Bytes to(64, 2);
            const kimg_window source = windowOver(from.data(), bytesPerPixel, 4, 4, 4);
            const kimg_window target = windowOver(to.data(), bytesPerPixel, 4, 4, 4);
            const kimg_window fitting = windowOver(to.data(), operation, 4, 4, 4);
            EXPECT_EQ(copyWindow(operation, source, fitting), kip_pelStatusPixelSize);
            EXPECT_EQ(copyWindow(operation, fitting, source), kip_pelStatusPixelSize);
            kimg_window filled = target;
            if (operation != 4) {
                const int32_t status = operation == 1 ? kip_pelSetWindow8(&filled, 9) : kip_pelSetWindow16(&filled, 9);
                EXPECT_EQ(status, kip_pelStatusPixelSize);
            }
            EXPECT_EQ(from, Bytes(64, 1));
            EXPECT_EQ(to, Bytes(64, 2));
        }
    }
}

TEST(ImageForms, PlaceByPixelCoordinatesAndAcceptUnboundImages)
{
    std::vector<uint16_t> from(12);
    for (size_t i = 0; i < from.size(); ++i)
        from[i] = static_cast<uint16_t>(100 + i);
    std::vector<uint16_t> to(12, 7);
    kimg_image source;
    kimg_image destination;
    kimg_image unbound;
    ASSERT_EQ(kimg_image_constructExternal(&source, 2, 4, 3, 4, from.data()), 0);
    ASSERT_EQ(kimg_image_constructExternal(&destination, 2, 4, 3, -4, &to[8]), 0);
    ASSERT_EQ(kimg_image_constructUnbound(&unbound), 0);
    source.x = -1;
    destination.y = 2; // common: columns 0 to 2, row 2
    EXPECT_EQ(kip_pelCopy16(&source, &destination), 0);
    EXPECT_EQ(to, (std::vector<uint16_t>{7, 7, 7, 7, 7, 7, 7, 7, 109, 110, 111, 7}));
    EXPECT_EQ(kip_pelCopy8(&source, &destination), kip_pelStatusPixelSize);
    EXPECT_EQ(kip_pelSet8(&destination, 1), kip_pelStatusPixelSize);
    EXPECT_EQ(kip_pelCopy16(&unbound, &destination), 0);
    EXPECT_EQ(kip_pelCopy8(&source, &unbound), kip_pelStatusPixelSize);
    EXPECT_EQ(kip_pelSet8(&unbound, 1), 0);
    EXPECT_EQ(to[8], 109);
    EXPECT_EQ(kip_pelSet16(&destination, 0xabcd), 0);
    EXPECT_EQ(to, std::vector<uint16_t>(12, 0xabcd));
    for (kimg_image *image : {&source, &destination, &unbound})
        EXPECT_EQ(kimg_image_destruct(image), 0);
}
