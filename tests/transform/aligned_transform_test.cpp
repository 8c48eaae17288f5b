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

// The source pixel that a destination pixel comes from. Codes without an axis swap turn within the source's
// size, codes with one within the destination's.
Place sourceOf(const Turn &turn, Place at, const kimg_windowConst &source, const kimg_window &destination)
{
    const int32_t columns = turn.swapsAxes() ? destination.width : source.width;
    const int32_t rows = turn.swapsAxes() ? destination.height : source.height;
    const Place start = {std::max({0, -turn.right.x * (columns - 1), -turn.down.x * (rows - 1)}),
                         std::max({0, -turn.right.y * (columns - 1), -turn.down.y * (rows - 1)})};
    return {start.x + at.x * turn.right.x + at.y * turn.down.x, start.y + at.x * turn.right.y + at.y * turn.down.y};
}

// Puts into result what the operation makes of before, pixel by pixel.
void turnSlowly(const Turn &turn, const Pixels &before, const kimg_windowConst &source, const kimg_window &destination,
                Pixels &result)
{
    const int32_t columns = turn.swapsAxes() ? destination.width : source.width;
    const int32_t rows = turn.swapsAxes() ? destination.height : source.height;
    for (int32_t y = 0; y < rows; ++y) {
        for (int32_t x = 0; x < columns; ++x) {
            const Place from = sourceOf(turn, {x, y}, source, destination);
            result.set(x, y, before.at(from.x, from.y));
        }
    }
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
                const Pixels sourceBefore = source;
                Pixels expected = destination;
                turnSlowly(turn, source, source.windowConst(), destination.window(), expected);
                ASSERT_EQ(transformAligned(source.windowConst(), destination.window(), turn.code, bytesPerPixel), 0);
                ASSERT_TRUE(isSameMemory(expected, destination));
                ASSERT_TRUE(isSameMemory(sourceBefore, source));
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
                // Odd and even sizes; an axis swap needs a square.
                const int32_t height = turn.swapsAxes() ? size : random.between32(1, 40);
                Pixels pixels(bytesPerPixel, size, height, randomPitch(random, size), random.next());
                SCOPED_TRACE(testing::Message() << turn.name << ", " << 8 * bytesPerPixel << " bits, " << size << " x "
                                                << height << " pitch " << pixels.pitch);
                Pixels expected = pixels;
                turnSlowly(turn, pixels, pixels.windowConst(), pixels.window(), expected);
                ASSERT_EQ(transformAligned(pixels.windowConst(), pixels.window(), turn.code, bytesPerPixel), 0);
                ASSERT_TRUE(isSameMemory(expected, pixels));
            }
        }
    }
}

TEST(AlignedTransform, WorksInPlaceOnThePartThatTheSourceCovers)
{
    for (const Turn &turn : kTurns) {
        if (turn.swapsAxes())
            continue;
        SCOPED_TRACE(turn.name);
        Pixels pixels(1, 13, 9, 16);
        kimg_windowConst source = pixels.windowConst();
        source.width = 8;
        source.height = 5;
        Pixels expected = pixels;
        turnSlowly(turn, pixels, source, pixels.window(), expected);
        ASSERT_EQ(transformAligned(source, pixels.window(), turn.code, 1), 0);
        EXPECT_TRUE(isSameMemory(expected, pixels));
    }
}

TEST(AlignedTransform, CodesWithoutAMeaningCopy)
{
    for (const int32_t code : {-1, 2, 45, 89, 92, 272, 360, INT32_MIN, INT32_MAX}) {
        for (const int32_t bytesPerPixel : {1, 2}) {
            const Pixels source(bytesPerPixel, 5, 3, -7, 3);
            Pixels destination(bytesPerPixel, 6, 4, 9, 4);
            Pixels expected = destination;
            turnSlowly(kTurns[0], source, source.windowConst(), destination.window(), expected);
            EXPECT_EQ(transformAligned(source.windowConst(), destination.window(), code, bytesPerPixel), 0);
            EXPECT_TRUE(isSameMemory(expected, destination)) << "code " << code;
        }
    }
}

TEST(AlignedTransform, ACopyGoesByThePixelSizeOfTheWindows)
{
    for (const int32_t operation : {1, 2}) {
        for (const int32_t bytesPerPixel : {1, 2}) {
            const Pixels source(bytesPerPixel, 5, 3, 0, 5);
            Pixels destination(bytesPerPixel, 5, 3, 8, 6);
            Pixels expected = destination;
            turnSlowly(kTurns[0], source, source.windowConst(), destination.window(), expected);
            EXPECT_EQ(transformAligned(source.windowConst(), destination.window(), 0, operation), 0);
            EXPECT_TRUE(isSameMemory(expected, destination));
        }
    }
}

