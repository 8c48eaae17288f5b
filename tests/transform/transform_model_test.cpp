// Sampling of every form against the slow model, at every level of the processor and with jobs: rectangles of all
// kinds, and rare ones that random numbers hardly ever give.

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <tuple>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "support/crash_note.h"
#include "support/draw_call.h"
#include "support/images.h"
#include "support/levels.h"
#include "support/sampling_call.h"
#include "support/slow_model.h"
#include "support/turns.h"

namespace kip::test {

namespace {

constexpr Operation kSampling[] = {
    Operation::transform,     Operation::transform,      Operation::transform,
    Operation::project,       Operation::projectNorm,    Operation::transformClipped,
    Operation::projectWindow, Operation::projectClipped, Operation::projectClippedWindow};

// Bytes per pixel and mode.
class SamplingModel : public testing::TestWithParam<std::tuple<int32_t, uint32_t>> {
protected:
    ~SamplingModel() override
    {
        ksys_jobThreadGroup_setThreadCount(0);
        ksys_jobThreadGroup_setSplitAll(0);
    }

    // Runs a call against the model with the portable kernels, and expects the same of all others. Returns the status.
    int32_t check(const SamplingCall &call)
    {
        SCOPED_TRACE(describe(call));
        noteForCrash(describe(call));
        ksys_jobThreadGroup_setThreadCount(1);
        const auto run = [&](uint32_t features, Check what, bool isInhibited = false) {
            const ProcessorLevel level(features, isInhibited);
            const Outcome outcome = runCall(call, memory, nullptr, what);
            EXPECT_EQ(outcome.fault, "") << "features " << features;
            return outcome;
        };
        const Outcome portable = run(0, Check::meaning);
        EXPECT_EQ(run(0, Check::meaning, true).status, portable.status);
        for (const Level &level : availableLevels()) {
            ksys_jobThreadGroup_setThreadCount(random.pick({1, 2, 3, 7}));
            ksys_jobThreadGroup_setSplitAll(random.oneIn(4) ? 0 : 1);
            EXPECT_EQ(run(level.features, Check::promises).digest, portable.digest) << level.name;
        }
        return portable.status;
    }

    SamplingCall callOf(Operation operation, int32_t width, int32_t height, int32_t pitch, int32_t columns,
                        int32_t rows)
    {
        const auto &[bytes, mode] = GetParam();
        SamplingCall call = {operation, bytes, width, height, pitch};
        call.params = {{}, mode, columns, rows};
        call.sourceGuard = random.pick(kGuards);
        call.destinationGuard = random.pick(kGuards);
        call.seed = random.next();
        return call;
    }

