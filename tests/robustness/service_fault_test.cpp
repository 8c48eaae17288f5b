// Every call that the library makes of the services fails once: its status comes back, nothing leaks, and the next
// call with the same cache is right. Most of these calls cannot fail today; the library does not rely on that.

#include <atomic>
#include <cstdint>
#include <functional>
#include <vector>

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <kip/kip.h>

#include "support/failing_allocator.h"
#include "support/images.h"
#include "support/random.h"

namespace {

constexpr int32_t kRefused = -4712;

std::atomic<int64_t> callsUntilRefusal{0}; // 0: none is going to be refused
std::atomic<int32_t> refusals{0};
std::atomic<const char *> refusedName{""};

bool isRefused(const char *name)
{
    if (callsUntilRefusal <= 0 || --callsUntilRefusal != 0)
        return false;
    ++refusals;
    refusedName = name;
    return true;
}

} // namespace

extern "C" const char __executable_start, etext; // of this program, in which the library's objects are

// Stands before the services' function. Their own calls of each other pass.
#define KIP_TEST_SERVICE(name, parameters, ...)                                                                        \
    extern "C" __attribute__((visibility("default"))) int32_t name parameters                                          \
    {                                                                                                                  \
        static const auto service = reinterpret_cast<decltype(&(name))>(dlsym(RTLD_NEXT, #name));                      \
        const auto *const caller = static_cast<const char *>(__builtin_return_address(0));                             \
        const bool isOurs = caller >= &__executable_start && caller < &etext;                                          \
        return isOurs && isRefused(#name) ? kRefused : service(__VA_ARGS__);                                           \
    }

// A constructor leaves an object that is destructed later, whatever it returns.
#define KIP_TEST_CONSTRUCTOR(name, parameters, ...)                                                                    \
    extern "C" __attribute__((visibility("default"))) int32_t name parameters                                          \
    {                                                                                                                  \
        static const auto service = reinterpret_cast<decltype(&(name))>(dlsym(RTLD_NEXT, #name));                      \
        const auto *const caller = static_cast<const char *>(__builtin_return_address(0));                             \
        const bool isOurs = caller >= &__executable_start && caller < &etext;                                          \
        const int32_t status = service(__VA_ARGS__);                                                                   \
        return isOurs && isRefused(#name) ? kRefused : status;                                                         \
    }

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
KIP_TEST_CONSTRUCTOR(ksys_criticalSection_release, (ksys_criticalSection * a), a)

namespace kip::test {

namespace {

// A call with all that it may take; each operation uses what it needs.
struct Call {
    Pixels sourcePixels;
    Image source, destination, second;
    kip_affineSampleParams params;
    kip_affineSampleCache **cache;
    bool is16, columns;

    kimg_windowConst window() const { return sourcePixels.windowConst(); }
};

using Operation = int32_t (*)(Call &);

constexpr kmath_xformLinear kIdentity = {0, 0, 1, 0, 0, 1};

int32_t transform(Call &c)
{
    return (c.is16 ? kip_affineTransform16 : kip_affineTransform)(c.source.get(), c.destination.get(), &c.params,
                                                                  c.cache);
}

int32_t transformClipped(Call &c)
{
    int32_t willClip;
    return (c.is16 ? kip_affineTransformClipped16 : kip_affineTransformClipped)(
        c.source.get(), c.destination.get(), c.second.get(), &c.params, c.cache, &willClip);
}

int32_t project(Call &c)
{
    return (c.is16 ? kip_affineProject16 : kip_affineProject)(c.source.get(), c.destination.get(), &c.params, c.cache,
                                                              nullptr);
}

int32_t projectClipped(Call &c)
{
    uint32_t depth, willClip;
    return (c.is16 ? kip_affineProjectClipped16 : kip_affineProjectClipped)(
        c.source.get(), c.destination.get(), c.second.get(), &c.params, c.cache, 255, &depth, &willClip);
}

int32_t projectNorm(Call &c)
{
    return (c.is16 ? kip_affineProjectNorm16 : kip_affineProjectNorm)(c.source.get(), c.destination.get(), &c.params, 1,
                                                                      c.cache, nullptr, nullptr, nullptr);
}

int32_t projectClippedWindow(Call &c)
{
    Pixels sums(4, c.params.destWidth, 1), coverage(4, c.params.destWidth, 1);
    const kimg_windowConst source = c.window();
    kimg_window to = sums.window(), share = coverage.window();
    kmath_xformLinear placement;
    uint32_t depth, willClip;
    return (c.is16 ? kip_affineProjectClippedWindow16 : kip_affineProjectClippedWindow)(
        &source, &kIdentity, &to, &share, &c.params, c.cache, &placement, 255, &depth, &willClip);
}

int32_t sumImage(Call &c)
{
    return (c.columns ? kip_projectVertical8 : kip_projectHorizontal8)(c.source.get(), c.destination.get(), nullptr);
}

int32_t sumVector(Call &c)
{
    kstd_vector32 vector;
    EXPECT_EQ(kstd_vector32_construct(&vector), 0);
    const int32_t status =
        (c.columns ? kip_projectVerticalVector8 : kip_projectHorizontalVector8)(c.source.get(), &vector, nullptr);
    EXPECT_EQ(kstd_vector32_destruct(&vector), 0);
    return status;
}

int32_t analyse(Call &c)
{
    kip_affineSampleParams standard;
    int32_t status = kip_affineSampleParams_initRectStandard(&standard, &c.params.rect, &kIdentity);
    kmath_xformLinear placement;
    if (status >= 0)
        status = kip_affineSampleParams_getDestImageFromClientXform(&c.params, c.columns ? 1 : 0, &placement);
    int32_t code;
    kstd_rect32 rect;
    if (status >= 0)
        status = kip_affine_imageAlignment_compute(&c.params, &kIdentity, &code, &rect);
    if (status >= 0)
        status = kip_affineSampleParams_getMaxSrcRect(&c.params, c.source.get(), &rect);
    int32_t willClip;
    return status >= 0 ? kip_affineSampleParams_getWillClip(&c.params, c.source.get(), &willClip) : status;
}

struct Kind {
    const char *name;
    Operation run;
    bool sums, onlyNarrow;
};
constexpr Kind kKinds[] = {
    {"transform", transform, false, false},    {"transformClipped", transformClipped, false, false},
    {"project", project, true, false},         {"projectClipped", projectClipped, true, false},
    {"projectNorm", projectNorm, true, false}, {"projectClippedWindow", projectClippedWindow, true, false},
    {"sumImage", sumImage, true, true},        {"sumVector", sumVector, true, true},
    {"analyse", analyse, false, false},
};

// Moves of whole pixels, a turned rectangle, one that is cut, one that is not met at all.
kmath_shapeAffineRect drawRectangle(Random &random, double width, double height, bool isTurned)
{
    const kmath_shapeAffineRect rects[] = {{3, 3, width, 0, 0, height},
                                           {3, 3, 0, height, width, 0},
                                           {3 + width, 3, 0, -height, width, 0},
                                           {9.3, 4.1, width * 0.9, -2.7, 3.1, height * 0.8},
                                           {5.3, 9.1, width * 0.9, 2.7, -3.1, height * 0.8},
                                           {-3.5, 4.1, width * 1.2, 2.7, 3.1, height},
                                           {-2000, 0, width, 1, 1, height}};
    return isTurned ? rects[3] : random.pick(rects);
}

TEST(ServiceFaults, EachComesBackAndLeavesNoTrace)
{
    ksys_jobThreadGroup_setThreadCount(3);
    Random random(4711);
    int64_t refused = 0;
    FailingAllocator allocator;
    for (size_t n = 0; n < 180; ++n) {
        const Kind &kind = kKinds[n % std::size(kKinds)];
        const bool isLarge = kind.run == transform && random.oneIn(2); // turned, and worth jobs
        const bool is16 = !kind.onlyNarrow && random.oneIn(2), columns = random.oneIn(2), isCached = random.oneIn(2);
        const int32_t width = isLarge ? 200 : 23, height = isLarge ? 360 : 17;
        const int32_t mode = isLarge ? int32_t{kip_affineModeBilinear} : random.between32(0, kind.sums && is16 ? 1 : 3);
        const kip_affineSampleParams params = {drawRectangle(random, width, height, isLarge),
                                               static_cast<uint32_t>(mode), width, height};
        const int32_t form = random.between32(0, 3);
        SCOPED_TRACE(std::string(kind.name) + (is16 ? "16" : "8") + " mode " + std::to_string(mode) + " rectangle at " +
                     std::to_string(params.rect.tx) + " destination " + std::to_string(form));

        kip_affineSampleCache *cache = nullptr;
        ASSERT_EQ(kip_affineSampleCache_construct(&cache), 0);
        const auto call = [&](int64_t refusedCall) {
            Call c = {Pixels(is16 ? 2 : 1, width + 11, height + 11),
                      {},
                      {},
                      {},
                      params,
                      isCached ? &cache : nullptr,
                      is16,
                      columns};
            EXPECT_EQ(kimg_image_constructExternal(c.source.get(), is16 ? 2 : 1, width + 11, height + 11, width + 11,
                                                   c.sourcePixels.first()),
                      0);
            const int32_t depth = kind.sums ? 4 : is16 ? 2 : 1;
            const int32_t rows = kind.sums ? 1 : height;
            if (form > 0) { // of the result's size, too large, elsewhere
                const int32_t more = kind.onlyNarrow || form == 2 ? 40 : 0;
                EXPECT_EQ(kimg_image_assignNew(c.destination.get(), depth, width + more, rows + more), 0);
                EXPECT_EQ(kimg_image_assignNew(c.second.get(), kind.sums ? 4 : 1, width + more, rows + more), 0);
                c.destination.place(form == 3 ? 2 : 0, 0);
                c.second.place(form == 3 ? 2 : 0, 0);
            }
            refusals = 0;
            callsUntilRefusal = refusedCall;
            const int32_t status = kind.run(c);
            callsUntilRefusal = 0;
            return status;
        };
        const int32_t expected = call(0);
        for (int64_t refusedCall = 1;; ++refusedCall) {
            if (!isCached)
                ksys_shutdown_run(); // the table of cubic weights is made anew
            const int32_t status = call(refusedCall);
            if (refusals == 0) {
                EXPECT_EQ(status, expected);
                break;
            }
            ++refused;
            EXPECT_LT(status, 0) << "call " << refusedCall << " " << refusedName;
            EXPECT_EQ(call(0), expected) << "after call " << refusedCall << " " << refusedName;
        }
        EXPECT_EQ(kip_affineSampleCache_destruct(&cache), 0);
        ksys_shutdown_run();
    }
    EXPECT_EQ(allocator.liveBlocks(), 0);
    EXPECT_GT(refused, 2000);
    ksys_jobThreadGroup_setThreadCount(0);
}

} // namespace

} // namespace kip::test
