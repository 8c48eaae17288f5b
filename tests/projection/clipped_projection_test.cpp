// Projections that may reach outside their source, beside plain ones of a source with zeros round it.

#include <algorithm>
#include <cmath>
#include <cstdint>

#include <gtest/gtest.h>
#include <kip/kip.h>

#include "projection/projection_entry.h"
#include "support/depths.h"
#include "support/images.h"
#include "support/random.h"

namespace kip::test {

namespace {

constexpr int32_t kWidth = 40;
constexpr int32_t kHeight = 30;
constexpr kmath_xformLinear kMap = {3.5, -7.25, 0.5, 0, 0, 0.25};

// Depth and mode.
class ClippedProjection : public testing::TestWithParam<DepthAndMode> {
protected:
    const Forms &forms = formsOf(std::get<0>(GetParam()));
    const uint32_t mode = std::get<1>(GetParam());

    bool isOffered() const { return forms.bytesPerPixel == 1 || mode <= kip_affineModeBilinear; }

    // A rectangle anywhere round the source, turned or of whole pixels.
    kip_affineSampleParams drawSampling(Random &random) const
    {
        const int32_t columns = random.between32(1, 40);
        const int32_t rows = random.between32(1, 40);
        kmath_xformLinear inSource = {
            random.between(-15.0, kWidth + 15.0), random.between(-15.0, kHeight + 15.0), 0, 0, 0, 0};
        if (random.oneIn(3)) {
            inSource = {std::floor(inSource.tx), std::floor(inSource.ty), 1.0 * columns, 0, 0, 1.0 * rows};
        } else {
            const double turn = random.between(0.0, 6.28);
            const double width = columns * random.between(0.3, 2.0);
            const double height = rows * random.between(0.3, 2.0) * random.sign();
            inSource.e0 = width * std::cos(turn);
            inSource.e2 = width * std::sin(turn);
            inSource.e1 = -height * std::sin(turn);
            inSource.e3 = height * std::cos(turn);
        }
        kip_affineSampleParams params = {{}, mode, columns, rows};
        kmath_xformLinear clientFromSource;
        EXPECT_GE(kmath_xformLinear_initInverse(&clientFromSource, &kMap), 0);
        EXPECT_GE(kmath_xformLinear_initCompose(&params.rect, &clientFromSource, &inSource), 0);
        return params;
    }

    struct Projected {
        int32_t status;
        Sums sums;
    };

