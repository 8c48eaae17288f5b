// Edges of profiles whose edges are known.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <span>
#include <vector>

#include <kip/kip.hpp>

namespace {

struct Step {
    double place;
    double height;
};

// The integral from 0 to x of steps blurred by a Gaussian, so that a column's mean is a difference of two.
double integral(double x, const Step &step, double blur)
{
    if (blur == 0)
        return step.height * std::max(0.0, x - step.place);
    const double z = (x - step.place) / blur;
    const double below = 0.5 * (1 + std::erf(z / std::sqrt(2.0)));
    return step.height * blur * (z * below + std::exp(-0.5 * z * z) / std::sqrt(2 * std::acos(-1.0)));
}

std::vector<double> profileOf(std::span<const Step> steps, double blur, int columns)
{
    std::vector<double> means(static_cast<size_t>(columns), 50.0);
    for (int i = 0; i < columns; ++i)
        for (const Step &step : steps)
            means[static_cast<size_t>(i)] += integral(i + 1, step, blur) - integral(i, step, blur);
    return means;
}

TEST(Edges, AreWithinAHundredthOfAPixelUnderNoise)
{
    constexpr int kSeeds = 1000;
    for (const double blur : {0.0, 0.4, 0.8}) {
        double sum = 0;
        double squares = 0;
        for (int seed = 0; seed < kSeeds; ++seed) {
            std::mt19937 random(static_cast<unsigned>(seed));
            std::normal_distribution<double> noise(0, 2 / std::sqrt(40.0));
            const Step edge{20 + seed / double{kSeeds}, seed % 2 == 0 ? 100.0 : -40.0 * 2.5};
            std::vector<double> means = profileOf({&edge, 1}, blur, 41);
            for (double &mean : means)
                mean += noise(random);
            const std::vector<kip::Edge> edges = kip::findEdges(means);
            ASSERT_EQ(edges.size(), 1u);
            const double error = edges[0].position - edge.place;
            sum += error;
            squares += error * error;
        }
        const double bias = sum / kSeeds;
        EXPECT_LT(std::abs(bias), 0.005) << blur;
        EXPECT_LT(std::sqrt(squares / kSeeds - bias * bias), 0.01) << blur;
    }
}

// Wherever between two columns a sharp edge lies, and however samples lie between the pixels.
TEST(Edges, DoNotMoveWithTheirPlaceInAColumn)
{
    for (int i = 0; i < 40; ++i) {
        const Step edge{20 + i / 40.0, 80};
        const std::vector<double> means = profileOf({&edge, 1}, 0, 40);
        for (const double shift : {0.0, 0.25, 0.5}) {
            std::vector<double> between;
            for (size_t k = 0; k + 1 < means.size(); ++k)
                between.push_back((1 - shift) * means[k] + shift * means[k + 1]);
            const std::vector<kip::Edge> edges = kip::findEdges(between);
            ASSERT_EQ(edges.size(), 1u);
            EXPECT_NEAR(edges[0].position + shift, edge.place, 0.005);
            EXPECT_NEAR(edges[0].contrast, 80, 80 * 0.2);
        }
    }
}

TEST(Edges, AreChosenByOptions)
{
    // A bar, a faint step, and two lines of two columns each.
    const Step steps[] = {{10, 60}, {20, -60}, {30, 12}, {40, 50}, {42, -50}, {44, 80}, {46, -80}};
    const std::vector<double> means = profileOf(steps, 0, 60);
    const auto places = [&](const kip::EdgeOptions &options) {
        std::vector<double> rounded;
        for (const kip::Edge &edge : kip::findEdges(means, options))
            rounded.push_back(std::round(edge.position));
        return rounded;
    };
    using Places = std::vector<double>;
    EXPECT_EQ(places({}), (Places{10, 20, 30, 40, 42, 44, 46}));
    EXPECT_EQ(places({.threshold = 20}), (Places{10, 20, 40, 42, 44, 46}));
    EXPECT_EQ(places({.threshold = 20, .polarity = kip::Polarity::falling}), (Places{20, 42, 46}));
    EXPECT_EQ(places({.threshold = 20, .polarity = kip::Polarity::rising}), (Places{10, 40, 44}));
    EXPECT_EQ(places({.threshold = 20, .minDistance = 5}), (Places{10, 20, 40, 46}));
    for (const kip::EdgeOptions &bad :
         {kip::EdgeOptions{.sigma = 0}, {.sigma = std::nan("")}, {.threshold = -1}, {.minDistance = -1}})
        EXPECT_THROW((void)kip::findEdges(means, bad), kip::Error);
    EXPECT_TRUE(kip::findEdges(std::vector<double>{}).empty());
    EXPECT_TRUE(kip::findEdges(std::vector<double>(50, 7.0), {.threshold = 0}).empty());
}

TEST(Edges, MissingColumnsMakeNone)
{
    const double missing = std::numeric_limits<double>::quiet_NaN();
    const std::vector<double> means = {missing, missing, 90, 90, 90, 90, 0, 0, 0, 90, 90, 90, 20, 20, 20, 20};
    std::vector<double> coverage(means.size(), 1.0);
    std::fill_n(coverage.begin() + 6, 3, 0.4);
    const auto rect = kip::AffineRect::fromCorners({100, 50}, {100, 66}, {90, 50});
    const std::vector<kip::Edge> edges = kip::findEdges(kip::MeanProfile{means, coverage, rect});
    ASSERT_EQ(edges.size(), 1u);
    EXPECT_NEAR(edges[0].position, 12, 1e-6);
    EXPECT_NEAR(edges[0].contrast, -70, 1e-6);
    EXPECT_NEAR(edges[0].client.x, 95, 1e-6); // the middle of the y side
    EXPECT_NEAR(edges[0].client.y, 62, 1e-6);
    EXPECT_EQ(kip::findEdges(means).size(), 3u); // a bare profile has no coverage
    const kip::Profile sums{{400, 400, 400, 40, 40, 40}, 4, rect};
    EXPECT_NEAR(kip::findEdges(sums).at(0).client.y, 50 + 8, 1e-6);
    EXPECT_NEAR(kip::findEdges(sums).at(0).contrast, -90, 1e-6);
}

} // namespace
