#ifndef KIP_BENCH_TRANSFORM_TRANSFORM_CASES_H
#define KIP_BENCH_TRANSFORM_TRANSFORM_CASES_H

#include <cstdint>
#include <string>
#include <vector>

#include "support/scene.h"

namespace kip_bench {

// A transform to measure.
struct TransformCase {
    uint32_t mode;
    int32_t bytesPerPixel;
    Geometry geometry;
    int32_t sourcePitchBytes = 0; // 0: just large enough, and padded
    int32_t sourceRows = 0;       // 0: just enough, else as many
    int32_t threads = 0;          // 0: one thread, timed by its own clock; else timed by the clock on the wall
};

// A square that is turned, at one step both ways.
Geometry turnedSquare(int32_t side, double degrees, double step = 1.0);

// The selection, or every combination. Cases that read the same source follow each other.
std::vector<TransformCase> transformCases(bool sweep);

// For example "transform/bilinear/u8/1024/rotate10/scale1", ".../7x1024/rotate10/scale1", ".../reduce3x1".
std::string nameOf(const TransformCase &transform);

} // namespace kip_bench

#endif