    Projected projectFramed(const Image &source, const kip_affineSampleParams &params, int32_t value = -1) const
    {
        const FramedSource framed(source, forms.bytesPerPixel, params, value);
        Image result;
        Projected projected = {forms.project(framed.image.get(), result.get(), &params, nullptr, nullptr), {}};
        if (projected.status >= 0)
            projected.sums = sumsOf(result.get());
        if (projected.status >= 0 && !framed.hasSource)
            projected.status = kip_statusProjectionOutsideSource;
        return projected;
    }
};

INSTANTIATE_TEST_SUITE_P(DepthsAndModes, ClippedProjection, depthsAndModes(3), depthAndModeName);

TEST_P(ClippedProjection, IsThatOfAPaddedSource)
{
    Random random(4500 + mode);
    Cache cache;
    int clipped = 0;
    for (int n = 0; n < 400 && !HasFailure(); ++n) {
        SCOPED_TRACE(n);
        Pixels pixels(forms.bytesPerPixel, kWidth, kHeight, random.oneIn(2) ? kWidth + 3 : -kWidth, random.next());
        Image source(pixels);
        source.place(-3, 2);
        source.setMap(kMap);
        const kip_affineSampleParams params = drawSampling(random);
        const auto coverageValue = static_cast<uint8_t>(random.between(0, 255));
        int32_t clips = -1;
        ASSERT_GE(kip_affineSampleParams_getWillClip(&params, source.get(), &clips), 0);
        clipped += clips;
        const Projected expected = projectFramed(source, params);
        const Projected coverage = projectFramed(source, params, coverageValue);
        const uint32_t greatest = clips == 0 || coverage.sums.empty()
                                      ? static_cast<uint32_t>(params.destHeight)
                                      : *std::max_element(coverage.sums.begin(), coverage.sums.end());

        kimg_windowConst window;
        ASSERT_EQ(kimg_windowConst_init(&window, source.get()), 0);
        const bool isPlaced = random.oneIn(2);
        const SumsPlace place = {isPlaced ? random.between32(-3, 3) : 0, isPlaced ? random.between32(-1, 0) : 0,
                                 params.destWidth + random.between32(isPlaced ? 1 - params.destWidth : 0, 4), 2, 50};
        SumsWindow sums(place);
        SumsWindow covered({-place.x, place.y, place.width, 2, -50, random.oneIn(4) ? 2 : 0});
        kimg_window sumsWindow = sums.window();
        kimg_window coveredWindow = covered.window();
        kmath_xformLinear placement{};
        uint32_t depth = kNoSum;
        uint32_t willClip = kNoSum;
        const int32_t status = forms.projectClippedWindow(&window, &kMap, &sumsWindow, &coveredWindow, &params,
                                                          random.oneIn(2) ? &cache.handle : nullptr, &placement,
                                                          coverageValue, &depth, &willClip);
        EXPECT_EQ(willClip, static_cast<uint32_t>(clips));
        ASSERT_EQ(std::min(status, 0), clips == 0 && expected.status == kip_statusProjectionOutsideSource
                                           ? 0
                                           : std::min(expected.status, 0));
        if (status >= 0) {
            EXPECT_TRUE(sums.holds(expected.sums));
            EXPECT_TRUE(covered.holds(clips != 0 ? coverage.sums : Sums{}));
            EXPECT_EQ(depth, greatest);
            EXPECT_TRUE(isEqual(placement, rowPlacementOf(params)));
        }

        Image result;
        Image coverageImage;
        uint32_t imageDepth = kNoSum;
        EXPECT_EQ(forms.projectClipped(source.get(), result.get(), coverageImage.get(), &params, &cache.handle,
                                       coverageValue, &imageDepth, &willClip),
                  status);
        if (status >= 0) {
            EXPECT_EQ(sumsOf(result.get()), expected.sums);
            EXPECT_TRUE(isEqual(result.map(), rowPlacementOf(params)));
            EXPECT_EQ(imageDepth, greatest);
            EXPECT_EQ(willClip, static_cast<uint32_t>(clips));
            EXPECT_EQ(coverageImage.isBound(), clips != 0);
        }
        if (status >= 0 && clips != 0) {
            EXPECT_EQ(sumsOf(coverageImage.get()), coverage.sums);
            EXPECT_TRUE(isEqual(coverageImage.map(), rowPlacementOf(params)));
        }
    }
    EXPECT_GT(clipped, 100);
    EXPECT_LT(clipped, 398);
}

// The greatest 8-bit value stays what it is wherever it counts at all, since sums and coverage round alike. Other
// values do where every sample counts wholly, which cubic overshoots hide: the mask has no room for them.
TEST_P(ClippedProjection, MeansOfAConstantPictureAreThatConstant)
{
    if (!isOffered())
        return;
    Random random(4600 + mode);
    int partial = 0;
    for (int n = 0; n < 300 && !HasFailure(); ++n) {
        SCOPED_TRACE(n);
        const bool isGreatest = random.oneIn(2);
        const uint32_t value = isGreatest ? 255 : static_cast<uint32_t>(random.between(1, 254) * forms.bytesPerPixel);
        Pixels pixels(forms.bytesPerPixel, kWidth, kHeight);
        for (int32_t i = 0; i < kWidth * kHeight; ++i)
            pixels.set(i % kWidth, i / kWidth, value);
        Image source(pixels);
        source.setMap(kMap);
        const kip_affineSampleParams params = drawSampling(random);

        Image sums;
        Image coverageImage;
        uint32_t depth = kNoSum;
        uint32_t willClip = kNoSum;
        const int32_t status = forms.projectClipped(source.get(), sums.get(), coverageImage.get(), &params, nullptr,
                                                    255, &depth, &willClip);
        Image result;
        int32_t first = -1;
        int32_t end = -1;
        EXPECT_EQ(forms.projectNorm(source.get(), result.get(), &params, 1, nullptr, &depth, &first, &end), status);
        if (status < 0) {
            EXPECT_EQ(first, -1);
            EXPECT_EQ(end, -1);
            continue;
        }
        const Sums means = sumsOf(result.get());
        if (willClip == 0) {
            EXPECT_EQ(means, sumsOf(sums.get()));
            EXPECT_EQ(depth, static_cast<uint32_t>(params.destHeight));
            EXPECT_EQ(first, 0);
            EXPECT_EQ(end, params.destWidth);
            continue;
        }
        const Sums coverage = sumsOf(coverageImage.get());
        for (int32_t i = 0; i < params.destWidth; ++i) {
            const uint32_t covered = coverage[static_cast<size_t>(i)];
            const bool isWhole = covered == 255 * static_cast<uint32_t>(params.destHeight);
            const bool isExact =
                isGreatest || mode == kip_affineModeNearest || (isWhole && mode != kip_affineModeBicubic);
            const bool counts = covered > 127;
            EXPECT_TRUE(!counts || (i >= first && i < end)) << "column " << i;
            if (!counts || isExact) {
                EXPECT_EQ(means[static_cast<size_t>(i)], counts ? value : 0) << "column " << i;
            }
            partial += counts && isExact && covered % 255 != 0 ? 1 : 0;
        }
    }
    EXPECT_EQ(partial > 100, mode != kip_affineModeNearest);
}

// Two rows of samples above the source, two inside.
TEST(ClippedProjectionExamples, RowsAboveTheSource)
{
    Pixels pixels(1, 20, 20);
    for (int32_t i = 0; i < 400; ++i)
        pixels.set(i % 20, i / 20, 100);
    Image source(pixels);
    const kip_affineSampleParams params = {{5, -2, 4, 0, 0, 4}, kip_affineModeBicubic, 4, 4};
    Image result;
    Image coverage;
    uint32_t depth = 0;
    uint32_t willClip = 0;
    ASSERT_GE(
        kip_affineProjectClipped(source.get(), result.get(), coverage.get(), &params, nullptr, 255, &depth, &willClip),
        0);
    EXPECT_EQ(sumsOf(result.get()), Sums(4, 200));
    EXPECT_EQ(sumsOf(coverage.get()), Sums(4, 510));
    EXPECT_EQ(depth, 510u);
    EXPECT_EQ(willClip, 1u);

    // The left half of the columns outside.
    const kip_affineSampleParams left = {{-4, 3, 8, 0, 0, 5}, kip_affineModeBilinear, 8, 5};
    Image means;
    int32_t first = -1;
    int32_t end = -1;
    ASSERT_GE(kip_affineProjectNorm(source.get(), means.get(), &left, 1, nullptr, &depth, &first, &end), 0);
    EXPECT_EQ(sumsOf(means.get()), (Sums{0, 0, 0, 0, 100, 100, 100, 100}));
    EXPECT_EQ(depth, 1u);
    EXPECT_EQ(first, 4);
    EXPECT_EQ(end, 8);
    EXPECT_EQ(kip_affineProjectNorm(source.get(), means.get(), &left, 0, nullptr, &depth, &first, &end),
              int32_t{kip_statusProjectionWouldClip});
}

} // namespace

} // namespace kip::test
