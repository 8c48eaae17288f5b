#ifndef KIP_CPP_IMAGE_HPP
#define KIP_CPP_IMAGE_HPP

/**
 * @file
 * Images that own their pixels, and views of pixels that somebody else owns.
 */

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <ranges>
#include <span>
#include <string>
#include <type_traits>
#include <utility>

#include <kip/cpp/error.hpp>
#include <kip/cpp/geometry.hpp>
#include <kip/kip.h>

namespace kip {

/** Grey values of 8 or of 16 bits, const or not. */
template <class P>
concept Pixel = std::same_as<std::remove_const_t<P>, uint8_t> || std::same_as<std::remove_const_t<P>, uint16_t>;

/**
 * A view of grey pixels in memory that it does not own: pointer, size and stride. Views of const pixels serve as
 * sources; every view of writable pixels converts to one. Copied by value; the pixels have to outlive it.
 */
template <Pixel P>
class ImageView {
public:
    /** The type of a pixel, without const. */
    using Value = std::remove_const_t<P>;

    /** A view of no pixels. */
    constexpr ImageView() noexcept = default;

    /** A view of rows that lie close together; sizes are in pixels. */
    constexpr ImageView(P *pixels, int32_t width, int32_t height) noexcept
        : pixels_(pixels), width_(width), height_(height), pitch_(width)
    {}

    /**
     * A view of rows that lie a stride apart.
     *
     * pixels         the first pixel of the first row.
     * width, height  size in pixels.
     * stride         bytes from one row to the next: a multiple of the pixel's size, at least a row's in magnitude;
     *                negative for images whose first row lies last in memory.
     * Throws Error for a stride that is no multiple of the pixel's size or too large.
     */
    ImageView(P *pixels, int32_t width, int32_t height, std::ptrdiff_t stride)
        : pixels_(pixels), width_(width), height_(height), pitch_(pitchOf(stride))
    {}

    /** A view of a vector, array or span, rows close together. Throws Error for one that holds too few pixels. */
    ImageView(std::span<P> pixels, int32_t width, int32_t height) : ImageView(pixels.data(), width, height)
    {
        if (width > 0 && height > 0 && pixels.size() / static_cast<size_t>(width) < static_cast<size_t>(height))
            throw Error(kimg_statusTooLarge, "a view of more pixels than its span holds");
    }

    /** A view of rows that lie a pitch apart: pixels from one row to the next, negative for bottom-up images. */
    static constexpr ImageView withPitch(P *pixels, int32_t width, int32_t height, int32_t pitch) noexcept
    {
        ImageView view(pixels, width, height);
        view.pitch_ = pitch;
        return view;
    }

    /** Views of writable pixels are views of pixels. */
    constexpr operator ImageView<const Value>() const noexcept requires(!std::is_const_v<P>)
    {
        return ImageView<const Value>::withPitch(pixels_, width_, height_, pitch_);
    }

    /** Columns. */
    constexpr int32_t width() const noexcept { return width_; }
    /** Rows. */
    constexpr int32_t height() const noexcept { return height_; }
    /** Bytes from one row to the next. */
    constexpr std::ptrdiff_t stride() const noexcept
    {
        return std::ptrdiff_t{pitch_} * static_cast<std::ptrdiff_t>(sizeof(P));
    }
    /** Pixels from one row to the next. */
    constexpr int32_t pitch() const noexcept { return pitch_; }
    /** The first pixel of the first row. */
    constexpr P *data() const noexcept { return pixels_; }
    /** A row, counted from 0; it has to exist. */
    constexpr std::span<P> row(int32_t y) const noexcept
    {
        return {pixels_ + std::ptrdiff_t{y} * pitch_, static_cast<size_t>(width_)};
    }
    /** A pixel; it has to exist. */
    constexpr P &operator()(int32_t x, int32_t y) const noexcept { return pixels_[std::ptrdiff_t{y} * pitch_ + x]; }

private:
    static int32_t pitchOf(std::ptrdiff_t stride)
    {
        constexpr auto size = static_cast<std::ptrdiff_t>(sizeof(P));
        const std::ptrdiff_t pitch = stride / size;
        if (stride % size != 0 || pitch > std::numeric_limits<int32_t>::max() ||
            pitch < -std::numeric_limits<int32_t>::max())
            throw Error(kimg_statusBadPitch, "a view with a stride of " + std::to_string(stride) + " bytes");
        return static_cast<int32_t>(pitch);
    }

