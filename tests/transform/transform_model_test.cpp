// The exported transforms against the slow model, byte for byte. The optimised 8-bit path is inhibited: what
// is compared here is the portable path, which defines the result.

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "support/crash_note.h"
#include "support/depths.h"
#include "support/slow_model.h"
#include "support/transform_case.h"

namespace kip::test {

namespace {

// Depth and mode.
class TransformModel : public testing::TestWithParam<DepthAndMode> {
protected:
    // Runs a case for this depth and mode; returns whether the library served it.
    bool serves(const TransformCase &c)
    {
        int32_t status = 0;
        EXPECT_EQ(checkAgainstModel(c, memory, &status), "");
        EXPECT_TRUE(status >= 0 || status == kip_statusTransformWouldClip || status == kmath_statusSingular)
            << status << " from " << describe(c);
        return status >= 0;
    }
    TransformCase makeCase(int32_t width, int32_t height, int32_t pitch, int32_t columns, int32_t rows,
                           int32_t destinationPitch = 0)
    {
        TransformCase c;
        std::tie(c.bytesPerPixel, c.params.mode) = GetParam();
        c.width = width;
        c.height = height;
        c.pitch = pitch;
        c.params.destWidth = columns;
        c.params.destHeight = rows;
        c.destinationPitch = destinationPitch;
        c.sourceGuard = random.pick(kGuards);
        c.destinationGuard = random.pick(kGuards);
        c.seed = random.next();
        return c;
    }

