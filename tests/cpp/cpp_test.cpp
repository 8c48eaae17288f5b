// The C++ layer beside the C functions: same results, and what it adds to them.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <random>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include <kip/kip.hpp>

namespace {

constexpr kip::Mode kModes[] = {kip::Mode::nearest, kip::Mode::bilinear, kip::Mode::separable, kip::Mode::cubic};

template <class P>
std::vector<P> randomPixels(size_t count, unsigned seed)
{
    std::mt19937 random(seed);
    std::vector<P> pixels(count);
    for (P &pixel : pixels)
        pixel = static_cast<P>(random());
    return pixels;
}

template <class P>
std::vector<P> pixelsOf(kip::ImageView<const P> view)
{
    std::vector<P> pixels;
    for (int32_t y = 0; y < view.height(); ++y)
        pixels.insert(pixels.end(), view.row(y).begin(), view.row(y).end());
    return pixels;
}

template <class P>
std::vector<P> pixelsOf(const kip::Image<P> &image)
{
    return pixelsOf<P>(image.view());
}

// What the C functions give, with everything spelled out.
template <class P>
std::vector<P> transformedInC(kip::ImageView<const P> view, const kip_affineSampleParams &params)
{
    kimg_imageConst source;
    kimg_image result;
    EXPECT_EQ(
        kimg_imageConst_constructExternal(&source, sizeof(P), view.width(), view.height(), view.pitch(), view.data()),
        0);
    kimg_image_constructUnbound(&result);
    EXPECT_EQ(sizeof(P) == 1 ? kip_affineTransform(&source, &result, &params, nullptr)
                             : kip_affineTransform16(&source, &result, &params, nullptr),
              0);
    kimg_windowConst window;
    kimg_windowConst_init(&window, &result);
    std::vector<P> pixels = pixelsOf(kip::ImageView<const P>::withPitch(static_cast<const P *>(window.pixels),
                                                                        window.width, window.height, window.pitch));
    kimg_image_destruct(&source);
    kimg_image_destruct(&result);
    return pixels;
}

int32_t statusOf(const std::function<void()> &call)
{
    try {
        call();
    } catch (const kip::Error &error) {
        return error.status();
    }
    return 0;
}

template <class P>
class CppTwins : public testing::Test {};
using PixelTypes = testing::Types<uint8_t, uint16_t>;
TYPED_TEST_SUITE(CppTwins, PixelTypes);

TYPED_TEST(CppTwins, EveryFormGivesWhatTheCFunctionGives)
{
    using P = TypeParam;
    constexpr int32_t kWidth = 90;
    constexpr int32_t kHeight = 70;
    std::vector<P> pixels = randomPixels<P>(size_t{100} * kHeight, 1);
    // Rows 100 pixels apart, the last one in memory first.
    const kip::ImageView<P> source(pixels.data() + 100 * (kHeight - 1), kWidth, kHeight,
                                   -100 * static_cast<std::ptrdiff_t>(sizeof(P)));
    const auto rect = kip::AffineRect::fromCenter({41.3, 33.8}, 40.2, 21, 0.4);
    for (const kip::Mode mode : kModes) {
        const kip::Sampling sampling{.mode = mode, .size = {37, 23}};
        const std::vector<P> expected = transformedInC<P>(source, {rect.record(), static_cast<uint32_t>(mode), 37, 23});
        kip::Sampler first(rect, sampling);
        kip::Sampler sampler = std::move(first);
        EXPECT_EQ(pixelsOf(kip::transform(source, rect, sampling)), expected);
        EXPECT_EQ(pixelsOf(sampler.transform(source)), expected);

        // Into the middle of something larger, and into an image with and without room.
        std::vector<P> canvas(size_t{50} * 30, P{77});
        const kip::ImageView<P> part(&canvas[size_t{3} * 50 + 5], 37, 23, 50 * static_cast<std::ptrdiff_t>(sizeof(P)));
        sampler.transformInto(source, part);
        EXPECT_EQ(pixelsOf<P>(part), expected);
        EXPECT_EQ(std::count(canvas.begin(), canvas.end(), P{77}) + 37 * 23,
                  std::ssize(canvas) + std::count(expected.begin(), expected.end(), P{77}));
        kip::Image<P> fitting(37, 23);
        const P *const before = fitting.data();
        kip::Image<P> other(12, 50);
        sampler.transformInto(source, fitting);
        sampler.transformInto(source, other);
        EXPECT_EQ(fitting.data(), before);
        EXPECT_EQ(pixelsOf(fitting), expected);
        EXPECT_EQ(pixelsOf(other), expected);

        // An image of its own, placed by a client map of half the scale.
        kip::Image<P> owned(kWidth, kHeight);
        for (int32_t y = 0; y < kHeight; ++y)
            std::memcpy(owned.row(y).data(), source.row(y).data(), kWidth * sizeof(P));
        owned.setPlacement({0, 0, 0.5, 0, 0, 0.5});
        const kip::AffineRect doubled = rect.mapped(kip::inverse(owned.placement()));
        EXPECT_EQ(pixelsOf(kip::transform(owned.clone(), doubled, sampling)), expected);

        const kip::Clipped<P> inside = kip::transformClipped(source, rect, sampling);
        EXPECT_FALSE(inside.clipped);
        EXPECT_EQ(pixelsOf(inside.image), expected);
        EXPECT_EQ(pixelsOf(inside.mask), std::vector<uint8_t>(expected.size(), 255));

        if (sizeof(P) == 2 && mode > kip::Mode::bilinear)
            continue;
        std::vector<uint32_t> sums(37);
        for (size_t i = 0; i < expected.size(); ++i)
            sums[i % 37] += expected[i];
        EXPECT_EQ(kip::project(source, rect, sampling).sums, sums);
        const kip::MeanProfile means = sampler.projectMean(source);
        for (size_t i = 0; i < sums.size(); ++i) {
            EXPECT_EQ(means.means[i], sums[i] / 23.0);
            EXPECT_EQ(means.coverage[i], 1);
        }
    }
}

TYPED_TEST(CppTwins, ClippedFormsTellWhatLiesInside)
{
    using P = TypeParam;
    const std::vector<P> pixels(size_t{40} * 40, P{100});
    const kip::ImageView source(pixels, 40, 40);
    // Columns 0 to 9 lie left of the source, and a part of the rows below it.
    const auto rect = kip::AffineRect::fromCorners({-10.25, 30.25}, {9.75, 30.25}, {-10.25, 50.25});
    kip::Sampler sampler(rect);
    const kip::Clipped<P> clipped = sampler.transformClipped(source);
    EXPECT_TRUE(clipped.clipped);
    EXPECT_EQ(clipped.mask.row(0)[5], 0);
    EXPECT_EQ(clipped.mask.row(0)[15], 255);
    EXPECT_EQ(clipped.image.row(0)[15], 100);
    std::vector<P> image(400);
    std::vector<uint8_t> mask(400);
    EXPECT_TRUE(sampler.transformClippedInto(source, kip::ImageView(image, 20, 20), kip::ImageView(mask, 20, 20)));
    EXPECT_EQ(image, pixelsOf(clipped.image));
    EXPECT_EQ(mask, pixelsOf(clipped.mask));

    const kip::MeanProfile means = kip::projectMean(source, rect);
    EXPECT_TRUE(std::isnan(means.means[5]));
    EXPECT_EQ(means.coverage[5], 0);
    EXPECT_NEAR(means.means[15], 100, 0.5);
    EXPECT_NEAR(means.coverage[15], 9.75 / 20, 0.02);
}

TEST(Cpp, SourcesBeyond32767AreCutRoundTheRectangle)
{
    struct Case {
        const char *name;
        int32_t width, height;
        std::ptrdiff_t pitch; // of the view, negative: bottom-up
        kip::Point center;
    };
    const Case cases[] = {
        {"tall", 40, 40000, 40, {20, 36000}},
        {"wide", 40000, 40, 40000, {36000.3, 19.6}},
        {"wide, bottom-up", 40000, 40, -40000, {36000.3, 19.6}},
        {"narrow part of a wide one", 60, 40, 40000, {30, 20}},
    };
    for (const Case &test : cases) {
        SCOPED_TRACE(test.name);
        const size_t count = static_cast<size_t>(std::abs(test.pitch)) * static_cast<size_t>(test.height);
        std::vector<uint16_t> pixels = randomPixels<uint16_t>(count, 2);
        uint16_t *first = test.pitch < 0 ? &pixels[count - 40000] : pixels.data();
        const kip::ImageView source(first, test.width, test.height, test.pitch * 2);
        const auto rect = kip::AffineRect::fromCenter(test.center, 18, 11, 0.2);
        // The same in a picture of 40 x 40 pixels round the rectangle.
        const int32_t x = std::max(0, static_cast<int32_t>(test.center.x) - 20);
        const int32_t y = std::max(0, static_cast<int32_t>(test.center.y) - 20);
        std::vector<uint16_t> near;
        for (int32_t row = y; row < y + 40 && row < test.height; ++row)
            near.insert(near.end(), &source(x, row), &source(x, row) + 40);
        const kip::ImageView<const uint16_t> small(near.data(), 40, static_cast<int32_t>(near.size() / 40));
        const auto moved = kip::AffineRect::fromCenter({test.center.x - x, test.center.y - y}, 18, 11, 0.2);
        for (const kip::Mode mode : kModes) {
            const kip::Image<uint16_t> result = kip::transform(source, rect, {.mode = mode});
            const kip::Image<uint16_t> expected = kip::transform(small, moved, {.mode = mode});
            EXPECT_EQ(pixelsOf(result), pixelsOf(expected));
        }
        EXPECT_EQ(kip::project(source, rect).sums, kip::project(small, moved).sums);
        const auto outside = kip::AffineRect::fromCenter({-100, -100}, 18, 11);
        EXPECT_NE(statusOf([&] { (void)kip::transform(source, outside); }), 0);
        const auto over = kip::AffineRect::fromCenter({test.center.x, test.height - 1.0}, 18, 11);
        try {
            (void)kip::transform(source, over);
            ADD_FAILURE() << "inside";
        } catch (const kip::Error &error) { // of the whole picture, not of the part
            EXPECT_NE(std::string(error.what()).find(std::to_string(test.width) + " x "), std::string::npos);
            EXPECT_DOUBLE_EQ(error.overhang()->bottom, 4.5);
        }
    }
    // What the rectangle can reach is itself too large.
    const std::vector<uint16_t> tall(size_t{40} * 40000);
    const kip::ImageView source(tall, 40, 40000);
    const auto whole = kip::AffineRect::fromCorners({5, 5}, {35, 5}, {5, 39990});
    EXPECT_EQ(statusOf([&] { (void)kip::transform(source, whole, {.size = {30, 100}}); }), kip_statusSourceTooLarge);
}

TEST(Cpp, OverhangIsTheWayBackInside)
{
    const std::vector<uint8_t> pixels(size_t{200} * 150);
    const kip::ImageView source(pixels, 200, 150);
    for (const kip::Mode mode : kModes)
        for (const kip::Point center : {kip::Point{3, 70}, {197, 70}, {100, 2.25}, {100, 149}, {0, 150}}) {
            const kip::Sampling sampling{.mode = mode};
            const auto rect = kip::AffineRect::fromCenter(center, 60, 30, 0.5);
            kip::Overhang over;
            try {
                (void)kip::transform(source, rect, sampling);
                FAIL() << "inside";
            } catch (const kip::Error &error) {
                ASSERT_TRUE(error.overhang());
                over = *error.overhang();
                EXPECT_EQ(error.code(), kip::Status{kip_statusTransformWouldClip});
                EXPECT_NE(std::string(error.what()).find(kip::describe(over)), std::string::npos);
                EXPECT_NE(std::string(error.what()).find(error.name()), std::string::npos);
            }
            const auto moved = [&](double slack) { // back inside and a little further, or not quite as far
                const auto way = [&](double distance) { return distance == 0 ? 0 : distance + slack; };
                return kip::AffineRect::fromCenter(
                    {center.x + way(over.left) - way(over.right), center.y + way(over.top) - way(over.bottom)}, 60, 30,
                    0.5);
            };
            EXPECT_EQ(statusOf([&] { (void)kip::transform(source, moved(0.001), sampling); }), 0);
            EXPECT_EQ(statusOf([&] { (void)kip::transform(source, moved(-0.001), sampling); }),
                      kip_statusTransformWouldClip);
        }
    EXPECT_EQ(kip::describe({12.5, 0, 0, 0.004}),
              "12.5 pixels over the left edge and less than 0.01 over the bottom edge");
}

TEST(Cpp, BadArgumentsAreErrorsAndNothingIsWritten)
{
    std::vector<uint8_t> pixels = randomPixels<uint8_t>(2500, 3);
    const std::vector<uint8_t> before = pixels;
    const kip::ImageView<uint8_t> source(pixels, 50, 50);
    const kip::ImageView<uint8_t> overlapping(&pixels[100], 10, 10, 50);
    const auto rect = kip::AffineRect::fromCenter({25, 25}, 10, 10, 0.3);
    const auto thin = kip::AffineRect::fromCorners({5, 5}, {25, 5}, {35, 5});
    std::vector<uint32_t> sums(9);
    const double nan = std::nan("");
    struct Case {
        const char *name;
        int32_t status;
        std::function<void()> call;
    };
    const Case cases[] = {
        {"overlap", kip_pelStatusOverlap, [&] { kip::transformInto(source, rect, overlapping); }},
        {"size of a view", kip_statusWindowMismatch, [&] { kip::Sampler(rect).transformInto(source, source); }},
        {"number of sums", kip_statusWindowMismatch, [&] { kip::Sampler(rect).projectInto(source, sums); }},
        {"parallel sides", kmath_statusSingular,
         [&] {
             (void)kip::transform(source, thin, {.size = {4, 4}});
         }},
        {"no size", kip_statusSizeBelowOne,
         [&] {
             (void)kip::project(source, rect, {.size = {0, 1}});
         }},
        {"mode", kip_statusUnknownMode, [&] { (void)kip::transform(source, rect, {.mode = kip::Mode{4}}); }},
        {"not finite", kmath_statusNotFinite,
         [&] {
             (void)kip::AffineRect::fromCenter({nan, 0}, 1, 1);
         }},
        {"no pixels", kimg_statusBadSize, [&] { (void)kip::transform(kip::ImageView<uint8_t>(), rect); }},
        {"no image", kip_statusTransformSourceUnbound, [&] { (void)kip::transform(kip::Image<uint8_t>(), rect); }},
        {"short span", kimg_statusTooLarge, [&] { kip::ImageView<uint8_t>(pixels, 50, 51); }},
        {"stride", kimg_statusBadPitch, [&] { kip::ImageView<uint16_t>(nullptr, 5, 5, 11); }},
        {"rows that overlap", kimg_statusBadPitch,
         [&] { (void)kip::project(kip::ImageView<uint8_t>(pixels.data(), 50, 50, 49), rect); }},
        {"threads", ksys_statusBadArgument, [&] { kip::setThreads(-1); }},
    };
    for (const Case &test : cases)
        EXPECT_EQ(statusOf(test.call), test.status) << test.name;
    EXPECT_EQ(pixels, before);
}

TEST(Cpp, SumsOfRowsAndColumns)
{
    const std::vector<uint8_t> pixels = {1, 2, 3, 0, 10, 20, 30, 0};
    const kip::ImageView<const uint8_t> view(pixels.data(), 3, 2, 4);
    EXPECT_EQ(kip::rowSums(view), (std::vector<uint32_t>{6, 60}));
    EXPECT_EQ(kip::columnSums(view), (std::vector<uint32_t>{11, 22, 33}));
    const kip::Point at = kip::map(kip::placement(kip::AffineRect::fromCorners({4, 2}, {4, 8}, {1, 2})), {4, 5});
    EXPECT_EQ(at, (kip::Point{3, 0}));
}

} // namespace