TEST(AlignedTransform, RefusesWindowsThatDoNotFitAndWritesNothing)
{
    for (const Turn &turn : kTurns) {
        for (const int32_t bytesPerPixel : {1, 2}) {
            // Room for one column or row less than there are, or, with an axis swap, one more to fill.
            const int32_t wrong = turn.swapsAxes() ? 1 : -1;
            for (const auto &[x, y] : {Place{wrong, 0}, Place{0, wrong}, Place{wrong, wrong}}) {
                SCOPED_TRACE(testing::Message() << turn.name << ", destination larger by " << x << ", " << y);
                const Pixels source(bytesPerPixel, 9, 6, 11, 7);
                Pixels destination(bytesPerPixel, (turn.swapsAxes() ? 6 : 9) + x, (turn.swapsAxes() ? 9 : 6) + y, 0, 8);
                const Pixels before = destination;
                EXPECT_EQ(transformAligned(source.windowConst(), destination.window(), turn.code, bytesPerPixel),
                          kip_statusWindowMismatch);
                EXPECT_TRUE(isSameMemory(before, destination));
            }
        }
    }
}

TEST(AlignedTransform, RefusesSharedWindowsThatItCannotWorkIn)
{
    for (const Turn &turn : kTurns) {
        SCOPED_TRACE(turn.name);
        if (turn.swapsAxes()) {
            for (const auto &[width, height, destWidth, destHeight] :
                 {std::array{6, 5, 5, 6}, {5, 6, 6, 5}, {1, 8, 8, 1}, {6, 8, 6, 4}, {8, 6, 4, 6}}) {
                Pixels pixels(1, 8, 8, 10);
                const Pixels before = pixels;
                kimg_windowConst source = pixels.windowConst();
                source.width = width;
                source.height = height;
                kimg_window destination = pixels.window();
                destination.width = destWidth;
                destination.height = destHeight;
                EXPECT_EQ(transformAligned(source, destination, turn.code, 1), kip_statusWindowMismatch);
                EXPECT_TRUE(isSameMemory(before, pixels));
            }
        }
        // The same first pixel, but rows that lie elsewhere.
        Pixels pixels(1, 6, 6, 12);
        const Pixels before = pixels;
        kimg_windowConst source = pixels.windowConst();
        source.pitch = 6;
        EXPECT_EQ(transformAligned(source, pixels.window(), turn.code, 1), kip_statusWindowMismatch);
        EXPECT_TRUE(isSameMemory(before, pixels));
    }
}

TEST(AlignedTransform, RefusesOtherPixelSizesAndWritesNothing)
{
    for (const Turn &turn : kTurns) {
        for (const auto &[operation, sourceBytes, destinationBytes] :
             {std::array{1, 1, 2}, {1, 2, 1}, {2, 1, 2}, {2, 2, 1}, {1, 2, 2}, {2, 1, 1}}) {
            if (turn.code == kip_affine_alignIdentity && sourceBytes == destinationBytes)
                continue; // a copy serves any pixel
            const Pixels source(sourceBytes, 6, 6, 7, 9);
            Pixels destination(destinationBytes, 6, 6, 8, 10);
            const Pixels before = destination;
            EXPECT_EQ(transformAligned(source.windowConst(), destination.window(), turn.code, operation),
                      kip_statusPixelDepth)
                << turn.name << ", " << sourceBytes << " to " << destinationBytes << " bytes";
            EXPECT_TRUE(isSameMemory(before, destination));
        }
    }
}

// Windows made by hand may lie anywhere; only the copy can serve such 16-bit ones.
TEST(AlignedTransform, RefusesToTurn16BitPixelsAtOddAddresses)
{
    for (const Turn &turn : kTurns) {
        for (const bool isSource : {true, false}) {
            Pixels source(2, 6, 6, 9, 9);
            Pixels destination(2, 6, 6, 9, 10);
            const Pixels before = destination;
            kimg_windowConst from = source.windowConst();
            kimg_window to = destination.window();
            if (isSource)
                from.pixels = static_cast<const unsigned char *>(from.pixels) + 1;
            else
                to.pixels = static_cast<unsigned char *>(to.pixels) + 1;
            const bool isCopy = turn.code == kip_affine_alignIdentity;
            EXPECT_EQ(transformAligned(from, to, turn.code, 2), isCopy ? 0 : kip_statusMisaligned) << turn.name;
            EXPECT_EQ(static_cast<bool>(isSameMemory(before, destination)), !isCopy) << turn.name;
        }
    }
}

TEST(AlignedTransform, EmptySourcesWriteNothing)
{
    for (const Turn &turn : kTurns) {
        for (const auto &[width, height] : {Place{0, 0}, Place{0, 4}, Place{4, 0}}) {
            const Pixels source(1, 4, 4);
            Pixels destination(1, 4, 4, 0, 2);
            const Pixels before = destination;
            kimg_windowConst empty = source.windowConst();
            empty.width = width;
            empty.height = height;
            kimg_window fitting = destination.window();
            fitting.width = turn.swapsAxes() ? height : width;
            fitting.height = turn.swapsAxes() ? width : height;
            EXPECT_EQ(transformAligned(empty, fitting, turn.code, 1), 0);
            EXPECT_TRUE(isSameMemory(before, destination)) << turn.name;
        }
    }
}

} // namespace
