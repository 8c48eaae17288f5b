// The plain transform and the aligned one: depths, modes, forms of the destination, a cache used again.

#include "fuzz_images.h"

namespace kip::fuzz {
namespace {

void runAligned(Input &input, Run &run, int32_t bytesPerPixel)
{
    static constexpr int32_t kCodes[] = {0, 1, 90, 91, 180, 181, 270, 271, -1};
    const int32_t width = input.between(1, 80), height = input.between(1, 80);
    const Pixels source(input, bytesPerPixel, width, height);
    const int32_t code = input.oneIn(16) ? input.raw<int32_t>() : input.pick(kCodes);
    const bool swaps = code == 1 || code == 90 || code == 181 || code == 270;
    const bool fits = !input.oneIn(4);
    const Pixels target(input, takeDepth(input, bytesPerPixel), fits ? (swaps ? height : width) : input.between(1, 80),
                        fits ? (swaps ? width : height) : input.between(1, 80));
    const kimg_windowConst from = source.windowConst();
    kimg_window to = target.window();
    const bool inPlace = input.oneIn(4);
    const bool isShifted = inPlace && input.oneIn(4); // not allowed: any pixels may come, but inside the window
    if (inPlace) {
        to = source.window();
        if (isShifted)
            (void)kimg_window_window(&to, input.between(0, 9), input.between(0, 9), width, height, nullptr);
    }
    const int32_t status = bytesPerPixel == 1 ? kip_affineTransformAligned(&from, &to, code)
                                              : kip_affineTransformAligned16(&from, &to, code);
    run.note(status);
    require(source.areGapsUntouched() && target.areGapsUntouched(), "something outside a window was written");
    require(inPlace || source.isUntouched(), "the source was written");
    require(status >= 0 || target.isUntouched(), "a destination was written in spite of a failure");
    run.notePixels(target.windowConst());
    if (!isShifted)
        run.notePixels(from);
}

void runOnce(Input &input, Run &run, const Image &source, int32_t bytesPerPixel)
{
    const kip_affineSampleParams params = takeSampling(input, source.window(), source.map());
    Image destination;
    takeDestination(input, bytesPerPixel, params.destWidth, params.destHeight, source, &destination);
    int32_t status = 0;
    if (bytesPerPixel == 2)
        status = kip_affineTransform16(&source.record, &destination.record, &params, run.cache());
    else if (input.oneIn(16))
        status = kip_affine8(&params, &source.record, &destination.record);
    else
        status = kip_affineTransform(&source.record, &destination.record, &params, run.cache());
    run.note(status);
    destination.noteTo(run, status);
}

} // namespace

void runCase(Input &input, Run &run)
{
    const int32_t bytesPerPixel = input.oneIn(2) ? 2 : 1;
    if (input.oneIn(8)) {
        runAligned(input, run, bytesPerPixel);
        return;
    }
    Image source;
    takeSource(input, bytesPerPixel, &source);
    const int32_t calls = input.between(1, 3);
    const Input again = input;
    for (int32_t i = 0; i < calls; ++i) {
        if (input.oneIn(3)) // the same geometry, which a cache recognises
            input = again;
        runOnce(input, run, source, bytesPerPixel);
    }
    require(!source.pixels || source.pixels->isUntouched(), "the source was written");
}

} // namespace kip::fuzz
