// Integer rectangles and vectors of unsigned 32-bit values.

#include <kstd/kstd.h>

#include <cstdint>
#include <vector>

#include <gtest/gtest.h>

#include "support/failing_allocator.h"
#include "support/random.h"
#include "support/records.h"

using namespace kip::test;

TEST(Rect32, RefusesWhatHasNoEndAndComparesEveryValue)
{
    constexpr kstd_rect32 kUntouched{-5, -6, -7, -8};
    const struct {
        kstd_rect32 asked;
        int32_t status;
    } cases[] = {
        {{kMin32, kMin32, kMax32, kMax32}, 0},
        {{kMax32, kMax32, 0, 0}, 0},
        {{0, 0, kMax32, kMax32}, 0},
        {{1, 0, kMax32, 0}, kstd_statusTooLarge},
        {{0, 1, 0, kMax32}, kstd_statusTooLarge},
        {{kMax32, 0, kMax32, 0}, kstd_statusTooLarge},
        {{0, 0, -1, 1}, kstd_statusNegativeSize},
        {{0, 0, 1, kMin32}, kstd_statusNegativeSize},
    };
    for (const auto &[asked, status] : cases) {
        kstd_rect32 rect = kUntouched;
        EXPECT_EQ(kstd_rect32_init(&rect, asked.x, asked.y, asked.width, asked.height), status);
        EXPECT_EQ(rect, status < 0 ? kUntouched : asked);
    }
    for (const auto number : {&kstd_rect32::x, &kstd_rect32::y, &kstd_rect32::width, &kstd_rect32::height}) {
        kstd_rect32 other = kUntouched;
        int32_t differs = -1;
        EXPECT_EQ(kstd_rect32_compare(&kUntouched, &other, &differs), 0);
        EXPECT_EQ(differs, 0);
        other.*number = 0;
        kstd_rect32_compare(&kUntouched, &other, &differs);
        EXPECT_NE(differs, 0);
    }
}

TEST(Vector32, KeepsWhatStaysClearsWhatIsNewAndTakesMemoryOnlyToGrow)
{
    FailingAllocator allocator; // its memory comes filled with junk
    Random random(41);
    kstd_vector32 vector;
    ASSERT_EQ(kstd_vector32_construct(&vector), 0);
    std::vector<uint32_t> model;
    int32_t room = 0;
    for (int round = 0; round < 3000; ++round) {
        const bool isRefused = random.oneIn(4);
        const int32_t size = random.oneIn(20) ? (isRefused ? kMax32 : -1) : random.between32(0, 9 + round / 10);
        isRefused ? allocator.failFrom(1) : allocator.failNone();
        const int32_t status = kstd_vector32_resize(&vector, size);
        ASSERT_EQ(status < 0, size < 0 || (isRefused && size > room));
        ASSERT_TRUE(size > room || allocator.requests() == 0);
        if (status >= 0) {
            model.resize(static_cast<size_t>(size));
            room = std::max(room, size);
        }
        int32_t found = -1;
        uint32_t *begin = nullptr;
        EXPECT_EQ(kstd_vector32_getSize(&vector, &found), 0);
        EXPECT_EQ(kstd_vector32_getBegin(&vector, &begin), 0);
        ASSERT_EQ(std::vector<uint32_t>(begin, begin + found), model);
        for (size_t i = 0; i < model.size(); ++i)
            begin[i] = model[i] = static_cast<uint32_t>(random.next());
    }
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(kstd_vector32_destruct(&vector), 0);
        EXPECT_EQ(vector.begin, nullptr);
        EXPECT_EQ(allocator.liveBlocks(), 0);
    }
}
