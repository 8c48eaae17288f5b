#ifndef KIP_TESTS_SUPPORT_DRAW_CALL_H
#define KIP_TESTS_SUPPORT_DRAW_CALL_H

#include <cstdint>

#include "support/random.h"
#include "support/sampling_call.h"

namespace kip::test {

// Draws a call, mostly a small one, with the rectangle close to where it begins to reach outside the source.
SamplingCall drawCall(Random &random, Operation operation);

// Puts any numbers into some of a call's arguments: not finite ones, huge and tiny ones, sizes that cannot be. The call
// is to take at most kMostMemory, or to be refused that.
inline constexpr int64_t kMostMemory = int64_t{1} << 20;
void spoilCall(Random &random, SamplingCall *call);

// Draws results for a call of these parameters.
void drawTargets(Random &random, SamplingCall *call);

// Draws a rectangle for a call whose other fields (source, map, mode, destWidth, destHeight) stand: turned, sheared,
// mirrored or squeezed at random, inside the source and often touching its edges, sometimes of whole and dyadic
// numbers.
void drawRectangle(Random &random, SamplingCall *call);

// Sets the rectangle by where the centres of three corner destination pixels lie in the source window: of the first
// pixel, the last one of the first row and the first one of the last row. A side of one sample gets the given vector.
struct CornerCenters {
    kmath_vect first, endOfRow, endOfColumn;
    kmath_vect singleSample = {1.0, 1.0};
};
void placeCorners(const CornerCenters &corners, SamplingCall *call);

// Draws a map from client to pixel coordinates: the identity, a dyadic scale or any turned and sheared one.
kmath_xformLinear drawClientMap(Random &random);

} // namespace kip::test

#endif
