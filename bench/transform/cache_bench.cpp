#include "transform/cache_bench.h"

#include <cstdint>
#include <string>

#include <benchmark/benchmark.h>
#include <kip/kip.h>

#include "support/scene.h"
#include "transform/transform_cases.h"

namespace kip_bench {

namespace {

enum class Use { kept, none, changing };

void timeCalls(benchmark::State &state, const TransformCase &transform, Use use)
{
    ksys_jobThreadGroup_setThreadCount(1);
    const PlacedRect placed = placeRect(transform.geometry);
    const Pixels pixels = makePicture(1, placed.sourceWidth, placed.sourceHeight, padPitch(placed.sourceWidth));
    const int32_t side = transform.geometry.width;
    const Pixels blank = makeBlank(1, side, side);
    kimg_image source;
    kimg_image destination;
    kip_affineSampleCache *cache = nullptr;
    kimg_image_constructExternal(&source, 1, pixels.width, pixels.height, static_cast<int32_t>(pixels.pitchBytes),
                                 pixels.memory.get());
    kimg_image_constructExternal(&destination, 1, side, side, side, blank.memory.get());
    kip_affineSampleCache_construct(&cache);

    // Two rectangles of one size, so that nothing but the cache tells them apart.
    kip_affineSampleParams params[2];
    for (kip_affineSampleParams &each : params)
        kip_affineSampleParams_init(&each, transform.mode, &placed.rect, side, side);
    if (use == Use::changing)
        params[1].rect.tx += 0.25;

    uint32_t turn = 0;
    int32_t status = 0;
    for (auto _ : state) {
        const int32_t answer =
            kip_affineTransform(&source, &destination, &params[turn], use == Use::none ? nullptr : &cache);
        status = answer < 0 ? answer : status;
        turn ^= 1;
    }
    if (status < 0)
        state.SkipWithError("a transform failed");
    kip_affineSampleCache_destruct(&cache);
    kimg_image_destruct(&destination);
    kimg_image_destruct(&source);
}

} // namespace

void registerCacheUses()
{
    for (const int32_t size : {16, 64, 256}) {
        for (uint32_t mode = kip_affineModeNearest; mode <= kip_affineModeBicubic; ++mode) {
            const TransformCase transform = {mode, 1, turnedSquare(size, 10.0)};
            const std::string name = nameOf(transform);
            const std::string prefix = "cache" + name.substr(name.find('/'), name.find("/rotate") - name.find('/'));
            const auto add = [&](const char *word, Use use) {
                benchmark::RegisterBenchmark((prefix + '/' + word).c_str(), [transform, use](benchmark::State &state) {
                    timeCalls(state, transform, use);
                });
            };
            add("kept", Use::kept);
            add("none", Use::none);
            add("changing", Use::changing);
        }
    }
}

} // namespace kip_bench
