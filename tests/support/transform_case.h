#ifndef KIP_TESTS_SUPPORT_TRANSFORM_CASE_H
#define KIP_TESTS_SUPPORT_TRANSFORM_CASE_H

#include <cstdint>
#include <string>
#include <vector>

#include <kip/kip.h>

#include "support/guarded_memory.h"
#include "support/random.h"

namespace kip::test {

// One call of kip_affineTransform or kip_affineTransform16.
struct TransformCase {
    int32_t bytesPerPixel = 1;
    // The source: its size and its place in pixel coordinates.
    int32_t width = 1, height = 1, pitch = 1;
    int32_t x = 0, y = 0;
    kmath_xformLinear srcFromClient = {0, 0, 1, 0, 0, 1};
    kip_affineSampleParams params = {};
    int32_t destinationPitch = 0; // 0: destWidth
    Guard sourceGuard = Guard::behind, destinationGuard = Guard::behind;
    uint64_t seed = 0; // of the pixels
};

std::string describe(const TransformCase &c);

// Memory for the images of a case, reused from case to case.
struct TransformMemory {
    GuardedMemory source{size_t{24} << 20};
    GuardedMemory destination{size_t{6} << 20};
};

// Forbids the optimised 8-bit path while it lives, so that the portable one serves. Not for use beside
// operations on other threads.
class InhibitOptimizedPaths {
public:
    InhibitOptimizedPaths();
    ~InhibitOptimizedPaths();
    InhibitOptimizedPaths(const InhibitOptimizedPaths &) = delete;
    InhibitOptimizedPaths &operator=(const InhibitOptimizedPaths &) = delete;
};

struct TransformResult {
    int32_t status;
    std::vector<uint32_t> pixels; // of the destination, row by row
    std::string damage;           // where the call wrote outside the destination, or that it failed and wrote inside
};

TransformResult runTransform(const TransformCase &c, const TransformMemory &memory);

// The source of the last run of a case, as it was given to the library.
kimg_windowConst transformSource(const TransformCase &c, const TransformMemory &memory);

// Runs a case and holds every pixel against the slow model, if the call succeeds. Returns nothing, or what is
// wrong; status receives what the call returned.
std::string checkAgainstModel(const TransformCase &c, const TransformMemory &memory, int32_t *status);

// Draws a rectangle for a case whose other fields (source, map, mode, destWidth, destHeight) stand: turned,
// sheared, mirrored or squeezed at random, inside the source and often touching its edges, sometimes of whole
// and dyadic numbers.
void drawRectangle(Random &random, TransformCase *c);

// Sets the rectangle by where the centres of three corner destination pixels lie in the source window: of the
// first pixel, the last one of the first row and the first one of the last row. A side of one sample gets the
// given vector.
struct CornerCenters {
    kmath_vect first, endOfRow, endOfColumn;
    kmath_vect singleSample = {1.0, 1.0};
};
void placeCorners(const CornerCenters &corners, TransformCase *c);

// Draws a map from client to pixel coordinates: the identity, a dyadic scale or any turned and sheared one.
kmath_xformLinear drawClientMap(Random &random);

} // namespace kip::test

#endif
