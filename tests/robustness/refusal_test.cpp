// What the exports refuse, by which status, whatever the result is: nothing is written then that the headers promise to
// leave alone.

#include <cstdint>
#include <iterator>

#include <gtest/gtest.h>

#include "support/records.h"
#include "support/sampling_call.h"

namespace kip::test {

namespace {

// By the forms. Where there are none of their own, windows answer as images do.
struct Statuses {
    int32_t transform, clipped, project, projectClipped;
    int32_t window = project, clippedWindow = projectClipped;

    int32_t of(const SamplingCall &call) const
    {
        const Operation operation = call.operation;
        const bool isWindow = operation == Operation::projectWindow || operation == Operation::projectClippedWindow;
        const bool clips = operation == Operation::transformClipped || operation == Operation::projectClipped ||
                           operation == Operation::projectClippedWindow ||
                           (operation == Operation::projectNorm && call.clip != 0);
        if (!isProjection(operation))
            return clips ? clipped : transform;
        return clips ? (isWindow ? clippedWindow : projectClipped) : (isWindow ? window : project);
    }
};

constexpr Statuses all(int32_t status)
{
    return {status, status, status, status};
}

// Where the rectangle reaches outside, too.
constexpr Statuses clipped(int32_t status, int32_t projectStatus = 0)
{
    return {kip_statusTransformWouldClip, status, kip_statusProjectionWouldClip,
            projectStatus == 0 ? status : projectStatus};
}

constexpr kmath_shapeAffineRect kSlanted = {20.25, 8.5, 32, -6, 6, 16};
constexpr kmath_shapeAffineRect kAcross = {40.25, 20.5, 32, -6, 6, 16};
constexpr kmath_shapeAffineRect kAligned = {20, 8, 32, 0, 0, 16};

// A slanted 32 x 16 sampling inside a 64 x 48 source; all its positions are dyadic.
SamplingCall plainCall(Operation operation, int32_t bytesPerPixel)
{
    SamplingCall call = {operation, bytesPerPixel, 64, 48, 70};
    call.params = {kSlanted, kip_affineModeBilinear, 32, 16};
    return call;
}

// Results as large as the sampling's, larger, too small, placed elsewhere, and none yet.
constexpr Target kTargets[] = {
    {true, 32, 16, 32}, {true, 40, 30, 45}, {true, 31, 16, -31}, {true, 40, 30, -40, 3, -2}, {}};

// Gives a call's result, mask or coverage a depth that is not the operation's.
void spoilDepth(const SamplingCall &call, Target &target, int32_t pixelBytes)
{
    if (&target != &call.second || hasSecond(call))
        target = {true, 40, 30, 41, 0, 0, 0, pixelBytes};
}

void expectStatus(SamplingCall call, const Statuses &expected, bool hasNullHandle)
{
    static const CallMemory memory{};
    if (call.operation == Operation::transformShort && (call.bytesPerPixel == 2 || hasNullHandle))
        return;
    kip_affineSampleCache *cache = nullptr;
    ASSERT_EQ(hasNullHandle ? 0 : kip_affineSampleCache_construct(&cache), 0);
    for (call.clip = 0; call.clip < 2; ++call.clip) {
        for (const bool isCached : {false, true}) {
            SCOPED_TRACE(describe(call));
            const bool passes = isCached || hasNullHandle;
            const Outcome outcome = runCall(call, memory, passes && takesCache(call.operation) ? &cache : nullptr);
            const int32_t status = expected.of(call);
            EXPECT_TRUE(status == 0 ? outcome.status >= 0 : outcome.status == status) << outcome.status;
            EXPECT_EQ(outcome.fault, "");
        }
    }
    EXPECT_EQ(kip_affineSampleCache_destruct(&cache), 0);
}

TEST(Refusals, OfSampling)
{
    constexpr Statuses kUnsupported = {0, 0, kip_statusProjectionModeUnsupported, kip_statusProjectionModeUnsupported};
    constexpr Statuses kTooLarge = all(kip_statusSourceTooLarge);
    constexpr Statuses kClips = clipped(0);
    constexpr int32_t kDepth = kip_statusPixelDepth;
    constexpr Statuses kUnbound = {kip_statusTransformSourceUnbound,  kip_statusTransformSourceUnbound,
                                   kip_statusProjectionSourceUnbound, kip_statusProjectionSourceUnbound,
                                   kip_statusProjectionWouldClip,     kip_statusProjectionOutsideSource};
    const struct {
        const char *name;
        void (*spoil)(SamplingCall &call);
        Statuses statuses;
        int32_t bytesPerPixel = 0; // 0: both depths
        bool hasNullHandle = false;
    } rows[] = {
        {"nothing wrong", [](auto &) {}, all(0)},
        {"no width", [](auto &c) { c.params.destWidth = 0; }, all(kip_statusSizeBelowOne)},
        {"no height", [](auto &c) { c.params.destHeight = 0; }, all(kip_statusSizeBelowOne)},
        {"mode 4", [](auto &c) { c.params.mode = 4; }, all(kip_statusUnknownMode)},
        {"16 bits in mode 2", [](auto &c) { c.params.mode = 2; }, kUnsupported, 2},
        {"16 bits in mode 3, whole pixels", [](auto &c) { c.params.rect = kAligned, c.params.mode = 3; }, kUnsupported,
         2},
        {"16 bits in mode 2, too far to count", [](auto &c) { c.params.mode = 2, c.params.rect.tx = 1e300; },
         clipped(kmath_statusOutOfRange), 2},
        {"across an edge", [](auto &c) { c.params.rect = kAcross; }, kClips},
        {"no room for the neighbours", [](auto &c) { c.params.rect = {0, 0.25, 20, 0, 0, 16}; }, kClips},
        {"outside", [](auto &c) { c.params.rect.tx = 1e6; },
         clipped(kip_statusTransformOutsideSource, kip_statusProjectionOutsideSource)},
        {"too far to count", [](auto &c) { c.params.rect.tx = 1e300; }, clipped(kmath_statusOutOfRange)},
        {"too large", [](auto &c) { c.params.rect = {-2e9, 0, 4e9, 0, 0, 9}; }, clipped(kstd_statusTooLarge)},
        {"parallel sides", [](auto &c) { c.params.rect = {10, 10, 9, 9, 12, 12}; }, all(kmath_statusSingular)},
        {"parallel sides across an edge", [](auto &c) { c.params.rect = {-4, 10, 9, 9, 12, 12}; },
         clipped(kmath_statusSingular)},
        {"no number", [](auto &c) { c.params.rect.ty = kNan; }, all(kmath_statusNotFinite)},
        {"unbound source", [](auto &c) { c.isSourceBound = false; }, kUnbound},
        {"null handle", [](auto &) {}, all(kip_statusCacheNotConstructed), 0, true},
        {"null handle, whole pixels", [](auto &c) { c.params.rect = kAligned; }, all(kip_statusCacheNotConstructed), 0,
         true},
        {"source of the other depth", [](auto &c) { c.sourcePixelBytes = 3 - c.bytesPerPixel; }, all(kDepth)},
        {"16-bit source in mode 2",
         [](auto &c) { c.sourcePixelBytes = 2, c.params.mode = 2; },
         {kDepth, kDepth, kip_statusProjectionModeUnsupported, kip_statusProjectionModeUnsupported},
         1},
        {"32-bit source", [](auto &c) { c.sourcePixelBytes = 4; }, all(kDepth)},
        {"32-bit source, whole pixels", [](auto &c) { c.sourcePixelBytes = 4, c.params.rect = kAligned; }, all(kDepth)},
        {"32-bit source across an edge", [](auto &c) { c.sourcePixelBytes = 4, c.params.rect = kAcross; },
         clipped(kDepth)},
        {"result of the other depth", [](auto &c) { spoilDepth(c, c.result, 3 - c.bytesPerPixel); }, all(kDepth)},
        {"narrow sums, 32-bit pixels",
         [](auto &c) { spoilDepth(c, c.result, isProjection(c.operation) ? c.bytesPerPixel : 4); }, all(kDepth)},
        {"result of the other depth, whole pixels",
         [](auto &c) { spoilDepth(c, c.result, 3 - c.bytesPerPixel), c.params.rect = kAligned; }, all(kDepth)},
        {"result of the other depth across an edge",
         [](auto &c) { spoilDepth(c, c.result, 3 - c.bytesPerPixel), c.params.rect = kAcross; }, clipped(kDepth)},
        {"mask of 16 bits that is not touched", [](auto &c) { spoilDepth(c, c.second, 2); }, all(0)},
        {"mask or coverage of 16 bits across an edge",
         [](auto &c) {
             spoilDepth(c, c.operation == Operation::projectNorm ? c.result : c.second, 2), c.params.rect = kAcross;
         },
         clipped(kDepth)},
        {"misaligned source", [](auto &c) { c.sourceMisalignment = 1; }, all(0), 1},
        {"misaligned source", [](auto &c) { c.sourceMisalignment = 1; }, all(kip_statusMisaligned), 2},
        {"greatest pitch", [](auto &c) { c.pitch = 32767; }, all(0)},
        {"pitch one above", [](auto &c) { c.pitch = 32768; }, kTooLarge, 2},
        {"pitch one above, in mode 2", [](auto &c) { c.pitch = 32768, c.params.mode = 2; }, kTooLarge, 1},
        {"pitch one above, whole pixels", [](auto &c) { c.pitch = 32768, c.params.rect = kAligned; }, all(0)},
        {"height one above", [](auto &c) { c.height = 32768; }, kTooLarge, 2},
        {"surroundings too large", [](auto &c) { c.params.rect = {-33000, 0, 70000, 0, 0, 9}, c.params.mode = 3; },
         clipped(kip_statusSourceTooLarge), 1},
    };
    for (const auto &row : rows)
        for (const Operation operation : kOperations)
            for (const int32_t bytes : {1, 2})
                for (const Target &target : kTargets) {
                    if (!samples(operation) || (row.bytesPerPixel != 0 && row.bytesPerPixel != bytes))
                        continue;
                    SCOPED_TRACE(row.name);
                    SamplingCall call = plainCall(operation, bytes);
                    call.result = target;
                    if (hasSecond(call))
                        call.second = target;
                    row.spoil(call);
                    Statuses statuses = row.statuses;
                    if (!target.isBound && call.params.destWidth < 1)
                        statuses.projectClipped = kimg_statusBadSize; // of making the result
                    expectStatus(call, statuses, row.hasNullHandle);
                }
}

TEST(Refusals, OfSums)
{
    static constexpr Operation kForms[] = {Operation::sumImage, Operation::sumImageIntoVector,
                                           Operation::sumWindowIntoVector, Operation::sumWindow};
    constexpr int32_t kUnbound = kip_statusProjectionSourceUnbound, kDepth = kip_statusPixelDepth,
                      kMismatch = kip_statusWindowMismatch;
    const struct {
        const char *name;
        void (*spoil)(SamplingCall &call);
        int32_t statuses[std::size(kForms)];
    } rows[] = {
        {"unbound source", [](auto &c) { c.isSourceBound = false; }, {kUnbound, kUnbound, 0, 0}},
        {"16-bit source", [](auto &c) { c.sourcePixelBytes = 2; }, {kDepth, kDepth, kDepth, kDepth}},
        {"32-bit source", [](auto &c) { c.sourcePixelBytes = 4; }, {kDepth, kDepth, kDepth, kDepth}},
        {"width below 0", [](auto &c) { c.windowWidth = -1; }, {0, 0, kMismatch, kMismatch}},
        {"least height", [](auto &c) { c.windowHeight = INT32_MIN; }, {0, 0, kMismatch, kMismatch}},
        {"8-bit sums", [](auto &c) { c.result.pixelBytes = 1; }, {kDepth, 0, 0, kDepth}},
        {"too narrow", [](auto &c) { c.result.width = 4; }, {kMismatch, 0, 0, kMismatch}},
    };
    for (const auto &row : rows)
        for (size_t form = 0; form < std::size(kForms); ++form)
            for (const bool columns : {false, true}) {
                SCOPED_TRACE(row.name);
                SamplingCall call = plainCall(kForms[form], 1);
                call.result = {true, 80, 3, 90};
                call.windowWidth = call.width;
                call.windowHeight = call.height;
                call.sumsColumns = columns;
                row.spoil(call);
                call.hasOtherWindow = call.windowWidth != call.width || call.windowHeight != call.height;
                expectStatus(call, all(row.statuses[form]), false);
            }
}

// Windows of other depths, or made by hand at any address: only a copy serves them.
TEST(Refusals, OfAlignedTransforms)
{
    for (const kip_affine_imageAlignment code : {0, 1, 90, 91, 180, 181, 270, 271, 45, INT32_MIN}) {
        const bool copies = code == 0 || code == 45 || code == INT32_MIN;
        SamplingCall empty = plainCall(Operation::transformAligned, 1);
        empty.alignCode = code;
        empty.result = {true, 6, 6, 8};
        empty.isInPlace = empty.hasOtherWindow = true;
        empty.windowHeight = 6;
        const bool swapsAxes = code == 1 || code == 90 || code == 181 || code == 270;
        expectStatus(empty, all(swapsAxes ? kip_statusWindowMismatch : 0), false);
        for (const int32_t bytes : {1, 2})
            for (const int32_t from : {1, 2})
                for (const int32_t to : {1, 2}) {
                    SamplingCall call = plainCall(Operation::transformAligned, bytes);
                    call.width = call.height = 6;
                    call.alignCode = code;
                    call.result = {true, 6, 6, 8, 0, 0, 0, to};
                    call.sourcePixelBytes = from;
                    const bool isServed = from == to && (copies || from == bytes);
                    expectStatus(call, all(isServed ? 0 : kip_statusPixelDepth), false);
                    if (!isServed || bytes == 1)
                        continue;
                    for (int32_t *const misalignment : {&call.sourceMisalignment, &call.result.misalignment}) {
                        *misalignment = 1;
                        expectStatus(call, all(copies ? 0 : kip_statusMisaligned), false);
                        *misalignment = 0;
                    }
                }
    }
}

} // namespace

} // namespace kip::test
