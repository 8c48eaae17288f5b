#include "cpp/cpp_bench.h"

#include <cstdint>
#include <iomanip>
#include <ostream>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <kip/kip.hpp>

#include "support/scene.h"

namespace kip_bench {

namespace {

// A caliper's work out of a camera's picture: small, so that what a call costs by itself shows.
struct Stage {
    Pixels pixels = makePicture(1, 4096, 3000, padPitch(4096));
    kip::ImageView<const uint8_t> source{pixels.memory.get(), 4096, 3000, pixels.pitchBytes};
    kip::AffineRect rect = kip::AffineRect::fromCenter({2000.3, 1500.7}, 120, 40, 0.2);
    kip::Sampler sampler{rect};
    kip::Image<uint8_t> result{120, 40};
    std::vector<uint32_t> sums = std::vector<uint32_t>(120);
    kip_affineSampleCache *cache = nullptr;

    Stage() { kip_affineSampleCache_construct(&cache); }
    Stage(const Stage &) = delete;
    Stage &operator=(const Stage &) = delete;
    ~Stage() { kip_affineSampleCache_destruct(&cache); }
};

// The picture is bound and let go in every call, as when each comes from somewhere else.
template <class Call>
int32_t withSource(const Stage &stage, const Call &call)
{
    kimg_imageConst source;
    int32_t status =
        kimg_imageConst_constructExternal(&source, 1, 4096, 3000, stage.source.pitch(), stage.source.data());
    if (status >= 0)
        status = call(source);
    kimg_image_destruct(&source);
    return status;
}

int32_t transformInC(Stage &stage)
{
    return withSource(stage, [&](const kimg_imageConst &source) {
        return kip_affineTransform(&source, stage.result.handle(), &stage.sampler.params(), &stage.cache);
    });
}

int32_t transformInCpp(Stage &stage)
{
    stage.sampler.transformInto(stage.source, stage.result);
    return 0;
}

int32_t newImageInC(Stage &stage)
{
    return withSource(stage, [&](const kimg_imageConst &source) {
        kimg_image result;
        kimg_image_constructUnbound(&result);
        const int32_t status = kip_affineTransform(&source, &result, &stage.sampler.params(), &stage.cache);
        kimg_image_destruct(&result);
        return status;
    });
}

int32_t newImageInCpp(Stage &stage)
{
    return stage.sampler.transform(stage.source) ? 0 : -1;
}

int32_t projectInC(Stage &stage)
{
    const kimg_windowConst source{4096, 3000, 0, 0, 0, 0, 4096, 3000, stage.source.pitch(), stage.source.data(), 1};
    kimg_window row{120, 1, 0, 0, 0, 0, 120, 1, 120, stage.sums.data(), 4};
    kmath_xformLinear placement;
    return kip_affineProjectWindow(&source, &kip::kIdentity, &row, &stage.sampler.params(), &stage.cache, &placement,
                                   nullptr);
}

int32_t projectInCpp(Stage &stage)
{
    stage.sampler.projectInto(stage.source, stage.sums);
    return 0;
}

struct Pair {
    const char *name;
    int32_t (*inC)(Stage &);
    int32_t (*inCpp)(Stage &);
};

constexpr Pair kPairs[] = {{"cpp/transform/120x40", transformInC, transformInCpp},
                           {"cpp/transform/120x40/new", newImageInC, newImageInCpp},
                           {"cpp/project/120x40", projectInC, projectInCpp}};

void time(benchmark::State &state, int32_t (*call)(Stage &))
{
    Stage stage;
    if (call(stage) < 0)
        return state.SkipWithError("the call failed");
    for (auto _ : state) {
        benchmark::DoNotOptimize(call(stage));
        benchmark::ClobberMemory();
    }
}

} // namespace

void registerCppCalls()
{
    for (const Pair &pair : kPairs) {
        const auto add = [&](const char *language, int32_t (*call)(Stage &)) {
            benchmark::RegisterBenchmark((std::string(pair.name) + "/" + language).c_str(),
                                         [call](benchmark::State &state) { time(state, call); })
                ->Unit(benchmark::kNanosecond);
        };
        add("c", pair.inC);
        add("cpp", pair.inCpp);
    }
}

void printCppTable(const Measurements &measurements, std::ostream &out)
{
    const char *head = R"(
| 120 x 40 bilinear out of 4096 x 3000, u8 | C ns | C++ ns | C++ / C | range |
|---|--:|--:|--:|---|
)";
    for (const Pair &pair : kPairs) {
        const Rounds *const inC = measurements.find(std::string(pair.name) + "/c");
        const Rounds *const inCpp = measurements.find(std::string(pair.name) + "/cpp");
        if (inC == nullptr || inCpp == nullptr)
            continue;
        const Spread spread = spreadOf(ratios(*inCpp, *inC));
        out << head << std::fixed << std::setprecision(0) << "| " << pair.name << " | " << 1e9 * spreadOf(*inC).median
            << " | " << 1e9 * spreadOf(*inCpp).median << " | " << std::setprecision(2) << spread.median << " | "
            << spread.least << " to " << spread.greatest << " |\n";
        head = "";
    }
}

} // namespace kip_bench
