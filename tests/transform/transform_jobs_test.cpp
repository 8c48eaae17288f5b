// Transforms that run as jobs: the bands they are cut into. That they give the same bytes for
// every number of threads is for the model's test.

#include <atomic>
#include <cstdint>
#include <cwchar>

#include <gtest/gtest.h>

#include "support/draw_call.h"
#include "support/sampling_call.h"

namespace kip::test {

namespace {

// The hook, called from the jobs as well.
std::atomic<int32_t> questions;

int32_t countAndInhibit(const wchar_t *kernelName)
{
    if (std::wcsncmp(kernelName, L"kip_affineProcess", 17) != 0)
        return 0;
    ++questions;
    return 1;
}

class TransformJobs : public testing::Test {
protected:
    ~TransformJobs() override { ksys_jobThreadGroup_setThreadCount(0); }

    const CallMemory memory{};
};

// A rectangle turned by some ten degrees that fills most of a source.
SamplingCall turnedCall(int32_t bytesPerPixel, uint32_t mode, int32_t pitch, int32_t columns, int32_t rows)
{
    SamplingCall call;
    call.bytesPerPixel = bytesPerPixel;
    call.width = 600;
    call.height = 300;
    call.pitch = pitch;
    call.params = {{}, mode, columns, rows};
    placeCorners({{66.4, 0.53}, {587.5, 36.4}, {0.52, 260.6}}, &call);
    return call;
}

// The hook is asked once for every band, and once more by the 8-bit driver when it chooses the bands' height.
TEST_F(TransformJobs, CutsLargeWorkIntoBandsOfOneTileRow)
{
    constexpr uint32_t kNearest = kip_affineModeNearest;
    constexpr uint32_t kBilinear = kip_affineModeBilinear;
    const struct {
        int32_t bytesPerPixel;
        uint32_t mode;
        int32_t pitch, columns, rows;
        int32_t bands;
    } rows[] = {
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
    for (const auto &row : rows) {
        const SamplingCall call = turnedCall(row.bytesPerPixel, row.mode, row.pitch, row.columns, row.rows);
        SCOPED_TRACE(describe(call));
        for (const int32_t threads : {1, 2, 5}) {
            ksys_jobThreadGroup_setThreadCount(threads);
            questions = 0;
            const auto before = kprt_isOptimizationInhibitedFP;
            kprt_isOptimizationInhibitedFP = countAndInhibit;
            EXPECT_EQ(runCall(call, memory).status, 0);
            kprt_isOptimizationInhibitedFP = before;
            const int32_t asked = threads > 1 && row.bytesPerPixel == 1 ? 1 : 0;
            EXPECT_EQ(questions, (threads == 1 ? 1 : row.bands) + asked) << threads << " threads";
        }
    }
}

TEST_F(TransformJobs, PassOnTheStatusOfAJob)
{
    ksys_jobThreadGroup_setThreadCount(4);
    const Outcome outcome = runCall(turnedCall(2, kip_affineModeBilinear, 32768, 400, 400), memory);
    EXPECT_EQ(outcome.status, int32_t{kip_statusSourceTooLarge});
    EXPECT_EQ(outcome.fault, "");
}

} // namespace

} // namespace kip::test