    P *pixels_ = nullptr;
    int32_t width_ = 0;
    int32_t height_ = 0;
    int32_t pitch_ = 0;
};

/**
 * An image that owns its pixels, or has none. It moves, and is copied by clone() alone. The C functions take it through
 * handle().
 */
template <Pixel P>
requires(!std::is_const_v<P>) class Image {
public:
    /** An image without pixels. */
    Image() noexcept { (void)kimg_image_constructUnbound(&image_); }

    /** An image of a size, at least 1 x 1; its pixels are not initialised. Throws Error, also without memory. */
    Image(int32_t width, int32_t height) : Image()
    {
        check(kimg_image_assignNew(&image_, sizeof(P), width, height), "a new image");
    }

    /** Takes another's pixels, which it is then without. */
    Image(Image &&other) noexcept : image_(other.image_) { (void)kimg_image_constructUnbound(&other.image_); }
    /** Changes pixels with another. */
    Image &operator=(Image &&other) noexcept
    {
        std::swap(image_, other.image_);
        return *this;
    }
    Image(const Image &) = delete;
    Image &operator=(const Image &) = delete;
    ~Image() { (void)kimg_image_destruct(&image_); }

    /** A copy with pixels of its own. Throws Error without memory. */
    Image clone() const
    {
        if (!*this)
            return {};
        Image copy(width(), height());
        const ImageView<const P> from = view();
        const ImageView<P> to = copy.view();
        for (int32_t y = 0; y < height(); ++y)
            std::memcpy(to.row(y).data(), from.row(y).data(), from.row(y).size_bytes());
        copy.image_.x = image_.x;
        copy.image_.y = image_.y;
        copy.setPlacement(placement());
        return copy;
    }

    /** Whether there are pixels. */
    explicit operator bool() const noexcept { return image_.width > 0; }
    /** Columns; 0 without pixels. */
    int32_t width() const noexcept { return image_.width; }
    /** Rows; 0 without pixels. */
    int32_t height() const noexcept { return image_.height; }

    /** A view of the pixels. */
    ImageView<P> view() noexcept
    {
        kimg_window window;
        (void)kimg_window_init(&window, &image_);
        return viewOf<P>(window);
    }
    /** A view of the pixels. */
    ImageView<const P> view() const noexcept
    {
        kimg_windowConst window;
        (void)kimg_windowConst_init(&window, &image_);
        return viewOf<const P>(window);
    }
    /** A view of the pixels, for functions that take one. */
    operator ImageView<const P>() const noexcept { return view(); }
    /** Bytes from one row to the next; the library's choice. */
    std::ptrdiff_t stride() const noexcept { return view().stride(); }
    /** The first pixel of the first row. */
    P *data() noexcept { return view().data(); }
    /** The first pixel of the first row. */
    const P *data() const noexcept { return view().data(); }
    /** A row, counted from 0; it has to exist. */
    std::span<P> row(int32_t y) noexcept { return view().row(y); }
    /** A row, counted from 0; it has to exist. */
    std::span<const P> row(int32_t y) const noexcept { return view().row(y); }

    /**
     * The map from client coordinates to the image's pixels. For a result that is its placement: where in the source's
     * client coordinates each of its pixels was taken.
     */
    Xform placement() const noexcept
    {
        Xform xform;
        (void)kimg_imageConst_getLinearImageFromClientXform(&image_, &xform);
        return xform;
    }
    /** Sets that map; rectangles sampled from this image are then in those coordinates. Throws Error without memory. */
    void setPlacement(const Xform &xform)
    {
        check(kimg_image_setLinearImageFromClientXform(&image_, &xform), "an image's placement");
    }

    /** The C image, for the C functions. */
    kimg_image *handle() noexcept { return &image_; }
    /** The C image, for the C functions. */
    const kimg_image *handle() const noexcept { return &image_; }

private:
    template <Pixel Q, class Window>
    static ImageView<Q> viewOf(const Window &window) noexcept
    {
        return ImageView<Q>::withPitch(static_cast<Q *>(window.pixels), window.width, window.height, window.pitch);
    }

    kimg_image image_;
};

/** A vector or an array gives a view of its elements: `kip::ImageView(pixels, 640, 480)`. */
template <std::ranges::contiguous_range R>
ImageView(R &&, int32_t, int32_t) -> ImageView<std::remove_reference_t<std::ranges::range_reference_t<R>>>;

namespace detail {

template <class S>
struct SourcePixel {};
template <Pixel P>
struct SourcePixel<Image<P>> {
    using Type = P;
};
template <Pixel P>
struct SourcePixel<ImageView<P>> {
    using Type = std::remove_const_t<P>;
};

} // namespace detail

/** What can be sampled: an Image or an ImageView. */
template <class S>
concept Source = requires
{
    typename detail::SourcePixel<S>::Type;
};

/** The pixels of a source, without const. */
template <Source S>
using PixelOf = typename detail::SourcePixel<S>::Type;

} // namespace kip

#endif
