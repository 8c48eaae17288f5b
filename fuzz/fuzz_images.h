#ifndef KIP_FUZZ_FUZZ_IMAGES_H
#define KIP_FUZZ_FUZZ_IMAGES_H

// Images of every form that a caller may give: unbound, of the wrong depth, bottom-up, at odd addresses, in each
// other's memory, placed anywhere.

#include <optional>

#include "fuzz_run.h"

namespace kip::fuzz {

class Image {
public:
    Image() { (void)kimg_image_constructUnbound(&record); }
    ~Image() { (void)kimg_image_destruct(&record); }
    Image(const Image &) = delete;
    Image &operator=(const Image &) = delete;

    // Without memory for its record the image stays unbound.
    void bind(Input &input, int32_t bytesPerPixel, int32_t width, int32_t height)
    {
        pixels.emplace(input, bytesPerPixel, width, height);
        (void)kimg_image_constructExternal(&record, bytesPerPixel, width, height, pixels->pitch, pixels->row(0));
    }

    kimg_windowConst window() const
    {
        kimg_windowConst result;
        (void)kimg_windowConst_init(&result, &record);
        return result;
    }

    kmath_xformLinear map() const
    {
        kmath_xformLinear result;
        (void)kimg_imageConst_getLinearImageFromClientXform(&record, &result);
        return result;
    }

    // Pixels that the operation itself took are unwritten where it failed.
    void noteTo(Run &run, int32_t status) const
    {
        run.note(map());
        run.note(record.width);
        if (pixels)
            require(pixels->areGapsUntouched(), "something outside an image was written");
        if (pixels || status >= 0)
            run.notePixels(window());
    }

    kimg_image record;
    std::optional<Pixels> pixels;
};

inline int32_t takeDepth(Input &input, int32_t right)
{
    static constexpr int32_t kDepths[] = {1, 2, 4};
    return input.oneIn(32) ? input.pick(kDepths) : right;
}

inline void takePlace(Input &input, Image *image)
{
    const int32_t kind = input.byte() % 16;
    if (kind < 12)
        return;
    image->record.x = kind == 15 ? takeHostileInteger(input) : input.raw<int8_t>();
    image->record.y = kind == 15 ? takeHostileInteger(input) : input.raw<int8_t>();
}

inline void takeSource(Input &input, int32_t bytesPerPixel, Image *source)
{
    if (!input.oneIn(48)) {
        const int32_t depth = takeDepth(input, bytesPerPixel);
        const int32_t width = takeSide(input);
        source->bind(input, depth, width, width > 1500 ? input.between(1, 4) : takeSide(input));
    }
    takePlace(input, source);
    const kmath_xformLinear map = takeMap(input);
    (void)kimg_image_setLinearImageFromClientXform(&source->record, &map);
}

// A destination for a result of columns x rows: unbound, of that size, larger, of any size and place, or the source.
inline void takeDestination(Input &input, int32_t bytesPerPixel, int32_t columns, int32_t rows, const Image &source,
                            Image *destination)
{
    const int32_t kind = input.byte() % 8;
    if (kind == 7) {
        (void)kimg_image_assign(&destination->record, &source.record);
        return;
    }
    const int32_t depth = takeDepth(input, bytesPerPixel);
    const bool fits = columns >= 1 && rows >= 1 && int64_t{columns} * rows <= int64_t{1} << 18;
    if ((kind == 1 || kind == 2) && fits) {
        const int32_t more = kind == 2 ? input.between(0, 9) : 0;
        destination->bind(input, depth, columns + more, rows + more);
    } else if (kind != 0) {
        destination->bind(input, depth, input.between(1, 99), input.between(1, 99));
        takePlace(input, destination);
    }
}

} // namespace kip::fuzz

#endif
