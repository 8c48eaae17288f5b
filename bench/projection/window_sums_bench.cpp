#include "projection/window_sums_bench.h"

#include <cstring>
#include <functional>
#include <iomanip>
#include <ostream>
#include <sstream>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <kip/kip.h>

#include "support/peer.h"
#include "support/scene.h"

namespace kip_bench {

namespace {

constexpr int32_t kSizes[] = {64, 256, 1024, 4096};

std::string nameOf(bool ofColumns, int32_t size)
{
    return std::string("sums/") + (ofColumns ? "columns" : "rows") + "/u8/" + std::to_string(size);
}

// Rows without gaps: a copy of the window is then one call.
struct Stage {
    explicit Stage(int32_t size)
        : pixels(makePicture(1, size, size, size)), copy(makeBlank(1, size, size)), sums(static_cast<size_t>(size)),
          peerSums(sums.size()), source{size, size, 0, 0, 0, 0, size, size, size, pixels.memory.get(), 1},
          destination{size, 1, 0, 0, 0, 0, size, 1, size, sums.data(), sizeof(uint32_t)}
    {}

    Pixels pixels, copy;
    std::vector<uint32_t> sums, peerSums;
    kimg_windowConst source;
    kimg_window destination;
};

int32_t sum(Stage &stage, bool ofColumns)
{
    return (ofColumns ? kip_projectVerticalWindow8 : kip_projectHorizontalWindow8)(&stage.source, &stage.destination,
                                                                                   nullptr);
}

void timeKip(benchmark::State &state, bool ofColumns, int32_t size)
{
    Stage stage(size);
    if (sum(stage, ofColumns) < 0)
        return state.SkipWithError("the sums failed");
    for (auto _ : state) {
        benchmark::DoNotOptimize(sum(stage, ofColumns));
        benchmark::ClobberMemory();
    }
}

void timePeer(benchmark::State &state, bool ofColumns, int32_t size)
{
    setPeerThreads(1);
    Stage stage(size);
    const std::function<void()> peer = preparePeerSums({stage.pixels, ofColumns, stage.peerSums.data()});
    peer();
    if (sum(stage, ofColumns) < 0 || stage.sums != stage.peerSums)
        return state.SkipWithError("the sums differ");
    for (auto _ : state) {
        peer();
        benchmark::ClobberMemory();
    }
}

void timeCopy(benchmark::State &state, bool, int32_t size)
{
    Stage stage(size);
    const size_t bytes = static_cast<size_t>(size) * static_cast<size_t>(size);
    for (auto _ : state) {
        std::memcpy(stage.copy.memory.get(), stage.pixels.memory.get(), bytes);
        benchmark::ClobberMemory();
    }
}

} // namespace

void registerWindowSums()
{
    for (const int32_t size : kSizes) {
        for (const bool ofColumns : {true, false}) {
            const auto add = [=](const char *work, auto timed) {
                benchmark::RegisterBenchmark((nameOf(ofColumns, size) + "/" + work).c_str(),
                                             [=](benchmark::State &state) { timed(state, ofColumns, size); })
                    ->Unit(benchmark::kMicrosecond);
            };
            add("kip", timeKip);
            if (hasPeer())
                add("opencv", timePeer);
            add("memcpy", timeCopy);
        }
    }
}

void printWindowSumsTable(const Measurements &measurements, std::ostream &out)
{
    const char *head = R"(
| sums of a window, one thread | kip us | Gpixel/s | OpenCV / kip | range | memcpy / kip | range |
|---|--:|--:|--:|---|--:|---|
)";
    for (const int32_t size : kSizes) {
        for (const bool ofColumns : {true, false}) {
            const std::string name = nameOf(ofColumns, size);
            const Rounds *const kip = measurements.find(name + "/kip");
            if (kip == nullptr)
                continue;
            const double seconds = spreadOf(*kip).median;
            std::ostringstream row;
            row << std::fixed << std::setprecision(2) << "| " << name << " | " << 1e6 * seconds << " | "
                << 1e-9 * size * size / seconds << " | ";
            for (const char *const other : {"/opencv", "/memcpy"}) {
                const Rounds *const rounds = measurements.find(name + other);
                if (rounds != nullptr) {
                    const Spread spread = spreadOf(ratios(*rounds, *kip));
                    row << spread.median << " | " << spread.least << " to " << spread.greatest << " | ";
                } else {
                    row << " |  | ";
                }
            }
            row.seekp(-1, std::ios::cur) << "\n";
            out << head << row.str();
            head = "";
        }
    }
}

} // namespace kip_bench
