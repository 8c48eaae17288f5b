// The table-driven modes against a slow model that follows the definition literally: tile by tile, row by row, with
// addresses and one sample at a time.

#include "transform/plan_tiles.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "cache/cubic_weight_table.h"
#include "cache/tile_plan.h"
#include "support/random.h"
#include "support/transform_case.h"

namespace kip::test {

namespace {

int32_t integerOf(uint32_t v)
{
    return static_cast<int16_t>(v >> 16);
}

// A value, or nothing where the definition gives none: it would be read from outside the source.
using Known = std::optional<int64_t>;

struct Model {
    const kip_affineTilePlan &plan;
    const kimg_windowConst &source;
    bool cubic;
    bool roundsDown; // the fast 8-bit path's first pass
    std::vector<Known> line = std::vector<Known>(static_cast<size_t>(plan.lineEntries), 0);

    int64_t pixel(int64_t at) const
    {
        return source.bytesPerPixel == 1 ? static_cast<const uint8_t *>(source.pixels)[at]
                                         : static_cast<const uint16_t *>(source.pixels)[at];
    }
    int64_t low() const { return std::min<int64_t>(0, (source.height - 1) * int64_t{source.pitch}); }
    int64_t high() const
    {
        return std::max<int64_t>(0, (source.height - 1) * int64_t{source.pitch}) + source.width - 1;
    }
    bool has(int64_t at) const { return at >= low() && at <= high(); }

    int64_t weight(uint32_t fraction, int64_t tap) const
    {
        if (!cubic)
            return tap == 0 ? 32768 - (fraction >> 1) : fraction >> 1;
        uint64_t word;
        getCubicWeightsForPhase(cubicWeightTable(), static_cast<int32_t>(fraction >> 8), &word);
        return static_cast<int16_t>(word >> (16 * tap));
    }
    static int64_t divided(int64_t value, int64_t by, bool down)
    {
        return value / by - (down && value % by < 0 ? 1 : 0);
    }

    // The sample of a run of taps; those in [from, to) count.
    Known sample(int64_t a, uint32_t fraction, int64_t from, int64_t to, bool down) const
    {
        int64_t sum = cubic ? 256 : 0;
        for (int64_t tap = from; tap < to; ++tap) {
            const int64_t at = a + (tap - (cubic ? 1 : 0)) * plan.minorStep;
            if (!has(at))
                return std::nullopt;
            sum += weight(fraction, tap) * pixel(at);
        }
        return cubic ? divided(sum, 512, down) : sum >> 15;
    }

    void sampleRow(int64_t base, uint32_t position, int32_t c)
    {
        const int32_t taps = cubic ? 4 : 2;
        const auto shear = static_cast<uint32_t>(plan.secondaryShear);
        const auto positionOf = [&](int32_t r) { return position + static_cast<uint32_t>(r) * shear; };
        const auto addressOf = [&](int32_t r) {
            return base + int64_t{r} * plan.majorStep + int64_t{integerOf(positionOf(r))} * plan.minorStep;
        };
        const auto isInside = [&](int32_t r) {
            const int64_t first = addressOf(r) - (cubic ? plan.minorStep : 0);
            return has(first) && has(first + int64_t{taps - 1} * plan.minorStep);
        };
        const auto isOutside = [&](int32_t r) {
            const auto [least, greatest] = std::minmax({addressOf(r), addressOf(r) + plan.minorStep});
            return cubic ? least < low() || greatest > high() : greatest < low() || least > high();
        };
        const auto partial = [&](int32_t r, uint32_t fraction) {
            const int64_t a = addressOf(r);
            return has(a - (cubic ? plan.minorStep : 0)) ? sample(a, fraction, 0, taps - 1, false)
                                                         : sample(a, fraction, 1, taps, false);
        };
        const auto entry = [&](int32_t r) -> Known & { return line[static_cast<size_t>(r + (cubic ? 1 : 0))]; };

        int32_t first = cubic ? -1 : 0;
        uint32_t trailing = position & 0xFFFF;
        if (cubic && !isInside(-1)) {
            entry(-1) = partial(-1, positionOf(-1) & 0xFFFF);
            trailing = positionOf(1) & 0xFFFF;
            first = 0;
        }
        int32_t last = plan.spanCount[c] + (cubic ? 1 : 0);
        while (last >= first && isOutside(last))
            --last;
        for (; last >= first && !isInside(last); --last)
            entry(last) = partial(last, trailing);
        for (int32_t r = first; r <= last; ++r)
            entry(r) = sample(addressOf(r), positionOf(r) & 0xFFFF, 0, taps, roundsDown);
    }

