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
        const int16_t *weights;
        getCubicWeightsBase(cubicWeightTable(), &weights);
        return weights[4 * static_cast<size_t>(fraction >> 8) + static_cast<size_t>(tap)];
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

// Sizes, drawn up to the given ones.
struct Scene {
    const char *name;
    int32_t leastSide, greatestWidth, greatestHeight, greatestDestination;
    int32_t cases, leastServed;
};

constexpr Scene kScenes[] = {
    {"rectangles of any kind", 7, 300, 300, 250, 400, 200},
    {"hardly larger than the support", 5, 12, 12, 12, 3000, 1000},
    // Their bands reach past 16 bits when mirrored.
    {"strong reductions of wide sources", 20, 32767, 60, 150, 15, 5},
    {"strong reductions of high sources", 20, 60, 32767, 150, 15, 5},
};

// Depth, mode, and whether the fast 8-bit path may serve.
class PlanTiles : public testing::TestWithParam<std::tuple<int32_t, uint32_t, bool>> {
protected:
    void SetUp() override
    {
        kprt_isOptimizationInhibitedFP = nullptr; // whatever the program was started with
        if (!std::get<2>(GetParam()))
            inhibited.emplace();
    }

    std::optional<InhibitOptimizedPaths> inhibited;
};

TEST_P(PlanTiles, GiveTheModelsPixels)
{
    const auto [bytesPerPixel, mode, fast] = GetParam();
    const TransformMemory memory{};
    for (const Scene &scene : kScenes) {
        SCOPED_TRACE(scene.name);
        Random random(41);
        Tally tally;
        const auto drawSide = [&](int32_t greatest) {
            return greatest == 32767 ? greatest : random.between32(scene.leastSide, greatest);
        };
        for (int n = 0; n < scene.cases && !HasFatalFailure(); ++n) {
            TransformCase c;
            c.bytesPerPixel = bytesPerPixel;
            c.params.mode = mode;
            c.seed = random.next();
            c.sourceGuard = random.pick(kGuards);
            c.width = drawSide(scene.greatestWidth);
            c.height = drawSide(scene.greatestHeight);
            const bool isWide = c.width == 32767;
            c.pitch = isWide ? c.width : (c.width + random.between32(0, 9)) * (random.oneIn(4) ? -1 : 1);
            if (random.oneIn(2)) {
                c.x = random.between32(-50, 50);
                c.srcFromClient = drawClientMap(random);
            }
            const int32_t most = random.oneIn(2) ? scene.greatestDestination : std::min(scene.greatestDestination, 40);
            c.params.destWidth = random.between32(1, most);
            c.params.destHeight = random.between32(1, most);
            drawRectangle(random, &c);
            check(c, memory, fast, &tally);
        }
        EXPECT_GT(tally.served, scene.leastServed);
        EXPECT_TRUE(scene.leastSide == 5 || tally.unknown < tally.known / 100) << tally.unknown;
    }
}

// What random rectangles hardly ever come to.
TEST_P(PlanTiles, GiveTheModelsPixelsOfRareRectangles)
{
    const auto [bytesPerPixel, mode, fast] = GetParam();
    const double back = 198.75 + 0.5 + 129 / 256.0; // the first centre is 198.75 pixels from that of pixel 0
    const struct {
        const char *name;
        int32_t width, height, columns, rows;
        kmath_xformLinear rect;
    } rows[] = {
        // Steps back by 1 1/128 pixels: 96 of them, a tile, lead to a whole pixel, where a reversed scan has no
        // fraction.
        {"a reversed tile that begins at a whole pixel", 210, 210, 128, 128, {back, back, -129, 0, 0, -129}},
        {"the same along columns", 210, 210, 128, 128, {back, back, 0, -129, -129, 0}},
        // The line of samples advances 15 columns with every row: its third sample is the source's last pixel.
        {"a sample whose lower neighbour is the last pixel", 20, 30, 1, 1, {17.05, 26.5, 5e-7, 0, 5e-7 / 15, 1}},
    };
    const TransformMemory memory{};
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        Tally tally;
        TransformCase c;
        c.bytesPerPixel = bytesPerPixel;
        c.width = c.pitch = row.width;
        c.height = row.height;
        c.params = {row.rect, mode, row.columns, row.rows};
        check(c, memory, fast, &tally);
        EXPECT_EQ(tally.served, 1);
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
