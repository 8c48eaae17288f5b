// The analysis of samplings: clipping, footprints, alignments, placements, standard sizes. No pixel is read, so the
// sizes need no bounds.

#include "fuzz_images.h"

namespace kip::fuzz {
namespace {

int32_t takeSize(Input &input)
{
    return input.oneIn(4) ? takeHostileInteger(input) : takeSide(input);
}

void analyseWindow(Run &run, const kip_affineSampleParams &params, const kimg_windowConst &source,
                   const kmath_xformLinear &srcFromClient)
{
    int32_t willClip = 77;
    const int32_t status = kip_affineSampleParams_getWillClipWindow(&params, &source, &srcFromClient, &willClip);
    run.note(status);
    run.note(willClip);
    require(status >= 0 ? willClip == 0 || willClip == 1 : willClip != 0, "willClip is neither yes nor no");

    kstd_rect32 most = {1, 2, 3, 4};
    run.note(kip_affineSampleParams_getMaxSrcRectWindow(&params, &source, &srcFromClient, &most));
    run.note(most);

    kip_affine_imageAlignment code = 77;
    kstd_rect32 covered = {1, 2, 3, 4};
    run.note(kip_affine_imageAlignment_compute(&params, &srcFromClient, &code, &covered));
    run.note(code);
    run.note(covered);
    run.note(kip_affine_imageAlignment_compute(&params, &srcFromClient, &code, nullptr));
    run.note(code);
}

} // namespace

void runCase(Input &input, Run &run)
{
    const kmath_xformLinear map = takeMap(input);
    uint8_t pixel = 0;
    kimg_windowConst window = {};
    window.width = takeSize(input);
    window.height = takeSize(input);
    window.x = input.oneIn(4) ? takeHostileInteger(input) : 0;
    window.y = input.oneIn(4) ? takeHostileInteger(input) : 0;
    window.pitch = input.oneIn(4) ? takeHostileInteger(input) : window.width;
    window.pixels = &pixel;
    window.bytesPerPixel = 1;

    kip_affineSampleParams params = {};
    const uint32_t mode = input.oneIn(8) ? input.raw<uint32_t>() : input.byte() % 4;
    const int32_t destWidth = takeSize(input), destHeight = takeSize(input);
    const kmath_shapeAffineRect rect = takeRectangle(input, window, map, destWidth, destHeight);
    run.note(kip_affineSampleParams_init(&params, mode, &rect, destWidth, destHeight));
    analyseWindow(run, params, window, map);

    Image image;
    if (!input.oneIn(8))
        image.bind(input, takeDepth(input, 1), input.between(1, 40), input.between(1, 40));
    takePlace(input, &image);
    (void)kimg_image_setLinearImageFromClientXform(&image.record, &map);
    int32_t willClip = 77;
    run.note(kip_affineSampleParams_getWillClip(&params, &image.record, &willClip));
    run.note(willClip);
    kstd_rect32 most = {1, 2, 3, 4};
    run.note(kip_affineSampleParams_getMaxSrcRect(&params, &image.record, &most));
    run.note(most);

    kip_affineSampleParams standard = {};
    run.note(kip_affineSampleParams_initRectStandard(&standard, &rect, input.oneIn(4) ? nullptr : &map));
    run.note(standard.destWidth);
    run.note(standard.destHeight);
    if (destWidth >= 1 && destHeight >= 1) { // the caller's duty
        kmath_xformLinear placement = {1, 2, 3, 4, 5, 6};
        run.note(kip_affineSampleParams_getDestImageFromClientXform(&params, input.byte() & 1, &placement));
        run.note(placement);
    }
}

} // namespace kip::fuzz
