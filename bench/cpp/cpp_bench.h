#ifndef KIP_BENCH_CPP_CPP_BENCH_H
#define KIP_BENCH_CPP_CPP_BENCH_H

#include <iosfwd>

#include "support/measurements.h"

namespace kip_bench {

// Registers small calls through the C functions, each followed by the same through <kip/kip.hpp>.
void registerCppCalls();

// Prints how they compare, in Markdown.
void printCppTable(const Measurements &measurements, std::ostream &out);

} // namespace kip_bench

#endif