    Known output(uint32_t position) const
    {
        const int32_t taps = cubic ? 4 : 2;
        int64_t sum = cubic ? 0x100000 : 0;
        for (int32_t tap = 0; tap < taps; ++tap) {
            const int32_t at = integerOf(position) + tap;
            if (at < 0 || at >= static_cast<int32_t>(line.size()) || !line[static_cast<size_t>(at)])
                return std::nullopt;
            sum += weight(position & 0xFFFF, tap) * *line[static_cast<size_t>(at)];
        }
        const int64_t greatest = source.bytesPerPixel == 1 ? 255 : 65535;
        return cubic ? std::clamp<int64_t>(sum / 0x200000, 0, greatest) : sum >> 15;
    }

    // All pixels, row by row.
    std::vector<Known> run(int32_t width, int32_t height)
    {
        std::vector<Known> result(static_cast<size_t>(width) * static_cast<size_t>(height));
        const auto shearLow = static_cast<uint32_t>(plan.secondaryShear) & 0xFFFF;
        const auto shearHigh = static_cast<uint32_t>(plan.secondaryShear >> 16);
        int32_t bx = integerOf(static_cast<uint32_t>(plan.bandStartX));
        int32_t by = integerOf(static_cast<uint32_t>(plan.bandStartY));
        uint32_t pf = plan.primaryFraction & 0xFFFF;
        auto sf = static_cast<uint32_t>(plan.secondaryFraction);
        auto rowX = static_cast<uint32_t>(plan.startX);
        auto rowY = static_cast<uint32_t>(plan.startY);
        for (int32_t ty = 0; ty < plan.tilesY; ++ty) {
            uint32_t x = rowX;
            uint32_t y = rowY;
            for (int32_t tx = 0; tx < plan.tilesX; ++tx) {
                const int32_t c = (tx == plan.tilesX - 1 ? 1 : 0) + (ty == plan.tilesY - 1 ? 2 : 0);
                const int64_t tileBase =
                    int64_t{by + plan.bandDy[c] + (plan.transposed == 0 ? integerOf(sf) : 0)} * source.pitch +
                    plan.bandDx[c] + (plan.transposed == 1 ? integerOf(sf) : 0) + bx - plan.bandOffset[c];
                for (int32_t j = 0; j < plan.tileHeight[c]; ++j) {
                    const uint32_t along = pf + static_cast<uint32_t>(j) * static_cast<uint32_t>(plan.primaryRowStep);
                    const int32_t skipped = integerOf(along);
                    sampleRow(tileBase + int64_t{skipped} * plan.majorStep,
                              (sf & 0xFFFF) + static_cast<uint32_t>(j) * static_cast<uint32_t>(plan.secondaryRowStep) +
                                  static_cast<uint32_t>(skipped) * static_cast<uint32_t>(plan.secondaryShear),
                              c);
                    for (int32_t n = 0; n < plan.tileWidth[c]; ++n)
                        result[static_cast<size_t>((ty * plan.tileHeight[0] + j) * width + tx * plan.tileWidth[0] +
                                                   n)] =
                            output((along & 0xFFFF) +
                                   static_cast<uint32_t>(n) * static_cast<uint32_t>(plan.primaryStep));
                }
                x += static_cast<uint32_t>(plan.tileColumnStepX);
                y += static_cast<uint32_t>(plan.tileColumnStepY);
                if (tx == plan.tilesX - 1) {
                    rowX += static_cast<uint32_t>(plan.tileRowStepX);
                    rowY += static_cast<uint32_t>(plan.tileRowStepY);
                    x = rowX;
                    y = rowY;
                }
                bx = static_cast<int16_t>(integerOf(x) + plan.bandX0);
                by = static_cast<int16_t>(integerOf(y) + plan.bandY0);
                const uint32_t a = std::max<uint32_t>((plan.transposed == 0 ? x : y) & 0xFFFF, 1);
                const uint32_t b = (plan.transposed == 0 ? y : x) & 0xFFFF;
                pf = (static_cast<uint32_t>(plan.direction) * a) & 0xFFFF;
                sf = b - ((shearLow * pf) >> 16) - shearHigh * pf;
            }
        }
        return result;
    }
};

struct Tally {
    int64_t known = 0, unknown = 0, served = 0;
};

// Runs a case and holds every pixel that the definition gives against the model.
void check(const TransformCase &c, const TransformMemory &memory, bool fast, Tally *tally)
{
    const TransformResult result = runTransform(c, memory);
    ASSERT_EQ(result.damage, "") << describe(c);
    if (result.status < 0)
        return;
    const kimg_windowConst source = transformSource(c, memory);
    kip_affine_imageAlignment code;
    kip_affine_imageAlignment_compute(&c.params, &c.srcFromClient, &code, nullptr);
    if (code != kip_affine_alignNone)
        return;
    kimg_window destination = {};
    destination.width = c.params.destWidth;
    destination.height = c.params.destHeight;
    kip_affineTilePlan plan = {};
    kip_affineTilePlan_init(&plan);
    const auto build = c.bytesPerPixel == 1 ? buildTilePlan8 : buildTilePlan16;
    ASSERT_GE(build(&plan, source, c.srcFromClient, destination, c.params), 0) << describe(c);
    Model model = {plan, source, c.params.mode == kip_affineModeBicubic, fast && c.bytesPerPixel == 1};
    const auto expected = model.run(c.params.destWidth, c.params.destHeight);
    kip_affineTilePlan_free(&plan);
    ++tally->served;
    for (size_t i = 0; i < expected.size(); ++i) {
        if (!expected[i]) {
            ++tally->unknown;
            continue;
        }
        ++tally->known;
        ASSERT_EQ(int64_t{result.pixels[i]}, *expected[i])
            << "pixel (" << static_cast<int32_t>(i) % c.params.destWidth << ", "
            << static_cast<int32_t>(i) / c.params.destWidth << ") of " << describe(c);
    }
}

// Depth, mode, and whether the fast 8-bit path may serve.
class PlanTiles : public testing::TestWithParam<std::tuple<int32_t, uint32_t, bool>> {
protected:
    TransformMemory memory;

