// The kernels and their variants: each is held equal, to the bit, to the kernel that defines the result.
// A new variant is a line in the table below; a kernel with other arguments first gets a family of its own.

#include <algorithm>
#include <cmath>
#include <ostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <ksys/ksys.h>

#include "support/twin_harness.h"
#include "transform/tile_kernels.h"

namespace kip::test {

void PrintTo(const Twin &twin, std::ostream *out)
{
    *out << twin.name;
}

namespace {

// ---- Tile kernels --------------------------------------------------------------------------------------------

// The positions of a tile along one axis, in 16.16 units, and a source that just holds them.
struct TileAxis {
    int64_t start, rowStep, colStep;
    int64_t base;
    int32_t size;
};

// Tiles whose neighbourhoods all lie inside the source, many of them reaching its outermost pixels.
//   reach, shift   the neighbourhood, as in TileKernels
template <typename PixelType, typename Position, typename ElementType>
struct TileFamily {
    using Pixel = PixelType;
    using Element = ElementType;
    static constexpr bool kAdds = !std::is_same_v<Pixel, Element>;
    static constexpr bool kInDoubles = std::is_same_v<Position, double>;

    struct Call {
        Tile<Position> tile;
        SourceBounds bounds;
        int32_t sourcePitch, destinationPitch;
    };

    int32_t reach;
    Position shift;

    Call draw(Random &random, int32_t width, int32_t rows) const
    {
        static constexpr int32_t kMostPixels[][2] = {{3000, 2}, {300, 40}, {40, 300}, {2, 1500}, {0, 0}};
        const auto &most = kMostPixels[random.next() % std::size(kMostPixels)];
        const TileAxis x = drawAxis(random, width, rows, most[0]);
        const TileAxis y = drawAxis(random, width, rows, most[1]);
        const int32_t sourcePitch = (x.size + random.between32(0, 3)) * random.sign();
        const int32_t destinationPitch = (width + random.between32(0, 3)) * random.sign();
        // Doubles are seldom whole 16.16 units; a step this little shorter stays where the whole one does.
        const double part = kInDoubles && random.oneIn(2) ? 1.0 - 1e-9 : 1.0;
        return {{position(x.start), position(y.start), position(x.rowStep, part), position(y.rowStep, part),
                 position(x.colStep, part), position(y.colStep, part), width, rows},
                {x.base, y.base, x.size, y.size},
                sourcePitch,
                destinationPitch};
    }
    Shape shape(const Call &call) const
    {
        return {call.bounds.width, call.bounds.height,         call.sourcePitch,
                call.tile.width,   kAdds ? 1 : call.tile.rows, call.destinationPitch};
    }

private:
    static Position position(int64_t units, [[maybe_unused]] double part = 1.0)
    {
        if constexpr (kInDoubles)
            return static_cast<double>(units) / 65536.0 * part;
        else
            return static_cast<int32_t>(static_cast<uint32_t>(units));
    }
    // A step between count pixels that moves over about span; any step at all where it is never taken.
    static int64_t drawStep(Random &random, int32_t count, int64_t span)
    {
        if (count < 2)
            return random.between(INT32_MIN, INT32_MAX);
        static constexpr int64_t kSteps[] = {0, 1, 0x8000, 0xFFFF, 0x10000, 0x10001};
        const int64_t step = random.oneIn(4) ? random.pick(kSteps) : span / (count - 1);
        return random.sign() * std::min(step, span / (count - 1));
    }
    TileAxis drawAxis(Random &random, int32_t width, int32_t rows, int32_t mostPixels) const
    {
        const int64_t span = random.between(0, int64_t{mostPixels} << 16);
        const int64_t share = random.between(0, span);
        TileAxis axis;
        axis.colStep = drawStep(random, width, share);
        axis.rowStep = drawStep(random, rows, span - share);
        const int64_t across = (width - 1) * axis.colStep;
        const int64_t down = (rows - 1) * axis.rowStep;
        const int64_t least = std::min<int64_t>(across, 0) + std::min<int64_t>(down, 0);
        const int64_t greatest = std::max<int64_t>(across, 0) + std::max<int64_t>(down, 0);
        const int64_t offset = random.oneIn(2) ? 0 : random.between(0, 2 << 16);
        const int64_t shiftUnits =
            kInDoubles ? std::llround(static_cast<double>(shift) * 65536.0) : static_cast<int64_t>(shift);
        axis.start = shiftUnits + offset - least;
        axis.size = static_cast<int32_t>((greatest - least + offset) >> 16) + 1 + reach + random.between32(0, 1);
        // Fixed-point positions may count from any pixel of the source.
        axis.base = kInDoubles || random.oneIn(2) ? 0 : random.between(0, axis.size - 1);
        axis.start -= axis.base << 16;
        return axis;
    }
};

// Makes both kinds of tile kernel functions of a call.
template <typename Family>
struct AdaptTileKernel {
    using Call = typename Family::Call;
    using Pixel = typename Family::Pixel;
    using Element = typename Family::Element;
    using Position = decltype(Call::tile.x);

