// Whatever the numbers: no kernel reads outside the source's memory or writes outside the destination. Sources
// and destinations lie between unreadable pages here, and where the numbers still mean something the result is
// held against the slow model.

#include <cmath>
#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/crash_note.h"
#include "support/slow_model.h"
#include "support/transform_case.h"
#include "support/twin_harness.h"
#include "transform/resample.h"
#include "transform/tile_walkers.h"

namespace kip::test {

namespace {

// ---- The walkers, given what the clipping test would refuse --------------------------------------------------------

enum class AnyWalker { fixed8, rebased8, inDoubles8, fixed16 };

struct WalkerCase {
    AnyWalker walker;
    uint32_t accumulate, mode;
    kimg_windowConst source;
    kmath_xformLinear srcFromClient;
    kip_affineSampleParams params;
    int32_t tileSize;
    int32_t bandRow, bandHeight; // of the destination; 0 and its height without a band
};

std::string describe(const WalkerCase &c)
{
    std::ostringstream text;
    text.precision(17);
    const kmath_xformLinear &r = c.params.rect;
    text << "walker " << static_cast<int>(c.walker) << ", accumulate " << c.accumulate << ", mode " << c.mode
         << ", source " << c.source.width << " x " << c.source.height << " pitch " << c.source.pitch << ", rect {"
         << r.tx << ", " << r.ty << ", " << r.e0 << ", " << r.e1 << ", " << r.e2 << ", " << r.e3 << "} onto "
         << c.params.destWidth << " x " << c.params.destHeight << ", band " << c.bandRow << " + " << c.bandHeight
         << ", tiles " << c.tileSize;
    return text.str();
}

int32_t walk(const WalkerCase &c, const kimg_window &destination)
{
    switch (c.walker) {
    case AnyWalker::fixed8:
        return walkTiles8(c.accumulate, c.source, c.srcFromClient, destination, c.params, c.tileSize,
                          fixedTileKernels8(c.accumulate, c.mode));
    case AnyWalker::rebased8:
        return walkTilesRebased8(c.accumulate, c.source, c.srcFromClient, destination, c.params, c.tileSize,
                                 fixedTileKernels8(c.accumulate, c.mode));
    case AnyWalker::inDoubles8:
        return walkTilesDouble8(c.accumulate, c.source, c.srcFromClient, destination, c.params, c.tileSize,
                                doubleTileKernels8(c.accumulate, c.mode));
    default:
        return walkTiles16(c.accumulate, c.source, c.srcFromClient, destination, c.params, c.tileSize,
                           fixedTileKernels16(c.accumulate, c.mode));
    }
}

SlowModel modelOf(const WalkerCase &c)
{
    const ModelWalker walker = c.walker == AnyWalker::rebased8     ? ModelWalker::rebased
                               : c.walker == AnyWalker::inDoubles8 ? ModelWalker::inDoubles
                                                                   : ModelWalker::fixed;
    SlowModel model = makeSlowModel(c.source, c.srcFromClient, c.params, walker, c.tileSize);
    model.mode = c.mode;
    return model;
}

// Whether start, steps and tile steps fit the walker's numbers, so that the model says what comes out.
bool isModelled(const SlowModel &m, const WalkerCase &c)
{
    if (c.walker == AnyWalker::inDoubles8 && c.bandRow > 0)
        return false; // starts a last bit away
    const double limit = c.walker == AnyWalker::inDoubles8 ? 1e9 : 32000.0;
    double greatest = 0.0;
    for (const double v : {m.start.x, m.start.y, m.rowStep.x * c.tileSize, m.rowStep.y * c.tileSize,
                           m.colStep.x * c.tileSize, m.colStep.y * c.tileSize})
        greatest = std::max(greatest, std::fabs(v));
    return greatest < limit;
}

// Runs a walker on a destination of which only the rows of the band are memory. Pixel: the source's; Element:
// the destination's.
template <typename Pixel, typename Element>
std::string checkWalker(WalkerCase c, const GuardedMemory &destinationMemory, Random &random, bool *isCompared)
{
    const int32_t columns = c.params.destWidth;
    const int32_t rows = c.accumulate != 0 ? 1 : c.bandHeight;
    const int32_t pitch = columns + random.between32(0, 2);
    const auto band = placeRows<Element>(destinationMemory, random.pick(kGuards), columns, rows, pitch);
    putCanaries(destinationMemory, band);
    for (int32_t y = 0; y < rows; ++y)
        std::fill_n(band.row(y), columns, Element{0});
    Element *const first = c.accumulate != 0 ? band.first : band.first - int64_t{c.bandRow} * pitch;
    const kimg_window destination = {columns, c.bandHeight, 0, 0, 0, -c.bandRow, 0, 0, pitch, first, sizeof(Element)};

    const std::string description = describe(c);
    noteForCrash(description);
    const int32_t status = walk(c, destination);
    const std::string damage = findDeadCanary(destinationMemory, band);
    if (!damage.empty())
        return description + ": " + damage;
    const SlowModel model = modelOf(c);
    *isCompared = status >= 0 && isModelled(model, c);
    if (!*isCompared)
        return "";
    for (int32_t x = 0; x < columns; ++x) {
        uint32_t sum = 0;
        for (int32_t y = 0; y < (c.accumulate != 0 ? c.params.destHeight : rows); ++y) {
            const uint32_t sample = sampleSlowly(model, x, c.bandRow + y);
            sum += sample;
            if (c.accumulate == 0 && band.row(y)[x] != sample)
                return description + ": at (" + std::to_string(x) + ", " + std::to_string(y) + ") " +
                       std::to_string(band.row(y)[x]) + " instead of " + std::to_string(sample);
        }
        if (c.accumulate != 0 && band.first[x] != sum)
            return description + ": sum " + std::to_string(x) + " is " + std::to_string(band.first[x]) +
                   " instead of " + std::to_string(sum);
    }
    return "";
}

template <typename Pixel>
void checkWalkers(std::vector<AnyWalker> walkers, uint64_t seed)
{
    const GuardedMemory sourceMemory(1 << 16);
    const GuardedMemory destinationMemory(1 << 20);
    Random random(seed);
    int compared = 0;
    constexpr int kCases = 6000;
    for (int n = 0; n < kCases; ++n) {
        WalkerCase c = {};
        c.walker = walkers[static_cast<size_t>(n) % walkers.size()];
        c.accumulate = static_cast<uint32_t>(random.between(0, 1));
        c.mode = static_cast<uint32_t>(random.between(0, 1));
        const int32_t width = random.between32(1, 60);
        const int32_t height = random.between32(1, 60);
        const int32_t pitch = (width + random.between32(0, 2)) * random.sign();
        const auto source = placeRows<Pixel>(sourceMemory, random.pick(kGuards), width, height, pitch);
        fillPixels(source, Pattern::random, random);
        c.source = {width,        height,       random.between32(-9, 9), random.between32(-9, 9), 0, 0, 0, 0, pitch,
                    source.first, sizeof(Pixel)};
        c.srcFromClient = {0.0, 0.0, 1.0, 0.0, 0.0, 1.0};
        static constexpr int32_t kTileSizes[] = {48, 64, 96, 224};
        c.tileSize = random.pick(kTileSizes);
        c.params.mode = c.mode;
        c.params.destWidth = random.between32(1, 150);
        c.params.destHeight = random.oneIn(10) ? random.between32(60, 300) : random.between32(1, 70);
        if (random.oneIn(40))
            (random.oneIn(2) ? c.params.destWidth : c.params.destHeight) = random.between32(1020, 1100);
        c.bandHeight = c.params.destHeight;
        if (c.params.destHeight > c.tileSize && c.accumulate == 0 && random.oneIn(2)) {
            c.bandRow = c.tileSize * random.between32(1, (c.params.destHeight - 1) / c.tileSize);
            c.bandHeight = std::min(c.tileSize, c.params.destHeight - c.bandRow);
        }
        // From just outside the source to far beyond what the walkers' numbers hold.
        static constexpr double kReaches[] = {60.0, 400.0, 40000.0, 1e7, 1e12, 1e20, 1e300};
        const double reach = random.pick(kReaches);
        const auto element = [&] { return random.between(-reach, reach) * (random.oneIn(3) ? 1e-3 : 1.0); };
        c.params.rect = {element(), element(), element(), element(), element(), element()};
        bool isCompared = false;
        const std::string failure = c.accumulate != 0
                                        ? checkWalker<Pixel, uint32_t>(c, destinationMemory, random, &isCompared)
                                        : checkWalker<Pixel, Pixel>(c, destinationMemory, random, &isCompared);
        ASSERT_EQ(failure, "");
        compared += isCompared ? 1 : 0;
    }
    EXPECT_GT(compared, kCases / 4);
}

TEST(MemorySafety, WalkersOfAnyGeometry8)
{
    checkWalkers<uint8_t>({AnyWalker::fixed8, AnyWalker::rebased8, AnyWalker::inDoubles8}, 50300);
}

TEST(MemorySafety, WalkersOfAnyGeometry16)
{
    checkWalkers<uint16_t>({AnyWalker::fixed16}, 50400);
}

// The optimised path's refusal comes before its first write.
TEST(MemorySafety, TheFastPathDeclinesWithoutATrace)
{
    for (const bool isWide : {true, false}) {
        std::vector<uint8_t> source(3 * 32768);
        uint8_t destination[] = {77, 77, 77, 77};
        const kimg_windowConst from = {3, isWide ? 3 : 32768, 0, 0, 0, 0, 3, 3, isWide ? 32768 : 3, source.data(), 1};
        const kimg_window to = {2, 2, 0, 0, 0, 0, 2, 2, 2, destination, 1};
        const kip_affineSampleParams params = {{0.25, 0.25, 2, 0, 0, 2}, kip_affineModeBilinear, 2, 2};
        kip_affineSampleCache cache;
        kip_affineSampleCache_initLocal(&cache);
        EXPECT_EQ(resampleFast8(0, from, {0, 0, 1, 0, 0, 1}, to, params, cache),
                  int32_t{kip_statusOptimizationDeclined});
        EXPECT_FALSE(isServedByFast8(from));
        for (const uint8_t pixel : destination)
            EXPECT_EQ(pixel, 77);
    }
}

} // namespace

} // namespace kip::test
