// Integer rectangles and vectors of unsigned 32-bit values.

#include <kstd/kstd.h>

#include <cstdint>
#include <limits>
#include <numeric>
#include <vector>

#include <gtest/gtest.h>

#include "support/failing_allocator.h"

namespace {

constexpr int32_t kMin32 = std::numeric_limits<int32_t>::min();
constexpr int32_t kMax32 = std::numeric_limits<int32_t>::max();

using Values = std::vector<uint32_t>;

uint32_t *begin(kstd_vector32 &vector)
{
    uint32_t *first = nullptr;
    EXPECT_EQ(kstd_vector32_getBegin(&vector, &first), 0);
    return first;
}

Values contents(kstd_vector32 &vector)
{
    int32_t size = -1;
    EXPECT_EQ(kstd_vector32_getSize(&vector, &size), 0);
    return Values(begin(vector), begin(vector) + size);
}

} // namespace

TEST(Rect32, RefusesWhatHasNoEnd)
{
    const struct {
        kstd_rect32 asked;
        int32_t status;
    } cases[] = {
        {{1, 2, 3, 4}, 0},
        {{kMin32, kMin32, kMax32, kMax32}, 0},
        {{kMax32, kMax32, 0, 0}, 0},
        {{0, 0, kMax32, kMax32}, 0},
        {{1, 0, kMax32, 0}, kstd_statusTooLarge},
        {{0, 1, 0, kMax32}, kstd_statusTooLarge},
        {{kMax32, 0, kMax32, 0}, kstd_statusTooLarge},
        {{0, 0, -1, 1}, kstd_statusNegativeSize},
        {{0, 0, 1, kMin32}, kstd_statusNegativeSize},
    };
    for (const auto &c : cases) {
        const kstd_rect32 untouched{-5, -6, -7, -8};
        kstd_rect32 rect = untouched;
        const kstd_rect32 &a = c.asked;
        EXPECT_EQ(kstd_rect32_init(&rect, a.x, a.y, a.width, a.height), c.status) << a.x << " " << a.width;
        int32_t differs = -1;
        EXPECT_EQ(kstd_rect32_compare(&rect, c.status < 0 ? &untouched : &a, &differs), 0);
        EXPECT_EQ(differs, 0) << a.x << " " << a.width;
    }
}

TEST(Rect32, ComparesEveryValue)
{
    const kstd_rect32 rect{1, 2, 3, 4};
    for (const kstd_rect32 &other : {kstd_rect32{0, 2, 3, 4}, {1, 0, 3, 4}, {1, 2, 0, 4}, {1, 2, 3, 0}}) {
        int32_t differs = 0;
        kstd_rect32_compare(&rect, &other, &differs);
        EXPECT_NE(differs, 0);
    }
}

TEST(Vector32, KeepsWhatStaysAndClearsWhatIsNew)
{
    kip::test::FailingAllocator allocator; // its memory comes filled with junk
    kstd_vector32 vector;
    ASSERT_EQ(kstd_vector32_construct(&vector), 0);
    ASSERT_EQ(kstd_vector32_resize(&vector, 0), 0);
    EXPECT_EQ(begin(vector), nullptr);
    EXPECT_EQ(allocator.requests(), 0);

    ASSERT_EQ(kstd_vector32_resize(&vector, 3), 0);
    EXPECT_EQ(contents(vector), (Values{0, 0, 0}));
    std::iota(begin(vector), begin(vector) + 3, 7u);
    ASSERT_EQ(kstd_vector32_resize(&vector, 5), 0);
    EXPECT_EQ(contents(vector), (Values{7, 8, 9, 0, 0}));
    EXPECT_EQ(kstd_vector32_resize(&vector, -1), kstd_statusNegativeSize);
    EXPECT_EQ(contents(vector), (Values{7, 8, 9, 0, 0}));

    allocator.failFrom(1); // there is room from now on
    ASSERT_EQ(kstd_vector32_resize(&vector, 2), 0);
    EXPECT_EQ(contents(vector), (Values{7, 8}));
    ASSERT_EQ(kstd_vector32_resize(&vector, 4), 0);
    EXPECT_EQ(contents(vector), (Values{7, 8, 0, 0}));
    EXPECT_LT(kstd_vector32_resize(&vector, 6), 0);
    EXPECT_LT(kstd_vector32_resize(&vector, kMax32), 0);
    EXPECT_EQ(contents(vector), (Values{7, 8, 0, 0}));

    EXPECT_EQ(kstd_vector32_destruct(&vector), 0);
    EXPECT_EQ(contents(vector), Values{});
    EXPECT_EQ(kstd_vector32_destruct(&vector), 0);
    EXPECT_EQ(allocator.liveBlocks(), 0);
}
