#include "timing.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <vector>

namespace kiptool {
namespace {

constexpr double kTotalMilliseconds = 500;
constexpr double kBatchMilliseconds = 2;
constexpr size_t kLeastBatches = 5;
constexpr int kMostRunsInBatch = 1 << 20;

double millisecondsOf(const std::function<void()> &run, int runs)
{
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < runs; ++i)
        run();
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
}

} // namespace

Timing measure(const std::function<void()> &run)
{
    run();
    int batch = 1;
    while (batch < kMostRunsInBatch && millisecondsOf(run, batch) < kBatchMilliseconds)
        batch *= 2;
    std::vector<double> means;
    for (double total = 0; total < kTotalMilliseconds || means.size() < kLeastBatches;) {
        const double milliseconds = millisecondsOf(run, batch);
        total += milliseconds;
        means.push_back(milliseconds / batch);
    }
    std::sort(means.begin(), means.end());
    return {means[means.size() / 2], means.front(), static_cast<int>(means.size()) * batch};
}

std::string describeTiming(const Timing &timing, double pixels)
{
    char text[160];
    (void)std::snprintf(text, sizeof text, "%.4g ms, %.1f Mpixel/s (median of %d runs; best %.4g ms)",
                        timing.medianMilliseconds, pixels / timing.medianMilliseconds / 1000, timing.runs,
                        timing.bestMilliseconds);
    return text;
}

} // namespace kiptool
