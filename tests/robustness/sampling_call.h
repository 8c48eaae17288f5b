#ifndef KIP_TESTS_ROBUSTNESS_SAMPLING_CALL_H
#define KIP_TESTS_ROBUSTNESS_SAMPLING_CALL_H

#include <cstdint>
#include <string>
#include <vector>

#include <kip/kip.h>

#include "support/guarded_memory.h"
#include "support/random.h"
#include "support/transform_case.h"

namespace kip::test {

// One call of any exported function that reads pixels. The depth chooses between the forms of 8 and of 16 bits.
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
};

inline constexpr Operation kOperations[] = {
    Operation::transform,   Operation::transformShort, Operation::transformClipped,   Operation::transformAligned,
    Operation::project,     Operation::projectWindow,  Operation::projectClipped,     Operation::projectClippedWindow,
    Operation::projectNorm, Operation::sumImage,       Operation::sumImageIntoVector, Operation::sumWindowIntoVector,
    Operation::sumWindow,
};

// An image that receives something.
struct Target {
    bool isBound = false;
    int32_t width = 1, height = 1, pitch = 1;
    int32_t x = 0, y = 0;
    int32_t misalignment = 0; // bytes
};

struct SamplingCall : TransformCase {
    Operation operation = Operation::transform;
    Target result, second; // the second is the mask or the coverage
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
};

const char *nameOf(Operation operation);
std::string describe(const SamplingCall &call);

bool takesCache(Operation operation);
// Whether kip_affineSampleParams counts at all.
bool samples(Operation operation);

// Whether a transform of these parameters is cut into jobs where there are threads.
bool isWorthJobs(const SamplingCall &call);

// Draws a call, mostly a small one, with the rectangle close to where it begins to reach outside the source.
SamplingCall drawCall(Random &random, Operation operation);

// Memory between unreadable pages for the images of a call, used again by the next one.
struct CallMemory {
    CallMemory();

    GuardedMemory source{size_t{8} << 20};
    GuardedMemory result{size_t{4} << 20};
    GuardedMemory second{size_t{1} << 20};
    std::vector<uint8_t> noise; // what the sources are filled with
};

// What a test's attention handler answers to stop a call.
inline constexpr int32_t kStopped = -4711;

struct Outcome {
    int32_t status = 0;
    uint64_t digest = 0; // of the status and all that the call promises to have written, or left alone
    std::string fault;   // a broken promise
};

// Makes the images, calls and checks: the status is one that the headers name; nothing is written round the images,
// where the result does not reach, or after a failure that promises so. The digest is the same for equal results,
// whatever lies round the images. isOtherSide: guards at the other ends of the images.
Outcome runCall(const SamplingCall &call, const CallMemory &memory, kip_affineSampleCache **cache,
                bool isOtherSide = false);

} // namespace kip::test

#endif
