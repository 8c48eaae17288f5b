#include "transform/aligned/aligned_bench.h"

#include <cstring>
#include <functional>
#include <iomanip>
#include <ostream>
#include <sstream>
#include <string>

#include <benchmark/benchmark.h>
#include <kip/kip.h>

#include "support/peer.h"
#include "support/scene.h"

namespace kip_bench {

namespace {

constexpr struct {
    const char *name;
    kip_affine_imageAlignment code;
} kTurns[] = {
    {"copy", kip_affine_alignIdentity},       {"mirror", kip_affine_alignRotate90Transpose},
    {"half-turn", kip_affine_alignRotate180}, {"quarter-turn", kip_affine_alignRotate90},
    {"transpose", kip_affine_alignTranspose},
};

struct AlignedCase {
    std::string name;
    kip_affine_imageAlignment code;
    int32_t bytesPerPixel;
    int32_t side;
};

template <typename Use>
void forEachCase(Use use)
{
    for (const int32_t side : {64, 256, 1024, 4096})
        for (const int32_t bytesPerPixel : {1, 2})
            for (const auto &turn : kTurns)
                use(AlignedCase{std::string("aligned/") + turn.name + "/u" + std::to_string(8 * bytesPerPixel) + "/" +
                                    std::to_string(side),
                                turn.code, bytesPerPixel, side});
}

// Rows without gaps: their pitch is a power of two, and a copy is one call.
struct Stage {
    explicit Stage(const AlignedCase &c)
        : source(makePicture(c.bytesPerPixel, c.side, c.side, int64_t{c.side} * c.bytesPerPixel)),
          destination(makeBlank(c.bytesPerPixel, c.side, c.side)), code(c.code),
          bytes(static_cast<size_t>(source.pitchBytes) * static_cast<size_t>(c.side))
    {}

    int32_t run() const
    {
        const int32_t side = source.width;
        const int32_t pixel = source.bytesPerPixel;
        const kimg_windowConst from = {side, side, 0, 0, 0, 0, side, side, side, source.memory.get(), pixel};
        kimg_window to = {side, side, 0, 0, 0, 0, side, side, side, destination.memory.get(), pixel};
        return (pixel == 1 ? kip_affineTransformAligned : kip_affineTransformAligned16)(&from, &to, code);
    }

    Pixels source, destination;
    kip_affine_imageAlignment code;
    size_t bytes;
};

void timeKip(benchmark::State &state, const AlignedCase &c)
{
    const Stage stage(c);
    for (auto _ : state) {
        if (stage.run() < 0)
            return state.SkipWithError("the transform failed");
        benchmark::ClobberMemory();
    }
}

void timePeer(benchmark::State &state, const AlignedCase &c)
{
    setPeerThreads(1);
    const Stage stage(c);
    const Pixels result = makeBlank(c.bytesPerPixel, c.side, c.side);
    const std::function<void()> peer = preparePeerTurn({c.code, stage.source, result});
    peer();
    if (stage.run() < 0 || std::memcmp(result.memory.get(), stage.destination.memory.get(), stage.bytes) != 0)
        return state.SkipWithError("the pictures differ");
    for (auto _ : state) {
        peer();
        benchmark::ClobberMemory();
    }
}

void timeCopy(benchmark::State &state, const AlignedCase &c)
{
    const Stage stage(c);
    for (auto _ : state) {
        std::memcpy(stage.destination.memory.get(), stage.source.memory.get(), stage.bytes);
        benchmark::ClobberMemory();
    }
}

} // namespace

void registerAlignedTransforms()
{
    forEachCase([](const AlignedCase &c) {
        const auto add = [&c](const char *work, auto timed) {
            benchmark::RegisterBenchmark((c.name + "/" + work).c_str(), [c, timed](benchmark::State &state) {
                timed(state, c);
            })->Unit(benchmark::kMicrosecond);
        };
        add("kip", timeKip);
        if (hasPeer())
            add("opencv", timePeer);
        add("memcpy", timeCopy);
    });
}

void printAlignedTable(const Measurements &measurements, std::ostream &out)
{
    const char *head = R"(
| whole pixels, one thread | kip us | Gpixel/s | OpenCV / kip | range | memcpy / kip | range |
|---|--:|--:|--:|---|--:|---|
)";
    forEachCase([&](const AlignedCase &c) {
        const Rounds *const kip = measurements.find(c.name + "/kip");
        if (kip == nullptr)
            return;
        const double seconds = spreadOf(*kip).median;
        std::ostringstream row;
        row << std::fixed << std::setprecision(2) << "| " << c.name << " | " << 1e6 * seconds << " | "
            << 1e-9 * c.side * c.side / seconds << " | ";
        for (const char *const other : {"/opencv", "/memcpy"}) {
            const Rounds *const rounds = measurements.find(c.name + other);
            if (rounds != nullptr) {
                const Spread spread = spreadOf(ratios(*rounds, *kip));
                row << spread.median << " | " << spread.least << " to " << spread.greatest << " | ";
            } else {
                row << "| | ";
            }
        }
        out << head << row.str() << '\n';
        head = "";
    });
}

} // namespace kip_bench
