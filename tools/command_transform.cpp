#include "commands.h"
#include "library_image.h"
#include "overlay.h"
#include "picture_io.h"
#include "sampling_options.h"
#include "status_names.h"
#include "timing.h"

#include <iostream>
#include <memory>

namespace kiptool {
namespace {

struct TransformOptions {
    std::string in, out, overlay;
    SamplingOptions sampling;
    bool time = false;
};

void runTransform(const TransformOptions &options)
{
    formatOfName(options.out); // a name that cannot serve is told before any work
    const kip_affineSampleParams params = makeSampling(options.sampling);
    Picture original = readPicture(options.in).picture;

    // Before the transform, since it shows best why a rectangle is refused.
    writeOverlay(options.overlay, original, params.rect);

    Picture grey = toGrey(std::move(original));
    LibraryImage source, destination;
    bindTo(source, grey);
    const auto transform = depthOf(grey) == 16 ? kip_affineTransform16 : kip_affineTransform;
    requireSuccess(transform(&source.image, &destination.image, &params, nullptr), "transform");
    const Picture result = pictureOf(destination, depthOf(grey));
    writePicture(options.out, result);

    if (options.time) {
        kip_affineSampleCache *handle = nullptr;
        requireSuccess(kip_affineSampleCache_construct(&handle), "cache");
        const auto release = [](kip_affineSampleCache *cache) { kip_affineSampleCache_destruct(&cache); };
        const std::unique_ptr<kip_affineSampleCache, decltype(release)> owner(handle, release);
        const Timing timing = measure([&] { // into the destination that is bound now
            requireSuccess(transform(&source.image, &destination.image, &params, &handle), "transform");
        });
        std::cout << result.width << " x " << result.height << ", " << depthOf(result) << " bits, "
                  << modeName(params.mode) << ": "
                  << describeTiming(timing, static_cast<double>(result.width) * result.height) << '\n';
    }
}

} // namespace

Command addTransformCommand(CLI::App &tool)
{
    CLI::App *app = tool.add_subcommand("transform", "Straighten a rectangle of a picture");
    const auto options = std::make_shared<TransformOptions>();
    app->add_option("IN", options->in, "Picture to sample")->required();
    app->add_option("OUT", options->out, "Result, in the depth of IN: .png, .tif, .tiff or .pgm")->required();
    addSamplingOptions(*app, options->sampling);
    app->add_flag("--time", options->time,
                  "Repeat the operation and print milliseconds and megapixels of result per second");
    addOverlayOption(*app, options->overlay);
    return {app, [options] { runTransform(*options); }};
}

} // namespace kiptool
