#ifndef KIP_BENCH_PROJECTION_AFFINE_PROJECTION_BENCH_H
#define KIP_BENCH_PROJECTION_AFFINE_PROJECTION_BENCH_H

#include <iosfwd>

#include "support/measurements.h"

namespace kip_bench {

// Registers projections of a turned rectangle, each followed by the peer's two steps, resampling and summing, and by
// kip's transform of the same sampling.
void registerProjections();

// Prints how they compare, in Markdown.
void printProjectionTable(const Measurements &measurements, std::ostream &out);

} // namespace kip_bench

#endif
