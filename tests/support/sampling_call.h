#ifndef KIP_TESTS_SUPPORT_SAMPLING_CALL_H
#define KIP_TESTS_SUPPORT_SAMPLING_CALL_H

#include <cstdint>
#include <string>
#include <vector>

#include <kip/kip.h>

#include "support/guarded_memory.h"

namespace kip::test {

// One call of any exported function that reads pixels, or one of each that only calculates. The depth chooses between
// the forms of 8 and of 16 bits.
enum class Operation {
    transform,
    transformShort, // kip_affine8
    transformClipped,
    transformAligned,
    project,
    projectWindow,
    projectClipped,
    projectClippedWindow,
    projectNorm,
    sumImage, // rows or columns
    sumImageIntoVector,
    sumWindowIntoVector,
    sumWindow,
    analyse, // clipping, footprint, alignment, placement, standard size: reads no pixel
};

inline constexpr Operation kOperations[] = {
    Operation::transform,   Operation::transformShort, Operation::transformClipped,   Operation::transformAligned,
    Operation::project,     Operation::projectWindow,  Operation::projectClipped,     Operation::projectClippedWindow,
    Operation::projectNorm, Operation::sumImage,       Operation::sumImageIntoVector, Operation::sumWindowIntoVector,
    Operation::sumWindow,   Operation::analyse,
};

// An image that receives something.
struct Target {
    bool isBound = false;
    int32_t width = 1, height = 1, pitch = 1;
    int32_t x = 0, y = 0;
    int32_t misalignment = 0; // bytes
    int32_t pixelBytes = 0;   // 0: what the operation writes
};

struct SamplingCall {
    Operation operation = Operation::transform;
    int32_t bytesPerPixel = 1;
    // The source: its size and its place in pixel coordinates.
    int32_t width = 1, height = 1, pitch = 1;
    int32_t x = 0, y = 0;
    bool isSourceBound = true;
    int32_t sourcePixelBytes = 0; // 0: bytesPerPixel
    int32_t sourceMisalignment = 0;
    kmath_xformLinear srcFromClient = {0, 0, 1, 0, 0, 1};
    kip_affineSampleParams params = {};
    Target result{}, second{}; // the second is the mask or the coverage
    bool hasMask = true;
    bool asksAll = true; // for the outputs that may be null
    uint32_t clip = 1;
    uint8_t coverageValue = 255;
    kip_affine_imageAlignment alignCode = 0;
    bool isInPlace = false; // aligned transform: the source's pixels are the destination's
    bool sumsColumns = false;
    // What a window form is told in place of the source's size.
    bool hasOtherWindow = false;
    int32_t windowWidth = 0, windowHeight = 0;
    Guard sourceGuard = Guard::behind, destinationGuard = Guard::behind;
    uint64_t seed = 0;    // of the pixels
    bool isWhite = false; // all of the greatest value
};

const char *nameOf(Operation operation);
std::string describe(const SamplingCall &call);

bool isProjection(Operation operation);
bool isSum(Operation operation);
bool takesCache(Operation operation);
// Whether it resamples.
bool samples(Operation operation);
// Whether there is a mask or a coverage.
bool hasSecond(const SamplingCall &call);

// Whether a transform of these parameters is cut into jobs where there are threads.
bool isWorthJobs(const SamplingCall &call, bool splitsAll = false);

struct Extent {
    int64_t width, height;
};

// How far from its own place (0, 0) a result reaches at most.
Extent resultExtent(const SamplingCall &call);

// Longer than any row.
inline constexpr ptrdiff_t kNoiseBytes = ptrdiff_t{1} << 17;

// Memory between unreadable pages for the images of a call, used again by the next one.
struct CallMemory {
    CallMemory();

    GuardedMemory source{size_t{24} << 20};
    GuardedMemory result{size_t{4} << 20};
    GuardedMemory second{size_t{4} << 20};
    std::vector<uint8_t> noise; // what the sources are filled with: kNoiseBytes, twice
};

// What a test's attention handler answers to stop a call.
inline constexpr int32_t kStopped = -4711;

struct Outcome {
    int32_t status = 0;
    uint64_t digest = 0; // of the status and all that the call promises to have written, or left alone
    std::string fault{}; // a broken promise
};

enum class Check {
    promises,
    // The result as well: pixels and sums by the slow model, or by what they are of other results.
    meaning,
};

// Makes the images, calls and checks: the status is one that the headers name; nothing is written round the images,
// where the result does not reach, or after a failure that promises so. The digest is the same for equal results,
// whatever lies round the images. isOtherSide: guards at the other ends of the images.
Outcome runCall(const SamplingCall &call, const CallMemory &memory, kip_affineSampleCache **cache = nullptr,
                Check check = Check::promises, bool isOtherSide = false);

// Is told when the library's function is about to be entered and when it has been left.
inline void (*aroundInvocation)(bool isEntered) = nullptr;

} // namespace kip::test

#endif
