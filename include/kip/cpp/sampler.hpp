#ifndef KIP_CPP_SAMPLER_HPP
#define KIP_CPP_SAMPLER_HPP

/**
 * @file
 * The operations on affine rectangles: transforms and projections, of one picture or of many.
 *
 * All of them take Image and ImageView as sources, 8 or 16 bit, and throw Error when the C function fails or memory is
 * missing. Where rows or pitch of a source exceed 32767 and the C function would refuse it, a window round what the
 * rectangle can reach is sampled in its place.
 */

#include <algorithm>
#include <concepts>
#include <cstdint>
#include <cstring>
#include <limits>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include <kip/cpp/error.hpp>
#include <kip/cpp/geometry.hpp>
#include <kip/cpp/image.hpp>
#include <kip/cpp/open_source.hpp>
#include <kip/kip.h>

namespace kip {

/** How a sample is made of the pixels round it. */
enum class Mode : uint32_t {
    nearest = kip_affineModeNearest,             /**< the pixel under it */
    bilinear = kip_affineModeBilinear,           /**< the four pixels round it, weighted */
    separable = kip_affineModeBilinearSeparable, /**< bilinear in two one-dimensional passes */
    cubic = kip_affineModeBicubic                /**< cubic convolution of 4 x 4 pixels (a = -0.5) in two passes */
};

/** How a rectangle is sampled: `{.mode = kip::Mode::cubic, .size = {120, 40}}`. */
struct Sampling {
    Mode mode = Mode::bilinear; /**< interpolation */
    Size size = {};             /**< columns and rows of the result; 0 x 0: AffineRect::standardSize() */
};

/** What a clipped transform gives. */
template <Pixel P>
struct Clipped {
    Image<P> image;      /**< the picture; what lies outside the source counts as black */
    Image<uint8_t> mask; /**< 255 where a sample lies inside the source, 0 outside, between them at its border */
    bool clipped;        /**< whether the rectangle reaches outside at all; if not, the mask is 255 everywhere */
};

/** Sums of the columns of a rectangle's samples. */
struct Profile {
    std::vector<uint32_t> sums; /**< one for each column, modulo 2^32 */
    int32_t depth;              /**< number of samples in each sum */
    AffineRect rect;            /**< where they were taken */
};

/** Means of the columns of a rectangle's samples, as far as they lie inside the source. */
struct MeanProfile {
    std::vector<double> means;    /**< one for each column; not-a-number for one without coverage */
    std::vector<double> coverage; /**< the share of each column's samples that lies inside the source, 0 to 1 */
    AffineRect rect;              /**< where they were taken */
};

namespace detail {

inline kip_affineSampleParams paramsOf(const AffineRect &rect, const Sampling &sampling)
{
    const Size size = sampling.size == Size{} ? rect.standardSize() : sampling.size;
    return {rect.record(), static_cast<uint32_t>(sampling.mode), size.width, size.height};
}

inline Xform placementOf(const kip_affineSampleParams &params)
{
    Xform xform;
    check(kip_affineSampleParams_getDestImageFromClientXform(&params, 0, &xform), "placement of a sampling");
    return xform;
}

template <Source S>
auto readOnly(const S &source)
{
    return ImageView<const PixelOf<S>>(source);
}
template <Pixel P>
const Image<P> &readOnly(const Image<P> &source)
{
    return source;
}

// A row of sums as the C functions take it.
inline kimg_window rowWindow(std::span<uint32_t> row) noexcept
{
    const auto count = static_cast<int32_t>(row.size());
    return {count, 1, 0, 0, 0, 0, count, 1, count, row.data(), sizeof(uint32_t)};
}

template <Source S>
void transformInto(const S &source, kimg_image *result, const kip_affineSampleParams &params,
                   kip_affineSampleCache **cache)
{
    OpenSource<PixelOf<S>> open(readOnly(source), &params);
    int32_t status;
    if constexpr (sizeof(PixelOf<S>) == 1)
        status = kip_affineTransform(open.image(), result, &params, cache);
    else
        status = kip_affineTransform16(open.image(), result, &params, cache);
    if (status < 0)
        throwFailure(status, "transform", "transformClipped", params, open.whole(), *open.fromClient());
}

// The image form of a view that receives a result, for the time of one call.
struct BoundView {
    kimg_image image;