    const InhibitOptimizedPaths inhibited;
    const TransformMemory memory{};
    Random random{30100 + 10 * std::get<1>(GetParam()) + static_cast<uint64_t>(std::get<0>(GetParam()))};
};

// Rather small than large, but every order of magnitude.
int32_t drawSize(Random &random, int32_t greatest)
{
    return static_cast<int32_t>(std::exp(random.between(0.0, std::log(greatest + 0.999))));
}

TEST_P(TransformModel, RandomRectangles)
{
    int served = 0;
    constexpr int kCases = 400;
    for (int n = 0; n < kCases && !HasFailure(); ++n) {
        int32_t columns = random.oneIn(3) ? random.between32(225, 400) : drawSize(random, 400);
        int32_t rows = random.oneIn(3) ? random.between32(225, 400) : drawSize(random, 400);
        if (random.oneIn(10))
            (random.oneIn(2) ? columns : rows) = random.between32(1020, 1500);
        while (columns * rows > 100000)
            (columns > rows ? columns : rows) /= 2;
        // The pitch decides on the size of the tiles.
        const int32_t width = drawSize(random, 200);
        static constexpr int32_t kPitches[] = {1000, 1024, 1025, 1500, 2048, 2500, 3072, 3073, 5000};
        const int32_t pitch = random.oneIn(3) ? random.pick(kPitches) : width + random.between32(0, 3);
        TransformCase c = makeCase(width, drawSize(random, 200), random.oneIn(4) ? -pitch : pitch, columns, rows,
                                   (columns + random.between32(0, 5)) * random.sign());
        if (random.oneIn(2)) {
            c.x = random.between32(-5000, 5000);
            c.y = random.between32(-5000, 5000);
        }
        c.srcFromClient = drawClientMap(random);
        drawRectangle(random, &c);
        served += serves(c) ? 1 : 0;
    }
    // The others graze an edge, or the support does not fit a source of a pixel or two.
    EXPECT_GT(served, kCases * 2 / 3);
}

// Every combination of tile size, tiles across and down, and tile steps by product or from doubles, turned
// so that both walk orders occur.
TEST_P(TransformModel, ManyTiles)
{
    for (const int32_t pitch : {1000, 1500, 2500, 5000, -1500}) {
        for (const int32_t columns : {500, 1024, 1100}) {
            TransformCase c = makeCase(900, 300, pitch, columns, 150);
            if (random.oneIn(2))
                std::swap(c.params.destWidth, c.params.destHeight);
            drawRectangle(random, &c);
            EXPECT_TRUE(serves(c)) << describe(c);
        }
    }
}

TEST_P(TransformModel, LongDestinationsAndPitches)
{
    // More rows (or columns) than 16 bits count.
    TransformCase tall = makeCase(300, 280, 303, 3, 70001);
    placeCorners({{1.25, 0.75}, {6.5, 1.5}, {290.0, 278.0}}, &tall);
    EXPECT_TRUE(serves(tall)) << describe(tall);
    TransformCase wide = makeCase(300, 280, 303, 70001, 3);
    placeCorners({{1.25, 0.75}, {297.0, 250.0}, {3.0, 5.0}}, &wide);
    EXPECT_TRUE(serves(wide)) << describe(wide);

    // Bottom-up sources whose rows are longer than 16.16 reaches: the pitch is below zero and hence small.
    for (const int32_t width : {40000, 500}) {
        TransformCase c = makeCase(width, 31, -40000, 240, 230, -301);
        // Samples lie in the first 32767 columns, or the call is refused.
        placeCorners({{random.between(400.0, 480.0), 1.0}, {2.0, 8.5}, {490.0, random.between(10.0, 22.0)}}, &c);
        EXPECT_TRUE(serves(c)) << describe(c);
    }
}

// Corner centres at the edges themselves and a few 16.16 units beside them, turned and mirrored: where the
// test of the corners passes, truncated steps still may lead one pixel out, which then is the nearest one.
TEST_P(TransformModel, MarginsOfTheClippingTest)
{
    const double margin = std::get<1>(GetParam()) == kip_affineModeNearest ? 0.0 : 0.5;
    static constexpr double kLowUnits[] = {-1.45, -1.0, -0.75, -0.5, -0.25, 0.0, 0.25, 0.5, 0.75, 1.0};
    static constexpr double kHighUnits[] = {-2.0, -1.5, -1.45, -1.0, -0.75, -0.51, -0.5, 0.0};
    int served = 0;
    int atTheEdge = 0;
    for (int n = 0; n < 3000 && !HasFailure(); ++n) {
        TransformCase c =
            makeCase(random.between32(1, 9), random.between32(1, 9), random.between32(9, 12) * random.sign(),
                     random.between32(1, 12), random.between32(1, 12));
        if (random.oneIn(2))
            c.srcFromClient = drawClientMap(random);
        const double left = margin + random.pick(kLowUnits) / 65536.0;
        const double right = c.width - margin + random.pick(kHighUnits) / 65536.0;
        const double top = margin + random.pick(kLowUnits) / 65536.0;
        const double bottom = c.height - margin + random.pick(kHighUnits) / 65536.0;
        CornerCenters corners = {{left, top}, {right, top}, {left, bottom}};
        if (random.oneIn(2))
            std::swap(corners.first.x, corners.endOfRow.x), corners.endOfColumn.x = corners.first.x;
        if (random.oneIn(2))
            std::swap(corners.first.y, corners.endOfColumn.y), corners.endOfRow.y = corners.first.y;
        if (random.oneIn(2))
            std::swap(corners.endOfRow, corners.endOfColumn);
        if (random.oneIn(4)) // a slanted line: one side of the parallelogram runs along the diagonal
            corners.endOfRow = {right, bottom}, corners.endOfColumn = corners.first, c.params.destHeight = 1;
        if (random.oneIn(4)) // away from the right and lower edge, so that only the start decides
            corners.endOfRow.x = std::floor(corners.endOfRow.x) + 0.375;
        placeCorners(corners, &c);
        const bool isServed = serves(c);
        served += isServed ? 1 : 0;
        atTheEdge += isServed && (left < margin || top < margin) ? 1 : 0;
    }
    EXPECT_GT(served, 300);
    EXPECT_GT(atTheEdge, 50);
}

// One sample along a side takes no step, so the clipping test lets that side be as long as it likes.
TEST_P(TransformModel, EnormousSideOfOneSample)
{
    const bool isNearest = std::get<1>(GetParam()) == kip_affineModeNearest;
    for (const double length : {1e5, -1e9, 1e300}) {
        // At 1e300 the centre can only be 0, which a bilinear sample may not reach.
        const bool isServed = isNearest || length < 1e300;
        const double centre = isNearest || !isServed ? 0.0 : 20.5;
        // Along the axes, so that the half of the side that leads back to the centre cancels exactly.
        TransformCase column = makeCase(40, 50, 41, 1, 150);
        column.params.rect = {-length / 2 + centre, 0.75, length, 0.0, 0.0, 48.0};
        EXPECT_EQ(serves(column), isServed) << describe(column);
        TransformCase row = makeCase(40, 50, 41, 150, 1);
        row.params.rect = {0.75, -length / 2 + centre, 38.0, 0.0, 0.0, length};
        EXPECT_EQ(serves(row), isServed) << describe(row);
    }
}

INSTANTIATE_TEST_SUITE_P(DepthsAndModes, TransformModel, depthsAndModes(1), depthAndModeName);

// ---- Sources beyond 16.16 ----------------------------------------------------------------------------------------

struct LargeSource {
    int32_t width, height, pitch;
};

constexpr LargeSource kLargeSources[] = {
    {40000, 30, 40000}, {30, 40000, 31}, {200, 40, 32768}, {32768, 20, 32769}, {7, 32768, 7}, {35000, 300, 35001},
};

TransformCase largeCase(const LargeSource &source, uint32_t mode, int32_t columns, int32_t rows)
{
    TransformCase c;
    c.width = source.width;
    c.height = source.height;
    c.pitch = source.pitch;
    c.params.mode = mode;
    c.params.destWidth = columns;
    c.params.destHeight = rows;
    return c;
}

ModelWalker walkerOf(const TransformCase &c)
{
    const kimg_windowConst window = {c.width, c.height, c.x, c.y, 0, 0, c.width, c.height, c.pitch, nullptr, 1};
    return modelWalker(window, c.srcFromClient, c.params);
}

class TransformModelLarge : public testing::Test {
protected:
    const InhibitOptimizedPaths inhibited;
    const TransformMemory memory{};
};

TEST_F(TransformModelLarge, RandomRectangles8)
{
    Random random(30700);
    int served = 0;
    int walkers[3] = {};
    for (size_t n = 0; n < 120; ++n) {
        TransformCase c =
            largeCase(kLargeSources[n % std::size(kLargeSources)], static_cast<uint32_t>(random.next() % 2),
                      random.oneIn(8) ? 1100 : drawSize(random, 300), random.oneIn(8) ? 1 : drawSize(random, 60));
        c.sourceGuard = random.pick(kGuards);
        c.seed = random.next();
        if (random.oneIn(2)) {
            c.x = random.between32(-100, 100);
            c.srcFromClient = drawClientMap(random);
        }
        drawRectangle(random, &c);
        int32_t status = 0;
        ASSERT_EQ(checkAgainstModel(c, memory, &status), "");
        served += status >= 0 ? 1 : 0;
        ++walkers[static_cast<int>(walkerOf(c))];
    }
    EXPECT_GT(served, 90);
    EXPECT_GT(walkers[static_cast<int>(ModelWalker::rebased)], 30);
    EXPECT_GT(walkers[static_cast<int>(ModelWalker::inDoubles)], 5);
}

// 16.16 positions from a tile's own pixel reach 32767 pixels. A tile spreads over both its sides, in source
// pixels, whatever a client unit is; where that is more, or a side is as many client units, doubles walk.
TEST_F(TransformModelLarge, TilesThatSpreadTooFar)
{
    struct Row {
        const char *name;
        double clientScale; // source pixels to one client unit
        int32_t columns, rows;
        CornerCenters corners;
        ModelWalker walker;
    };
    const double far = 69990.0;
    const Row table[] = {
        {"fine steps", 1.0, 5000, 3, {{1.0, 1.0}, {far, 2.0}, {1.5, 8.0}}, ModelWalker::rebased},
        {"coarse steps", 1.0, 60, 3, {{1.0, 1.0}, {far, 2.0}, {1.5, 8.0}}, ModelWalker::inDoubles},
        {"mirrored coarse steps", 1.0, 60, 3, {{far, 1.0}, {1.0, 2.0}, {far, 8.0}}, ModelWalker::inDoubles},
        {"large client units", 1000.0, 60, 3, {{1.0, 1.0}, {far, 2.0}, {1.5, 8.0}}, ModelWalker::inDoubles},
        {"two samples in large units", 1e5, 2, 2, {{1.0, 1.0}, {far, 2.0}, {1.5, 8.0}}, ModelWalker::inDoubles},
        {"small client units", 0.001, 3000, 3, {{1.0, 1.0}, {far, 2.0}, {1.5, 8.0}}, ModelWalker::inDoubles},
        {"sheared", 1.0, 64, 64, {{1.0, 1.0}, {25000.0, 4.0}, {26000.0, 5.0}}, ModelWalker::inDoubles},
        {"sheared in large units", 100.0, 64, 64, {{1.0, 1.0}, {25000.0, 4.0}, {26000.0, 5.0}}, ModelWalker::inDoubles},
        {"sheared less", 1.0, 64, 64, {{1.0, 1.0}, {15000.0, 4.0}, {16000.0, 5.0}}, ModelWalker::rebased},
        {"sheared back", 1.0, 64, 64, {{30000.0, 1.0}, {55000.0, 4.0}, {4000.0, 5.0}}, ModelWalker::inDoubles},
        {"enormous side of one column", 1.0, 1, 50, {{3.0, 1.0}, {}, {60000.0, 8.0}, {1e9, 0}}, ModelWalker::inDoubles},
        {"enormous side of one row", 1.0, 50, 1, {{3.0, 4.0}, {60.0, 8.0}, {}, {0, -1e9}}, ModelWalker::inDoubles},
    };
    for (const Row &row : table) {
        for (const uint32_t mode : {kip_affineModeNearest, kip_affineModeBilinear}) {
            SCOPED_TRACE(row.name);
            TransformCase c = largeCase({70000, 10, 70001}, mode, row.columns, row.rows);
            c.srcFromClient = {0.0, 0.0, row.clientScale, 0.0, 0.0, row.clientScale};
            placeCorners(row.corners, &c);
            EXPECT_EQ(walkerOf(c), row.walker);
            int32_t status = -1;
            EXPECT_EQ(checkAgainstModel(c, memory, &status), "");
            EXPECT_EQ(status, 0);
        }
    }
}

TEST_F(TransformModelLarge, MarginsOfTheClippingTest8)
{
    Random random(30800);
    static constexpr double kOffsets[] = {-1e-5, -1e-9, -5e-10, 0.0, 1e-9, 1e-5, 2e-5};
    int served = 0;
    for (int n = 0; n < 300; ++n) {
        const LargeSource source = n % 2 == 0 ? LargeSource{33000, 4, 33000} : LargeSource{5, 33000, 5};
        TransformCase c =
            largeCase(source, static_cast<uint32_t>(random.next() % 2), random.between32(1, 9), random.between32(1, 9));
        c.seed = random.next();
        const double margin = c.params.mode == kip_affineModeNearest ? 0.0 : 0.5;
        // Near one of the source's corners, so that steps are fine enough for the rebased walker too.
        const auto edges = [&](double size, double *a, double *b) {
            const double near = margin + random.pick(kOffsets);
            const double far = size - margin - 1e-5 + random.pick(kOffsets);
            const double inner = random.between(1.0, 3.0);
            const bool atNear = random.oneIn(2);
            *a = atNear ? near : far - inner;
            *b = atNear ? near + inner : far;
            if (random.oneIn(2))
                std::swap(*a, *b);
        };
        CornerCenters corners;
        edges(c.width, &corners.first.x, &corners.endOfRow.x);
        edges(c.height, &corners.first.y, &corners.endOfColumn.y);
        corners.endOfRow.y = corners.first.y;
        corners.endOfColumn.x = corners.first.x;
        placeCorners(corners, &c);
        int32_t status = 0;
        ASSERT_EQ(checkAgainstModel(c, memory, &status), "");
        served += status >= 0 ? 1 : 0;
    }
    EXPECT_GT(served, 60);
}

// 4.9 * 10^9 pixels, of which only the sampled rows are memory: offsets into them take 64 bits.
TEST_F(TransformModelLarge, FarCornerOfASourceBeyond32BitOffsets)
{
    constexpr int32_t kSize = 70001;
    constexpr int32_t kRows = 60;
    constexpr size_t kBytes = size_t{kSize} * kSize;
    constexpr size_t kUsed = size_t{kSize} * kRows;
    const GuardedMemory sourceMemory(kBytes, kBytes - kUsed, kUsed);
    Random random(30900);
    for (uint8_t *at = sourceMemory.begin(); at < sourceMemory.end(); ++at)
        *at = static_cast<uint8_t>(random.next() >> 40);

    for (const uint32_t mode : {kip_affineModeNearest, kip_affineModeBilinear}) {
        for (const double reach : {50.0, 40000.0}) { // the rebased walker, and the one in doubles
            const double edge = kSize - 2.0;
            const kmath_xformLinear rect = {edge, edge, -reach, -1.5, -15.5, -39.0};
            const kip_affineSampleParams params = {rect, mode, 61, 70};
            std::vector<uint8_t> result(61 * 70);
            kimg_image source;
            kimg_image destination;
            ASSERT_EQ(kimg_image_constructExternal(&source, 1, kSize, kSize, kSize, sourceMemory.origin()), 0);
            ASSERT_EQ(kimg_image_constructExternal(&destination, 1, 61, 70, 61, result.data()), 0);
            noteForCrash("far corner");
            EXPECT_EQ(kip_affineTransform(&source, &destination, &params, nullptr), 0);
            kimg_windowConst window;
            kimg_windowConst_init(&window, &source);
            const kmath_xformLinear identity = {0, 0, 1, 0, 0, 1};
            const SlowModel model = makeSlowModel(window, identity, params, modelWalker(window, identity, params), 64);
            for (int32_t y = 0; y < 70; ++y)
                for (int32_t x = 0; x < 61; ++x)
                    ASSERT_EQ(result[static_cast<size_t>(y * 61 + x)], sampleSlowly(model, x, y)) << x << ", " << y;
            kimg_image_destruct(&destination);
            kimg_image_destruct(&source);
        }
    }
}

} // namespace

} // namespace kip::test
