#include <cstdint>
#include <limits>

#include <gtest/gtest.h>
#include <kip/kip.h>

#include "projection/projection_entry.h"
#include "support/images.h"

namespace kip::test {

namespace {

constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
constexpr kip_affineSampleParams kAligned = {{20, 8, 32, 0, 0, 16}, kip_affineModeBilinear, 32, 16};
constexpr kip_affineSampleParams kHalfOutside = {{40.25, 8.5, 32, -6, 6, 16}, kip_affineModeBilinear, 32, 16};
constexpr kmath_xformLinear kIdentity = {0, 0, 1, 0, 0, 1};

// A row of sums as an image and as a window, which must not change.
struct Row {
    SumsWindow memory;
    kimg_image image{};

    explicit Row(int32_t width = 40, int32_t bytesPerPixel = 4) : memory({0, 0, width, 1, width, 0})
    {
        EXPECT_EQ(kimg_image_constructExternal(&image, bytesPerPixel, width, 1, width, memory.first()), 0);
    }
    Row(const Row &) = delete;
    Row &operator=(const Row &) = delete;
    ~Row() { kimg_image_destruct(&image); }

    kimg_window window() const
    {
        kimg_window made{};
        kimg_window_init(&made, &image);
        return made;
    }
};

class ProjectionRefusal : public testing::TestWithParam<int32_t> {
protected:
    const Forms &forms = formsOf(GetParam());
    Pixels pixels{GetParam(), 64, 48, 70};
    Image source{pixels};

    struct Expected {
        int32_t plain, clipped;
        bool unboundResultStays = true; // no new pixels
    };

