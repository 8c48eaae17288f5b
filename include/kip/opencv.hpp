#ifndef KIP_OPENCV_HPP
#define KIP_OPENCV_HPP

/**
 * @file
 * kip for programs that keep their pictures in cv::Mat. Nothing is copied: sources are read, and results written,
 * where they are, whatever the step between rows. Pictures have one channel of 8 or 16 bits (CV_8UC1, CV_16UC1);
 * another type is an Error of kip_statusPixelDepth.
 *
 * The centre of a pixel has whole coordinates in OpenCV and lies at halves in kip: (x, y) there is (x + 0.5, y + 0.5)
 * here. The functions that take OpenCV's rectangles and matrices add that half pixel; Point arguments of kip do not.
 */

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include <kip/kip.hpp>

#include <opencv2/core.hpp>

namespace kip {

namespace detail {

template <Pixel P>
constexpr int cvTypeOf = sizeof(P) == 1 ? CV_8UC1 : CV_16UC1;

[[noreturn]] inline void throwMatType(const cv::Mat &mat, const char *wanted)
{
    throw Error(kip_statusPixelDepth, "a cv::Mat of " + std::to_string(mat.dims) + " dimensions and type " +
                                          cv::typeToString(mat.type()) + " where " + wanted + " is needed");
}

// A cv::Mat of one row may hold any step.
template <Pixel P>
ImageView<P> viewOfMat(const cv::Mat &mat)
{
    using Value = std::remove_const_t<P>;
    if (mat.type() != cvTypeOf<Value> || mat.dims > 2)
        throwMatType(mat, sizeof(P) == 1 ? "CV_8UC1" : "CV_16UC1");
    auto *pixels = reinterpret_cast<P *>(mat.data);
    if (mat.rows <= 1)
        return ImageView<P>(pixels, mat.cols, mat.rows);
    return ImageView<P>(pixels, mat.cols, mat.rows, static_cast<std::ptrdiff_t>(mat.step[0]));
}

// Calls use(view) with the view of the right pixel type.
template <class Use>
auto withView(const cv::Mat &mat, const Use &use)
{
    if (mat.type() == CV_8UC1)
        return use(viewOfMat<const uint8_t>(mat));
    if (mat.type() == CV_16UC1)
        return use(viewOfMat<const uint16_t>(mat));
    throwMatType(mat, "CV_8UC1 or CV_16UC1");
}

template <Pixel P>
cv::Mat newMat(const kip_affineSampleParams &params)
{
    if (params.destWidth < 1 || params.destHeight < 1)
        throw Error(kip_statusSizeBelowOne, "transform into a cv::Mat");
    return cv::Mat(params.destHeight, params.destWidth, cvTypeOf<P>);
}

} // namespace detail

/** A read-only view of a cv::Mat whose pixels are of type P; the cv::Mat keeps the pixels. */
template <Pixel P>
ImageView<const P> view(const cv::Mat &mat)
{
    return detail::viewOfMat<const P>(mat);
}
/** A view of a cv::Mat_; it keeps the pixels. */
template <Pixel P>
ImageView<const P> view(const cv::Mat_<P> &mat)
{
    return detail::viewOfMat<const P>(mat);
}
/** A writable view of a cv::Mat_; it keeps the pixels. */
template <Pixel P>
ImageView<P> view(cv::Mat_<P> &mat)
{
    return detail::viewOfMat<P>(mat);
}

/** A view of an image as a cv::Mat, not copied; the image keeps the pixels. */
template <Pixel P>
cv::Mat matOf(Image<P> &image)
{
    const ImageView<P> view = image.view();
    return cv::Mat(view.height(), view.width(), detail::cvTypeOf<P>, view.data(), static_cast<size_t>(view.stride()));
}

/** A point of OpenCV, pixel centres at whole numbers, in kip's coordinates, pixel centres at halves. */
inline Point fromCv(cv::Point2d point)
{
    return {point.x + 0.5, point.y + 0.5};
}
/** A point of kip in OpenCV's coordinates. */
inline cv::Point2d toCv(Point point)
{
    return {point.x - 0.5, point.y - 0.5};
}

/**
 * The rectangle of a cv::RotatedRect. Its x side is the one whose length is `size.width`, at `angle` degrees clockwise.
 * Throws Error when a number is not finite.
 */
inline AffineRect rectFromRotatedRect(const cv::RotatedRect &rect)
{
    const double quarters = static_cast<double>(rect.angle) / 90; // quarter turns are exact
    return AffineRect::fromCenter(fromCv(rect.center), static_cast<double>(rect.size.width),
                                  static_cast<double>(rect.size.height), quarters * (CV_PI / 2));
}

/**
 * The rectangle that cv::warpAffine samples.
 *
 * matrix      2 x 3, of float or double, from the source to the destination as cv::warpAffine takes it.
 * size        of the destination. Sample the rectangle at this size: `{.size = kip::Size{size.width, size.height}}`.
 * inverseMap  the matrix leads from the destination to the source, as with cv::WARP_INVERSE_MAP.
 * Throws Error for another kind of matrix, or one without inverse.
 */
inline AffineRect rectFromWarpMatrix(const cv::Mat &matrix, cv::Size size, bool inverseMap = false)
{
    if (matrix.rows != 2 || matrix.cols != 3 || matrix.channels() != 1 ||
        (matrix.depth() != CV_32F && matrix.depth() != CV_64F))
        throw Error(ksys_statusBadArgument, "rectangle from a matrix that is not 2 x 3, of float or double");
    const cv::Mat_<double> m = matrix;
    Xform sourceFromDest{m(0, 2), m(1, 2), m(0, 0), m(0, 1), m(1, 0), m(1, 1)};
    if (!inverseMap)
        sourceFromDest = inverse(sourceFromDest);
    const auto corner = [&](double x, double y) { // of the destination, half a pixel outside the corner pixels' centres
        const Point at = map(sourceFromDest, {x - 0.5, y - 0.5});
        return fromCv({at.x, at.y});
    };
    return AffineRect::fromCorners(corner(0, 0), corner(size.width, 0), corner(0, size.height));
}

/** What a clipped transform of a cv::Mat gives; otherwise as #kip::Clipped. */
struct ClippedMat {
    cv::Mat image; /**< the picture, of the source's type */
    cv::Mat mask;  /**< CV_8UC1 */
    bool clipped;  /**< whether the rectangle reaches outside at all */
};

/** Resamples the sampler's rectangle of a picture into a new one of the same type. */
inline cv::Mat transform(Sampler &sampler, const cv::Mat &source)
{
    return detail::withView(source, [&]<Pixel P>(const ImageView<P> &from) {
        cv::Mat result = detail::newMat<P>(sampler.params());
        sampler.transformInto(from, detail::viewOfMat<std::remove_const_t<P>>(result));
        return result;
    });
}
/** Resamples a rectangle of a picture into a new one of the same type. */
inline cv::Mat transform(const cv::Mat &source, const AffineRect &rect, const Sampling &sampling = {})
{
    const kip_affineSampleParams params = detail::paramsOf(rect, sampling);
    return detail::withView(source, [&]<Pixel P>(const ImageView<P> &from) {
        cv::Mat result = detail::newMat<P>(params);
        detail::transformInto(from, detail::viewOfMat<std::remove_const_t<P>>(result), params, nullptr);
        return result;
    });
}

/**
 * Resamples a rectangle into a picture that exists, as many samples as it has pixels: a part of a larger picture, say.
 * It has the source's type and shares no memory with it.
 */
inline void transformInto(const cv::Mat &source, const AffineRect &rect, cv::Mat result, Mode mode = Mode::bilinear)
{
    detail::withView(source, [&]<Pixel P>(const ImageView<P> &from) {
        transformInto(from, rect, detail::viewOfMat<std::remove_const_t<P>>(result), mode);
    });
}

/**
 * Resamples the sampler's rectangle into a cv::Mat that is used again from call to call: it gets new pixels only if its
 * size or type is another one. It shares no memory with the source.
 */
inline void transformInto(Sampler &sampler, const cv::Mat &source, cv::Mat &result)
{
    detail::withView(source, [&]<Pixel P>(const ImageView<P> &from) {
        const Size size = sampler.size();
        if (result.size() != cv::Size(size.width, size.height) || result.type() != source.type())
            result = detail::newMat<P>(sampler.params());
        sampler.transformInto(from, detail::viewOfMat<std::remove_const_t<P>>(result));
    });
}

/** Resamples a rectangle that may reach outside its picture. */
inline ClippedMat transformClipped(const cv::Mat &source, const AffineRect &rect, const Sampling &sampling = {})
{
    const kip_affineSampleParams params = detail::paramsOf(rect, sampling);
    return detail::withView(source, [&]<Pixel P>(const ImageView<P> &from) {
        ClippedMat result{detail::newMat<P>(params), detail::newMat<uint8_t>(params), false};
        result.clipped = detail::transformClippedInto(from, detail::viewOfMat<std::remove_const_t<P>>(result.image),
                                                      detail::viewOfMat<uint8_t>(result.mask), params, nullptr);
        return result;
    });
}

/** Adds up the columns of the sampler's rectangle. */
inline Profile project(Sampler &sampler, const cv::Mat &source)
{
    return detail::withView(source, [&](const auto &from) { return sampler.project(from); });
}
/** Adds up the columns of a rectangle. */
inline Profile project(const cv::Mat &source, const AffineRect &rect, const Sampling &sampling = {})
{
    return detail::withView(source, [&](const auto &from) { return project(from, rect, sampling); });
}

/** Means of the columns of the sampler's rectangle, over what lies inside the picture. */
inline MeanProfile projectMean(Sampler &sampler, const cv::Mat &source)
{
    return detail::withView(source, [&](const auto &from) { return sampler.projectMean(from); });
}
/** Means of the columns of a rectangle, over what lies inside the picture. */
inline MeanProfile projectMean(const cv::Mat &source, const AffineRect &rect, const Sampling &sampling = {})
{
    return detail::withView(source, [&](const auto &from) { return projectMean(from, rect, sampling); });
}

} // namespace kip

#endif
