// Every call that the library makes of the services fails once: its status comes back, nothing leaks, and the next
// call with the same cache is right. Most of these calls cannot fail today; the library does not rely on that.

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <set>
#include <string_view>

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <kip/kip.h>

#include "support/crash_note.h"
#include "support/draw_call.h"
#include "support/failing_allocator.h"

namespace {

std::atomic<bool> isInside{false};         // the library, as this program sees it
std::atomic<int64_t> callsUntilRefusal{0}; // 0: none is going to be refused
std::atomic<int32_t> refusals{0};
std::atomic<const char *> refusedName{""};

bool isRefused(const char *name)
{
    if (!isInside || callsUntilRefusal <= 0 || --callsUntilRefusal != 0)
        return false;
    ++refusals;
    refusedName = name;
    return true;
}

} // namespace

extern "C" const char __executable_start, etext; // of this program, in which the library's objects are

// Stands before the services' function; their own calls of each other pass. A constructor leaves an object that is
// destructed later, whatever it returns: it is always run.
#define KIP_TEST_WRAPPER(isAlwaysRun, name, parameters, ...)                                                           \
    extern "C" __attribute__((visibility("default"))) int32_t name parameters                                          \
    {                                                                                                                  \
        static const auto service = reinterpret_cast<decltype(&(name))>(dlsym(RTLD_NEXT, #name));                      \
        const auto *const caller = static_cast<const char *>(__builtin_return_address(0));                             \
        const bool fails = caller >= &__executable_start && caller < &etext && isRefused(#name);                       \
        const int32_t status = fails && !(isAlwaysRun) ? 0 : service(__VA_ARGS__);                                     \
        return fails ? kip::test::kStopped : status;                                                                   \
    }
#define KIP_TEST_SERVICE(name, parameters, ...) KIP_TEST_WRAPPER(false, name, parameters, __VA_ARGS__)
#define KIP_TEST_CONSTRUCTOR(name, parameters, ...) KIP_TEST_WRAPPER(true, name, parameters, __VA_ARGS__)

using ImageIn = const kimg_image *;
using ImageOut = kimg_image *;
using WindowIn = const kimg_windowConst *;
using WindowOut = kimg_window *;
using MapIn = const kmath_xformLinear *;
using MapOut = kmath_xformLinear *;
using RectIn = const kmath_shapeAffineRect *;

KIP_TEST_CONSTRUCTOR(kimg_image_construct, (ImageOut a, int32_t b, int32_t c, int32_t d), a, b, c, d)
KIP_TEST_SERVICE(kimg_image_setUnbound, (ImageOut a), a)
KIP_TEST_SERVICE(kimg_image_getIsBound, (ImageIn a, int32_t *b), a, b)
KIP_TEST_SERVICE(kimg_imageConst_getIsBound, (ImageIn a, int32_t *b), a, b)
KIP_TEST_SERVICE(kimg_image_assignNew, (ImageOut a, int32_t b, int32_t c, int32_t d), a, b, c, d)
KIP_TEST_SERVICE(kimg_image_assign, (ImageOut a, ImageIn b), a, b)
KIP_TEST_SERVICE(kimg_imageConst_getLinearImageFromClientXform, (ImageIn a, MapOut b), a, b)
KIP_TEST_SERVICE(kimg_image_setLinearImageFromClientXform, (ImageOut a, MapIn b), a, b)
KIP_TEST_SERVICE(kimg_image_copyXforms, (ImageOut a, ImageIn b), a, b)
KIP_TEST_SERVICE(kimg_window_init, (WindowOut a, ImageIn b), a, b)
KIP_TEST_SERVICE(kimg_windowConst_init, (kimg_windowConst * a, ImageIn b), a, b)
KIP_TEST_SERVICE(kimg_window_initUnbound, (WindowOut a), a)
KIP_TEST_SERVICE(kimg_window_initWindow, (WindowOut a, ImageIn b, const kstd_rect32 *c, int32_t d), a, b, c, d)
KIP_TEST_SERVICE(kimg_window_window, (WindowOut a, int32_t b, int32_t c, int32_t d, int32_t e, int32_t *f), a, b, c, d,
                 e, f)
KIP_TEST_SERVICE(kimg_windowConst_window,
                 (kimg_windowConst * a, int32_t b, int32_t c, int32_t d, int32_t e, int32_t *f), a, b, c, d, e, f)
KIP_TEST_SERVICE(kimg_window_windowRect, (WindowOut a, const kstd_rect32 *b, int32_t c), a, b, c)
KIP_TEST_SERVICE(kimg_imageConst_gcr, (ImageIn a, ImageIn b, kstd_rect32 *c, int32_t *d), a, b, c, d)
KIP_TEST_SERVICE(kimg_windowConst_gcr, (WindowIn a, WindowIn b, kstd_rect32 *c, int32_t *d), a, b, c, d)
KIP_TEST_SERVICE(kip_pelfunc_checkMemoryOverlap, (WindowIn a, const kimg_window *b), a, b)
KIP_TEST_SERVICE(kip_pelCopy8, (ImageIn a, ImageOut b), a, b)
KIP_TEST_SERVICE(kip_pelCopy16, (ImageIn a, ImageOut b), a, b)
KIP_TEST_SERVICE(kip_pelCopyWindow8, (WindowIn a, WindowOut b), a, b)
KIP_TEST_SERVICE(kip_pelCopyWindow16, (WindowIn a, WindowOut b), a, b)
KIP_TEST_SERVICE(kip_pelCopyWindow32, (WindowIn a, WindowOut b), a, b)
KIP_TEST_SERVICE(kip_pelSetWindow8, (WindowOut a, uint8_t b), a, b)
KIP_TEST_SERVICE(kip_pelSetWindow16, (WindowOut a, uint16_t b), a, b)
KIP_TEST_SERVICE(kip_pelUnaryMaxWindow32, (WindowIn a, uint32_t *b), a, b)
KIP_TEST_SERVICE(kmath_xformLinear_initCompose, (MapOut a, MapIn b, MapIn c), a, b, c)
KIP_TEST_SERVICE(kmath_xformLinear_initInverse, (MapOut a, MapIn b), a, b)
KIP_TEST_SERVICE(kmath_xformLinear_mapPoint, (MapIn a, const kmath_vect *b, kmath_vect *c), a, b, c)
KIP_TEST_SERVICE(kmath_xformLinear_compareEqual, (MapIn a, MapIn b, int32_t *c), a, b, c)
KIP_TEST_SERVICE(kmath_shapeAffineRect_compareEqual, (RectIn a, RectIn b, int32_t *c), a, b, c)
KIP_TEST_SERVICE(kmath_shapeAffineRect_initMap, (kmath_shapeAffineRect * a, MapIn b, RectIn c), a, b, c)
KIP_TEST_SERVICE(kmath_shapeAffineRect_initPoints, (kmath_shapeAffineRect * a, const kmath_shapeAffineRectPoints *b), a,
                 b)
KIP_TEST_SERVICE(kmath_shapeAffineRect_getCenter, (RectIn a, kmath_shapeAffineRectCenter *b), a, b)
KIP_TEST_SERVICE(kmath_shapeAffineRect_getPoints, (RectIn a, kmath_shapeAffineRectPoints *b), a, b)
KIP_TEST_SERVICE(kmath_shapeAffineRect_getEncloseImageRect, (RectIn a, MapIn b, kstd_rect32 *c), a, b, c)
KIP_TEST_SERVICE(kstd_rect32_init, (kstd_rect32 * a, int32_t b, int32_t c, int32_t d, int32_t e), a, b, c, d, e)
KIP_TEST_SERVICE(kstd_rect32_compare, (const kstd_rect32 *a, const kstd_rect32 *b, int32_t *c), a, b, c)
KIP_TEST_SERVICE(kstd_vector32_resize, (kstd_vector32 * a, int32_t b), a, b)
KIP_TEST_SERVICE(kstd_vector32_getBegin, (kstd_vector32 * a, uint32_t **b), a, b)
KIP_TEST_SERVICE(ksys_memory_alloc_internal, (size_t a, void *b), a, b)
KIP_TEST_SERVICE(ksys_memory_allocFastMem_internal, (size_t a, void *b), a, b)
KIP_TEST_SERVICE(ksys_memory_allocClear_internal, (size_t a, void *b), a, b)
KIP_TEST_SERVICE(ksys_memory_realloc_internal, (size_t a, void *b), a, b)
KIP_TEST_SERVICE(ksys_criticalSection_constructSingleton, (ksys_criticalSection * a, uint32_t *b), a, b)
KIP_TEST_SERVICE(ksys_criticalSection_wait, (ksys_criticalSection * a, uint32_t *b), a, b)
KIP_TEST_SERVICE(ksys_shutdown_register, (ksys_shutdownRoutine a, void *b), a, b)
KIP_TEST_CONSTRUCTOR(ksys_jobThreadGroup_construct, (ksys_jobThreadGroup * a), a)
KIP_TEST_SERVICE(ksys_jobGetCurrentThreadState, (ksys_jobThreadState * a, const ksys_jobThreadGroup *b), a, b)
KIP_TEST_CONSTRUCTOR(ksys_jobParams_construct, (ksys_jobParams * a), a)
KIP_TEST_SERVICE(ksys_jobParams_takeData, (ksys_jobParams * a, void *b, ksys_cleanupRoutine c), a, b, c)
KIP_TEST_SERVICE(ksys_jobParams_getDataConst, (const ksys_jobParams *a, void *b), a, b)
KIP_TEST_CONSTRUCTOR(ksys_jobRequestSet_construct, (ksys_jobRequestSet * a), a)
KIP_TEST_SERVICE(ksys_jobRequestSet_addFuncAndParams, (ksys_jobRequestSet * a, ksys_jobFunction b, ksys_jobParams *c),
                 a, b, c)
KIP_TEST_CONSTRUCTOR(ksys_jobResultSet_construct, (ksys_jobResultSet * a), a)
KIP_TEST_SERVICE(ksys_jobThreadGroup_dispatchAndWait,
                 (ksys_jobThreadGroup * a, ksys_jobRequestSet *b, ksys_jobResultSet *c), a, b, c)
KIP_TEST_CONSTRUCTOR(kimg_image_constructUnbound, (ImageOut a), a)
KIP_TEST_SERVICE(kmath_vect_initSubtract, (kmath_vect * a, const kmath_vect *b, const kmath_vect *c), a, b, c)
KIP_TEST_SERVICE(kmath_matrix_init, (kmath_matrix * a, double b, double c, double d, double e), a, b, c, d, e)
KIP_TEST_SERVICE(kmath_matrix_getDeterminant, (const kmath_matrix *a, double *b), a, b)
KIP_TEST_SERVICE(kmath_matrix_getScale, (const kmath_matrix *a, double *b), a, b)
KIP_TEST_SERVICE(kmath_matrix_getXScale, (const kmath_matrix *a, double *b), a, b)
KIP_TEST_SERVICE(kmath_matrix_getYScale, (const kmath_matrix *a, double *b), a, b)
KIP_TEST_SERVICE(kmath_xformLinear_initMatrixTransElements,
                 (MapOut a, double b, double c, double d, double e, double f, double g), a, b, c, d, e, f, g)
KIP_TEST_SERVICE(kmath_shapeAffineRectPoints_getPopp, (const kmath_shapeAffineRectPoints *a, kmath_vect *b), a, b)
KIP_TEST_SERVICE(ksys_memory_fill, (uint8_t a, size_t b, void *c), a, b, c)
KIP_TEST_SERVICE(ksys_memory_copyRect, (int64_t a, int64_t b, int64_t c, int64_t d, const void *e, void *f), a, b, c, d,
                 e, f)
KIP_TEST_SERVICE(ksys_cpuinfo_get, (ksys_cpuinfo * a), a)
KIP_TEST_SERVICE(ksys_attention_check, (void), )
KIP_TEST_CONSTRUCTOR(ksys_criticalSection_release, (ksys_criticalSection * a), a)

namespace kip::test {

namespace {

// Refuses the calls of the services in turn until one run has none left to refuse. Returns how many there were.
template <typename Run>
int64_t refuseEach(bool hasCache, const Run &run, bool *asksAttention)
{
    const auto expectSame = [&](const Outcome &a, const Outcome &b) {
        EXPECT_EQ(std::min(a.status, 0), std::min(b.status, 0)) << refusedName;
        EXPECT_TRUE(a.status < 0 || a.digest == b.digest) << refusedName;
    };
    const Outcome expected = run();
    for (int64_t number = 1;; ++number) {
        if (!hasCache)
            ksys_shutdown_run(); // the table of cubic weights is made anew
        refusals = 0;
        callsUntilRefusal = number;
        const Outcome outcome = run();
        callsUntilRefusal = 0;
        if (refusals == 0) {
            expectSame(outcome, expected);
            return number - 1;
        }
        EXPECT_LT(outcome.status, 0) << "call " << number << " " << refusedName;
        if (std::string_view(refusedName) == "ksys_attention_check") { // the only one that fails in earnest
            *asksAttention = true;
            EXPECT_EQ(outcome.status, kStopped);
            EXPECT_EQ(outcome.fault, "");
        }
        expectSame(run(), expected);
    }
}

TEST(ServiceFaults, EachComesBackAndLeavesNoTrace)
{
    ksys_jobThreadGroup_setThreadCount(3);
    ksys_jobThreadGroup_setSplitAll(1);
    aroundInvocation = [](bool isEntered) { isInside = isEntered; };
    const CallMemory memory{};
    Random random(4711);
    int64_t refused = 0;
    std::set<Operation> asking;
    FailingAllocator allocator;
    for (int n = 0; n < 2000 && !testing::Test::HasFailure(); ++n) {
        const Operation operation = random.pick(kOperations);
        SamplingCall call = drawCall(random, operation);
        for (int tries = 0; n % 100 == 0 && !isWorthJobs(call, true) && tries < 100000; ++tries)
            call = drawCall(random, random.pick({Operation::transform, Operation::project}));
        SCOPED_TRACE(describe(call));
        noteForCrash(describe(call));
        kip_affineSampleCache *cache = nullptr;
        ASSERT_EQ(kip_affineSampleCache_construct(&cache), 0);
        const bool hasCache = takesCache(call.operation) && random.oneIn(2);
        const auto run = [&] { return runCall(call, memory, hasCache ? &cache : nullptr); };
        bool asksAttention = false;
        refused += refuseEach(hasCache, run, &asksAttention);
        if (asksAttention)
            asking.insert(call.operation);
        EXPECT_EQ(kip_affineSampleCache_destruct(&cache), 0);
        ksys_shutdown_run();
    }
    aroundInvocation = nullptr;
    EXPECT_EQ(allocator.liveBlocks(), 0);
    EXPECT_GT(refused, 20000);
    EXPECT_EQ(asking, (std::set{Operation::transformClipped, Operation::projectClipped, Operation::projectClippedWindow,
                                Operation::projectNorm}));
    ksys_jobThreadGroup_setThreadCount(0);
    ksys_jobThreadGroup_setSplitAll(0);
}

} // namespace

} // namespace kip::test
