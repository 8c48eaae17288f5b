#ifndef KIP_CPP_OPEN_SOURCE_HPP
#define KIP_CPP_OPEN_SOURCE_HPP

/**
 * @file
 * How a source reaches the C functions: as a window with a map, cut where it is too large for them.
 */

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include <kip/cpp/error.hpp>
#include <kip/cpp/geometry.hpp>
#include <kip/cpp/image.hpp>
#include <kip/kip.h>

namespace kip::detail {

// Positions of the C functions have 16 whole bits.
inline constexpr int32_t kMaxExtent = 32767;

/** A source for the time of one call; params tell what may be cut away, null: nothing. */
template <Pixel P>
class OpenSource {
public:
    OpenSource(const ImageView<const P> &view, const kip_affineSampleParams *params) : fromClient_(kIdentity)
    {
        window_ = {view.width(),  view.height(), 0,           0,        0, 0, view.width(),
                   view.height(), view.pitch(),  view.data(), sizeof(P)};
        if (view.width() > 0 && std::abs(int64_t{view.pitch()}) < view.width())
            throw Error(kimg_statusBadPitch,
                        "a view whose rows are " + std::to_string(view.stride()) + " bytes apart and wider than that");
        cutIfTooLarge(params);
    }

    OpenSource(const Image<P> &image, const kip_affineSampleParams *params)
        : image_(image.handle()), fromClient_(image.placement())
    {
        (void)kimg_windowConst_init(&window_, image.handle());
        cutIfTooLarge(params);
    }

    OpenSource(const OpenSource &) = delete;
    OpenSource &operator=(const OpenSource &) = delete;
    ~OpenSource()
    {
        if (ownsImage_)
            (void)kimg_image_destruct(&own_);
    }

    const kimg_windowConst *window() const noexcept { return &window_; }
    const Xform *fromClient() const noexcept { return &fromClient_; }
    // Before anything was cut away.
    const kimg_windowConst &whole() const noexcept { return whole_; }

    // The image form, made when first asked for.
    const kimg_imageConst *image()
    {
        if (image_ == nullptr)
            bindWindow();
        return image_;
    }

private:
    void bindWindow()
    {
        ownsImage_ = true;
        check(kimg_imageConst_constructExternal(&own_, sizeof(P), window_.width, window_.height, window_.pitch,
                                                window_.pixels),
              "a source image");
        own_.x = window_.x;
        own_.y = window_.y;
        if (fromClient_.e0 != 1 || fromClient_.e1 != 0 || fromClient_.e2 != 0 || fromClient_.e3 != 1 ||
            fromClient_.tx != 0 || fromClient_.ty != 0)
            check(kimg_image_setLinearImageFromClientXform(&own_, &fromClient_), "a source image");
        image_ = &own_;
    }

    // Keeps only what the sampling may read where the C functions would refuse the whole. A part that is still too
    // large, and a rectangle that lies outside, are theirs to refuse.
    void cutIfTooLarge(const kip_affineSampleParams *params)
    {
        whole_ = window_;
        if (params == nullptr || (window_.height <= kMaxExtent && std::abs(int64_t{window_.pitch}) <= kMaxExtent))
            return;
        const bool refused = sizeof(P) == 2 || params->mode > kip_affineModeBilinear || window_.pitch < 0;
        kstd_rect32 reach;
        if (!refused || kip_affineSampleParams_getMaxSrcRectWindow(params, &window_, &fromClient_, &reach) < 0)
            return;
        kimg_windowConst part = window_;
        (void)kimg_windowConst_window(&part, reach.x, reach.y, reach.width, reach.height, nullptr);
        if (part.width < 1 || part.height < 1 || part.width > kMaxExtent || part.height > kMaxExtent)
            return;
        window_ = part;
        image_ = nullptr;
        if (std::abs(int64_t{part.pitch}) > kMaxExtent)
            copyWindow();
    }

    void copyWindow()
    {
        copy_ = Image<P>(window_.width, window_.height);
        const ImageView<P> to = copy_.view();
        const auto *from = static_cast<const P *>(window_.pixels);
        for (int32_t y = 0; y < window_.height; ++y)
            std::memcpy(to.row(y).data(), from + std::ptrdiff_t{y} * window_.pitch, to.row(y).size_bytes());
        window_.pixels = to.data();
        window_.pitch = to.pitch();
    }

    const kimg_imageConst *image_ = nullptr;
    kimg_imageConst own_{};
    bool ownsImage_ = false;
    Image<P> copy_;
    kimg_windowConst window_;
    kimg_windowConst whole_;
    Xform fromClient_;
};

// How far from an edge of its source each mode's samples have to stay.
inline double marginOf(uint32_t mode) noexcept
{
    constexpr double kMargins[] = {0, 0.5, 1.5, 2.5};
    return kMargins[mode];
}

// In doubles, from the centres of the corner samples; the C functions decide.
inline Overhang overhangOf(const kip_affineSampleParams &params, const kimg_windowConst &source,
                           const Xform &fromClient) noexcept
{
    if (params.destWidth < 1 || params.destHeight < 1 || params.mode > kip_affineModeBicubic)
        return {};
    kip_affine_imageAlignment alignment = kip_affine_alignNone;
    (void)kip_affine_imageAlignment_compute(&params, &fromClient, &alignment, nullptr);
    const double margin = alignment == kip_affine_alignNone ? marginOf(params.mode) : 0;
    const double u = 0.5 / params.destWidth;
    const double v = 0.5 / params.destHeight;
    Overhang over;
    for (const Point &corner : {Point{u, v}, Point{1 - u, v}, Point{u, 1 - v}, Point{1 - u, 1 - v}}) {
        const Point at = map(fromClient, map(params.rect, corner));
        over.left = std::max(over.left, source.x + margin - at.x);
        over.top = std::max(over.top, source.y + margin - at.y);
        over.right = std::max(over.right, at.x + margin - source.x - source.width);
        over.bottom = std::max(over.bottom, at.y + margin - source.y - source.height);
    }
    return over;
}

inline std::string sizeInWords(int32_t width, int32_t height)
{
    return std::to_string(width) + " x " + std::to_string(height);
}

inline const char *modeName(uint32_t mode) noexcept
{
    constexpr const char *kNames[] = {"nearest", "bilinear", "separable", "cubic"};
    return mode < 4 ? kNames[mode] : "unknown-mode";
}

// What an operation that failed was asked for.
[[noreturn]] inline void throwFailure(int32_t status, const char *operation, const char *clippedForm,
                                      const kip_affineSampleParams &params, const kimg_windowConst &source,
                                      const Xform &fromClient)
{
    std::string asked = std::string(operation) + " of " + sizeInWords(params.destWidth, params.destHeight) + ' ' +
                        modeName(params.mode) + " samples from a " + sizeInWords(source.width, source.height) +
                        " image";
    if (status != kip_statusTransformWouldClip && status != kip_statusProjectionWouldClip)
        throw Error(status, asked);
    const Overhang over = overhangOf(params, source, fromClient);
    const std::string words = describe(over);
    if (!words.empty())
        asked += ", which they leave by " + words;
    throw Error(status, asked + "; " + clippedForm + " takes what lies outside as black", over);
}

} // namespace kip::detail

#endif
