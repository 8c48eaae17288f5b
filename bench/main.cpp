#include <algorithm>
#include <iostream>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "cpp/cpp_bench.h"
#include "projection/affine_projection_bench.h"
#include "projection/window_sums_bench.h"
#include "support/measurements.h"
#include "support/options.h"
#include "support/peer.h"
#include "transform/aligned/aligned_bench.h"
#include "transform/cache_bench.h"
#include "transform/clipped_bench.h"
#include "transform/transform_bench.h"

namespace {

using namespace kip_bench;

// Hands the command line to Google Benchmark, which keeps pointers into it. Returns false when it holds
// something unknown.
bool initializeBenchmark(std::vector<std::string> &arguments)
{
    auto argc = static_cast<int>(arguments.size());
    std::vector<char *> argv(arguments.size() + 1, nullptr);
    std::transform(arguments.begin(), arguments.end(), argv.begin(), [](std::string &text) { return text.data(); });
    benchmark::Initialize(&argc, argv.data());
    return !benchmark::ReportUnrecognizedArguments(argc, argv.data());
}

// Every round runs all cases, kip's and the peer's in turn, so that what they are compared at is one moment.
int runRounds(const std::vector<TransformCase> &cases, int rounds)
{
    Measurements measurements;
    for (int round = 0; round < rounds; ++round) {
        benchmark::RunSpecifiedBenchmarks(&measurements);
        if (measurements.hasFailures())
            return 1;
        if (measurements.isEmpty())
            return 0; // only a list was asked for, or no case fits the filter
    }
    std::cout << "Medians of " << rounds << (rounds == 1 ? " round" : " rounds") << "; level " << currentLevel();
    if (hasPeer())
        std::cout << "; " << peerVersion();
    std::cout << ".\n";
    printTransformTables(cases, measurements, std::cout);
    printAlignedTable(measurements, std::cout);
    printClippedTable(measurements, std::cout);
    printProjectionTable(measurements, std::cout);
    printWindowSumsTable(measurements, std::cout);
    printCppTable(measurements, std::cout);
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    std::vector<std::string> arguments(argv + 1, argv + argc);
    Options options;
    std::string error = takeOptions(&arguments, &options);
    if (options.help) {
        std::cout << kHelp;
        return 0;
    }
    if (error.empty() && !options.level.empty())
        error = applyLevel(options.level);
    if (!error.empty()) {
        std::cerr << "kip_bench: " << error << '\n';
        return 2;
    }

    // Short measurements, many rounds. The caller's own value comes later and wins.
    arguments.insert(arguments.begin(), {argv[0], "--benchmark_min_time=0.1"});
    if (!initializeBenchmark(arguments))
        return 2;

    const std::vector<TransformCase> cases = transformCases(options.sweep);
    registerTransforms(cases);
    registerAlignedTransforms();
    registerClippedTransforms();
    registerCacheUses();
    registerProjections();
    registerWindowSums();
    registerCppCalls();
    if (!options.plain)
        return runRounds(cases, options.rounds);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
