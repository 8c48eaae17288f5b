#include "transform/clipped_bench.h"

#include <iomanip>
#include <ostream>
#include <sstream>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <kip/kip.h>

#include "support/scene.h"
#include "transform/transform_cases.h"

namespace kip_bench {

namespace {

constexpr double kDegrees = 10.0;

std::vector<TransformCase> clippedCases()
{
    std::vector<TransformCase> cases;
    for (const int32_t size : {256, 1024})
        for (const int32_t bytesPerPixel : {1, 2})
            for (uint32_t mode = kip_affineModeNearest; mode <= kip_affineModeBicubic; ++mode)
                cases.push_back({mode, bytesPerPixel, turnedSquare(size, kDegrees)});
    for (const int32_t size : {1024, 2048})
        for (const int32_t bytesPerPixel : {1, 2})
            for (uint32_t mode = kip_affineModeNearest; mode <= kip_affineModeBicubic; ++mode)
                for (const int32_t threads : {1, 2}) {
                    cases.push_back({mode, bytesPerPixel, turnedSquare(size, kDegrees)});
                    cases.back().threads = threads;
                }
    return cases;
}

std::string clippedName(const TransformCase &transform)
{
    return "clipped" + nameOf(transform).substr(std::string("transform").size());
}

// An image over pixels of the benchmark.
class Image {
public:
    explicit Image(const Pixels &pixels)
        : status(kimg_image_constructExternal(&record, pixels.bytesPerPixel, pixels.width, pixels.height,
                                              static_cast<int32_t>(pixels.pitchBytes / pixels.bytesPerPixel),
                                              pixels.memory.get()))
    {}
    ~Image() { kimg_image_destruct(&record); }
    Image(const Image &) = delete;
    Image &operator=(const Image &) = delete;

    kimg_image record;
    int32_t status;
};

// The images and the cache of one caller, made and touched before the clock runs.
struct Stage {
    explicit Stage(const TransformCase &transform)
        : placed(placeRect(transform.geometry)),
          sourcePixels(makePicture(transform.bytesPerPixel, placed.sourceWidth, placed.sourceHeight,
                                   padPitch(int64_t{placed.sourceWidth} * transform.bytesPerPixel))),
          destinationPixels(makeBlank(transform.bytesPerPixel, transform.geometry.width, transform.geometry.height)),
          maskPixels(makeBlank(1, transform.geometry.width, transform.geometry.height)), source(sourcePixels),
          destination(destinationPixels), mask(maskPixels)
    {
        ksys_jobThreadGroup_setThreadCount(transform.threads > 0 ? transform.threads : 1);
        ksys_jobThreadGroup_setSplitAll(1);
        kip_affineSampleParams_init(&params, transform.mode, &placed.rect, maskPixels.width, maskPixels.height);
        for (const int32_t each :
             {source.status, destination.status, mask.status, kip_affineSampleCache_construct(&cache)})
            status = each < 0 ? each : status;
    }
    ~Stage() { kip_affineSampleCache_destruct(&cache); }
    Stage(const Stage &) = delete;
    Stage &operator=(const Stage &) = delete;

    PlacedRect placed;
    Pixels sourcePixels, destinationPixels, maskPixels;
    Image source, destination, mask;
    kip_affineSampleParams params;
    kip_affineSampleCache *cache = nullptr;
    int32_t status = 0;
};

// Half of the rectangle lies beyond the source's right edge.
void timeClipped(benchmark::State &state, const TransformCase &transform)
{
    Stage stage(transform);
    stage.params.rect.tx += stage.placed.sourceWidth / 2.0;
    const auto clipped = transform.bytesPerPixel == 1 ? kip_affineTransformClipped : kip_affineTransformClipped16;
    int32_t willClip = 0;
    const auto call = [&] {
        return clipped(&stage.source.record, &stage.destination.record, &stage.mask.record, &stage.params, &stage.cache,
                       &willClip);
    };
    if (stage.status < 0 || call() < 0 || willClip == 0)
        return state.SkipWithError("the clipped transform failed");
    for (auto _ : state)
        benchmark::DoNotOptimize(call());
}

void timeTwoPlain(benchmark::State &state, const TransformCase &transform)
{
    Stage stage(transform);
    const auto plain = transform.bytesPerPixel == 1 ? kip_affineTransform : kip_affineTransform16;
    const auto call = [&] {
        return plain(&stage.source.record, &stage.destination.record, &stage.params, &stage.cache);
    };
    if (stage.status < 0 || call() < 0)
        return state.SkipWithError("the plain transform failed");
    for (auto _ : state) {
        benchmark::DoNotOptimize(call());
        benchmark::DoNotOptimize(call());
    }
}

} // namespace

void registerClippedTransforms()
{
    for (const TransformCase &transform : clippedCases()) {
        const auto add = [&transform](const char *work, auto timed) {
            const auto run = [transform, timed](benchmark::State &state) { timed(state, transform); };
            auto *const registered = benchmark::RegisterBenchmark((clippedName(transform) + "/" + work).c_str(), run);
            registered->Unit(benchmark::kMicrosecond);
            if (transform.threads > 0)
                registered->UseRealTime();
        };
        add("with-mask", timeClipped);
        add("two-plain", timeTwoPlain);
    }
}

void printClippedTable(const Measurements &measurements, std::ostream &out)
{
    const char *head = R"(
| clipped transform with mask | us | two plain transforms, us | plain / clipped | range |
|---|--:|--:|--:|---|
)";
    for (const TransformCase &transform : clippedCases()) {
        const Rounds *const clipped = measurements.find(clippedName(transform) + "/with-mask");
        const Rounds *const plain = measurements.find(clippedName(transform) + "/two-plain");
        if (clipped == nullptr || plain == nullptr)
            continue;
        const Spread spread = spreadOf(ratios(*plain, *clipped));
        std::ostringstream row;
        row << std::fixed << std::setprecision(0) << "| " << clippedName(transform) << " | "
            << 1e6 * spreadOf(*clipped).median << " | " << 1e6 * spreadOf(*plain).median << " | "
            << std::setprecision(2) << spread.median << " | " << spread.least << " to " << spread.greatest << " |\n";
        out << head << row.str();
        head = "";
    }
}

} // namespace kip_bench
