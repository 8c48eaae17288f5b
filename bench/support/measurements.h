#ifndef KIP_BENCH_SUPPORT_MEASUREMENTS_H
#define KIP_BENCH_SUPPORT_MEASUREMENTS_H

#include <map>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

namespace kip_bench {

// Seconds per call, one value a round.
using Rounds = std::vector<double>;

// Middle of a list and its ends.
struct Spread {
    double median, least, greatest;
};

Spread spreadOf(std::vector<double> values);

// a / b, round by round. What slows a whole round down, another load or a lower clock, cancels out; so it
// would not in a ratio of medians.
std::vector<double> ratios(const Rounds &a, const Rounds &b);

// Shows progress and keeps what was measured, for tables that compare cases.
class Measurements : public benchmark::ConsoleReporter {
public:
    Measurements() : ConsoleReporter(OO_None) {}

    bool ReportContext(const Context &context) override;
    void ReportRuns(const std::vector<Run> &runs) override;

    // The rounds of a case by its registered name; null if it was not measured or failed in a round.
    const Rounds *find(const std::string &name) const;

    bool isEmpty() const { return rounds_.empty(); }
    bool hasFailures() const { return failed_; }

private:
    std::map<std::string, Rounds> rounds_;
    size_t greatestCount_ = 0;
    bool failed_ = false;
    bool started_ = false;
};

} // namespace kip_bench

#endif
