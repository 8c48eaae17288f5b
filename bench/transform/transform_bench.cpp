#include "transform/transform_bench.h"

#include <algorithm>
#include <functional>
#include <sstream>
#include <string>

#include <benchmark/benchmark.h>
#include <kip/kip.h>

#include "support/peer.h"
#include "support/scene.h"

namespace kip_bench {

namespace {

// Both libraries must have done the same work. They round differently, and take another pixel where a
// position lies between two, which the noise shows; a picture that is half a pixel off differs by much more. The
// table-driven modes weigh the noise along a sheared line, at 45 degrees most unlike the peer's square of pixels.
constexpr double kGreatestMeanDifference = 0.004;
constexpr double kGreatestMeanDifferenceTableDriven = 0.0125;

// The source of the last case: many cases in a row read the same, and large ones take long to paint.
const Pixels &sourceOf(const TransformCase &transform, const PlacedRect &placed)
{
    const int64_t pitchBytes = transform.sourcePitchBytes != 0
                                   ? transform.sourcePitchBytes
                                   : padPitch(int64_t{placed.sourceWidth} * transform.bytesPerPixel);
    const int32_t height = std::max(placed.sourceHeight, transform.sourceRows);
    static Pixels last;
    if (last.bytesPerPixel != transform.bytesPerPixel || last.width != placed.sourceWidth || last.height != height ||
        last.pitchBytes != pitchBytes) {
        last = Pixels();
        last = makePicture(transform.bytesPerPixel, placed.sourceWidth, height, pitchBytes);
    }
    return last;
}

// Everything that a case works with, made and touched before the clock runs.
struct Stage {
    PlacedRect placed;
    const Pixels &source;
    Pixels destination;

    explicit Stage(const TransformCase &transform)
        : placed(placeRect(transform.geometry)), source(sourceOf(transform, placed)),
          destination(makeBlank(transform.bytesPerPixel, transform.geometry.width, transform.geometry.height))
    {}
};

int32_t bindImage(kimg_image *image, const Pixels &pixels)
{
    return kimg_image_constructExternal(image, pixels.bytesPerPixel, pixels.width, pixels.height,
                                        static_cast<int32_t>(pixels.pitchBytes / pixels.bytesPerPixel),
                                        pixels.memory.get());
}

// A caller that keeps its cache and its destination from call to call.
class KipCaller {
public:
    KipCaller(const TransformCase &transform, const Stage &stage) : is8_(transform.bytesPerPixel == 1)
    {
        kimg_image_constructUnbound(&source_);
        kimg_image_constructUnbound(&destination_);
        kip_affineSampleParams_init(&params_, transform.mode, &stage.placed.rect, stage.destination.width,
                                    stage.destination.height);
        status_ = bindImage(&source_, stage.source);
        if (status_ >= 0)
            status_ = bindImage(&destination_, stage.destination);
        if (status_ >= 0)
            status_ = kip_affineSampleCache_construct(&cache_);
    }
    ~KipCaller()
    {
        kip_affineSampleCache_destruct(&cache_);
        kimg_image_destruct(&destination_);
        kimg_image_destruct(&source_);
    }
    KipCaller(const KipCaller &) = delete;
    KipCaller &operator=(const KipCaller &) = delete;

    // The first failure stays.
    int32_t call()
    {
        if (status_ >= 0)
            status_ = is8_ ? kip_affineTransform(&source_, &destination_, &params_, &cache_)
                           : kip_affineTransform16(&source_, &destination_, &params_, &cache_);
        return status_;
    }

private:
    bool is8_;
    int32_t status_ = 0;
    kimg_image source_;
    kimg_image destination_;
    kip_affineSampleParams params_;
    kip_affineSampleCache *cache_ = nullptr;
};

void setCounters(benchmark::State &state, const TransformCase &transform)
{
    const double pixels = static_cast<double>(transform.geometry.width) * transform.geometry.height;
    state.counters["Mpixel"] = benchmark::Counter(pixels * 1e-6, benchmark::Counter::kIsIterationInvariantRate);
}

void skip(benchmark::State &state, int32_t status)
{
    std::ostringstream text;
    text << "kip failed with status 0x" << std::hex << static_cast<uint32_t>(status);
    state.SkipWithError(text.str().c_str());
}

void timeKip(benchmark::State &state, const TransformCase &transform)
{
    ksys_jobThreadGroup_setThreadCount(transform.threads > 0 ? transform.threads : 1);
    ksys_jobThreadGroup_setSplitAll(1);
    const Stage stage(transform);
    KipCaller caller(transform, stage);
    caller.call();
    for (auto _ : state)
        benchmark::DoNotOptimize(caller.call());
    if (caller.call() < 0)
        skip(state, caller.call());
    setCounters(state, transform);
}

// Runs both once and compares. Returns a negative status of ours.
int32_t compareWithPeer(const TransformCase &transform, const Stage &stage, const std::function<void()> &peer,
                        double *difference)
{
    const Stage ours(transform);
    const int32_t status = KipCaller(transform, ours).call();
    peer();
    *difference = meanDifference(ours.destination, stage.destination);
    return status;
}

void timePeer(benchmark::State &state, const TransformCase &transform)
{
    setPeerThreads(transform.threads > 0 ? transform.threads : 1);
    const Stage stage(transform);
    const std::function<void()> peer =
        preparePeer({transform.mode, stage.source, stage.destination, stage.placed.rect});

    double difference = 0.0;
    const int32_t status = compareWithPeer(transform, stage, peer, &difference);
    if (status < 0)
        return skip(state, status);
    const double greatest =
        transform.mode <= kip_affineModeBilinear ? kGreatestMeanDifference : kGreatestMeanDifferenceTableDriven;
    if (difference > greatest)
        return state.SkipWithError(("the results differ by " + std::to_string(difference) + " of the range").c_str());

    for (auto _ : state)
        peer();
    setCounters(state, transform);
}

using Timed = void (*)(benchmark::State &state, const TransformCase &transform);

void registerCase(const TransformCase &transform, const char *library, Timed timed)
{
    auto *const registered =
        benchmark::RegisterBenchmark((nameOf(transform) + "/" + library).c_str(),
                                     [transform, timed](benchmark::State &state) { timed(state, transform); });
    registered->Unit(benchmark::kMicrosecond);
    if (transform.threads > 0)
        registered->UseRealTime();
}

} // namespace

void registerTransforms(const std::vector<TransformCase> &cases)
{
    for (const TransformCase &transform : cases) {
        registerCase(transform, "kip", timeKip);
        if (hasPeer())
            registerCase(transform, "opencv", timePeer);
    }
}

} // namespace kip_bench
