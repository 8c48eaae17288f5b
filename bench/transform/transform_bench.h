#ifndef KIP_BENCH_TRANSFORM_TRANSFORM_BENCH_H
#define KIP_BENCH_TRANSFORM_TRANSFORM_BENCH_H

#include <iosfwd>
#include <vector>

#include "support/measurements.h"
#include "transform/transform_cases.h"

namespace kip_bench {

// Registers every case as NAME/kip and, where there is a peer, at once after it as NAME/opencv.
void registerTransforms(const std::vector<TransformCase> &cases);

// Prints the tables of what was measured of the cases, in Markdown.
void printTransformTables(const std::vector<TransformCase> &cases, const Measurements &measurements, std::ostream &out);

} // namespace kip_bench

#endif
