#include "projection/affine_projection_bench.h"

#include <cmath>
#include <functional>
#include <iomanip>
#include <ostream>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include <benchmark/benchmark.h>
#include <kip/kip.h>

#include "support/peer.h"
#include "support/scene.h"
#include "transform/transform_cases.h"

namespace kip_bench {

namespace {

constexpr double kDegrees = 10.0;

// Of the mean sample. The sums level out what the two libraries round differently; a picture that is half a pixel off
// differs by more.
constexpr double kGreatestMeanDifference = 0.004;

struct ProjectionCase {
    uint32_t mode;
    int32_t bytesPerPixel;
    int32_t columns, rows;
    int32_t threads = 0; // 0: one thread, timed by its own clock; else timed by the clock on the wall
};

// A large picture, and a caliper's few samples, of which many are taken; large ones by one and two threads.
std::vector<ProjectionCase> projectionCases()
{
    std::vector<ProjectionCase> cases;
    for (const auto &[columns, rows, threads] :
         {std::tuple{1024, 1024, 0}, {64, 16, 0}, {1024, 1024, 1}, {1024, 1024, 2}, {2048, 2048, 1}, {2048, 2048, 2}})
        for (const int32_t bytesPerPixel : {1, 2})
            for (uint32_t mode = kip_affineModeNearest;
                 mode <= (bytesPerPixel == 1 ? kip_affineModeBicubic : kip_affineModeBilinear); ++mode)
                cases.push_back({mode, bytesPerPixel, columns, rows, threads});
    return cases;
}

// For example "projection/bilinear/u8/64x16/rotate10".
std::string nameOf(const ProjectionCase &projection)
{
    const std::string transform = nameOf(TransformCase{projection.mode, projection.bytesPerPixel, {}});
    const size_t from = transform.find('/');
    const size_t to = transform.find("/0/");
    return "projection" + transform.substr(from, to - from) + "/" + std::to_string(projection.columns) + "x" +
           std::to_string(projection.rows) + "/rotate10" +
           (projection.threads > 0 ? "/threads" + std::to_string(projection.threads) : "");
}

// An image over memory of the benchmark.
class Image {
public:
    Image(int32_t bytesPerPixel, int32_t width, int32_t height, int64_t pitch, void *pixels)
        : status(
              kimg_image_constructExternal(&record, bytesPerPixel, width, height, static_cast<int32_t>(pitch), pixels))
    {}
    explicit Image(const Pixels &pixels)
        : Image(pixels.bytesPerPixel, pixels.width, pixels.height, pixels.pitchBytes / pixels.bytesPerPixel,
                pixels.memory.get())
    {}
    ~Image() { kimg_image_destruct(&record); }
    Image(const Image &) = delete;
    Image &operator=(const Image &) = delete;

    kimg_image record;
    int32_t status;
};

// Images and cache of one caller, made and touched before the clock runs.
struct Stage {
    explicit Stage(const ProjectionCase &work)
        : projection(work), placed(placeRect({work.columns, work.rows, kDegrees})),
          sourcePixels(makePicture(work.bytesPerPixel, placed.sourceWidth, placed.sourceHeight,
                                   padPitch(int64_t{placed.sourceWidth} * work.bytesPerPixel))),
          transformedPixels(makeBlank(work.bytesPerPixel, work.columns, work.rows)),
          sums(static_cast<size_t>(work.columns)), source(sourcePixels), transformed(transformedPixels),
          result(4, work.columns, 1, work.columns, sums.data())
    {
        ksys_jobThreadGroup_setThreadCount(work.threads > 0 ? work.threads : 1);
        ksys_jobThreadGroup_setSplitAll(1);
        setPeerThreads(work.threads > 0 ? work.threads : 1);
        kip_affineSampleParams_init(&params, work.mode, &placed.rect, work.columns, work.rows);
        for (const int32_t each :
             {source.status, transformed.status, result.status, kip_affineSampleCache_construct(&cache)})
            status = each < 0 ? each : status;
    }
    ~Stage() { kip_affineSampleCache_destruct(&cache); }
    Stage(const Stage &) = delete;
    Stage &operator=(const Stage &) = delete;