    TwinKernel<Family> operator()(TileKernel<Pixel, Position> kernel) const
    {
        return [kernel](const Call &call, const Pixel *source, Element *destination) {
            const Pixel *const base = source + call.bounds.baseY * call.sourcePitch + call.bounds.baseX;
            return kernel(call.tile, base, call.sourcePitch, destination, call.destinationPitch);
        };
    }
    TwinKernel<Family> operator()(BoundedTileKernel<Pixel, Position> kernel) const
    {
        return [kernel](const Call &call, const Pixel *source, Element *destination) {
            return kernel(call.tile, source, call.sourcePitch, call.bounds, destination, call.destinationPitch);
        };
    }
};

template <typename Element, typename Pixel, typename Position>
Twin boundedTwin(const std::string &name, TileKernel<Pixel, Position> kernel, TileKernels<Pixel, Position> kernels)
{
    using Family = TileFamily<Pixel, Position, Element>;
    Twin twin = makeTwin(name + "Bounded", 0, Family{kernels.reach, kernels.shift}, AdaptTileKernel<Family>(), kernel,
                         kernels.bounded);
    twin.isVariant = twin.isVariant && kernels.inside == kernel; // else it is the twin of another kernel
    return twin;
}

// ---- The table -------------------------------------------------------------------------------------------------

std::vector<Twin> listTwins()
{
    return {
        boundedTwin<uint8_t>("TransformTileNearest8", kip_affineTransformTileNearest8Portable, fixedTileKernels8(0, 0)),
        boundedTwin<uint8_t>("TransformTileBilinear8", kip_affineTransformTileBilinearAccurate8Portable,
                             fixedTileKernels8(0, 1)),
        boundedTwin<uint32_t>("ProjectTileNearest8", kip_affineProjectTileNearest8Portable, fixedTileKernels8(1, 0)),
        boundedTwin<uint32_t>("ProjectTileBilinear8", kip_affineProjectTileBilinearAccurate8Portable,
                              fixedTileKernels8(1, 1)),
        boundedTwin<uint8_t>("TransformTileNearest8Double", kip_affineTransformTileNearest8DoublePortable,
                             doubleTileKernels8(0, 0)),
        boundedTwin<uint8_t>("TransformTileBilinear8Double", kip_affineTransformTileBilinearAccurate8DoublePortable,
                             doubleTileKernels8(0, 1)),
        boundedTwin<uint32_t>("ProjectTileNearest8Double", kip_affineProjectTileNearest8DoublePortable,
                              doubleTileKernels8(1, 0)),
        boundedTwin<uint32_t>("ProjectTileBilinear8Double", kip_affineProjectTileBilinearAccurate8DoublePortable,
                              doubleTileKernels8(1, 1)),
        boundedTwin<uint16_t>("TransformTileNearest16", kip_affineTransformTileNearest16Portable,
                              fixedTileKernels16(0, 0)),
        boundedTwin<uint16_t>("TransformTileBilinear16", kip_affineTransformTileBilinearAccurate16Portable,
                              fixedTileKernels16(0, 1)),
        boundedTwin<uint32_t>("ProjectTileNearest16", kip_affineProjectTileNearest16Portable, fixedTileKernels16(1, 0)),
        boundedTwin<uint32_t>("ProjectTileBilinear16", kip_affineProjectTileBilinearAccurate16Portable,
                              fixedTileKernels16(1, 1)),
    };
}

class TwinTest : public testing::TestWithParam<Twin> {};

TEST_P(TwinTest, GivesTheSameBits)
{
    const Twin &twin = GetParam();
    ASSERT_TRUE(twin.isVariant) << "compared with itself, or with another kernel's definition";
    ksys_cpuinfo processor;
    ASSERT_EQ(ksys_cpuinfo_init(&processor), 0);
    if ((processor.features & twin.features) != twin.features)
        GTEST_SKIP() << "this processor lacks features " << (twin.features & ~processor.features);
    EXPECT_EQ(runTwin(twin, 20401), "");
}

INSTANTIATE_TEST_SUITE_P(Kernels, TwinTest, testing::ValuesIn(listTwins()),
                         [](const auto &test) { return test.param.name; });

// ---- The harness itself ----------------------------------------------------------------------------------------

// Kernels that copy rows, some of them wrongly.
struct CopyFamily {
    using Pixel = uint8_t;
    using Element = uint8_t;
    using Call = Shape;