    template <Pixel P>
    BoundView(const ImageView<P> &view, const kip_affineSampleParams &params)
    {
        if (view.width() != params.destWidth || view.height() != params.destHeight)
            throw Error(kip_statusWindowMismatch, "transform of " + sizeInWords(params.destWidth, params.destHeight) +
                                                      " samples into a view of " +
                                                      sizeInWords(view.width(), view.height()) + " pixels");
        check(kimg_image_constructExternal(&image, sizeof(P), view.width(), view.height(), view.pitch(), view.data()),
              "a view for a result");
    }
    BoundView(const BoundView &) = delete;
    BoundView &operator=(const BoundView &) = delete;
    ~BoundView() { (void)kimg_image_destruct(&image); }
};

template <Source S>
void transformInto(const S &source, const ImageView<PixelOf<S>> &result, const kip_affineSampleParams &params,
                   kip_affineSampleCache **cache)
{
    BoundView bound(result, params);
    transformInto(source, &bound.image, params, cache);
}

template <Source S>
Image<PixelOf<S>> transform(const S &source, const kip_affineSampleParams &params, kip_affineSampleCache **cache)
{
    Image<PixelOf<S>> result;
    transformInto(source, result.handle(), params, cache);
    return result;
}

inline void fill(const ImageView<uint8_t> &view, uint8_t value) noexcept
{
    for (int32_t y = 0; y < view.height(); ++y)
        std::memset(view.row(y).data(), value, view.row(y).size());
}

// Whether the rectangle reaches outside; if not, the mask is as it was.
template <Source S>
bool transformClippedInto(const S &source, kimg_image *result, kimg_image *mask, const kip_affineSampleParams &params,
                          kip_affineSampleCache **cache)
{
    OpenSource<PixelOf<S>> open(readOnly(source), &params);
    int32_t clipped = 0;
    int32_t status;
    if constexpr (sizeof(PixelOf<S>) == 1)
        status = kip_affineTransformClipped(open.image(), result, mask, &params, cache, &clipped);
    else
        status = kip_affineTransformClipped16(open.image(), result, mask, &params, cache, &clipped);
    if (status < 0)
        throwFailure(status, "clipped transform", "", params, open.whole(), *open.fromClient());
    return clipped != 0;
}

template <Source S>
bool transformClippedInto(const S &source, const ImageView<PixelOf<S>> &result, const ImageView<uint8_t> &mask,
                          const kip_affineSampleParams &params, kip_affineSampleCache **cache)
{
    BoundView bound(result, params);
    if (mask.data() == nullptr)
        return transformClippedInto(source, &bound.image, nullptr, params, cache);
    BoundView boundMask(mask, params);
    const bool clipped = transformClippedInto(source, &bound.image, &boundMask.image, params, cache);
    if (!clipped)
        fill(mask, 255);
    return clipped;
}

template <Source S>
Clipped<PixelOf<S>> transformClipped(const S &source, const kip_affineSampleParams &params,
                                     kip_affineSampleCache **cache)
{
    Clipped<PixelOf<S>> result{};
    result.clipped = transformClippedInto(source, result.image.handle(), result.mask.handle(), params, cache);
    if (!result.clipped) {
        result.mask = Image<uint8_t>(params.destWidth, params.destHeight);
        result.mask.setPlacement(result.image.placement());
        fill(result.mask.view(), 255);
    }
    return result;
}

template <Source S>
void projectInto(const S &source, std::span<uint32_t> sums, const kip_affineSampleParams &params,
                 kip_affineSampleCache **cache)
{
    if (sums.size() != static_cast<size_t>(std::max(params.destWidth, 0)))
        throw Error(kip_statusWindowMismatch, "projection of " + std::to_string(params.destWidth) + " columns into " +
                                                  std::to_string(sums.size()) + " sums");
    OpenSource<PixelOf<S>> open(readOnly(source), &params);
    kimg_window row = rowWindow(sums);
    Xform placement;
    int32_t status;
    if constexpr (sizeof(PixelOf<S>) == 1)
        status = kip_affineProjectWindow(open.window(), open.fromClient(), &row, &params, cache, &placement, nullptr);
    else
        status = kip_affineProjectWindow16(open.window(), open.fromClient(), &row, &params, cache, &placement, nullptr);
    if (status < 0)
        throwFailure(status, "projection", "projectMean", params, open.whole(), *open.fromClient());
}

// A vector for one value a column. A size that no column can have is left to the C function, which refuses it.
template <class T>
std::vector<T> columnsOf(const kip_affineSampleParams &params)
{
    return std::vector<T>(static_cast<size_t>(std::max(params.destWidth, 0)));
}

template <Source S>
Profile project(const S &source, const kip_affineSampleParams &params, kip_affineSampleCache **cache)
{
    Profile profile{columnsOf<uint32_t>(params), params.destHeight, AffineRect(params.rect)};
    projectInto(source, profile.sums, params, cache);
    return profile;
}

template <Source S>
MeanProfile projectMean(const S &source, const kip_affineSampleParams &params, kip_affineSampleCache **cache)
{
    constexpr uint8_t kWhole = 255; // what a sample wholly inside counts
    std::vector<uint32_t> sums = columnsOf<uint32_t>(params);
    std::vector<uint32_t> counts = columnsOf<uint32_t>(params);
    OpenSource<PixelOf<S>> open(readOnly(source), &params);
    kimg_window sumRow = rowWindow(sums);
    kimg_window countRow = rowWindow(counts);
    Xform placement;
    uint32_t clipped = 0;
    uint32_t depth = 0;
    int32_t status;
    if constexpr (sizeof(PixelOf<S>) == 1)
        status = kip_affineProjectClippedWindow(open.window(), open.fromClient(), &sumRow, &countRow, &params, cache,
                                                &placement, kWhole, &depth, &clipped);
    else
        status = kip_affineProjectClippedWindow16(open.window(), open.fromClient(), &sumRow, &countRow, &params, cache,
                                                  &placement, kWhole, &depth, &clipped);
    if (status < 0)
        throwFailure(status, "projection", "", params, open.whole(), *open.fromClient());

    MeanProfile profile{columnsOf<double>(params), columnsOf<double>(params), AffineRect(params.rect)};
    const double whole = double{kWhole} * params.destHeight;
    for (size_t i = 0; i < sums.size(); ++i) {
        const double count = clipped != 0 ? counts[i] : whole;
        profile.coverage[i] = count / whole;
        profile.means[i] = count > 0 ? sums[i] / (count / kWhole) : std::numeric_limits<double>::quiet_NaN();
    }
    return profile;
}

} // namespace detail

/**
 * Samples the same rectangle of one picture after the other, and keeps its geometry in between: from the second call
 * on nothing is worked out twice. It moves. One thread may use it at a time; each thread has its own.
 */
class Sampler {
public:
    /** Prepares a sampling. Throws Error without memory, or when a rectangle of no stated size is not finite. */
    explicit Sampler(const AffineRect &rect, const Sampling &sampling = {}) : params_(detail::paramsOf(rect, sampling))
    {
        check(kip_affineSampleCache_construct(&cache_), "a sampler");
    }

