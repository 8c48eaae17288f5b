// Transforms that run as jobs: the same bytes for every number of threads, the bands they are cut into, and jobs inside
// a job.

#include <atomic>
#include <cstdint>
#include <cwchar>
#include <string>

#include <gtest/gtest.h>

#include "support/images.h"
#include "support/transform_case.h"

namespace kip::test {

namespace {

// The hook, called from the jobs as well.
std::atomic<int32_t> questions;
std::atomic<int32_t> answer;

int32_t answerAboutProcess(const wchar_t *kernelName)
{
    if (std::wcsncmp(kernelName, L"kip_affineProcess", 17) != 0)
        return 0;
    ++questions;
    return answer;
}

class TransformJobs : public testing::Test {
protected:
    ~TransformJobs() override
    {
        kprt_isOptimizationInhibitedFP = nullptr;
        ksys_jobThreadGroup_setThreadCount(0);
    }
    // Whether the optimised paths are inhibited.
    static void installHook(bool isInhibited)
    {
        questions = 0;
        answer = isInhibited ? 1 : 0;
        kprt_isOptimizationInhibitedFP = answerAboutProcess;
    }

    const TransformMemory memory{};
};

// A rectangle turned by some ten degrees that fills most of a source, onto columns x rows pixels.
TransformCase turnedCase(int32_t bytesPerPixel, uint32_t mode, int32_t width, int32_t height, int32_t pitch,
                         int32_t columns, int32_t rows)
{
    TransformCase c;
    c.bytesPerPixel = bytesPerPixel;
    c.width = width;
    c.height = height;
    c.pitch = pitch;
    c.seed = 40100 + static_cast<uint64_t>(columns);
    c.params.mode = mode;
    c.params.destWidth = columns;
    c.params.destHeight = rows;
    const double w = width - 1.0;
    const double h = height - 1.0;
    placeCorners({{0.5 + 0.11 * w, 0.53}, {0.5 + 0.98 * w, 0.5 + 0.12 * h}, {0.52, 0.5 + 0.87 * h}}, &c);
    return c;
}

TEST_F(TransformJobs, SameBytesForEveryThreadCount)
{
    struct Row {
        const char *name;
        int32_t bytesPerPixel;
        int32_t width, height, pitch, columns, rows;
    };
    const Row table[] = {
        {"short rows", 1, 300, 200, 640, 193, 353},
        {"rows beyond 1024", 1, 1100, 90, 1500, 331, 211},
        {"rows beyond 2048", 1, 900, 90, 2500, 521, 131},
        {"rows beyond 3072", 1, 900, 90, 5000, 701, 97},
        {"taller than 32767", 1, 90, 300, 91, 3, 33001},
        {"source rows beyond 32767", 1, 33000, 20, 33001, 701, 165},
        {"source taller than 32767", 1, 20, 33000, 21, 101, 701},
        {"tiles too wide for 16.16, which are not cut", 1, 40000, 20, 40001, 30, 2203},
        {"16 bits, short rows", 2, 300, 200, 640, 193, 353},
        {"16 bits, rows beyond 1024", 2, 1100, 90, 1500, 331, 211},
        {"16 bits, rows beyond 2048", 2, 900, 90, 2500, 521, 131},
        {"16 bits, rows beyond 3072", 2, 900, 90, 5000, 701, 97},
        {"16 bits, taller than 32767", 2, 90, 300, 91, 3, 33001},
        {"16 bits, bottom-up", 2, 300, 200, -301, 101, 701},
    };
    for (const Row &row : table) {
        for (const bool isInhibited : {false, true}) {
            SCOPED_TRACE(std::string(row.name) + (isInhibited ? ", inhibited" : ""));
            installHook(isInhibited);
            const TransformCase c = turnedCase(row.bytesPerPixel, kip_affineModeBilinear, row.width, row.height,
                                               row.pitch, row.columns, row.rows);
            ksys_jobThreadGroup_setThreadCount(1);
            const TransformResult alone = runTransform(c, memory);
            ASSERT_EQ(alone.status, 0);
            for (const int32_t threads : {2, 3, 8}) {
                ksys_jobThreadGroup_setThreadCount(threads);
                const TransformResult result = runTransform(c, memory);
                EXPECT_EQ(result.status, 0);
                EXPECT_EQ(result.damage, "");
                EXPECT_TRUE(result.pixels == alone.pixels) << threads << " threads";
            }
        }
    }
}

// The hook is asked once for every band, and once more by the 8-bit driver when it chooses the bands' height.
TEST_F(TransformJobs, CutsLargeWorkIntoBandsOfOneTileRow)
{
    struct Row {
        int32_t bytesPerPixel;
        uint32_t mode;
        int32_t pitch, columns, rows;
        int32_t bands;
    };
    constexpr uint32_t kNearest = kip_affineModeNearest;
    constexpr uint32_t kBilinear = kip_affineModeBilinear;
    const Row table[] = {
        {2, kBilinear, 640, 300, 336, 1},     // not above one and a half bands
        {2, kBilinear, 640, 300, 337, 2},     //
        {2, kBilinear, 640, 181, 362, 1},     // 65522 pixels
        {2, kBilinear, 640, 128, 512, 3},     // 65536
        {2, kNearest, 640, 500, 500, 1},      // 250000 pixels
        {2, kNearest, 640, 512, 512, 3},      // 262144
        {2, kBilinear, 1024, 256, 448, 2},    //
        {2, kBilinear, 1025, 256, 448, 5},    //
        {2, kBilinear, 2000, 1000, 1000, 11}, //
        {2, kBilinear, 2049, 700, 96, 1},     //
        {2, kBilinear, 2049, 700, 97, 2},     //
        {2, kBilinear, 3072, 256, 448, 7},    //
        {2, kBilinear, 3073, 256, 448, 10},   //
        {2, kBilinear, 640, 2, 40000, 179},   // taller than 32767
        {1, kBilinear, 640, 700, 96, 1},      // the portable 8-bit tiles are 64 high, whatever the pitch
        {1, kBilinear, 640, 700, 97, 2},      //
        {1, kBilinear, 5000, 256, 448, 7},    //
        {1, kNearest, 640, 512, 511, 1},      //
        {1, kNearest, 640, 512, 512, 8},      //
    };
    for (const Row &row : table) {
        SCOPED_TRACE(testing::PrintToString(row.pitch) + ", " + testing::PrintToString(row.columns) + " x " +
                     testing::PrintToString(row.rows));
        const TransformCase c = turnedCase(row.bytesPerPixel, row.mode, 600, 300, row.pitch, row.columns, row.rows);
        for (const int32_t threads : {1, 2, 5}) {
            ksys_jobThreadGroup_setThreadCount(threads);
            installHook(true);
            ASSERT_EQ(runTransform(c, memory).status, 0);
            const int32_t asked = threads > 1 && row.bytesPerPixel == 1 ? 1 : 0;
            EXPECT_EQ(questions, (threads == 1 ? 1 : row.bands) + asked) << threads << " threads";
        }
    }
}

TEST_F(TransformJobs, PassOnTheStatusOfAJob)
{
    ksys_jobThreadGroup_setThreadCount(4);
    const TransformCase c = turnedCase(2, kip_affineModeBilinear, 60, 40, 32768, 400, 400);
    const TransformResult result = runTransform(c, memory);
    EXPECT_EQ(result.status, int32_t{kip_statusSourceTooLarge});
    EXPECT_EQ(result.damage, "");
}

// A transform that runs as a job itself.
struct Work {
    TransformCase c;
    Pixels pixels;
    Image source{pixels}, alone{}, inside{};

