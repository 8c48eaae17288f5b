// Projections of rectangles (plain, clipped, normalised, of images and of windows) and sums of windows.

#include "fuzz_images.h"

namespace kip::fuzz {
namespace {

// What the calls put out beside sums; the start values show what was not written.
struct Outputs {
    kmath_xformLinear placement = {1, 2, 3, 4, 5, 6};
    uint32_t depth = 77, willClip = 77;
    int32_t first = 77, end = 77;
};

void projectImage(Input &input, Run &run, const Image &source, int32_t bytesPerPixel)
{
    const bool wide = bytesPerPixel == 2;
    const kip_affineSampleParams params = takeSampling(input, source.window(), source.map());
    Image result, coverage;
    takeDestination(input, 4, params.destWidth, 1, source, &result);
    const kimg_image *const from = &source.record;
    Outputs outputs;
    kip_affineSampleCache **const cache = run.cache();
    int32_t status = 0;
    switch (input.byte() % 3) {
    case 0:
        status = (wide ? kip_affineProject16 : kip_affineProject)(from, &result.record, &params, cache, &outputs.depth);
        break;
    case 1: {
        takeDestination(input, 4, params.destWidth, 1, source, &coverage);
        const uint8_t value = input.byte();
        status = (wide ? kip_affineProjectClipped16 : kip_affineProjectClipped)(
            from, &result.record, &coverage.record, &params, cache, value, &outputs.depth, &outputs.willClip);
        break;
    }
    default: {
        const uint32_t clip = input.byte() & 1;
        status = (wide ? kip_affineProjectNorm16 : kip_affineProjectNorm)(from, &result.record, &params, clip, cache,
                                                                          &outputs.depth, &outputs.first, &outputs.end);
    }
    }
    run.note(status);
    run.note(outputs);
    result.noteTo(run, status);
    if (coverage.pixels)
        coverage.noteTo(run, status);
}

kimg_windowConst takeWindow(Input &input, const Pixels &pixels)
{
    kimg_windowConst window = pixels.windowConst();
    const int32_t kind = input.byte() % 16;
    if (kind >= 12) {
        window.x = kind == 15 ? takeHostileInteger(input) : input.raw<int8_t>();
        window.y = kind == 15 ? takeHostileInteger(input) : input.raw<int8_t>();
    }
    if (input.oneIn(16))
        window.width = input.oneIn(2) ? 0 : -1;
    if (input.oneIn(16))
        window.height = input.oneIn(2) ? 0 : -1;
    if (input.oneIn(32))
        window.pixels = nullptr;
    return window;
}

kimg_window writable(const kimg_windowConst &window, const Pixels &pixels)
{
    kimg_window result = pixels.window();
    result.x = window.x;
    result.y = window.y;
    result.width = window.width;
    result.height = window.height;
    if (window.pixels == nullptr)
        result.pixels = nullptr;
    return result;
}

void projectWindow(Input &input, Run &run, const Image &image, int32_t bytesPerPixel)
{
    if (!image.pixels)
        return;
    const bool wide = bytesPerPixel == 2;
    const kmath_xformLinear map = image.map();
    const kimg_windowConst from = takeWindow(input, *image.pixels);
    const kip_affineSampleParams params = takeSampling(input, from, map);
    const bool fits = params.destWidth >= 1 && params.destWidth <= 4000 && !input.oneIn(4);
    const Pixels sums(input, takeDepth(input, 4), fits ? params.destWidth : input.between(1, 99), input.between(1, 2));
    const Pixels shares(input, takeDepth(input, 4), fits ? params.destWidth : input.between(1, 99), 1);
    kimg_window result = writable(takeWindow(input, sums), sums);
    kimg_window coverage = writable(takeWindow(input, shares), shares);
    Outputs outputs;
    int32_t status = 0;
    if (input.oneIn(2))
        status = (wide ? kip_affineProjectWindow16 : kip_affineProjectWindow)(
            &from, &map, &result, &params, run.cache(), &outputs.placement, &outputs.depth);
    else
        status = (wide ? kip_affineProjectClippedWindow16 : kip_affineProjectClippedWindow)(
            &from, &map, &result, &coverage, &params, run.cache(), &outputs.placement, input.byte(), &outputs.depth,
            &outputs.willClip);
    require(sums.areGapsUntouched() && shares.areGapsUntouched(), "something outside a window was written");
    run.note(status);
    run.note(outputs);
    run.notePixels(sums.windowConst());
    run.notePixels(shares.windowConst());
}

void sumImage(Input &input, Run &run, const Image &source)
{
    Image sums;
    const bool columns = input.oneIn(2);
    takeDestination(input, 4, columns ? source.record.width : source.record.height, 1, source, &sums);
    int32_t depth = 77;
    const int32_t status =
        (columns ? kip_projectVertical8 : kip_projectHorizontal8)(&source.record, &sums.record, &depth);
    run.note(status);
    run.note(depth);
    sums.noteTo(run, status);
}

void sumWindow(Input &input, Run &run, const Pixels &pixels)
{
    const kimg_windowConst from = takeWindow(input, pixels);
    const bool columns = input.oneIn(2);
    const int32_t count = columns ? from.width : from.height;
    const Pixels sums(input, takeDepth(input, 4), count >= 1 && !input.oneIn(4) ? count : input.between(1, 40), 1);
    kimg_window to = writable(takeWindow(input, sums), sums);
    int32_t depth = 77;
    run.note((columns ? kip_projectVerticalWindow8 : kip_projectHorizontalWindow8)(&from, &to, &depth));
    run.note(depth);
    require(sums.areGapsUntouched(), "something outside a window was written");
    run.notePixels(sums.windowConst());
}

void sumToVector(Input &input, Run &run, const Image &source)
{
    kstd_vector32 vector;
    (void)kstd_vector32_construct(&vector);
    int32_t depth = 77, size = 0;
    const bool columns = input.oneIn(2);
    if (source.pixels && input.oneIn(2)) {
        const kimg_windowConst from = takeWindow(input, *source.pixels);
        run.note(
            (columns ? kip_projectVerticalVectorWindow8 : kip_projectHorizontalVectorWindow8)(&from, &vector, &depth));
    } else {
        run.note(
            (columns ? kip_projectVerticalVector8 : kip_projectHorizontalVector8)(&source.record, &vector, &depth));
    }
    run.note(depth);
    uint32_t *begin = nullptr;
    (void)kstd_vector32_getBegin(&vector, &begin);
    (void)kstd_vector32_getSize(&vector, &size);
    run.note(begin, static_cast<size_t>(size) * sizeof *begin);
    (void)kstd_vector32_destruct(&vector);
}

} // namespace

void runCase(Input &input, Run &run)
{
    const int32_t bytesPerPixel = input.oneIn(2) ? 2 : 1;
    Image source;
    takeSource(input, bytesPerPixel, &source);
    const int32_t calls = input.between(1, 3);
    for (int32_t i = 0; i < calls; ++i) {
        switch (input.byte() % 8) {
        case 5:
            sumImage(input, run, source);
            break;
        case 6:
            if (source.pixels)
                sumWindow(input, run, *source.pixels);
            break;
        case 7:
            sumToVector(input, run, source);
            break;
        case 3:
        case 4:
            projectWindow(input, run, source, bytesPerPixel);
            break;
        default:
            projectImage(input, run, source, bytesPerPixel);
        }
    }
    require(!source.pixels || source.pixels->isUntouched(), "the source was written");
}

} // namespace kip::fuzz
