#include "commands.h"
#include "failure.h"
#include "library_image.h"
#include "overlay.h"
#include "picture_options.h"
#include "sampling_options.h"
#include "timing.h"

#include <iostream>
#include <memory>

namespace kiptool {
namespace {

struct TransformOptions {
    InputOptions in;
    std::string out, overlay, mask;
    std::optional<Format> format;
    SamplingOptions sampling;
    bool clip = false;
    bool time = false;
};

// The images of a transform. It can be repeated: the result is then written where it is.
struct Work {
    int depth;
    kip_affineSampleParams params;
    bool clip, wantsMask;
    LibraryImage source, result, mask;

    void run(kip_affineSampleCache **cache)
    {
        if (!clip) {
            const auto transform = depth == 16 ? kip_affineTransform16 : kip_affineTransform;
            requireSuccess(transform(&source.image, &result.image, &params, cache), "transform");
            return;
        }
        const auto transform = depth == 16 ? kip_affineTransformClipped16 : kip_affineTransformClipped;
        int32_t willClip = 0;
        requireSuccess(
            transform(&source.image, &result.image, wantsMask ? &mask.image : nullptr, &params, cache, &willClip),
            "clipped transform");
        if (wantsMask && willClip == 0) { // nothing lies outside, and the library has left the mask alone
            requireSuccess(kimg_image_assignNew(&mask.image, 1, params.destWidth, params.destHeight), "mask");
            requireSuccess(kip_pelSet8(&mask.image, 255), "mask");
        }
    }
};

void runTransform(const TransformOptions &options)
{
    formatOfOutput(options.out, options.format); // a name that cannot serve is told before any work
    if (!options.mask.empty())
        formatOfOutput(options.mask);
    const kip_affineSampleParams params = makeSampling(options.sampling);
    Picture original = readInput(options.in);

    // Before the transform, since it shows best why a rectangle is refused.
    writeOverlay(options.overlay, original, params.rect);

    Picture grey = toGrey(std::move(original));
    Work work{depthOf(grey), params, options.clip, !options.mask.empty(), {}, {}, {}};
    bindTo(work.source, grey);
    work.run(nullptr);
    const Picture result = pictureOf(work.result, work.depth);
    writePicture(options.out, result, options.format);
    if (work.wantsMask)
        writePicture(options.mask, pictureOf(work.mask, 8));

    if (options.time) {
        kip_affineSampleCache *handle = nullptr;
        requireSuccess(kip_affineSampleCache_construct(&handle), "cache");
        const auto release = [](kip_affineSampleCache *cache) { kip_affineSampleCache_destruct(&cache); };
        const std::unique_ptr<kip_affineSampleCache, decltype(release)> owner(handle, release);
        const Timing timing = measure([&] { work.run(&handle); });
        std::ostream &told = options.out == "-" ? std::cerr : std::cout; // which holds the picture then
        told << result.width << " x " << result.height << ", " << depthOf(result) << " bits, " << modeName(params.mode)
             << ": " << describeTiming(timing, static_cast<double>(result.width) * result.height) << '\n';
    }
}

} // namespace

Command addTransformCommand(CLI::App &tool)
{
    CLI::App *app = tool.add_subcommand("transform", "Straighten a rectangle of a picture");
    const auto options = std::make_shared<TransformOptions>();
    addInputOptions(*app, options->in, "Picture to sample");
    app->add_option("OUT", options->out,
                    "Result, in the depth of IN: .png, .tif, .tiff or .pgm; - for the standard output, with --format")
        ->required();
    addFormatOption(*app, options->format);
    addSamplingOptions(*app, options->sampling);
    CLI::Option *const clip =
        app->add_flag("--clip", options->clip, "Let the rectangle reach outside IN, where it is black");
    app->add_option("--mask", options->mask,
                    "Write which pixels of OUT lie inside IN: 255 those, 0 the others, between them at the border; an "
                    "8-bit picture: .png, .tif, .tiff or .pgm")
        ->needs(clip)
        ->type_name("FILE");
    app->add_flag("--time", options->time,
                  "Repeat the operation and print milliseconds and megapixels of result per second");
    addOverlayOption(*app, options->overlay);
    return {app, [options] { runTransform(*options); }};
}

} // namespace kiptool