    Work(int32_t bytesPerPixel, uint32_t mode, int32_t columns, int32_t rows)
        : c(turnedCase(bytesPerPixel, mode, 400, 300, 401, columns, rows)), pixels(bytesPerPixel, 400, 300, 401)
    {}

    int32_t run(Image &result)
    {
        const auto transform = c.bytesPerPixel == 1 ? kip_affineTransform : kip_affineTransform16;
        return transform(source.get(), result.get(), &c.params, nullptr);
    }
};

int32_t runWork(const ksys_jobParams *params)
{
    Work *const *work = nullptr;
    const int32_t status = ksys_jobParams_getDataConst(params, &work);
    return status < 0 ? status : (*work)->run((*work)->inside);
}

int32_t keepBlock(void *)
{
    return 0;
}

TEST_F(TransformJobs, InsideAJob)
{
    Work works[] = {{1, kip_affineModeBilinear, 251, 603},
                    {2, kip_affineModeBilinear, 253, 701},
                    {1, kip_affineModeNearest, 513, 607},
                    {2, kip_affineModeNearest, 90, 60}}; // too small for jobs of its own
    ksys_jobThreadGroup_setThreadCount(1);
    for (Work &work : works)
        ASSERT_EQ(work.run(work.alone), 0);
    ksys_jobThreadGroup_setThreadCount(3);

    ksys_jobThreadGroup group;
    ksys_jobParams params;
    ksys_jobRequestSet requests;
    ksys_jobResultSet results;
    ksys_jobThreadGroup_construct(&group);
    ksys_jobParams_construct(&params);
    ksys_jobRequestSet_construct(&requests);
    ksys_jobResultSet_construct(&results);
    Work *blocks[] = {&works[0], &works[1], &works[2], &works[3]};
    for (Work *&work : blocks) {
        Work **block = &work;
        ASSERT_EQ(ksys_jobParams_takeData(&params, &block, keepBlock), 0);
        ASSERT_EQ(ksys_jobRequestSet_addFuncAndParams(&requests, runWork, &params), 0);
    }
    EXPECT_EQ(ksys_jobThreadGroup_dispatchAndWait(&group, &requests, &results), 0);
    for (const Work &work : works)
        expectSamePixels(work.alone, work.inside, "pixel");
    ksys_jobResultSet_destruct(&results);
    ksys_jobRequestSet_destruct(&requests);
    ksys_jobParams_destruct(&params);
    ksys_jobThreadGroup_destruct(&group);
}

} // namespace

} // namespace kip::test
