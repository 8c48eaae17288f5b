#include "support/peer.h"

#include <algorithm>

#include <kip/kip.h>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

namespace kip_bench {

namespace {

int interpolationOf(uint32_t mode)
{
    switch (mode) {
    case kip_affineModeNearest:
        return cv::INTER_NEAREST;
    case kip_affineModeBicubic:
        return cv::INTER_CUBIC;
    default:
        return cv::INTER_LINEAR;
    }
}

cv::Mat matOver(const Pixels &pixels)
{
    return {pixels.height, pixels.width, pixels.bytesPerPixel == 1 ? CV_8UC1 : CV_16UC1, pixels.memory.get(),
            static_cast<size_t>(pixels.pitchBytes)};
}

// From destination to source pixels. The peer's coordinates are those of pixel centres, half a pixel less
// than ours.
cv::Matx23d inverseMap(const kmath_shapeAffineRect &rect, const Pixels &destination)
{
    const double ux = rect.e0 / destination.width;
    const double uy = rect.e2 / destination.width;
    const double vx = rect.e1 / destination.height;
    const double vy = rect.e3 / destination.height;
    return {ux, vx, rect.tx + 0.5 * (ux + vx) - 0.5, uy, vy, rect.ty + 0.5 * (uy + vy) - 0.5};
}

} // namespace

bool hasPeer()
{
    return true;
}

std::string peerVersion()
{
    return "OpenCV " CV_VERSION;
}

void setPeerThreads(int count)
{
    cv::setNumThreads(count);
}

std::function<void()> preparePeer(const PeerTransform &work)
{
    // It refuses larger pictures. Rectangles lie within the first rows.
    constexpr int kGreatestSide = 32766;
    const cv::Mat source = matOver(work.source).rowRange(0, std::min(work.source.height, kGreatestSide));
    const cv::Matx23d map = inverseMap(work.rect, work.destination);
    const int flags = interpolationOf(work.mode) | cv::WARP_INVERSE_MAP;
    return [source, map, flags, destination = matOver(work.destination)]() mutable {
        cv::warpAffine(source, destination, map, destination.size(), flags);
    };
}

std::function<void()> preparePeerProjection(const PeerTransform &work, void *sums)
{
    const int type = work.source.bytesPerPixel == 1 ? CV_32S : CV_32F; // it has no integer sums of 16-bit pixels
    return [resample = preparePeer(work), picture = matOver(work.destination), type,
            row = cv::Mat(1, work.destination.width, type, sums)]() mutable {
        resample();
        cv::reduce(picture, row, 0, cv::REDUCE_SUM, type);
    };
}

std::function<void()> preparePeerTurn(const PeerTurn &work)
{
    return [code = work.alignCode, source = matOver(work.source), destination = matOver(work.destination)]() mutable {
        switch (code) {
        case kip_affine_alignTranspose:
            return cv::transpose(source, destination);
        case kip_affine_alignRotate90:
            return cv::rotate(source, destination, cv::ROTATE_90_COUNTERCLOCKWISE);
        case kip_affine_alignRotate180:
            return cv::rotate(source, destination, cv::ROTATE_180);
        case kip_affine_alignRotate270:
            return cv::rotate(source, destination, cv::ROTATE_90_CLOCKWISE);
        case kip_affine_alignRotate90Transpose:
            return cv::flip(source, destination, 1);
        case kip_affine_alignRotate270Transpose:
            return cv::flip(source, destination, 0);
        default:
            return source.copyTo(destination);
        }
    };
}

std::function<void()> preparePeerSums(const PeerSums &work)
{
    const cv::Mat source = matOver(work.source);
    const int axis = work.ofColumns ? 0 : 1; // the one that is summed
    const cv::Mat sums(work.ofColumns ? 1 : source.rows, work.ofColumns ? source.cols : 1, CV_32S, work.sums);
    return [source, axis, sums]() mutable { cv::reduce(source, sums, axis, cv::REDUCE_SUM, CV_32S); };
}

} // namespace kip_bench