    void run(Random &random, TransformCase *c, Tally *tally)
    {
        const auto [bytesPerPixel, mode, fast] = GetParam();
        c->bytesPerPixel = bytesPerPixel;
        c->params.mode = mode;
        c->seed = random.next();
        c->sourceGuard = random.pick(kGuards);
        drawRectangle(random, c);
        std::optional<InhibitOptimizedPaths> inhibited;
        if (!fast)
            inhibited.emplace();
        check(*c, memory, fast, tally);
    }
};

TEST_P(PlanTiles, RandomRectangles)
{
    Random random(41);
    Tally tally;
    for (int n = 0; n < 400 && !HasFatalFailure(); ++n) {
        TransformCase c;
        c.width = random.between32(7, 300);
        c.height = random.between32(7, 300);
        c.pitch = (c.width + random.between32(0, 9)) * (random.oneIn(4) ? -1 : 1);
        c.x = random.between32(-50, 50);
        c.srcFromClient = drawClientMap(random);
        c.params.destWidth = random.between32(1, random.oneIn(4) ? 250 : 40);
        c.params.destHeight = random.between32(1, random.oneIn(4) ? 250 : 40);
        run(random, &c, &tally);
    }
    EXPECT_GT(tally.served, 200);
    EXPECT_LT(tally.unknown, tally.known / 100);
}

// Sources hardly larger than the support, and rectangles that reach its edges.
TEST_P(PlanTiles, SmallSources)
{
    Random random(42);
    Tally tally;
    for (int n = 0; n < 3000 && !HasFatalFailure(); ++n) {
        TransformCase c;
        c.width = random.between32(5, 12);
        c.height = random.between32(5, 12);
        c.pitch = (c.width + random.between32(0, 3)) * (random.oneIn(4) ? -1 : 1);
        c.params.destWidth = random.between32(1, 12);
        c.params.destHeight = random.between32(1, 12);
        run(random, &c, &tally);
    }
    EXPECT_GT(tally.served, 1000);
}

// Reductions whose bands reach past 16 bits when mirrored.
TEST_P(PlanTiles, StrongReductions)
{
    Random random(43);
    Tally tally;
    for (int n = 0; n < 30 && !HasFatalFailure(); ++n) {
        TransformCase c;
        const bool wide = random.oneIn(2);
        c.width = wide ? 32767 : random.between32(20, 60);
        c.height = wide ? random.between32(20, 60) : 32767;
        c.pitch = c.width;
        c.params.destWidth = random.between32(1, 150);
        c.params.destHeight = random.between32(1, 150);
        run(random, &c, &tally);
    }
    EXPECT_GT(tally.served, 10);
}

// With one sample along a side, nothing bounds that side's length.
TEST_P(PlanTiles, EnormousSideOfOneSample)
{
    Random random(44);
    for (int n = 0; n < 300 && !HasFatalFailure(); ++n) {
        TransformCase c;
        const auto [bytesPerPixel, mode, fast] = GetParam();
        c.bytesPerPixel = bytesPerPixel;
        c.params.mode = mode;
        c.width = c.height = c.pitch = 40;
        const bool oneColumn = random.oneIn(2);
        c.params.destWidth = oneColumn ? 1 : random.between32(1, 30);
        c.params.destHeight = oneColumn ? random.between32(1, 30) : 1;
        const double length = std::pow(10.0, random.between(-9.0, 12.0)) * random.sign();
        CornerCenters corners = {{10.3, 12.4}, {30.1, 14.2}, {8.7, 29.5}};
        const double turn = random.between(0.0, 6.3);
        corners.singleSample = {length * std::cos(turn), random.oneIn(4) ? 0.0 : length * std::sin(turn)};
        placeCorners(corners, &c);
        std::optional<InhibitOptimizedPaths> inhibited;
        if (!fast)
            inhibited.emplace();
        EXPECT_EQ(runTransform(c, memory).damage, "") << describe(c);
    }
}

TEST_P(PlanTiles, ConstantPicturesStay)
{
    const auto [bytesPerPixel, mode, fast] = GetParam();
    for (const uint32_t value : {0u, 1u, 100u, bytesPerPixel == 1 ? 255u : 65535u}) {
        std::vector<uint16_t> pixels16(60 * 60, static_cast<uint16_t>(value));
        std::vector<uint8_t> pixels8(60 * 60, static_cast<uint8_t>(value));
        kimg_image source;
        kimg_image result;
        ASSERT_GE(
            kimg_image_constructExternal(&source, bytesPerPixel, 60, 60, 60,
                                         bytesPerPixel == 1 ? static_cast<void *>(pixels8.data()) : pixels16.data()),
            0);
        kimg_image_constructUnbound(&result);
        const kip_affineSampleParams params = {{30.2, 12.1, 14.3, -12.2, 12.9, 15.1}, mode, 23, 19};
        std::optional<InhibitOptimizedPaths> inhibited;
        if (!fast)
            inhibited.emplace();
        ASSERT_GE(
            (bytesPerPixel == 1 ? kip_affineTransform : kip_affineTransform16)(&source, &result, &params, nullptr), 0);
        kimg_window window;
        kimg_window_init(&window, &result);
        for (int32_t y = 0; y < 19; ++y)
            for (int32_t x = 0; x < 23; ++x)
                EXPECT_NEAR(bytesPerPixel == 1 ? static_cast<uint8_t *>(window.pixels)[y * window.pitch + x]
                                               : static_cast<uint16_t *>(window.pixels)[y * window.pitch + x],
                            value, bytesPerPixel == 1 ? 0 : 8); // weights sum to 1 within a unit of 32768
        kimg_image_destruct(&result);
        kimg_image_destruct(&source);
    }
}

INSTANTIATE_TEST_SUITE_P(DepthsAndModes, PlanTiles,
                         testing::Values(std::tuple{1, 2u, true}, std::tuple{1, 2u, false}, std::tuple{1, 3u, true},
                                         std::tuple{1, 3u, false}, std::tuple{2, 2u, true}, std::tuple{2, 3u, true}),
                         [](const auto &suite) {
                             return std::to_string(8 * std::get<0>(suite.param)) + "Mode" +
                                    std::to_string(std::get<1>(suite.param)) +
                                    (std::get<2>(suite.param) ? "" : "Inhibited");
                         });

} // namespace

} // namespace kip::test