    // Expects every form to refuse, with no sum written.
    void expectRefusals(const Expected &expected, const Image &from, const kip_affineSampleParams &params,
                        kip_affineSampleCache **cache = nullptr)
    {
        uint32_t depth = kNoSum;
        uint32_t willClip = kNoSum;
        int32_t first = -1;
        int32_t end = -1;
        kmath_xformLinear placement = kIdentity;
        kimg_windowConst window;
        kimg_windowConst_init(&window, from.get());
        {
            Row sums;
            Row coverage;
            EXPECT_EQ(forms.project(from.get(), &sums.image, &params, cache, &depth), expected.plain);
            EXPECT_EQ(forms.projectNorm(from.get(), &sums.image, &params, 0, cache, &depth, &first, &end),
                      expected.plain);
            EXPECT_EQ(forms.projectNorm(from.get(), &sums.image, &params, 1, cache, &depth, &first, &end),
                      expected.clipped);
            EXPECT_EQ(
                forms.projectClipped(from.get(), &sums.image, &coverage.image, &params, cache, 255, &depth, &willClip),
                expected.clipped);
            if (from.isBound()) {
                kimg_window sumsWindow = sums.window();
                kimg_window coverageWindow = coverage.window();
                EXPECT_EQ(forms.projectWindow(&window, &kIdentity, &sumsWindow, &params, cache, &placement, &depth),
                          expected.plain);
                EXPECT_EQ(forms.projectClippedWindow(&window, &kIdentity, &sumsWindow, &coverageWindow, &params, cache,
                                                     &placement, 255, &depth, &willClip),
                          expected.clipped);
            }
            EXPECT_TRUE(sums.memory.holds({}));
            EXPECT_TRUE(coverage.memory.holds({}));
        }
        Image unbound;
        EXPECT_EQ(forms.project(from.get(), unbound.get(), &params, cache, &depth), expected.plain);
        EXPECT_EQ(unbound.isBound(), !expected.unboundResultStays);
        EXPECT_EQ(depth, kNoSum);
        EXPECT_EQ(first, -1);
        EXPECT_EQ(end, -1);
        EXPECT_TRUE(isEqual(placement, kIdentity));
    }
};

INSTANTIATE_TEST_SUITE_P(Depths, ProjectionRefusal, bothDepths(), depthName);

TEST_P(ProjectionRefusal, RefusesBadSamplings)
{
    const struct {
        const char *name;
        kip_affineSampleParams params;
        Expected status;
    } rows[] = {
        {"no width", {kSlanted.rect, 1, 0, 16}, {kip_statusSizeBelowOne, kip_statusSizeBelowOne}},
        {"no height", {kSlanted.rect, 0, 32, 0}, {kip_statusSizeBelowOne, kip_statusSizeBelowOne}},
        {"least size", {kSlanted.rect, 1, INT32_MIN, INT32_MIN}, {kip_statusSizeBelowOne, kip_statusSizeBelowOne}},
        {"mode 4", {kSlanted.rect, 4, 32, 16}, {kip_statusUnknownMode, kip_statusUnknownMode}},
        {"too far to count",
         {{1e300, 8, 32, 0, 0, 16}, 1, 32, 16},
         {kip_statusProjectionWouldClip, kmath_statusOutOfRange}},
        {"a single point", {{10, 10, 0, 0, 0, 0}, 1, 32, 16}, {kmath_statusSingular, kmath_statusSingular, false}},
        {"no number", {{10, kNan, 32, 0, 0, 16}, 1, 32, 16}, {kmath_statusNotFinite, kmath_statusNotFinite}},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        expectRefusals(row.status, source, row.params);
        Cache cache;
        expectRefusals(row.status, source, row.params, &cache.handle);
    }
}

TEST_P(ProjectionRefusal, RefusesUnboundSourcesAndNullHandles)
{
    const Image unbound;
    expectRefusals({kip_statusProjectionSourceUnbound, kip_statusProjectionSourceUnbound}, unbound, kSlanted);
    kip_affineSampleCache *handle = nullptr;
    for (const kip_affineSampleParams &params : {kSlanted, kAligned})
        expectRefusals({kip_statusCacheNotConstructed, kip_statusCacheNotConstructed, false}, source, params, &handle);
    EXPECT_EQ(handle, nullptr);
}

// The table-driven modes are not offered for 16-bit pixels, not even to the 8-bit forms and for whole-pixel maps.
TEST_P(ProjectionRefusal, RefusesOtherPixelSizes)
{
    for (const int32_t bytes : {1, 2, 4}) {
        const Image other(bytes, 64, 48);
        for (kip_affineSampleParams params : {kSlanted, kAligned, kHalfOutside}) {
            for (params.mode = 0; params.mode < 4; ++params.mode) {
                const bool isUnsupported = bytes == 2 && params.mode > kip_affineModeBilinear;
                if (bytes == forms.bytesPerPixel && !isUnsupported)
                    continue;
                SCOPED_TRACE(testing::Message() << bytes << " bytes, mode " << params.mode);
                const int32_t status = isUnsupported ? kip_statusProjectionModeUnsupported : kip_statusPixelDepth;
                const bool isOutside = params.rect.tx == kHalfOutside.rect.tx;
                expectRefusals({isOutside ? int32_t{kip_statusProjectionWouldClip} : status, status, isOutside}, other,
                               params);
            }
        }
    }
    for (const int32_t bytes : {1, 2}) {
        Row wrong(33 * 4 / bytes, bytes);
        Row right;
        uint32_t depth = kNoSum;
        uint32_t willClip = kNoSum;
        for (const kip_affineSampleParams &params : {kSlanted, kAligned})
            EXPECT_EQ(forms.project(source.get(), &wrong.image, &params, nullptr, &depth),
                      int32_t{kip_statusPixelDepth});
        EXPECT_EQ(forms.projectClipped(source.get(), &wrong.image, &right.image, &kHalfOutside, nullptr, 255, &depth,
                                       &willClip),
                  int32_t{kip_statusPixelDepth});
        EXPECT_EQ(forms.projectClipped(source.get(), &right.image, &wrong.image, &kHalfOutside, nullptr, 255, &depth,
                                       &willClip),
                  int32_t{kip_statusPixelDepth});
        EXPECT_TRUE(wrong.memory.holds({}));
        EXPECT_TRUE(right.memory.holds({}));
        EXPECT_EQ(depth, kNoSum);
    }
}

TEST_P(ProjectionRefusal, RefusesSourcesWithoutMemoryAndTakesResultsWithout)
{
    kimg_windowConst window;
    kimg_windowConst_init(&window, source.get());
    kimg_window nowhere;
    kimg_window_initUnbound(&nowhere);
    kmath_xformLinear placement{};
    uint32_t depth = kNoSum;
    uint32_t willClip = kNoSum;
    EXPECT_GE(forms.projectWindow(&window, &kIdentity, &nowhere, &kSlanted, nullptr, &placement, &depth), 0);
    EXPECT_EQ(depth, 16u);
    EXPECT_GE(forms.projectClippedWindow(&window, &kIdentity, &nowhere, &nowhere, &kHalfOutside, nullptr, &placement,
                                         255, &depth, &willClip),
              0);
    EXPECT_EQ(willClip, 1u);

    if (GetParam() == 2) {
        kimg_windowConst odd = window;
        odd.pixels = static_cast<const char *>(window.pixels) + 1;
        EXPECT_EQ(forms.projectWindow(&odd, &kIdentity, &nowhere, &kSlanted, nullptr, &placement, &depth),
                  int32_t{kip_statusMisaligned});
    }
    window.pixels = nullptr;
    for (const kip_affineSampleParams &params : {kSlanted, kAligned})
        EXPECT_EQ(forms.projectWindow(&window, &kIdentity, &nowhere, &params, nullptr, &placement, &depth),
                  int32_t{kimg_statusNoPixels});
    kimg_windowConst_window(&window, 0, 0, 0, 0, nullptr);
    Row sums;
    kimg_window sumsWindow = sums.window();
    EXPECT_EQ(forms.projectWindow(&window, &kIdentity, &sumsWindow, &kSlanted, nullptr, &placement, &depth),
              int32_t{kip_statusProjectionWouldClip});
    EXPECT_EQ(forms.projectClippedWindow(&window, &kIdentity, &sumsWindow, &nowhere, &kSlanted, nullptr, &placement,
                                         255, &depth, &willClip),
              int32_t{kip_statusProjectionOutsideSource});
    EXPECT_TRUE(sums.memory.holds(Sums(32, 0)));
}

// Rectangles that meet their source no more, or the padding that the sampling asks for.
TEST_P(ProjectionRefusal, GivesZerosOutsideTheSource)
{
    for (const double x : {64.0 + 6, 1e6}) {
        kip_affineSampleParams params = kAligned;
        params.rect.tx = x;
        Row sums;
        Row coverage;
        uint32_t depth = kNoSum;
        uint32_t willClip = kNoSum;
        EXPECT_EQ(
            forms.projectClipped(source.get(), &sums.image, &coverage.image, &params, nullptr, 255, &depth, &willClip),
            int32_t{kip_statusProjectionOutsideSource});
        EXPECT_TRUE(sums.memory.holds(Sums(32, 0)));
        EXPECT_TRUE(coverage.memory.holds({}));
        EXPECT_EQ(willClip, 1u);
    }
}

} // namespace

} // namespace kip::test
