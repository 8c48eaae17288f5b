#include "commands.h"
#include "failure.h"
#include "library_image.h"
#include "overlay.h"
#include "picture_options.h"
#include "profile.h"
#include "sampling_options.h"
#include "timing.h"

#include <cmath>
#include <iostream>
#include <memory>

namespace kiptool {
namespace {

constexpr uint8_t kCoverageValue = 255; // of a sample that lies inside

struct ProjectOptions {
    InputOptions in;
    std::string overlay;
    SamplingOptions sampling;
    ProfileOptions profile;
    bool clip = false, mean = false, time = false;
};

// The operations for one depth.
struct Operations {
    decltype(&kip_affineProject) project;
    decltype(&kip_affineProjectClipped) projectClipped;
    decltype(&kip_affineProjectNorm) projectNorm;
};

constexpr Operations kOperations8 = {kip_affineProject, kip_affineProjectClipped, kip_affineProjectNorm};
constexpr Operations kOperations16 = {kip_affineProject16, kip_affineProjectClipped16, kip_affineProjectNorm16};

std::vector<double> valuesOf(const LibraryImage &image, double divisor)
{
    kimg_windowConst window;
    requireSuccess(kimg_windowConst_init(&window, &image.image), "result");
    const auto *const from = static_cast<const uint32_t *>(window.pixels);
    std::vector<double> values(from, from + window.width);
    for (double &value : values)
        value /= divisor;
    return values;
}

Profile project(const Operations &operations, const LibraryImage &source, const kip_affineSampleParams &params,
                const ProjectOptions &options)
{
    Profile profile;
    profile.axis = "column";
    profile.quantity = options.mean ? "mean" : "sum";
    profile.samples = params.destHeight;
    profile.length = std::hypot(params.rect.e0, params.rect.e2);
    profile.end = static_cast<size_t>(params.destWidth);

    LibraryImage sums, coverage;
    uint32_t depth = 1, willClip = 0;
    if (options.clip) {
        requireSuccess(operations.projectClipped(&source.image, &sums.image, &coverage.image, &params, nullptr,
                                                 kCoverageValue, &depth, &willClip),
                       "projection");
        if (willClip != 0)
            profile.coverage = valuesOf(coverage, kCoverageValue);
    }
    if (options.mean) {
        uint32_t depthOfValues = 1;
        int32_t first = 0, end = 0;
        requireSuccess(operations.projectNorm(&source.image, &sums.image, &params, options.clip ? 1 : 0, nullptr,
                                              &depthOfValues, &first, &end),
                       "projection");
        profile.first = static_cast<size_t>(first);
        profile.end = static_cast<size_t>(end);
        profile.values = valuesOf(sums, depthOfValues);
    } else {
        if (!options.clip)
            requireSuccess(operations.project(&source.image, &sums.image, &params, nullptr, &depth), "projection");
        profile.values = valuesOf(sums, 1);
    }
    return profile;
}

void tellTiming(const Operations &operations, const LibraryImage &source, const kip_affineSampleParams &params)
{
    kip_affineSampleCache *handle = nullptr;
    requireSuccess(kip_affineSampleCache_construct(&handle), "cache");
    const auto release = [](kip_affineSampleCache *cache) { kip_affineSampleCache_destruct(&cache); };
    const std::unique_ptr<kip_affineSampleCache, decltype(release)> owner(handle, release);
    LibraryImage sums;
    const Timing timing = measure([&] {
        requireSuccess(operations.project(&source.image, &sums.image, &params, &handle, nullptr), "projection");
    });
    std::cerr << params.destWidth << " x " << params.destHeight << " samples, " << modeName(params.mode) << ": "
              << describeTiming(timing, static_cast<double>(params.destWidth) * params.destHeight) << '\n';
}

void runProject(const ProjectOptions &options)
{
    const kip_affineSampleParams params = makeSampling(options.sampling);
    Picture original = readInput(options.in);
    writeOverlay(options.overlay, original, params.rect); // before, since it shows best why a rectangle is refused
    Picture grey = toGrey(std::move(original));
    LibraryImage source;
    bindTo(source, grey);
    const Operations &operations = depthOf(grey) == 16 ? kOperations16 : kOperations8;
    writeProfile(options.profile, project(operations, source, params, options));
    if (options.time)
        tellTiming(operations, source, params);
}

} // namespace

Command addProjectCommand(CLI::App &tool)
{
    CLI::App *app = tool.add_subcommand("project", "Add up the samples of each column of a rectangle of a picture");
    const auto options = std::make_shared<ProjectOptions>();
    addInputOptions(*app, options->in, "Picture to sample");
    addSamplingOptions(*app, options->sampling);
    CLI::Option *clip = app->add_flag("--clip", options->clip,
                                      "The rectangle may reach outside the picture; the table then tells, for each "
                                      "column, how many of its samples lie inside");
    app->add_flag("--mean", options->mean, "Means of the samples inside the picture instead of sums");
    app->add_flag("--time", options->time,
                  "Repeat the operation and print milliseconds and megasamples per second on the standard error")
        ->excludes(clip);
    addProfileOptions(*app, options->profile);
    addOverlayOption(*app, options->overlay);
    return {app, [options] { runProject(*options); }};
}

} // namespace kiptool
