#ifndef KIP_CPP_EDGES_HPP
#define KIP_CPP_EDGES_HPP

/**
 * @file
 * Edges of a profile at sub-pixel positions: the caliper's second half, after #kip::projectMean.
 */

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include <kip/cpp/error.hpp>
#include <kip/cpp/geometry.hpp>
#include <kip/cpp/sampler.hpp>

namespace kip {

/** Which edges count, seen along a profile. */
enum class Polarity {
    any,    /**< both */
    rising, /**< from dark to bright */
    falling /**< from bright to dark */
};

/** What #kip::findEdges looks for. */
struct EdgeOptions {
    double sigma = 1;                  /**< width of the Gaussian, in columns, 0.3 to 1000 */
    double threshold = 10;             /**< least contrast, in grey levels, 0 or more */
    Polarity polarity = Polarity::any; /**< which edges count */
    double minDistance = 2;            /**< of two edges closer than this, in columns, the stronger one stays */
    double minCoverage = 0.5;          /**< columns with less coverage count as missing */
};

/** An edge of a profile. */
struct Edge {
    double position; /**< along the profile: column i covers [i, i + 1) */
    double contrast; /**< the step's height in grey levels, as the Gaussian sees it; below 0 for a falling edge */
    Point client;    /**< the same place in client coordinates, on the rectangle's centre line */
};

namespace detail {

// The steps between the columns of a profile. Step i stands at the border of columns i - 1 and i; there is none beside
// a column without a value, and none at the ends.
inline std::vector<double> stepsOf(std::span<const double> means, std::span<const double> coverage, double minCoverage)
{
    const auto isMissing = [&](size_t i) {
        return !std::isfinite(means[i]) || (!coverage.empty() && !(coverage[i] >= minCoverage));
    };
    std::vector<double> steps(means.size() + 1, 0.0);
    for (size_t i = 1; i < means.size(); ++i)
        if (!isMissing(i - 1) && !isMissing(i))
            steps[i] = means[i] - means[i - 1];
    return steps;
}

class EdgeFinder {
public:
    EdgeFinder(const std::vector<double> &steps, const EdgeOptions &options) : steps_(steps), options_(options) {}

    std::vector<Edge> find()
    {
        const std::vector<Edge> peaks = findPeaks();
        std::vector<Edge> edges;
        for (size_t i = 0; i < peaks.size(); ++i) {
            const bool wanted = options_.polarity == Polarity::any ||
                                (peaks[i].contrast > 0) == (options_.polarity == Polarity::rising);
            if (!wanted || std::abs(peaks[i].contrast) < options_.threshold)
                continue;
            double nearest = HUGE_VAL;
            if (i > 0)
                nearest = peaks[i].position - peaks[i - 1].position;
            if (i + 1 < peaks.size())
                nearest = std::min(nearest, peaks[i + 1].position - peaks[i].position);
            edges.push_back({refine(peaks[i].position, nearest), peaks[i].contrast, {}});
        }
        return keepStrongest(edges);
    }

private:
    // The derivative of the profile's convolution with a Gaussian, times sigma sqrt(2 pi): of a single step it is the
    // step's height.
    double response(double x) const
    {
        double sum = 0;
        forStepsNear(x, 5 * options_.sigma, [&](double offset, double step) {
            const double u = offset / options_.sigma;
            sum += step * std::exp(-0.5 * u * u);
        });
        return sum;
    }

    // The response's extrema, among them weaker ones that tell how far an edge's surroundings are its own.
    std::vector<Edge> findPeaks() const
    {
        const size_t count = 2 * steps_.size() - 1;
        std::vector<double> responses(count);
        for (size_t i = 0; i < count; ++i)
            responses[i] = response(0.5 * static_cast<double>(i));
        std::vector<Edge> peaks;
        for (size_t i = 1; i + 1 < count; ++i) {
            const double sign = responses[i] < 0 ? -1 : 1;
            const double before = sign * responses[i - 1];
            const double here = sign * responses[i];
            const double after = sign * responses[i + 1];
            if (!(here > before && here >= after && here >= 0.5 * options_.threshold && here > 0))
                continue;
            const double curvature = before - 2 * here + after;
            const double shift = 0.5 * (before - after) / curvature; // of a parabola's top, in halves of a column
            peaks.push_back(
                {0.5 * (static_cast<double>(i) + shift), sign * (here - 0.25 * (before - after) * shift), {}});
        }
        return peaks;
    }

