#ifndef KIP_BENCH_SUPPORT_SCENE_H
#define KIP_BENCH_SUPPORT_SCENE_H

#include <cstdint>
#include <memory>

#include <kmath/kmath.h>
#include <ksys/ksys.h>

namespace kip_bench {

// Memory that starts with a line of the cache.
struct FreeBlock {
    void operator()(uint8_t *block) const { kqfFree(block); }
};
using Block = std::unique_ptr<uint8_t[], FreeBlock>;

// Rows of grey pixels.
struct Pixels {
    int32_t bytesPerPixel = 0;
    int32_t width = 0;
    int32_t height = 0;
    int64_t pitchBytes = 0;
    Block memory;
};

// A row length that no column of cache lines shares sets with: an odd number of lines.
int64_t padPitch(int64_t rowBytes);

// A picture: slow waves, and noise in the lowest eighth of the range. Every byte is written, so that no page
// of it is first touched while the clock runs.
Pixels makePicture(int32_t bytesPerPixel, int32_t width, int32_t height, int64_t pitchBytes);

// Black pixels, row after row without a gap.
Pixels makeBlank(int32_t bytesPerPixel, int32_t width, int32_t height);

// Mean difference of two pictures of one size, as a part of the full range.
double meanDifference(const Pixels &a, const Pixels &b);

// What is sampled of a source: a turned and sheared rectangle, and where its samples lie.
struct Geometry {
    int32_t width, height; // destination pixels
    double degrees = 0.0;
    double xStep = 1.0, yStep = 1.0; // source pixels between neighbours of a row, and of a column: above 1 reduces
    double shear = 0.0;              // source pixels, along the rows, that each row is moved by against the one above
};

// The rectangle, in the middle of a source that is just large enough.
struct PlacedRect {
    int32_t sourceWidth, sourceHeight;
    kmath_shapeAffineRect rect;
};

PlacedRect placeRect(const Geometry &geometry);

} // namespace kip_bench

#endif