    const CallMemory memory{};
    Random random{30100 + 10 * std::get<1>(GetParam()) + static_cast<uint64_t>(std::get<0>(GetParam()))};
};

INSTANTIATE_TEST_SUITE_P(BytesAndModes, SamplingModel,
                         testing::Combine(testing::Values(1, 2), testing::Values(0u, 1u, 2u, 3u)));

// Sides are drawn between two lengths; so is the pitch, or it is hardly longer than a row.
struct Scene {
    const char *name;
    int32_t width[2], height[2], columns[2], rows[2];
    int32_t cases;
    int32_t pitch[2] = {0, 0};
};

constexpr Scene kScenes[] = {
    {"rectangles of any kind", {7, 300}, {7, 300}, {1, 250}, {1, 250}, 150},
    {"a few vectors", {12, 80}, {12, 80}, {8, 70}, {8, 70}, 700},
    {"a few pixels", {5, 12}, {5, 12}, {1, 12}, {1, 12}, 600},
    {"worth jobs", {200, 600}, {200, 600}, {220, 400}, {300, 500}, 12},
    {"a few columns", {20, 60}, {60, 120}, {4, 9}, {30, 120}, 200},
    {"many tiles", {600, 900}, {200, 300}, {300, 700}, {100, 400}, 6},
    {"smaller tiles", {600, 1100}, {200, 300}, {300, 700}, {100, 400}, 6, {1025, 2048}},
    {"small tiles", {900, 1000}, {200, 300}, {300, 700}, {100, 400}, 6, {2049, 3072}},
    {"the smallest tiles", {900, 1000}, {200, 300}, {300, 700}, {100, 400}, 6, {3073, 5000}},
    {"tile steps from doubles", {200, 900}, {200, 300}, {1024, 1100}, {50, 150}, 4},
    // Their bands reach past 16 bits when mirrored.
    {"strong reductions of wide sources", {32767, 32767}, {20, 60}, {1, 150}, {1, 150}, 15, {32767, 32767}},
    {"strong reductions of high sources", {20, 60}, {32767, 32767}, {1, 150}, {1, 150}, 15},
    {"more rows than 16 bits count", {300, 300}, {280, 280}, {3, 3}, {70001, 70001}, 5},
    {"more columns than 16 bits count", {300, 300}, {280, 280}, {70001, 70001}, {3, 3}, 1},
    // 8-bit pixels alone, in the modes without tables.
    {"wider than 16.16", {32768, 40000}, {20, 60}, {1, 300}, {1, 100}, 15},
    {"higher than 16.16", {7, 60}, {32768, 40000}, {1, 300}, {1, 100}, 15},
    {"rows longer than 16.16", {200, 500}, {20, 60}, {1, 300}, {1, 300}, 8, {32768, 40000}},
};

// Moves a rectangle by some source pixels, whole ones half of the time.
void moveRectangle(Random &random, SamplingCall *call)
{
    kmath_xformLinear clientFromSource;
    ASSERT_EQ(kmath_xformLinear_initInverse(&clientFromSource, &call->srcFromClient), 0);
    const double scale = random.oneIn(2) ? 1.0 : 0.97;
    const double dx = random.between32(-20, 15) * scale;
    const double dy = random.between32(-20, 15) * scale;
    call->params.rect.tx += clientFromSource.e0 * dx + clientFromSource.e1 * dy;
    call->params.rect.ty += clientFromSource.e2 * dx + clientFromSource.e3 * dy;
}

TEST_P(SamplingModel, GivesWhatEveryFormAndLevelGive)
{
    for (const Scene &scene : kScenes) {
        SCOPED_TRACE(scene.name);
        int served = 0;
        for (int n = 0; n < scene.cases && !HasFailure(); ++n) {
            const auto draw = [&](const int32_t(&range)[2]) { return random.between32(range[0], range[1]); };
            const int32_t width = draw(scene.width);
            const int32_t pitch = scene.pitch[0] != 0 ? draw(scene.pitch) : width + random.between32(0, 9);
            SamplingCall call = callOf(random.pick(kSampling), width, draw(scene.height),
                                       pitch * (random.oneIn(4) ? -1 : 1), draw(scene.columns), draw(scene.rows));
            if (random.oneIn(2) && call.params.destWidth + call.params.destHeight < 3000)
                std::swap(call.params.destWidth, call.params.destHeight);
            if (random.oneIn(2)) {
                call.x = random.between32(-5000, 5000);
                call.y = random.between32(-5000, 5000);
                call.srcFromClient = drawClientMap(random);
            }
            drawRectangle(random, &call);
            call.isWhite = scene.rows[0] > 65537; // sums wrap
            if (call.operation == Operation::transformClipped || call.operation >= Operation::projectClipped)
                moveRectangle(random, &call);
            drawTargets(random, &call);
            served += check(call) >= 0 ? 1 : 0;
        }
        const auto &[bytes, mode] = GetParam();
        const bool isTooLarge = scene.width[1] > 32767 || scene.height[1] > 32767 || scene.pitch[1] > 32767;
        const bool isOffered = bytes == 1 || mode <= kip_affineModeBilinear;
        // 16-bit projections have no tables.
        if (!isTooLarge || (bytes == 1 && mode <= kip_affineModeBilinear)) {
            EXPECT_GE(served, scene.cases / (isOffered ? 5 : 8));
        }
    }
}

TEST_P(SamplingModel, RareRectangles)
{
    const double back = 198.75 + 0.5 + 129 / 256.0; // the first centre is 198.75 pixels from that of pixel 0
    const struct {
        const char *name;
        int32_t width, height, columns, rows;
        kmath_xformLinear rect;
        bool isProjection = false;
    } rows[] = {
        // Steps back by 1 1/128 pixels: 96 of them, a tile of a plan, lead to a whole pixel, where a reversed scan has
        // no fraction.
        {"a reversed tile that begins at a whole pixel", 210, 210, 128, 128, {back, back, -129, 0, 0, -129}},
        {"the same along columns", 210, 210, 128, 128, {back, back, 0, -129, -129, 0}},
        // The line of samples advances 15 columns with every row: its third sample is the source's last pixel.
        {"a sample whose lower neighbour is the last pixel", 20, 30, 1, 1, {17.05, 26.5, 5e-7, 0, 5e-7 / 15, 1}},
        // Its samples move across by more than a row is long: some lie outside the source, and pixels then take what
        // the line held before. Not to be cut.
        {"rows that take older samples",
         20,
         24,
         14,
         4914,
         {11.457759408873367, 20.028209833147944, 9.9551394394618492e-06, 0, 2.0746393695544831e-07, 1.461790166952}},
        // Its line of samples is shorter than the step says.
        {"a column that leads down, in rows that would lead up", 40, 50, 1, 40, {20.25, 5.75, 5e-7, 0, -1, 35.5}, true},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        const auto &[bytes, mode] = GetParam();
        const bool sums = row.isProjection && (bytes == 1 || mode <= kip_affineModeBilinear);
        SamplingCall call = callOf(sums ? Operation::project : Operation::transform, row.width, row.height, row.width,
                                   row.columns, row.rows);
        call.params.rect = row.rect;
        EXPECT_GE(check(call), 0);
    }
}

// Vector kernels keep the source pixels of a few destination pixels in 8 or 16 columns and some rows: tiles that read
// as many or fewer, and steps with which 2, 4 or 8 columns just fit or just do not. Rows 512 bytes apart are walked in
// other orders where a destination row leads down.
TEST_P(SamplingModel, BoxesThatJustFit)
{
    if (std::get<1>(GetParam()) > kip_affineModeBilinear)
        return;
    int count = 0; // two transforms, two projections, and so on
    const auto sample = [&](int32_t width, int32_t height, int32_t pitch, int32_t columns, int32_t rows,
                            kmath_xformLinear rect) {
        SamplingCall call = callOf(++count / 2 % 2 == 0 ? Operation::transform : Operation::project, width, height,
                                   pitch, columns, rows);
        call.params.rect = rect;
        call.params.rect.tx += random.between(0.6, 1.0);
        call.params.rect.ty += 0.6;
        EXPECT_GE(check(call), 0);
    };
    for (int32_t width = 9; width <= 24; ++width)
        for (int n = 0; n < 4; ++n)
            sample(width, 14, width, width + 1, 10, {0, 0, width - 2.0, 0.3, 0, 11.5});
    for (const double whole : {6 / 3.0, 7 / 3.0, 14 / 3.0, 15 / 3.0, 6.0, 7.0, 14.0, 15.0})
        for (int n = -12; n <= 12; ++n)
            sample(310, 14, 310, 19, 10, {0, 0, (whole + n / 50.0) * 19, 0.3, n % 3 / 60.0 * 19, 11.5});
    for (int rows = 8; rows <= 15; ++rows) // 16-bit rows of the destination 512 bytes apart
        sample(40, 260, 40, 256, rows, {26, 0, -4.5, -16.3, 250, 2.5});
    for (int n = 6; n <= 108; ++n) { // all numbers of rows, whole blocks and broken ones
        const int32_t columns = 16 + n % 5;
        const int32_t rows = 8 + n % 3 * 2;
        sample(40, 50, 512, columns, rows, {26, 0, -4.5, -16.3, n / 60.0 * columns, 2.5});
        sample(40, 60, 40, columns, rows, {2, 0, 26, 3, n / 140.0 * columns, n / 42.0 * rows});
    }
}

// Kernels of whole-pixel maps move vectors, lines of the cache, tiles of a line a side and groups of 8 x 8 of these.
TEST_P(SamplingModel, WholePixelsRoundVectorsLinesAndTiles)
{
    const auto &[bytes, mode] = GetParam();
    if (mode != kip_affineModeNearest)
        return;
    const int32_t line = 64 / bytes;
    const auto move = [&](int32_t width, int32_t height) {
        for (const Turn &turn : kTurns) {
            SamplingCall call = callOf(Operation::transformAligned, width, height,
                                       (width + random.between32(0, 1)) * random.pick({1, 1, -1}), 1, 1);
            call.alignCode = turn.code;
            const Extent extent = resultExtent(call);
            call.result.isBound = true;
            call.result.width = static_cast<int32_t>(extent.width);
            call.result.height = static_cast<int32_t>(extent.height);
            call.result.pitch = call.result.width + random.between32(0, 1);
            EXPECT_EQ(check(call), 0);
        }
    };
    for (const int32_t side : {line / 4, line / 2, line, 2 * line, 3 * line})
        for (const int32_t more : {-1, 0, 1})
            move(side + more, random.pick({1, 3, 4, 5, line - 1, line, line + 1, 2 * line, 65}));
    move(8 * line, 8 * line);
    move(9 * line + 1, line + 1);
    move(line + 1, 9 * line + 1);
}

// Sums of rows: so few that the vectors of four are added up together, and longer ones.
TEST_P(SamplingModel, SumsOfShortRows)
{
    const auto &[bytes, mode] = GetParam();
    if (bytes == 2 || mode != kip_affineModeNearest)
        return;
    for (const int32_t width : {1, 15, 16, 17, 31, 32, 33, 63, 64, 65, 100, 511, 512, 513}) {
        for (int32_t height = 3; height <= 9; ++height) {
            SamplingCall call = callOf(Operation::sumWindow, width, height, width + height % 2, 1, 1);
            call.result = {true, height, 1, height};
            call.isWhite = width % 2 == 0;
            EXPECT_EQ(check(call), 0);
        }
    }
}

// What leaves the caches is walked in stretches, in tiles cut into slices, with the next tile asked for: tiles of 96
// and of 48 rows whose last stretch, tile and slice are shorter, level and steep.
TEST_P(SamplingModel, LargerThanTheCaches)
{
    const auto &[bytes, mode] = GetParam();
    const struct {
        Operation operation;
        int32_t pitch, columns, rows;
        kmath_xformLinear rect;
    } samplings[] = {
        {Operation::transform, 2003, 1301, 2003, {100.3, 100.6, 1780, -60, 95, 3300}},
        {Operation::transform, 3301, 2003, 1301, {1900.3, 150.6, -60, -1780, 3300, -50}},
        {Operation::project, 2003, 2003, 1301, {1900.3, 150.6, -60, -1780, 3300, -50}},
    };
    for (const auto &[operation, pitch, columns, rows, rect] : samplings) {
        if (operation == Operation::project && mode != kip_affineModeNearest)
            continue;
        SamplingCall call = callOf(operation, 1990, 3600, pitch, columns, rows / bytes);
        call.params.rect = {rect.tx, rect.ty, rect.e0, rect.e1 / bytes, rect.e2, rect.e3 / bytes};
        EXPECT_GE(check(call), 0);
    }
}

// The modes with tables cut tiles into smaller groups of rows as steps grow, up to 4.25, and then make the samples of
// each pixel alone. Steps on both sides of these limits, in all four directions, in sources that are just large enough.
TEST_P(SamplingModel, CoarseStepsInSourcesThatJustFit)
{
    const auto &[bytes, mode] = GetParam();
    if (mode <= kip_affineModeBilinear)
        return;
    const double margin = mode == kip_affineModeBicubic ? 2.5 : 1.5; // from a sample's centre to the source's edge
    for (int n = 0; n < 300 && !HasFailure(); ++n) {
        const bool isLarge = n == 0; // so that tiles are read ahead of their rows
        const int32_t columns = isLarge ? 210 : random.pick({16, 40, 65, 96, 101, 110});
        const int32_t rows = isLarge ? 260 : random.between32(2, 37);
        const double along =
            (isLarge ? 8.0 : random.pick({1.0, 1.87, 1.88, 2.0, 2.02, 3.0, 4.24, 4.26, 8.0})) * (columns - 1);
        const double across = (isLarge ? 8.0 : random.pick({1.0, 1.87, 1.88, 2.02, 3.0, 4.24, 4.26, 8.0})) * (rows - 1);
        const double shear = random.pick({0.0, 0.25, -0.25, 0.999, -0.999}) * along; // of a row across itself
        const double lean = random.between(-1.0, 1.0) * across;                      // of a column along the rows
        const double length = along + std::abs(lean) + 2 * margin + 0.02;
        const double breadth = across + std::abs(shear) + 2 * margin + 0.02;
        const auto primary = static_cast<int32_t>(std::ceil(length)) + 1;
        const auto secondary = static_cast<int32_t>(std::ceil(breadth)) + 1;
        const bool isTurned = random.oneIn(2);
        const bool isMirrored = random.oneIn(2);
        const double spare = random.oneIn(2) ? 1.0 : 0.0; // at one end or the other
        const auto center = [&](double p, double s) {
            const double q = p + std::max(0.0, -lean) + margin + 0.01 + spare * (primary - 1 - length);
            const double t = s + std::max(0.0, -shear) + margin + 0.01 + spare * (secondary - 1 - breadth);
            const double r = isMirrored ? primary - 1 - q : q;
            return isTurned ? kmath_vect{t, r} : kmath_vect{r, t};
        };
        const int32_t width = isTurned ? secondary : primary;
        const int32_t height = isTurned ? primary : secondary;
        // Offsets are found by multiplying words where the pitch is one.
        const bool isLong = random.oneIn(3) && height * bytes < 400; // what the harness has memory for
        const int32_t pitch = isLong ? random.pick({-0x7FFF, -0x8000, -0x8001}) : random.pick({width, -width});
        SamplingCall call = callOf(random.oneIn(3) && bytes == 1 ? Operation::project : Operation::transform, width,
                                   height, pitch, columns, rows);
        placeCorners({center(0.0, 0.0), center(along, shear), center(lean, across)}, &call);
        EXPECT_GE(check(call), 0);
    }
}

// ---- Sources beyond 16.16 ------------------------------------------------------------------------------------------

// 16.16 positions from a tile's own pixel reach 32767 pixels. A tile spreads over both its sides, in source pixels,
// whatever a client unit is; where that is more, or a side is as many client units, doubles walk.
TEST(LargeSources, TilesThatSpreadTooFar)
{
    constexpr auto kRebased = ModelWalker::rebased;
    constexpr auto kInDoubles = ModelWalker::inDoubles;
    const double far = 69990.0;
    const struct {
        const char *name;
        double clientScale; // source pixels to one client unit
        int32_t columns, rows;
        CornerCenters corners;
        ModelWalker walker;
    } rows[] = {
        {"fine steps", 1.0, 5000, 3, {{1.0, 1.0}, {far, 2.0}, {1.5, 8.0}}, kRebased},
        {"mirrored coarse steps", 1.0, 60, 3, {{far, 1.0}, {1.0, 2.0}, {far, 8.0}}, kInDoubles},
        {"coarse steps, worth jobs", 1.0, 101, 701, {{1.3, 1.1}, {far, 2.2}, {1.9, 7.9}}, kInDoubles},
        {"large client units", 1000.0, 60, 3, {{1.0, 1.0}, {far, 2.0}, {1.5, 8.0}}, kInDoubles},
        {"small client units", 0.001, 3000, 3, {{1.0, 1.0}, {far, 2.0}, {1.5, 8.0}}, kInDoubles},
        {"sheared", 1.0, 64, 64, {{1.0, 1.0}, {25000.0, 4.0}, {26000.0, 5.0}}, kInDoubles},
        {"sheared less", 1.0, 64, 64, {{1.0, 1.0}, {15000.0, 4.0}, {16000.0, 5.0}}, kRebased},
        {"sheared back", 1.0, 64, 64, {{30000.0, 1.0}, {55000.0, 4.0}, {4000.0, 5.0}}, kRebased},
        {"enormous side of one column", 1.0, 1, 50, {{3.0, 1.0}, {}, {60000.0, 8.0}, {1e9, 0}}, kInDoubles},
        {"enormous side of one row", 1.0, 50, 1, {{3.0, 4.0}, {60.0, 8.0}, {}, {0, -1e9}}, kInDoubles},
    };
    const CallMemory memory{};
    const kimg_windowConst window = {70000, 10, 0, 0, 0, 0, 70000, 10, 70001, nullptr, 1};
    ksys_jobThreadGroup_setThreadCount(3);
    ksys_jobThreadGroup_setSplitAll(1);
    for (const auto &row : rows) {
        for (const auto &[mode, operation] : {std::pair{kip_affineModeNearest, Operation::transform},
                                              {kip_affineModeBilinear, Operation::transform},
                                              {kip_affineModeBilinear, Operation::project}}) {
            SCOPED_TRACE(row.name);
            SamplingCall call = {operation, 1, window.width, window.height, window.pitch};
            call.srcFromClient = {0.0, 0.0, row.clientScale, 0.0, 0.0, row.clientScale};
            call.params = {{}, mode, row.columns, row.rows};
            placeCorners(row.corners, &call);
            EXPECT_EQ(modelWalker(window, call.srcFromClient, call.params), row.walker);
            const Outcome outcome = runCall(call, memory, nullptr, Check::meaning);
            EXPECT_EQ(outcome.fault, "");
            EXPECT_EQ(outcome.status, 0);
        }
    }
    ksys_jobThreadGroup_setThreadCount(0);
    ksys_jobThreadGroup_setSplitAll(0);
}

// 4.9 * 10^9 pixels, of which only the sampled rows are memory: offsets into them take 64 bits.
TEST(LargeSources, FarCornerBeyond32BitOffsets)
{
    constexpr int32_t kSize = 70001;
    constexpr size_t kUsed = size_t{kSize} * 60;
    const GuardedMemory sourceMemory(size_t{kSize} * kSize, size_t{kSize} * kSize - kUsed, kUsed);
    Random random(30900);
    for (uint8_t *at = sourceMemory.begin(); at < sourceMemory.end(); ++at)
        *at = static_cast<uint8_t>(random.next() >> 40);
    const kimg_windowConst window = {kSize, kSize, 0, 0, 0, 0, kSize, kSize, kSize, sourceMemory.origin(), 1};
    for (const uint32_t mode : {kip_affineModeNearest, kip_affineModeBilinear}) {
        for (const double reach : {50.0, 40000.0}) { // the rebased walker, and the one in doubles
            const double edge = kSize - 2.0;
            const kip_affineSampleParams params = {{edge, edge, -reach, -1.5, -15.5, -39.0}, mode, 61, 70};
            std::vector<uint8_t> result(61 * 70);
            const Image source(1, kSize, kSize, kSize, sourceMemory.origin());
            Image destination(1, 61, 70, 61, result.data());
            noteForCrash("far corner");
            EXPECT_EQ(kip_affineTransform(source.get(), destination.get(), &params, nullptr), 0);
            const auto expected = resampleSlowly(window, {0, 0, 1, 0, 0, 1}, params, true);
            EXPECT_TRUE(std::equal(expected.begin(), expected.end(), result.begin()));
        }
    }
}

// The second row begins 2^31 - 1 bytes behind the first, whose tile counts from there.
TEST(LargeSources, RowsFartherApartThan32BitsCount)
{
    constexpr int32_t kWidth = 60, kPitch = INT32_MAX;
    const GuardedMemory sourceMemory(size_t{kPitch} + kWidth, 0, kWidth);
    sourceMemory.alsoUse(kPitch, kWidth);
    for (uint8_t x = 0; x < kWidth; ++x) {
        sourceMemory.origin()[x] = x;
        sourceMemory.origin()[size_t{kPitch} + x] = static_cast<uint8_t>(x + 100);
    }
    const kimg_windowConst window = {kWidth, 2, 0, 0, 0, 0, kWidth, 2, kPitch, sourceMemory.origin(), 1};
    const kip_affineSampleParams params = {{1.2, 0.1, 50.0, 0.0, 0.0, 1.8}, kip_affineModeNearest, 21, 10};
    std::vector<uint8_t> result(21 * 10);
    const Image source(1, kWidth, 2, kPitch, sourceMemory.origin());
    Image destination(1, 21, 10, 21, result.data());
    noteForCrash("rows far apart");
    EXPECT_EQ(kip_affineTransform(source.get(), destination.get(), &params, nullptr), 0);
    const auto expected = resampleSlowly(window, {0, 0, 1, 0, 0, 1}, params, true);
    EXPECT_TRUE(std::equal(expected.begin(), expected.end(), result.begin()));
}

} // namespace

} // namespace kip::test