    Call draw(Random &random, int32_t width, int32_t rows) const
    {
        return {width, rows, width + random.between32(1, 3), width, rows, width + random.between32(1, 3)};
    }
    Shape shape(const Call &call) const { return call; }
};

using CopyKernel = int32_t (*)(const Shape &shape, const uint8_t *source, uint8_t *destination);

int32_t copyRows(const Shape &shape, const uint8_t *source, uint8_t *destination)
{
    for (int32_t y = 0; y < shape.rows; ++y)
        std::copy_n(source + y * shape.sourcePitch, shape.width, destination + y * shape.pitch);
    return 0;
}

int32_t copyRowsAgain(const Shape &shape, const uint8_t *source, uint8_t *destination)
{
    return copyRows(shape, source, destination);
}

int32_t copyWithAWrongBit(const Shape &shape, const uint8_t *source, uint8_t *destination)
{
    copyRows(shape, source, destination);
    if (shape.width == 129 && shape.rows == 5)
        destination[4 * shape.pitch + 128] ^= 1;
    return 0;
}

int32_t copyAndFail(const Shape &shape, const uint8_t *source, uint8_t *destination)
{
    return copyRows(shape, source, destination) - 1;
}

int32_t copyOnePixelMore(const Shape &shape, const uint8_t *source, uint8_t *destination)
{
    copyRows(shape, source, destination);
    destination[(shape.rows - 1) * shape.pitch + shape.width] = 1;
    return 0;
}

int32_t copyOnePixelBefore(const Shape &shape, const uint8_t *source, uint8_t *destination)
{
    copyRows(shape, source, destination);
    destination[-1] = 1;
    return 0;
}

int32_t copyIntoTheGap(const Shape &shape, const uint8_t *source, uint8_t *destination)
{
    copyRows(shape, source, destination);
    if (shape.rows > 1)
        destination[shape.width] = 1;
    return 0;
}

int32_t readBehind(const Shape &shape, const uint8_t *source, uint8_t *destination)
{
    const volatile uint8_t *const stray = source + (shape.rows - 1) * shape.sourcePitch + shape.width;
    static_cast<void>(*stray);
    return copyRows(shape, source, destination);
}

int32_t readBefore(const Shape &shape, const uint8_t *source, uint8_t *destination)
{
    const volatile uint8_t *const stray = source - 1;
    static_cast<void>(*stray);
    return copyRows(shape, source, destination);
}

Twin copyTwin(CopyKernel variant, CopyKernel definition = copyRows)
{
    return makeTwin(
        "Copy", 0, CopyFamily(), [](CopyKernel kernel) { return TwinKernel<CopyFamily>(kernel); }, definition, variant);
}

std::string compareCopies(CopyKernel variant, Guard guard)
{
    const TwinMemory memory;
    const TwinCase c = {1, 40, 3, Pattern::random, guard, guard};
    noteForCrash(describe("Copy", c));
    return copyTwin(variant).compare(c, memory);
}

TEST(TwinHarness, AcceptsATwin)
{
    EXPECT_TRUE(copyTwin(copyRowsAgain).isVariant);
    EXPECT_EQ(runTwin(copyTwin(copyRowsAgain), 1), "");
}

TEST(TwinHarness, KnowsTheDefinitionItself)
{
    EXPECT_FALSE(copyTwin(copyRows).isVariant);
}

TEST(TwinHarness, ReportsOneWrongBit)
{
    const std::string failure = runTwin(copyTwin(copyWithAWrongBit), 1);
    EXPECT_NE(failure.find("Copy, seed "), std::string::npos) << failure;
    EXPECT_NE(failure.find("129 x 5"), std::string::npos) << failure;
    EXPECT_NE(failure.find("at (128, 4) "), std::string::npos) << failure;
    EXPECT_NE(failure.find(" instead of "), std::string::npos) << failure;
}

TEST(TwinHarness, ReportsAnotherStatus)
{
    EXPECT_NE(runTwin(copyTwin(copyAndFail), 1).find("status -1 instead of 0"), std::string::npos);
}

TEST(TwinHarness, ReportsWritesOutsideTheRows)
{
    EXPECT_NE(compareCopies(copyOnePixelMore, Guard::before).find("stray write"), std::string::npos);
    EXPECT_NE(compareCopies(copyOnePixelBefore, Guard::behind).find("stray write"), std::string::npos);
    EXPECT_NE(compareCopies(copyIntoTheGap, Guard::before).find("stray write"), std::string::npos);
    EXPECT_NE(runTwin(copyTwin(copyRows, copyIntoTheGap), 1).find("definition: stray write"), std::string::npos);
}

TEST(TwinHarnessDeathTest, EndsAtAGuardPageAndTellsTheCase)
{
    EXPECT_DEATH(compareCopies(copyOnePixelMore, Guard::behind), "crashed in: Copy, seed 1, 40 x 3");
    EXPECT_DEATH(compareCopies(copyOnePixelBefore, Guard::before), "crashed in: Copy, seed 1, 40 x 3");
    EXPECT_DEATH(compareCopies(readBehind, Guard::behind), "crashed in: Copy, seed 1, 40 x 3");
    EXPECT_DEATH(compareCopies(readBefore, Guard::before), "crashed in: Copy, seed 1, 40 x 3");
    EXPECT_DEATH(runTwin(copyTwin(readBehind), 1), "crashed in: Copy, seed");
}

} // namespace

} // namespace kip::test