    /** Takes another's place; the other one is then only good for destruction and assignment. */
    Sampler(Sampler &&other) noexcept : params_(other.params_), cache_(std::exchange(other.cache_, nullptr)) {}
    /** Changes places with another. */
    Sampler &operator=(Sampler &&other) noexcept
    {
        std::swap(params_, other.params_);
        std::swap(cache_, other.cache_);
        return *this;
    }
    Sampler(const Sampler &) = delete;
    Sampler &operator=(const Sampler &) = delete;
    ~Sampler() { (void)kip_affineSampleCache_destruct(&cache_); }

    /** The rectangle. */
    AffineRect rect() const noexcept { return AffineRect(params_.rect); }
    /** The mode. */
    Mode mode() const noexcept { return static_cast<Mode>(params_.mode); }
    /** Columns and rows of a result. */
    Size size() const noexcept { return {params_.destWidth, params_.destHeight}; }
    /** The C record. */
    const kip_affineSampleParams &params() const noexcept { return params_; }

    /** The map from client coordinates to a result's pixels. Throws Error for a rectangle that has none. */
    Xform placement() const { return detail::placementOf(params_); }

    /** How far the sampling reaches outside a source; all 0 when it stays inside, to the last bits of a double. */
    template <Source S>
    Overhang overhang(const S &source) const
    {
        const detail::OpenSource<PixelOf<S>> open(detail::readOnly(source), &params_);
        return detail::overhangOf(params_, open.whole(), *open.fromClient());
    }

