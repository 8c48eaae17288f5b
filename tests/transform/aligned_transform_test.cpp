#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>

#include <gtest/gtest.h>
#include <kip/kip.h>

#include "support/images.h"
#include "support/turns.h"

namespace {

using kip::test::kTurns;
using kip::test::Pixels;
using kip::test::Random;
using kip::test::Turn;

int32_t transformAligned(const kimg_windowConst &source, kimg_window destination, kip_affine_imageAlignment code,
                         int32_t bytesPerPixel)
{
    return bytesPerPixel == 1 ? kip_affineTransformAligned(&source, &destination, code)
                              : kip_affineTransformAligned16(&source, &destination, code);
}

struct Place {
    int32_t x, y;
};

// Puts into result what the operation makes of before, pixel by pixel. Codes without an axis swap turn within the
// source's size, codes with one within the destination's.
void turnSlowly(const Turn &turn, const Pixels &before, const kimg_windowConst &source, const kimg_window &destination,
                Pixels &result)
{
    const int32_t columns = turn.swapsAxes() ? destination.width : source.width;
    const int32_t rows = turn.swapsAxes() ? destination.height : source.height;
    const Place start = {std::max({0, -turn.right.x * (columns - 1), -turn.down.x * (rows - 1)}),
                         std::max({0, -turn.right.y * (columns - 1), -turn.down.y * (rows - 1)})};
    for (int32_t y = 0; y < rows; ++y)
        for (int32_t x = 0; x < columns; ++x)
            result.set(
                x, y,
                before.at(start.x + x * turn.right.x + y * turn.down.x, start.y + x * turn.right.y + y * turn.down.y));
}

int32_t randomPitch(Random &random, int32_t width)
{
    return random.sign() * (width + (random.oneIn(2) ? 0 : random.between32(1, 9)));
}

TEST(AlignedTransform, WorkedExample)
{
    // 1 2 3
    // 4 5 6
    const struct {
        kip_affine_imageAlignment code;
        int32_t width;
        uint8_t expected[6];
    } rows[] = {
        {kip_affine_alignIdentity, 3, {1, 2, 3, 4, 5, 6}},  {kip_affine_alignTranspose, 2, {1, 4, 2, 5, 3, 6}},
        {kip_affine_alignRotate90, 2, {3, 6, 2, 5, 1, 4}},  {kip_affine_alignRotate90Transpose, 3, {3, 2, 1, 6, 5, 4}},
        {kip_affine_alignRotate180, 3, {6, 5, 4, 3, 2, 1}}, {kip_affine_alignRotate180Transpose, 2, {6, 3, 5, 2, 4, 1}},
        {kip_affine_alignRotate270, 2, {4, 1, 5, 2, 6, 3}}, {kip_affine_alignRotate270Transpose, 3, {4, 5, 6, 1, 2, 3}},
    };
    for (const auto &row : rows) {
        for (const int32_t bytesPerPixel : {1, 2}) {
            Pixels source(bytesPerPixel, 3, 2, 5);
            for (int32_t i = 0; i < 6; ++i)
                source.set(i % 3, i / 3, static_cast<uint32_t>(i + 1));
            Pixels destination(bytesPerPixel, row.width, 6 / row.width, -4);
            ASSERT_EQ(transformAligned(source.windowConst(), destination.window(), row.code, bytesPerPixel), 0);
            for (int32_t i = 0; i < 6; ++i)
                EXPECT_EQ(destination.at(i % row.width, i / row.width), row.expected[i])
                    << "code " << row.code << ", pixel " << i;
        }
    }
}

TEST(AlignedTransform, MovesEveryPixelAndNoOther)
{
    Random random(41);
    for (const Turn &turn : kTurns) {
        for (const int32_t bytesPerPixel : {1, 2}) {
            for (int i = 0; i < 200; ++i) {
                const int32_t width = random.between32(1, 70);
                const int32_t height = random.between32(1, 70);
                int32_t destWidth = turn.swapsAxes() ? height : width;
                int32_t destHeight = turn.swapsAxes() ? width : height;
                // Without an axis swap the result fills the top left of a larger destination; with one, a smaller
                // destination takes the part of the source that it has room for.
                if (random.oneIn(3)) {
                    destWidth = turn.swapsAxes() ? random.between32(1, destWidth) : destWidth + random.between32(0, 5);
                    destHeight =
                        turn.swapsAxes() ? random.between32(1, destHeight) : destHeight + random.between32(0, 5);
                }
                const Pixels source(bytesPerPixel, width, height, randomPitch(random, width), random.next());
                Pixels destination(bytesPerPixel, destWidth, destHeight, randomPitch(random, destWidth), random.next());
                SCOPED_TRACE(testing::Message() << turn.name << ", " << 8 * bytesPerPixel << " bits, case " << i << ": "
                                                << width << " x " << height << " pitch " << source.pitch << " to "
                                                << destWidth << " x " << destHeight << " pitch " << destination.pitch);
                Pixels expected = destination;
                turnSlowly(turn, source, source.windowConst(), destination.window(), expected);
                ASSERT_EQ(transformAligned(source.windowConst(), destination.window(), turn.code, bytesPerPixel), 0);
                ASSERT_TRUE(isSameMemory(expected, destination));
            }
        }
    }
}

TEST(AlignedTransform, WorksInPlace)
{
    Random random(42);
    for (const Turn &turn : kTurns) {
        for (const int32_t bytesPerPixel : {1, 2}) {
            for (int32_t size = 1; size <= 70; ++size) {
                // Odd and even sizes; an axis swap needs a square, else the source may be a part of the window.
                const int32_t height = turn.swapsAxes() ? size : random.between32(1, 40);
                Pixels pixels(bytesPerPixel, size, height, randomPitch(random, size), random.next());
                kimg_windowConst source = pixels.windowConst();
                if (!turn.swapsAxes() && random.oneIn(2)) {
                    source.width = random.between32(1, size);
                    source.height = random.between32(1, height);
                }
                SCOPED_TRACE(testing::Message()
                             << turn.name << ", " << 8 * bytesPerPixel << " bits, " << source.width << " x "
                             << source.height << " of " << size << " x " << height << " pitch " << pixels.pitch);
                Pixels expected = pixels;
                turnSlowly(turn, pixels, source, pixels.window(), expected);
                ASSERT_EQ(transformAligned(source, pixels.window(), turn.code, bytesPerPixel), 0);
                ASSERT_TRUE(isSameMemory(expected, pixels));
            }
        }
    }
}

// A copy goes by the pixel size of the windows, whichever form is called.
TEST(AlignedTransform, CodesWithoutAMeaningCopy)
{
    for (const int32_t code : {0, -1, 2, 45, 89, 92, 272, 360, INT32_MIN, INT32_MAX}) {
        for (const auto &[operation, bytesPerPixel] : {std::array{1, 1}, {1, 2}, {2, 1}, {2, 2}}) {
            const Pixels source(bytesPerPixel, 5, 3, -7, 3);
            Pixels destination(bytesPerPixel, 6, 4, 9, 4);
            Pixels expected = destination;
            turnSlowly(kTurns[0], source, source.windowConst(), destination.window(), expected);
            EXPECT_EQ(transformAligned(source.windowConst(), destination.window(), code, operation), 0);
            EXPECT_TRUE(isSameMemory(expected, destination)) << "code " << code;
        }
    }
}

TEST(AlignedTransform, RefusesWindowsThatDoNotFitAndWritesNothing)
{
    for (const Turn &turn : kTurns) {
        SCOPED_TRACE(turn.name);
        const bool swaps = turn.swapsAxes();
        const auto expectStatus = [&](int32_t status, kimg_windowConst source, const Pixels &pixels,
                                      kimg_window destination, int32_t operation) {
            const Pixels before = pixels;
            EXPECT_EQ(transformAligned(source, destination, turn.code, operation), status)
                << source.width << " x " << source.height << " of " << source.bytesPerPixel << " bytes to "
                << destination.width << " x " << destination.height << " of " << destination.bytesPerPixel;
            EXPECT_TRUE(isSameMemory(before, pixels));
        };

        // Room for one column or row less than there are, or, with an axis swap, one more to fill.
        const int32_t wrong = swaps ? 1 : -1;
        for (const auto &[x, y] : {Place{wrong, 0}, Place{0, wrong}, Place{wrong, wrong}}) {
            const Pixels source(1, 9, 6, 11, 7);
            Pixels pixels(1, (swaps ? 6 : 9) + x, (swaps ? 9 : 6) + y, 0, 8);
            expectStatus(kip_statusWindowMismatch, source.windowConst(), pixels, pixels.window(), 1);
        }

        // Windows that share their pixels: only squares swap their axes, and rows must lie alike.
        Pixels shared(1, 8, 8, 10);
        for (const auto &[width, height, destWidth, destHeight, pitch] :
             {std::array{6, 5, 5, 6, 10}, {5, 6, 6, 5, 10}, {1, 8, 8, 1, 10}, {6, 8, 6, 4, 10}, {6, 6, 6, 6, 8}}) {
            if (!swaps && pitch == 10)
                continue;
            kimg_windowConst source = shared.windowConst();
            source.width = width;
            source.height = height;
            source.pitch = pitch;
            kimg_window destination = shared.window();
            destination.width = destWidth;
            destination.height = destHeight;
            expectStatus(kip_statusWindowMismatch, source, shared, destination, 1);
        }

        for (const auto &[operation, sourceBytes, destinationBytes] :
             {std::array{1, 1, 2}, {1, 2, 1}, {2, 1, 2}, {2, 2, 1}, {1, 2, 2}, {2, 1, 1}}) {
            if (turn.code == kip_affine_alignIdentity && sourceBytes == destinationBytes)
                continue; // a copy serves any pixel
            const Pixels source(sourceBytes, 6, 6, 7, 9);
            Pixels pixels(destinationBytes, 6, 6, 8, 10);
            expectStatus(kip_statusPixelDepth, source.windowConst(), pixels, pixels.window(), operation);
        }

        // Windows made by hand may lie anywhere; only the copy can serve such 16-bit ones.
        for (const bool isSource : {true, false}) {
            Pixels source(2, 6, 6, 9, 9);
            Pixels pixels(2, 6, 6, 9, 10);
            kimg_windowConst from = source.windowConst();
            kimg_window to = pixels.window();
            if (isSource)
                from.pixels = static_cast<const unsigned char *>(from.pixels) + 1;
            else
                to.pixels = static_cast<unsigned char *>(to.pixels) + 1;
            if (turn.code != kip_affine_alignIdentity)
                expectStatus(kip_statusMisaligned, from, pixels, to, 2);
            EXPECT_EQ(transformAligned(from, to, kip_affine_alignIdentity, 2), 0);
        }

        const Pixels source(1, 4, 4);
        Pixels pixels(1, 4, 4, 0, 2);
        for (const auto &[width, height] : {Place{0, 0}, Place{0, 4}, Place{4, 0}}) {
            kimg_windowConst empty = source.windowConst();
            empty.width = width;
            empty.height = height;
            kimg_window fitting = pixels.window();
            fitting.width = swaps ? height : width;
            fitting.height = swaps ? width : height;
            expectStatus(0, empty, pixels, fitting, 1);
        }
    }
}

} // namespace