    int32_t project()
    {
        const auto form = projection.bytesPerPixel == 1 ? kip_affineProject : kip_affineProject16;
        return status < 0 ? status : form(&source.record, &result.record, &params, &cache, nullptr);
    }
    int32_t transform()
    {
        const auto form = projection.bytesPerPixel == 1 ? kip_affineTransform : kip_affineTransform16;
        return status < 0 ? status : form(&source.record, &transformed.record, &params, &cache);
    }

    ProjectionCase projection;
    PlacedRect placed;
    Pixels sourcePixels, transformedPixels;
    std::vector<uint32_t> sums;
    Image source, transformed, result;
    kip_affineSampleParams params{};
    kip_affineSampleCache *cache = nullptr;
    int32_t status = 0;
};

void timeKip(benchmark::State &state, const ProjectionCase &projection)
{
    Stage stage(projection);
    if (stage.project() < 0)
        return state.SkipWithError("the projection failed");
    for (auto _ : state)
        benchmark::DoNotOptimize(stage.project());
}

void timeTransform(benchmark::State &state, const ProjectionCase &projection)
{
    Stage stage(projection);
    if (stage.transform() < 0)
        return state.SkipWithError("the transform failed");
    for (auto _ : state)
        benchmark::DoNotOptimize(stage.transform());
}

template <typename Sum>
void timePeerOf(benchmark::State &state, const ProjectionCase &projection)
{
    Stage stage(projection);
    std::vector<Sum> sums(stage.sums.size());
    const std::function<void()> peer = preparePeerProjection(
        {projection.mode, stage.sourcePixels, stage.transformedPixels, stage.placed.rect}, sums.data());
    peer();
    if (stage.project() < 0)
        return state.SkipWithError("the projection failed");
    double difference = 0.0;
    for (size_t i = 0; i < sums.size(); ++i)
        difference += std::fabs(static_cast<double>(stage.sums[i]) - static_cast<double>(sums[i]));
    const double range = (projection.bytesPerPixel == 1 ? 255.0 : 65535.0) * projection.columns * projection.rows;
    if (difference > kGreatestMeanDifference * range)
        return state.SkipWithError(("the sums differ by " + std::to_string(difference / range)).c_str());
    for (auto _ : state)
        peer();
}

void timePeer(benchmark::State &state, const ProjectionCase &projection)
{
    projection.bytesPerPixel == 1 ? timePeerOf<int32_t>(state, projection) : timePeerOf<float>(state, projection);
}

} // namespace

void registerProjections()
{
    for (const ProjectionCase &projection : projectionCases()) {
        const auto add = [&projection](const char *work, auto timed) {
            const auto run = [projection, timed](benchmark::State &state) { timed(state, projection); };
            auto *const registered = benchmark::RegisterBenchmark((nameOf(projection) + "/" + work).c_str(), run);
            registered->Unit(benchmark::kMicrosecond);
            if (projection.threads > 0)
                registered->UseRealTime();
        };
        add("kip", timeKip);
        if (hasPeer())
            add("opencv", timePeer);
        add("transform", timeTransform);
    }
}

void printProjectionTable(const Measurements &measurements, std::ostream &out)
{
    const char *head = R"(
| projection | kip us | Gsample/s | OpenCV / kip | range | transform / kip | range |
|---|--:|--:|--:|---|--:|---|
)";
    for (const ProjectionCase &projection : projectionCases()) {
        const std::string name = nameOf(projection);
        const Rounds *const kip = measurements.find(name + "/kip");
        if (kip == nullptr)
            continue;
        const double seconds = spreadOf(*kip).median;
        std::ostringstream row;
        row << std::fixed << std::setprecision(2) << "| " << name << " | " << 1e6 * seconds << " | "
            << 1e-9 * projection.columns * projection.rows / seconds << " |";
        for (const char *const other : {"/opencv", "/transform"}) {
            const Rounds *const rounds = measurements.find(name + other);
            if (rounds != nullptr) {
                const Spread spread = spreadOf(ratios(*rounds, *kip));
                row << " " << spread.median << " | " << spread.least << " to " << spread.greatest << " |";
            } else {
                row << "  |  |";
            }
        }
        out << head << row.str() << "\n";
        head = "";
    }
}

} // namespace kip_bench
