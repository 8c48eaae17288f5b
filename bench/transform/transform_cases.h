#ifndef KIP_BENCH_TRANSFORM_TRANSFORM_CASES_H
#define KIP_BENCH_TRANSFORM_TRANSFORM_CASES_H

#include <cstdint>
#include <string>
#include <vector>

namespace kip_bench {

// A transform to measure. The destination is a square.
struct TransformCase {
    uint32_t mode;
    int32_t bytesPerPixel;
    int32_t size;
    double degrees;
    double scale;                 // destination pixels per source pixel: 0.5 reduces, 2 enlarges
    int32_t sourcePitchBytes = 0; // 0: just large enough, and padded
    int32_t threads = 0;          // 0: one thread, timed by its own clock; else timed by the clock on the wall
};

// The selection, or every combination. Cases that read the same source follow each other.
std::vector<TransformCase> transformCases(bool sweep);

// For example "transform/bilinear/u8/1024/rotate10/scale1".
std::string nameOf(const TransformCase &transform);

} // namespace kip_bench

#endif
