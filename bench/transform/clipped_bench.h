#ifndef KIP_BENCH_TRANSFORM_CLIPPED_BENCH_H
#define KIP_BENCH_TRANSFORM_CLIPPED_BENCH_H

#include <iosfwd>

#include "support/measurements.h"

namespace kip_bench {

// Registers clipped transforms with their mask, each followed by two plain transforms of the same rectangle in a
// source that holds all of it.
void registerClippedTransforms();

// Prints how the two compare, in Markdown.
void printClippedTable(const Measurements &measurements, std::ostream &out);

} // namespace kip_bench

#endif
