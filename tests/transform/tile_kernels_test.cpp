// The arithmetic of the tile kernels, by examples worked out by hand. That kernels keep their sums, rows and
// steps apart over whole tiles is for the slow model and the twins to show.

#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <kstd/kprt.h>

#include "transform/tile_kernels.h"

namespace kip::test {

namespace {

// ---- Bilinear samples ------------------------------------------------------------------------------------------

struct BilinearRow {
    const char *name;
    uint32_t fx, fy; // 16 fraction bits
    uint32_t p00, p01, p10, p11;
    uint32_t sample;
};

// Exact weights, halves down.
constexpr BilinearRow kBilinear16[] = {
    {"a pixel's centre", 0, 0, 65535, 1, 2, 3, 65535},
    {"half way between two columns", 0x8000, 0, 100, 101, 900, 900, 100},
    {"half way between two rows", 0, 0x8000, 100, 900, 101, 900, 100},
    {"one unit beyond half way", 0x8001, 0, 100, 101, 900, 900, 101},
    {"between four pixels", 0x8000, 0x8000, 0, 0, 0, 65535, 16384},
    {"half a grey level from four pixels", 0x8000, 0x8000, 0, 0, 0, 6, 1},
    {"three quarters from the right", 0x4000, 0, 40000, 20000, 0, 0, 35000},
    {"all but at the next column", 0xFFFF, 0, 0, 65535, 0, 0, 65534},
    {"all but at the pixel below", 0, 0xFFFF, 0, 0, 65535, 0, 65534},
    {"a constant of the greatest value", 0x1234, 0xFEDC, 65535, 65535, 65535, 65535, 65535},
    {"each pixel has its weight", 0x4000, 0x8000, 800, 1600, 2400, 4000, 1900},
};

// Weights of 16 bits that sum to a little less than 1.
constexpr BilinearRow kBilinear8[] = {
    {"a pixel's centre, greatest value", 0, 0, 255, 1, 2, 3, 255},
    {"a pixel's centre, least value", 0, 0, 1, 255, 255, 255, 1},
    {"half way between two columns", 0x8000, 0, 100, 101, 9, 9, 100},
    {"half way between two rows", 0, 0x8000, 100, 9, 101, 9, 100},
    {"between four pixels", 0x8000, 0x8000, 0, 0, 0, 255, 64},
    {"all but at the next column", 0xFFFF, 0, 0, 255, 0, 0, 255},
    {"all but at the pixel below", 0, 0xFFFF, 0, 0, 255, 0, 255},
    {"a constant of 255 keeps it", 0x8000, 0x8000, 255, 255, 255, 255, 255},
    {"a constant of 1 keeps it", 0x8000, 0x8000, 1, 1, 1, 1, 1},
    {"complements are taken to 65535", 0x5000, 0xD000, 52, 132, 131, 228, 145},
    {"an exact half rounds up", 0xD000, 0xD000, 155, 229, 128, 204, 195},
    {"weights are cut to 16 bits", 0x3000, 0x6000, 209, 140, 167, 115, 181},
    {"lost weights round down", 0x8000, 0x8000, 0, 2, 2, 2, 1},
    {"each pixel has its weight", 0x4000, 0x8000, 80, 160, 40, 200, 90},
};

// The sample of a single pixel by a kernel that stores, and by one that adds to 5.
template <typename Pixel, typename Position>
void expectSample(const BilinearRow &row, TileKernel<Pixel, Position> store, TileKernel<Pixel, Position> add,
                  Position unit)
{
    SCOPED_TRACE(row.name);
    const Pixel source[4] = {static_cast<Pixel>(row.p00), static_cast<Pixel>(row.p01), static_cast<Pixel>(row.p10),
                             static_cast<Pixel>(row.p11)};
    const Tile<Position> tile = {
        static_cast<Position>(row.fx + 0x8000) * unit, static_cast<Position>(row.fy + 0x8000) * unit, 0, 0, 0, 0, 1, 1};
    Pixel stored = 0;
    EXPECT_EQ(store(tile, source, 2, &stored, 1), 0);
    EXPECT_EQ(stored, row.sample);
    uint32_t sum = 5;
    EXPECT_EQ(add(tile, source, 2, &sum, 1), 0);
    EXPECT_EQ(sum, 5 + row.sample);
}

TEST(TileKernels, BilinearSamples)
{
    for (const BilinearRow &row : kBilinear16)
        expectSample<uint16_t, int32_t>(row, kip_affineTransformTileBilinearAccurate16Portable,
                                        kip_affineProjectTileBilinearAccurate16Portable, 1);
    for (const BilinearRow &row : kBilinear8) {
        expectSample<uint8_t, int32_t>(row, kip_affineTransformTileBilinearAccurate8Portable,
                                       kip_affineProjectTileBilinearAccurate8Portable, 1);
        expectSample<uint8_t, double>(row, kip_affineTransformTileBilinearAccurate8DoublePortable,
                                      kip_affineProjectTileBilinearAccurate8DoublePortable, 1.0 / 65536.0);
    }
}

// ---- The hook ----------------------------------------------------------------------------------------------------

std::vector<std::wstring> askedNames;
int32_t answer;

int32_t recordName(const wchar_t *kernelName)
{
    askedNames.emplace_back(kernelName);
    return answer;
}

TEST(TileKernels, OnlyBilinear16StoresAskTheHook)
{
    const uint16_t source[] = {1, 2, 3, 4};
    const uint8_t source8[] = {1, 2, 3, 4};
    const FixedTile tile = {0xC000, 0x9000, 0, 0, 0, 0, 1, 1};
    uint16_t without = 0;
    EXPECT_EQ(kip_affineTransformTileBilinearAccurate16Portable(tile, source, 2, &without, 1), 0);

    kprt_isOptimizationInhibitedFP = recordName;
    for (answer = 0; answer < 2; ++answer) {
        askedNames.clear();
        uint16_t with = 0;
        uint32_t sum = 0;
        uint8_t stored8 = 0;
        kip_affineTransformTileNearest16Portable(tile, source, 2, &with, 1);
        kip_affineProjectTileBilinearAccurate16Portable(tile, source, 2, &sum, 1);
        kip_affineTransformTileBilinearAccurate8Portable(tile, source8, 2, &stored8, 1);
        EXPECT_EQ(kip_affineTransformTileBilinearAccurate16Portable(tile, source, 2, &with, 1), 0);
        EXPECT_EQ(with, without);
        EXPECT_EQ(askedNames, std::vector<std::wstring>{L"kip_affineTransformTileBilinearAccurate16Portable"});
    }
    kprt_isOptimizationInhibitedFP = nullptr;
}

} // namespace

} // namespace kip::test
