#include "projection/normalize_projection.h"

#include <cstdint>

#include <gtest/gtest.h>

#include "projection/projection_entry.h"

namespace kip::test {

namespace {

// A row of sums as an image.
class SumsImage {
public:
    SumsImage(Sums values, int32_t x, int32_t y = 0) : sums(std::move(values))
    {
        EXPECT_EQ(kimg_image_constructExternal(&image, 4, static_cast<int32_t>(sums.size()), 1,
                                               -static_cast<int32_t>(sums.size()), sums.data()),
                  0);
        image.x = x;
        image.y = y;
    }
    SumsImage(const SumsImage &) = delete;
    SumsImage &operator=(const SumsImage &) = delete;
    ~SumsImage() { kimg_image_destruct(&image); }

    Sums sums;
    kimg_image image{};
};

TEST(NormalizeProjection, WorkedExamples)
{
    constexpr uint32_t kUntouched = 999;
    const struct {
        const char *name;
        int32_t columns;
        Sums sums;
        int32_t sumsX;
        Sums coverage;
        int32_t coverageX;
        Sums means, samples;
        uint32_t depth;
        int32_t first, end;
    } rows[] = {
        {"rounds the samples, divides by their fraction, trims twice",
         7,
         {7, 50, 60, 100, 201, 50, 9},
         0,
         {0, 100, 128, 255, 510, 127, 0},
         0,
         {7, 0, 120, 100, 101, 0, 9},
         {0, 0, 1, 1, 2, 0, 0},
         1,
         2,
         5},
        {"a column without coverage among others",
         3,
         {300, 5, 90},
         0,
         {765, 0, 255},
         0,
         {100, 0, 90},
         {3, 0, 1},
         1,
         0,
         3},
        {"no coverage at all", 3, {1, 2, 3}, 0, {0, 0, 0}, 0, {1, 2, 3}, {0, 0, 0}, kUntouched, 3, 3},
        {"coverage that rounds to nothing", 3, {1, 2, 3}, 0, {127, 0, 1}, 0, {0, 0, 0}, {0, 0, 0}, 1, 3, 3},
        {"a result that begins inside",
         5,
         {90, 80, 70},
         2,
         {255, 255, 255, 255, 255},
         0,
         {90, 80, 70},
         {255, 255, 1, 1, 1},
         1,
         2,
         5},
        {"a result that begins outside and ends early",
         5,
         {1, 2, 90, 80},
         -2,
         {510, 510, 510, 510, 510},
         0,
         {1, 2, 45, 40},
         {2, 2, 510, 510, 510},
         1,
         0,
         2},
        {"coverage that begins inside", 2, {90, 80, 70}, 0, {255, 255}, 1, {90, 80, 70}, {1, 255}, 1, 1, 2},
        {"a result beyond the columns", 2, {90}, 2, {255, 255}, 0, {90}, {255, 255}, kUntouched, 0, 0},
        {"a result before the columns", 2, {90}, INT32_MIN, {255, 255}, 0, {90}, {255, 255}, kUntouched, 0, 0},
        {"sums that have wrapped", 1, {UINT32_MAX}, 0, {128}, 0, {static_cast<uint32_t>(8556380158)}, {1}, 1, 0, 1},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        SumsImage result(row.sums, row.sumsX);
        SumsImage coverage(row.coverage, row.coverageX);
        uint32_t depth = kUntouched;
        int32_t first = -1;
        int32_t end = -1;
        EXPECT_GE(normalizeProjection(&result.image, &coverage.image, 255, row.columns, &depth, &first, &end), 0);
        EXPECT_EQ(result.sums, row.means);
        EXPECT_EQ(coverage.sums, row.samples);
        EXPECT_EQ(depth, row.depth);
        EXPECT_EQ(first, row.first);
        EXPECT_EQ(end, row.end);
        EXPECT_GE(normalizeProjection(&result.image, &coverage.image, 255, row.columns, nullptr, &first, &end), 0);
    }
}

// Sums stand in row 0 alone.
TEST(NormalizeProjection, LeavesOtherRowsAlone)
{
    for (const int32_t y : {-1, 1}) {
        SumsImage result({90, 80}, 0, y);
        SumsImage coverage({255, 255}, 0);
        int32_t first = -1;
        int32_t end = -1;
        EXPECT_GE(normalizeProjection(&result.image, &coverage.image, 255, 2, nullptr, &first, &end), 0);
        EXPECT_EQ(result.sums, (Sums{90, 80}));
        EXPECT_EQ(coverage.sums, (Sums{255, 255}));
        EXPECT_EQ(first, 0);
        EXPECT_EQ(end, 0);
    }
}

} // namespace

} // namespace kip::test
