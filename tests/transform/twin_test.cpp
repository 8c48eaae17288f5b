// The kernels and their variants: each is held equal, to the bit, to the kernel that defines the result.
// A new variant is a line in the table below; a kernel with other arguments first gets a family of its own.

#include <algorithm>
#include <cmath>
#include <iterator>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <ksys/ksys.h>

#include "cache/cubic_weight_table.h"
#include "support/target_region.h"
#include "support/twin_harness.h"
#include "transform/aligned_rows.h"
#include "transform/plan_rows_x86.h"
#include "transform/tile_kernels.h"
#include "transform/tile_kernels_x86.h"
#include "transform/tile_sampling.h"

namespace kip::test {

void PrintTo(const Twin &twin, std::ostream *out)
{
    *out << twin.name;
}

namespace {

// A twin of a family that knows how to call its kernels:
//   run(kernel, call, source, destination)   returns a status
//   kDefinition                              the kernel that defines the result, if there is only one
template <typename Family, typename Definition, typename Variant>
Twin twinOf(const std::string &name, uint32_t features, const Family &family, Definition definition, Variant variant)
{
    const auto adapt = [](auto kernel) {
        return
            [kernel](const typename Family::Call &call, const typename Family::Pixel *source,
                     typename Family::Element *destination) { return Family::run(kernel, call, source, destination); };
    };
    return makeTwin(name, features, family, adapt, definition, variant);
}

template <typename Family>
Twin twinOf(const std::string &name, uint32_t features, decltype(Family::kDefinition) variant)
{
    return twinOf(name, features, Family{}, Family::kDefinition, variant);
}

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
        const auto [x, y] = random.oneIn(2) ? drawStretched(random, width, rows) : drawTurned(random, width, rows);
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
    static int32_t run(TileKernel<Pixel, Position> kernel, const Call &call, const Pixel *source, Element *destination)
    {
        const Pixel *const base = source + call.bounds.baseY * call.sourcePitch + call.bounds.baseX;
        return kernel(call.tile, base, call.sourcePitch, destination, call.destinationPitch);
    }
    static int32_t run(BoundedTileKernel<Pixel, Position> kernel, const Call &call, const Pixel *source,
                       Element *destination)
    {
        return kernel(call.tile, source, call.sourcePitch, call.bounds, destination, call.destinationPitch);
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
    // Axes of any two scales.
    std::pair<TileAxis, TileAxis> drawStretched(Random &random, int32_t width, int32_t rows) const
    {
        static constexpr int32_t kMostPixels[][2] = {{3000, 2}, {300, 40}, {40, 300}, {2, 1500}, {0, 0}};
        const auto &most = kMostPixels[random.next() % std::size(kMostPixels)];
        const auto draw = [&](int32_t mostPixels) {
            const int64_t span = random.between(0, int64_t{mostPixels} << 16);
            const int64_t share = random.between(0, span);
            return axisOf(random, drawStep(random, width, share), drawStep(random, rows, span - share), width, rows);
        };
        const TileAxis x = draw(most[0]);
        return {x, draw(most[1])};
    }
    // A turned square grid about as fine as the source's: what kernels are fast at.
    std::pair<TileAxis, TileAxis> drawTurned(Random &random, int32_t width, int32_t rows) const
    {
        const double scale = 65536.0 * (random.oneIn(2) ? 1.0 : random.between(0.2, 1.6));
        const double turn = random.oneIn(8) ? 0.0 : random.between(0.0, 6.283185307179586);
        const int64_t along = std::llround(scale * std::cos(turn));
        const int64_t across = std::llround(scale * std::sin(turn));
        const TileAxis x = axisOf(random, along, -across, width, rows);
        return {x, axisOf(random, across, along * random.sign(), width, rows)};
    }
    TileAxis axisOf(Random &random, int64_t colStep, int64_t rowStep, int32_t width, int32_t rows) const
    {
        TileAxis axis;
        axis.colStep = colStep;
        axis.rowStep = rowStep;
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

template <typename Element, typename Pixel, typename Position, typename Variant>
Twin tileTwin(const std::string &name, uint32_t features, const TileKernels<Pixel, Position> &definition,
              Variant variant)
{
    const TileFamily<Pixel, Position, Element> family = {definition.reach, definition.shift};
    return twinOf(name, features, family, definition.inside, variant);
}

template <typename Element, typename Pixel, typename Position>
Twin boundedTwin(const std::string &name, const TileKernels<Pixel, Position> &kernels)
{
    return tileTwin<Element>(name + "Bounded", 0, kernels, kernels.bounded);
}

// ---- Rows of the table-driven modes ----------------------------------------------------------------------------

const int16_t *cubicWeights()
{
    const int16_t *weights = nullptr;
    if (ensureCubicWeightTable() >= 0)
        getCubicWeightsBase(cubicWeightTable(), &weights);
    return weights;
}

// Lines of samples through a source that just holds their taps.
template <typename Rule>
struct SampleFamily {
    using Pixel = typename Rule::Pixel;
    using Element = typename Rule::Entry;
    static constexpr auto kDefinition = sampleLinePortable<Rule>;
    struct Call {
        SampleRun<Pixel> run; // but for the base
        int64_t base;
        Shape shape;
    };

    Call draw(Random &random, int32_t width, int32_t) const
    {
        const auto position = static_cast<uint32_t>(random.between(0, 0xFFFF));
        // Mostly up to a line a sample, as a plan's are; sometimes steeper, or hardly sloped at all.
        const int32_t most = random.pick({0x10000, 0x10000, 0x100, 0x18000});
        const auto shear = static_cast<uint32_t>(random.between32(-most, most));
        const int64_t end = int64_t{position} + int64_t{width - 1} * static_cast<int32_t>(shear);
        const auto least = static_cast<int32_t>(std::min<int64_t>(end, position) >> 16);
        const auto greatest = static_cast<int32_t>(std::max<int64_t>(end, position) >> 16);
        const int32_t lines = greatest - least + Rule::kTaps;
        const bool transposed = random.oneIn(8);
        Shape shape = {transposed ? lines : width, transposed ? width : lines, 0, width, 1, width};
        shape.sourcePitch = (shape.sourceWidth + random.between32(0, 40)) * random.sign();
        const int64_t majorStep = transposed ? shape.sourcePitch : 1;
        const int64_t minorStep = transposed ? 1 : shape.sourcePitch;
        return {{nullptr, majorStep, minorStep, position, shear, width, cubicWeights()},
                -(least + Rule::kFirstTap) * minorStep,
                shape};
    }
    Shape shape(const Call &call) const { return call.shape; }
    static int32_t run(auto kernel, const Call &call, const Pixel *source, Element *destination)
    {
        auto run = call.run;
        run.base = source + call.base;
        kernel(run, destination);
        return 0;
    }
};

// Pixels from a line of samples.
template <typename Rule, bool kAdd = false>
struct OutputFamily {
    using Pixel = typename Rule::Entry;
    using Element = std::conditional_t<kAdd, uint32_t, typename Rule::Pixel>;
    static constexpr auto kDefinition = outputLinePortable<Rule, kAdd>;
    struct Call {
        OutputRun<Pixel> run; // but for the line and the destination
        Shape shape;
    };
    static constexpr int32_t kReadable = 192 / sizeof(Pixel); // what lies behind a plan's line

    Call draw(Random &random, int32_t width, int32_t) const
    {
        const auto position = static_cast<uint32_t>(random.between(0, 0xFFFF));
        const int32_t most = random.pick({0x10000, 0x10001, 0x20000, 0x50000});
        const auto step = static_cast<uint32_t>(random.pick({random.between32(0, most), most}));
        const int64_t last = (int64_t{position} + int64_t{width - 1} * step) >> 16;
        const auto length = static_cast<int32_t>(std::min<int64_t>(last, INT16_MAX)) + Rule::kTaps + kReadable;
        return {{nullptr, position, last > INT16_MAX ? 0 : step, width, cubicWeights(), nullptr},
                {length, 1, length, width, 1, width}};
    }
    Shape shape(const Call &call) const { return call.shape; }
    static int32_t run(auto kernel, const Call &call, const Pixel *source, Element *destination)
    {
        // Entries of 32 bits hold 24 at most.
        std::vector<Pixel> line(source, source + call.shape.sourceWidth);
        if constexpr (sizeof(Pixel) == 4)
            for (Pixel &entry : line)
                entry >>= 9;
        auto run = call.run;
        run.line = sizeof(Pixel) == 4 ? line.data() : source;
        run.dst = destination;
        kernel(run);
        return 0;
    }
};

// Bands of rows, through a source that just holds the taps of all samples.
template <typename Rule, bool kAdd = false>
struct BandFamily {
    using Pixel = typename Rule::Pixel;
    using Element = std::conditional_t<kAdd, uint32_t, Pixel>;
    static constexpr auto kDefinition = resampleBandPortable<Rule, kAdd>;
    struct Call {
        BandRun<Pixel> run; // but for the origin and the destination
        int64_t origin;
        Shape shape;
    };

    Call draw(Random &random, int32_t width, int32_t rows) const
    {
        BandRun<Pixel> run = {};
        run.width = std::min(width, kBandWidth);
        run.rows = std::min(rows, kBandRows);
        run.weights = cubicWeights();
        // What plans of turned squares have, or any steps in their range.
        const double turn = random.between(-0.25, 0.25) * 3.141592653589793;
        const double scale = 65536.0 * (random.oneIn(2) ? 1.0 : random.between(0.1, 1.3));
        const bool turned = random.oneIn(2);
        const auto stepOf = [&](double step) {
            return turned ? static_cast<int32_t>(step) : random.between32(-kBandStep, kBandStep);
        };
        run.shear = turned ? static_cast<int32_t>(65536.0 * std::tan(turn)) : random.between32(-0x10000, 0x10000);
        run.positionRowStep = stepOf(random.sign() * scale / std::cos(turn));
        run.outputStep = std::abs(stepOf(scale * std::cos(turn)));
        run.outputRowStep = stepOf(scale * std::sin(turn));
        run.outputPosition = random.between32(0, 0xFFFF);
        run.position = random.between32(-0x80000, 0x80000);

        // Along the source as far as any row's samples, across it as far as their taps.
        const int32_t firstSample = Rule::kCubic ? -1 : 0;
        const int32_t samples = countBandSamples<Rule>(run);
        int64_t left = INT64_MAX;
        int64_t right = INT64_MIN;
        int64_t least = INT64_MAX;
        int64_t greatest = INT64_MIN;
        for (int32_t j = 0; j < run.rows; ++j) {
            const int64_t first = ((run.outputPosition + j * run.outputRowStep) >> 16) + firstSample;
            left = std::min(left, first);
            right = std::max(right, first + samples - 1);
            for (const int64_t m : {first, first + samples - 1}) {
                const int64_t line = (run.position + int64_t{j} * run.positionRowStep + m * run.shear) >> 16;
                least = std::min(least, line + Rule::kFirstTap);
                greatest = std::max(greatest, line + Rule::kFirstTap + Rule::kTaps - 1);
            }
        }
        const auto along = static_cast<int32_t>(right - left + 1);
        const auto across = static_cast<int32_t>(greatest - least + 1);
        const bool transposed = random.oneIn(2);
        const bool mirrored = random.oneIn(2);
        Shape shape = {transposed ? across : along, transposed ? along : across, 0, run.width, run.rows, 0};
        shape.sourcePitch = (shape.sourceWidth + random.between32(0, 3)) * random.sign();
        shape.pitch = (run.width + random.between32(0, 3)) * random.sign();
        run.majorStep = (transposed ? shape.sourcePitch : 1) * (mirrored ? -1 : 1);
        run.minorStep = transposed ? 1 : shape.sourcePitch;
        run.leastLine = least;
        run.greatestLine = greatest;
        run.rowAdvance = shape.pitch * static_cast<int64_t>(sizeof(Element));
        if (kAdd) {
            shape.rows = 1;
            shape.pitch = run.width;
            run.rowAdvance = 0;
        }
        return {run, -(mirrored ? right : left) * run.majorStep - least * run.minorStep, shape};
    }
    Shape shape(const Call &call) const { return call.shape; }
    static int32_t run(auto kernel, const Call &call, const Pixel *source, Element *destination)
    {
        auto run = call.run;
        run.origin = source + call.origin;
        run.dst = destination;
        kernel(run);
        return 0;
    }
};

// ---- Whole-pixel maps --------------------------------------------------------------------------------------------

// Pictures that are transposed, or whose rows are reversed.
template <typename PixelType>
struct TransposeFamily {
    using Pixel = PixelType;
    using Element = PixelType;
    using Call = Shape;
    static constexpr auto kDefinition = transposePortable<Pixel>;

    Call draw(Random &random, int32_t width, int32_t rows) const
    {
        return {rows,  width, (rows + random.between32(0, 3)) * random.sign(),
                width, rows,  (width + random.between32(0, 3)) * random.sign()};
    }
    Shape shape(const Call &call) const { return call; }
    static int32_t run(auto kernel, const Shape &shape, const Pixel *source, Pixel *destination)
    {
        kernel({source, shape.sourcePitch, shape.sourceWidth, shape.sourceHeight},
               {destination, shape.pitch, shape.width, shape.rows});
        return 0;
    }
};

template <typename Pixel>
struct ReverseFamily : TransposeFamily<Pixel> {
    static constexpr auto kDefinition = reversePortable<Pixel>;

    Shape draw(Random &random, int32_t width, int32_t rows) const
    {
        return {width, rows, (width + random.between32(0, 3)) * random.sign(),
                width, rows, (width + random.between32(0, 3)) * random.sign()};
    }
    static int32_t run(auto kernel, const Shape &shape, const Pixel *source, Pixel *destination)
    {
        for (int32_t y = 0; y < shape.rows; ++y)
            kernel(source + y * shape.sourcePitch, shape.width, destination + y * shape.pitch);
        return 0;
    }
};

// ---- The table -------------------------------------------------------------------------------------------------

std::vector<Twin> listTwins()
{
    std::vector<Twin> twins;
    for (const uint32_t mode : {0u, 1u}) {
        const std::string name = mode == 0 ? "Nearest" : "Bilinear";
        twins.push_back(boundedTwin<uint8_t>("Transform" + name + "8", fixedTileKernels8(0, mode)));
        twins.push_back(boundedTwin<uint32_t>("Project" + name + "8", fixedTileKernels8(1, mode)));
        twins.push_back(boundedTwin<uint8_t>("Transform" + name + "8Double", doubleTileKernels8(0, mode)));
        twins.push_back(boundedTwin<uint32_t>("Project" + name + "8Double", doubleTileKernels8(1, mode)));
        twins.push_back(boundedTwin<uint16_t>("Transform" + name + "16", fixedTileKernels16(0, mode)));
        twins.push_back(boundedTwin<uint32_t>("Project" + name + "16", fixedTileKernels16(1, mode)));
    }
    return twins;
}

#if defined(KIP_HAS_X86_VARIANTS)
std::vector<Twin> listTileVariants()
{
    using Fast = Bilinear<Fast8>;
    const auto near8 = fixedTileKernels8(0, 0);
    const auto addNear8 = fixedTileKernels8(1, 0);
    const auto fast8 = withTwin<Fast, Store, FixedPosition, uint8_t>(resampleInside<Fast, Store, FixedPosition>);
    const auto addFast8 = withTwin<Fast, Add, FixedPosition, uint8_t>(resampleInside<Fast, Add, FixedPosition>);
    const auto near16 = fixedTileKernels16(0, 0);
    const auto addNear16 = fixedTileKernels16(1, 0);
    const auto linear16 = fixedTileKernels16(0, 1);
    const auto addLinear16 = fixedTileKernels16(1, 1);
    constexpr uint32_t avx2 = ksys_featureAvx2;
    constexpr uint32_t avx512 = ksys_featureAvx512;
    constexpr uint32_t vbmi = ksys_featureAvx512Vbmi;
    return {
        tileTwin<uint8_t>("Nearest8Avx2", avx2, near8, kip_affineTransformTileNearest8Avx2),
        tileTwin<uint32_t>("AddNearest8Avx2", avx2, addNear8, kip_affineProjectTileNearest8Avx2),
        tileTwin<uint8_t>("Fast8Avx2", avx2, fast8, kip_affineTransformTileBilinearFast8Avx2),
        tileTwin<uint32_t>("AddFast8Avx2", avx2, addFast8, kip_affineProjectTileBilinearFast8Avx2),
        tileTwin<uint8_t>("Nearest8Avx512", vbmi, near8, kip_affineTransformTileNearest8Avx512Vbmi),
        tileTwin<uint32_t>("AddNearest8Avx512", vbmi, addNear8, kip_affineProjectTileNearest8Avx512Vbmi),
        tileTwin<uint8_t>("Fast8Avx512", vbmi, fast8, kip_affineTransformTileBilinearFast8Avx512Vbmi),
        tileTwin<uint32_t>("AddFast8Avx512", vbmi, addFast8, kip_affineProjectTileBilinearFast8Avx512Vbmi),
        tileTwin<uint16_t>("Nearest16Avx2", avx2, near16, kip_affineTransformTileNearest16Avx2),
        tileTwin<uint32_t>("AddNearest16Avx2", avx2, addNear16, kip_affineProjectTileNearest16Avx2),
        tileTwin<uint16_t>("Linear16Avx2", avx2, linear16, kip_affineTransformTileBilinearAccurate16Avx2),
        tileTwin<uint32_t>("AddLinear16Avx2", avx2, addLinear16, kip_affineProjectTileBilinearAccurate16Avx2),
        tileTwin<uint16_t>("Nearest16Avx512", avx512, near16, kip_affineTransformTileNearest16Avx512),
        tileTwin<uint32_t>("AddNearest16Avx512", avx512, addNear16, kip_affineProjectTileNearest16Avx512),
        tileTwin<uint16_t>("Linear16Avx512", avx512, linear16, kip_affineTransformTileBilinearAccurate16Avx512),
        tileTwin<uint32_t>("AddLinear16Avx512", avx512, addLinear16, kip_affineProjectTileBilinearAccurate16Avx512),
    };
}

std::vector<Twin> listAlignedVariants()
{
    constexpr uint32_t sse2 = ksys_featurePackedInteger;
    constexpr uint32_t avx2 = ksys_featureAvx2;
    return {
        twinOf<TransposeFamily<uint8_t>>("Transpose8Sse2", sse2, transpose8Sse2),
        twinOf<TransposeFamily<uint16_t>>("Transpose16Sse2", sse2, transpose16Sse2),
        twinOf<TransposeFamily<uint8_t>>("Transpose8Avx512", ksys_featureAvx512, transpose8Avx512),
        twinOf<TransposeFamily<uint16_t>>("Transpose16Avx512", ksys_featureAvx512, transpose16Avx512),
        twinOf<ReverseFamily<uint8_t>>("Reverse8Sse2", sse2, reverse8Sse2),
        twinOf<ReverseFamily<uint16_t>>("Reverse16Sse2", sse2, reverse16Sse2),
        twinOf<ReverseFamily<uint8_t>>("Reverse8Avx2", avx2, reverse8Avx2),
        twinOf<ReverseFamily<uint16_t>>("Reverse16Avx2", avx2, reverse16Avx2),
    };
}

template <typename Rule>
void addRowVariants(const std::string &name, std::vector<Twin> *twins)
{
    constexpr uint32_t avx2 = ksys_featureAvx2;
    const auto kernels = rowKernelsAvx2<Rule>(false);
    const auto adding = rowKernelsAvx2<Rule>(true);
    twins->push_back(twinOf<SampleFamily<Rule>>(name + "SamplesAvx2", avx2, kernels.samples));
    twins->push_back(twinOf<OutputFamily<Rule>>(name + "OutputsAvx2", avx2, kernels.outputs));
    twins->push_back(twinOf<OutputFamily<Rule, true>>(name + "OutputsAddAvx2", avx2, adding.outputs));
    twins->push_back(twinOf<BandFamily<Rule>>(name + "BandAvx2", avx2, kernels.band));
    twins->push_back(twinOf<BandFamily<Rule, true>>(name + "BandAddAvx2", avx2, adding.band));
    constexpr uint32_t vbmi = ksys_featureAvx512Vbmi;
    twins->push_back(twinOf<BandFamily<Rule>>(name + "BandAvx512", vbmi, bandKernelAvx512<Rule>(false)));
    if (bandKernelAvx512<Rule>(true) != nullptr)
        twins->push_back(twinOf<BandFamily<Rule, true>>(name + "BandAddAvx512", vbmi, bandKernelAvx512<Rule>(true)));
}

std::vector<Twin> listRowVariants()
{
    std::vector<Twin> twins;
    addRowVariants<Linear8>("Linear8", &twins);
    addRowVariants<CubicPacked8>("Cubic8", &twins);
    addRowVariants<Linear16>("Linear16", &twins);
    addRowVariants<Cubic16>("Cubic16", &twins);
    return twins;
}
#endif

class TwinTest : public testing::TestWithParam<Twin> {};

TEST_P(TwinTest, GivesTheSameBits)
{
    const Twin &twin = GetParam();
    ASSERT_TRUE(twin.isVariant) << "compared with itself";
    ksys_cpuinfo processor;
    ASSERT_EQ(ksys_cpuinfo_init(&processor), 0);
    if ((processor.features & twin.features) != twin.features)
        GTEST_SKIP() << "this processor lacks features " << (twin.features & ~processor.features);
    EXPECT_EQ(runTwin(twin, 20401), "");
}

std::string nameOf(const testing::TestParamInfo<Twin> &test)
{
    return test.param.name;
}

INSTANTIATE_TEST_SUITE_P(Kernels, TwinTest, testing::ValuesIn(listTwins()), nameOf);
#if defined(KIP_HAS_X86_VARIANTS)
INSTANTIATE_TEST_SUITE_P(TileVariants, TwinTest, testing::ValuesIn(listTileVariants()), nameOf);
INSTANTIATE_TEST_SUITE_P(AlignedVariants, TwinTest, testing::ValuesIn(listAlignedVariants()), nameOf);
INSTANTIATE_TEST_SUITE_P(RowVariants, TwinTest, testing::ValuesIn(listRowVariants()), nameOf);
#endif

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
    static int32_t run(auto kernel, const Shape &shape, const uint8_t *source, uint8_t *destination)
    {
        return kernel(shape, source, destination);
    }
};

enum class Fault { none, noneEither, wrongBit, status, writeBehind, writeBefore, writeIntoGap, readBehind, readBefore };

template <Fault kFault>
int32_t copyRows(const Shape &shape, const uint8_t *source, uint8_t *destination)
{
    const int32_t lastRow = shape.rows - 1;
    if (kFault == Fault::readBehind || kFault == Fault::readBefore) {
        const ptrdiff_t at = kFault == Fault::readBefore ? -1 : lastRow * shape.sourcePitch + shape.width;
        const volatile uint8_t *const stray = source + at;
        static_cast<void>(*stray);
    }
    for (int32_t y = 0; y < shape.rows; ++y)
        std::copy_n(source + y * shape.sourcePitch, shape.width, destination + y * shape.pitch);
    if (kFault == Fault::wrongBit && shape.width == 129 && shape.rows >= 5)
        destination[4 * shape.pitch + 128] ^= 1;
    if (kFault == Fault::writeBehind)
        destination[lastRow * shape.pitch + shape.width] = 1;
    if (kFault == Fault::writeBefore)
        destination[-1] = 1;
    if (kFault == Fault::writeIntoGap && lastRow > 0)
        destination[shape.width] = 1;
    return kFault == Fault::status ? -1 : 0;
}

template <Fault kVariant, Fault kDefinition = Fault::none>
Twin copyTwin()
{
    return twinOf("Copy", 0, CopyFamily(), copyRows<kDefinition>, copyRows<kVariant>);
}

template <Fault kVariant>
std::string compareCopies(Guard guard)
{
    const TwinMemory memory{};
    const TwinCase c = {1, 40, 3, Pattern::random, guard, guard};
    noteForCrash(describe("Copy", c));
    return copyTwin<kVariant>().compare(c, memory);
}

TEST(TwinHarness, AcceptsATwinButNotTheDefinitionItself)
{
    EXPECT_TRUE(copyTwin<Fault::noneEither>().isVariant);
    EXPECT_EQ(runTwin(copyTwin<Fault::noneEither>(), 1), "");
    EXPECT_FALSE(copyTwin<Fault::none>().isVariant);
}

TEST(TwinHarness, ReportsFaults)
{
    const std::string wrongBit = runTwin(copyTwin<Fault::wrongBit>(), 1);
    for (const char *const part : {"Copy, seed ", "129 x ", "at (128, 4) ", " instead of "})
        EXPECT_NE(wrongBit.find(part), std::string::npos) << wrongBit;
    const struct {
        std::string failure, part;
    } rows[] = {
        {runTwin(copyTwin<Fault::status>(), 1), "status -1 instead of 0"},
        {compareCopies<Fault::writeBehind>(Guard::before), "stray write"},
        {compareCopies<Fault::writeBefore>(Guard::behind), "stray write"},
        {compareCopies<Fault::writeIntoGap>(Guard::before), "stray write"},
        {runTwin(copyTwin<Fault::none, Fault::writeIntoGap>(), 1), "definition: stray write"},
    };
    for (const auto &[failure, part] : rows)
        EXPECT_NE(failure.find(part), std::string::npos) << failure << " without " << part;
}

TEST(TwinHarnessDeathTest, EndsAtAGuardPageAndTellsTheCase)
{
    EXPECT_DEATH(compareCopies<Fault::writeBehind>(Guard::behind), "crashed in: Copy, seed 1, 40 x 3");
    EXPECT_DEATH(compareCopies<Fault::writeBefore>(Guard::before), "crashed in: Copy, seed 1, 40 x 3");
    EXPECT_DEATH(compareCopies<Fault::readBehind>(Guard::behind), "crashed in: Copy, seed 1, 40 x 3");
    EXPECT_DEATH(compareCopies<Fault::readBefore>(Guard::before), "crashed in: Copy, seed 1, 40 x 3");
    EXPECT_DEATH(runTwin(copyTwin<Fault::readBehind>(), 1), "crashed in: Copy, seed");
}

} // namespace

} // namespace kip::test
