#ifndef KIP_BENCH_TRANSFORM_ALIGNED_ALIGNED_BENCH_H
#define KIP_BENCH_TRANSFORM_ALIGNED_ALIGNED_BENCH_H

#include <iosfwd>

#include "support/measurements.h"

namespace kip_bench {

// Maps by whole pixels: registers each as NAME/kip, NAME/opencv where there is a peer, and NAME/memcpy.
void registerAlignedTransforms();
void printAlignedTable(const Measurements &measurements, std::ostream &out);

} // namespace kip_bench

#endif