    // The centroid of the steps round a peak. Unlike the peak of the response it does not move with the place of a
    // sharp edge between two columns (by up to 0.05 at sigma 1): a pixel's share of the edge, and interpolation between
    // two pixels, keep the centroid. The window exp(-(u / a)^4 / 2) is flat where such an edge is and soft at its ends,
    // and leaves a neighbouring edge out.
    double refine(double peak, double nearestPeak) const
    {
        const double halfWidth = std::min(3 * options_.sigma, nearestPeak / 1.8);
        double x = peak;
        for (int round = 0; round < 100; ++round) {
            double sum = 0;
            double moment = 0;
            forStepsNear(x, 2.5 * halfWidth, [&](double offset, double step) {
                const double u = offset / halfWidth;
                const double weighted = step * std::exp(-0.5 * (u * u) * (u * u));
                sum += weighted;
                moment += weighted * offset;
            });
            const double shift = moment / sum;
            if (!(std::abs(x + shift - peak) <= options_.sigma))
                return peak; // nothing that has a centroid here
            x += shift;
            if (std::abs(shift) < 1e-9)
                break;
        }
        return x;
    }

    // Calls use(place - x, step) for the steps at most `reach` away.
    template <class Use>
    void forStepsNear(double x, double reach, const Use &use) const
    {
        const auto last = static_cast<double>(steps_.size() - 1);
        const auto first = static_cast<size_t>(std::clamp(std::ceil(x - reach), 0.0, last));
        const auto end = static_cast<size_t>(std::clamp(std::floor(x + reach), 0.0, last)) + 1;
        for (size_t i = first; i < end; ++i)
            use(static_cast<double>(i) - x, steps_[i]);
    }

    std::vector<Edge> keepStrongest(std::vector<Edge> edges) const
    {
        std::stable_sort(edges.begin(), edges.end(),
                         [](const Edge &a, const Edge &b) { return std::abs(a.contrast) > std::abs(b.contrast); });
        std::vector<Edge> kept; // in order of position
        for (const Edge &edge : edges) {
            const auto next =
                std::lower_bound(kept.begin(), kept.end(), edge.position,
                                 [](const Edge &other, double position) { return other.position < position; });
            const bool crowded = (next != kept.end() && next->position - edge.position < options_.minDistance) ||
                                 (next != kept.begin() && edge.position - (next - 1)->position < options_.minDistance);
            if (!crowded)
                kept.insert(next, edge);
        }
        return kept;
    }

    const std::vector<double> &steps_;
    const EdgeOptions &options_;
};

inline std::vector<Edge> findEdges(std::span<const double> means, std::span<const double> coverage,
                                   const EdgeOptions &options)
{
    if (!(options.sigma >= 0.3 && options.sigma <= 1000 && options.threshold >= 0 && options.minDistance >= 0))
        throw Error(ksys_statusBadArgument, "edges with an option out of its range: sigma is 0.3 to 1000, threshold "
                                            "and least distance are 0 or more");
    if (means.size() < 2)
        return {};
    const std::vector<double> steps = stepsOf(means, coverage, options.minCoverage);
    return EdgeFinder(steps, options).find();
}

} // namespace detail

/**
 * Finds the edges of a profile, in the order of their positions.
 *
 * Edges are the extrema of the profile's convolution with the derivative of a Gaussian (J. Canny, "A Computational
 * Approach to Edge Detection", 1986) whose contrast reaches the threshold. Their positions are centroids of the
 * profile's steps in a window of some 3 sigma, less where another edge is near. For an isolated edge of 100 grey
 * levels, sharp or with a blur of up to 0.8 columns, in the mean of 40 rows with noise of 2 grey levels, the standard
 * deviation is below 0.01 columns and the bias below 0.005 at sigma 1. Two edges closer than some 2 sigma draw each
 * other.
 *
 * means    one value for each column, grey levels; a value that is not finite counts as missing.
 * options  what to look for.
 * Returns the edges; client is (0, 0), as a bare profile lies nowhere. Throws Error for options out of range.
 * Threads: may be called from any. Positions do not depend on the machine but for the last digits of std::exp.
 */
inline std::vector<Edge> findEdges(std::span<const double> means, const EdgeOptions &options = {})
{
    return detail::findEdges(means, {}, options);
}

/** Finds the edges of a profile as above, with their places in client coordinates; missing columns by coverage. */
inline std::vector<Edge> findEdges(const MeanProfile &profile, const EdgeOptions &options = {})
{
    std::vector<Edge> edges = detail::findEdges(profile.means, profile.coverage, options);
    const auto columns = static_cast<double>(profile.means.size());
    for (Edge &edge : edges)
        edge.client = profile.rect.at(edge.position / columns, 0.5);
    return edges;
}

/** Finds the edges of a profile of sums, as above, with their places in client coordinates. */
inline std::vector<Edge> findEdges(const Profile &profile, const EdgeOptions &options = {})
{
    MeanProfile means{{}, {}, profile.rect};
    for (const uint32_t sum : profile.sums)
        means.means.push_back(sum / static_cast<double>(profile.depth));
    return findEdges(means, options);
}

} // namespace kip

#endif
