// The clipped transform with and without a mask, its destinations of every form.

#include "fuzz_images.h"

namespace kip::fuzz {
namespace {

int32_t refuse(void *)
{
    return -5;
}

} // namespace

void runCase(Input &input, Run &run)
{
    const int32_t bytesPerPixel = input.oneIn(2) ? 2 : 1;
    Image source;
    takeSource(input, bytesPerPixel, &source);
    (void)ksys_attention_setHandler(input.oneIn(32) ? refuse : nullptr, nullptr);
    const int32_t calls = input.between(1, 2);
    const Input again = input;
    for (int32_t i = 0; i < calls; ++i) {
        if (input.oneIn(3))
            input = again;
        const kip_affineSampleParams params = takeSampling(input, source.window(), source.map());
        Image destination, mask;
        takeDestination(input, bytesPerPixel, params.destWidth, params.destHeight, source, &destination);
        const bool withMask = !input.oneIn(4);
        if (withMask)
            takeDestination(input, 1, params.destWidth, params.destHeight, source, &mask);
        kimg_image *const maskRecord = withMask ? &mask.record : nullptr;
        int32_t willClip = 77;
        const int32_t status = bytesPerPixel == 2
                                   ? kip_affineTransformClipped16(&source.record, &destination.record, maskRecord,
                                                                  &params, run.cache(), &willClip)
                                   : kip_affineTransformClipped(&source.record, &destination.record, maskRecord,
                                                                &params, run.cache(), &willClip);
        run.note(status);
        run.note(willClip);
        destination.noteTo(run, status);
        mask.noteTo(run, status);
        require(!source.pixels || source.pixels->areGapsUntouched(), "something outside the source was written");
    }
}

} // namespace kip::fuzz
