#ifndef KIP_BENCH_PROJECTION_WINDOW_SUMS_BENCH_H
#define KIP_BENCH_PROJECTION_WINDOW_SUMS_BENCH_H

#include <iosfwd>

#include "support/measurements.h"

namespace kip_bench {

// Registers the sums of a window's columns and rows, each followed by the peer's and by a copy of the window.
void registerWindowSums();

// Prints how they compare, in Markdown.
void printWindowSumsTable(const Measurements &measurements, std::ostream &out);

} // namespace kip_bench

#endif
