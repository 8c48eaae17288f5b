#include "support/measurements.h"

#include <algorithm>
#include <iostream>

namespace kip_bench {

Spread spreadOf(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    const size_t count = values.size();
    if (count == 0)
        return {0.0, 0.0, 0.0};
    return {(values[(count - 1) / 2] + values[count / 2]) / 2.0, values.front(), values.back()};
}

std::vector<double> ratios(const Rounds &a, const Rounds &b)
{
    std::vector<double> result;
    for (size_t i = 0; i < std::min(a.size(), b.size()); ++i)
        result.push_back(a[i] / b[i]);
    return result;
}

bool Measurements::ReportContext(const Context &context)
{
    // Set here and not at once, since the list of --benchmark_list_tests belongs on the standard output.
    SetOutputStream(&std::cerr);
    const bool first = !started_;
    started_ = true;
    return first ? ConsoleReporter::ReportContext(context) : true;
}

void Measurements::ReportRuns(const std::vector<Run> &runs)
{
    ConsoleReporter::ReportRuns(runs);
    for (const Run &run : runs) {
        if (run.run_type != Run::RT_Iteration)
            continue;
        if (run.error_occurred) {
            failed_ = true;
            continue;
        }
        // Only cases that several threads work on are timed by the clock on the wall.
        const double seconds = run.run_name.time_type.empty() ? run.cpu_accumulated_time : run.real_accumulated_time;
        Rounds &rounds = rounds_[run.run_name.function_name];
        rounds.push_back(seconds / static_cast<double>(run.iterations));
        greatestCount_ = std::max(greatestCount_, rounds.size());
    }
}

const Rounds *Measurements::find(const std::string &name) const
{
    const auto found = rounds_.find(name);
    return found != rounds_.end() && found->second.size() == greatestCount_ ? &found->second : nullptr;
}

} // namespace kip_bench