    /** Resamples the rectangle, which has to lie inside the source, into a new image. */
    template <Source S>
    Image<PixelOf<S>> transform(const S &source)
    {
        return detail::transform(source, params_, &cache_);
    }
    /** Resamples the rectangle into a view of the size of the result; they must not share memory. */
    template <Source S>
    void transformInto(const S &source, const ImageView<PixelOf<S>> &result)
    {
        detail::transformInto(source, result, params_, &cache_);
    }
    /** Resamples the rectangle into an image, whose pixels are written again if it has the size of the result. */
    template <Source S>
    void transformInto(const S &source, Image<PixelOf<S>> &result)
    {
        if (Size{result.width(), result.height()} == size())
            detail::transformInto(source, result.handle(), params_, &cache_);
        else
            result = transform(source);
    }
    /** Resamples a rectangle that may reach outside the source; one that shares nothing with it is an Error. */
    template <Source S>
    Clipped<PixelOf<S>> transformClipped(const S &source)
    {
        return detail::transformClipped(source, params_, &cache_);
    }
    /**
     * Resamples a rectangle that may reach outside the source into views of the size of the result; a mask of no pixels
     * is not made. Returns whether the rectangle reaches outside.
     */
    template <Source S>
    bool transformClippedInto(const S &source, const ImageView<PixelOf<S>> &result, const ImageView<uint8_t> &mask)
    {
        return detail::transformClippedInto(source, result, mask, params_, &cache_);
    }
    /** Adds up the columns of the rectangle's samples, which have to lie inside the source. */
    template <Source S>
    Profile project(const S &source)
    {
        return detail::project(source, params_, &cache_);
    }
    /** Adds up the columns into memory for size().width sums. */
    template <Source S>
    void projectInto(const S &source, std::span<uint32_t> sums)
    {
        detail::projectInto(source, sums, params_, &cache_);
    }
    /** Means of the columns over those samples that lie inside the source. */
    template <Source S>
    MeanProfile projectMean(const S &source)
    {
        return detail::projectMean(source, params_, &cache_);
    }

private:
    kip_affineSampleParams params_;
    kip_affineSampleCache *cache_ = nullptr;
};

/** Resamples a rectangle that lies inside a source. See #kip_affineTransform. */
template <Source S>
Image<PixelOf<S>> transform(const S &source, const AffineRect &rect, const Sampling &sampling = {})
{
    return detail::transform(source, detail::paramsOf(rect, sampling), nullptr);
}

/** Resamples a rectangle into a view, as many samples as the view has pixels; they must not share memory. */
template <Source S>
void transformInto(const S &source, const AffineRect &rect, const ImageView<PixelOf<S>> &result,
                   Mode mode = Mode::bilinear)
{
    const Sampling sampling{mode, Size{result.width(), result.height()}};
    detail::transformInto(source, result, detail::paramsOf(rect, sampling), nullptr);
}

/** Resamples a rectangle that may reach outside its source. See #kip_affineTransformClipped. */
template <Source S>
Clipped<PixelOf<S>> transformClipped(const S &source, const AffineRect &rect, const Sampling &sampling = {})
{
    return detail::transformClipped(source, detail::paramsOf(rect, sampling), nullptr);
}

/** Adds up the columns of a rectangle that lies inside a source. 16-bit sources: nearest and bilinear alone. */
template <Source S>
Profile project(const S &source, const AffineRect &rect, const Sampling &sampling = {})
{
    return detail::project(source, detail::paramsOf(rect, sampling), nullptr);
}

/** Means of a rectangle's columns over what lies inside a source. 16-bit sources: nearest and bilinear alone. */
template <Source S>
MeanProfile projectMean(const S &source, const AffineRect &rect, const Sampling &sampling = {})
{
    return detail::projectMean(source, detail::paramsOf(rect, sampling), nullptr);
}

/** The map from client coordinates to the pixels of a rectangle's result. */
inline Xform placement(const AffineRect &rect, const Sampling &sampling = {})
{
    return detail::placementOf(detail::paramsOf(rect, sampling));
}

/** Sums of the rows of an 8-bit source, each modulo 2^32. See #kip_projectHorizontalWindow8. */
template <Source S>
requires std::same_as<PixelOf<S>, uint8_t> std::vector<uint32_t> rowSums(const S &source)
{
    const detail::OpenSource<uint8_t> open(detail::readOnly(source), nullptr);
    std::vector<uint32_t> sums(static_cast<size_t>(std::max(source.height(), 0)));
    kimg_window row = detail::rowWindow(sums);
    check(kip_projectHorizontalWindow8(open.window(), &row, nullptr), "row sums");
    return sums;
}

/** Sums of the columns of an 8-bit source, each modulo 2^32. See #kip_projectVerticalWindow8. */
template <Source S>
requires std::same_as<PixelOf<S>, uint8_t> std::vector<uint32_t> columnSums(const S &source)
{
    const detail::OpenSource<uint8_t> open(detail::readOnly(source), nullptr);
    std::vector<uint32_t> sums(static_cast<size_t>(std::max(source.width(), 0)));
    kimg_window row = detail::rowWindow(sums);
    check(kip_projectVerticalWindow8(open.window(), &row, nullptr), "column sums");
    return sums;
}

/**
 * Sets how many threads work on a call from now on, the caller's own included; 0: one for each processor. Results do
 * not depend on it. Throws Error for a negative number.
 */
inline void setThreads(int32_t count)
{
    check(ksys_jobThreadGroup_setThreadCount(count), "a number of threads");
}

/**
 * Lets transforms in the table-driven modes and affine projections of enough work be spread over these threads from
 * now on, too, or, as at the beginning, keeps them on the calling one. Results do not depend on it; each thread then
 * takes memory of its own, which a sampler keeps. See #ksys_jobThreadGroup_setSplitAll.
 */
inline void setSplitAll(bool on)
{
    check(ksys_jobThreadGroup_setSplitAll(on ? 1 : 0), "what threads are for");
}

} // namespace kip

#endif
