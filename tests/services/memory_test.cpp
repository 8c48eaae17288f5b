// Memory: alignment, sizes that no block can have, resizes, changing allocators, rectangles of bytes.

#include <ksys/ksys.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <iterator>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "support/failing_allocator.h"

namespace {

using kip::test::FailingAllocator;

constexpr size_t kSizes[] = {0, 1, 63, 64, 65, 4097, 1 << 20};
constexpr size_t kImpossibleSizes[] = {SIZE_MAX, SIZE_MAX - 64, SIZE_MAX / 2 + 1, SIZE_MAX / 2};

int32_t cacheAlloc(size_t size, void *pointerAddress)
{
    void *block = kqfCacheAlloc(size);
    std::memcpy(pointerAddress, &block, sizeof block);
    return block == nullptr ? ksys_statusOutOfMemory : 0;
}

int32_t cacheFree(void *pointerAddress)
{
    void *block;
    std::memcpy(&block, pointerAddress, sizeof block);
    kqfFree(block);
    return 0;
}

int32_t reallocFromNull(size_t size, void *pointerAddress)
{
    void *none = nullptr;
    std::memcpy(pointerAddress, &none, sizeof none);
    return ksys_memory_realloc_internal(size, pointerAddress);
}

struct Form {
    const char *name;
    int32_t (*alloc)(size_t, void *);
    int32_t (*free)(void *);
    bool tellsSizeTooLarge;
};

constexpr Form kForms[] = {
    {"alloc", ksys_memory_alloc_internal, ksys_memory_free_internal, true},
    {"allocFastMem", ksys_memory_allocFastMem_internal, ksys_memory_free_internal, true},
    {"allocClear", ksys_memory_allocClear_internal, ksys_memory_free_internal, true},
    {"realloc", reallocFromNull, ksys_memory_free_internal, true},
    {"cache", cacheAlloc, cacheFree, false},
};

bool isAligned(const void *block)
{
    return reinterpret_cast<uintptr_t>(block) % 64 == 0;
}

void writeCounting(uint8_t *bytes, size_t count)
{
    for (size_t i = 0; i < count; ++i)
        bytes[i] = static_cast<uint8_t>(i * 7 + 1);
}

bool isCounting(const uint8_t *bytes, size_t count)
{
    for (size_t i = 0; i < count; ++i) {
        if (bytes[i] != static_cast<uint8_t>(i * 7 + 1))
            return false;
    }
    return true;
}

void takeEachSizeOfEachForm()
{
    for (const Form &form : kForms) {
        for (const size_t size : kSizes) {
            SCOPED_TRACE(testing::Message() << form.name << " " << size);
            uint16_t *block = nullptr; // any pointer type must do
            ASSERT_EQ(form.alloc(size, &block), 0);
            ASSERT_NE(block, nullptr);
            EXPECT_TRUE(isAligned(block));
            if (form.alloc == ksys_memory_allocClear_internal) {
                const auto *bytes = reinterpret_cast<const uint8_t *>(block);
                EXPECT_EQ(std::count(bytes, bytes + size, 0), static_cast<int64_t>(size));
            }
            EXPECT_EQ(ksys_memory_fill(0xAB, size, block), 0);
            EXPECT_EQ(form.free(&block), 0);
            EXPECT_TRUE(block == nullptr || form.free == cacheFree);
        }
    }
}

TEST(Memory, blocksAreAlignedAndWhole)
{
    takeEachSizeOfEachForm();
    FailingAllocator allocator;
    takeEachSizeOfEachForm();
    EXPECT_EQ(allocator.requests(), static_cast<int64_t>(std::size(kForms) * std::size(kSizes)));
    EXPECT_EQ(allocator.liveBlocks(), 0);
}

TEST(Memory, impossibleSizesAreRefusedBeforeTheAllocatorIsAsked)
{
    FailingAllocator allocator;
    for (const Form &form : kForms) {
        for (const size_t size : kImpossibleSizes) {
            SCOPED_TRACE(testing::Message() << form.name << " " << size);
            void *block = &block;
            const int32_t status = form.alloc(size, &block);
            EXPECT_EQ(status, form.tellsSizeTooLarge ? ksys_statusSizeTooLarge : ksys_statusOutOfMemory);
            EXPECT_EQ(block, nullptr);
        }
    }
    EXPECT_EQ(allocator.requests(), 0);
}

TEST(Memory, refusedBlocksAreNull)
{
    FailingAllocator allocator;
    allocator.failFrom(1);
    for (const Form &form : kForms) {
        SCOPED_TRACE(form.name);
        void *block = &block;
        EXPECT_EQ(form.alloc(10, &block), ksys_statusOutOfMemory);
        EXPECT_EQ(block, nullptr);
    }
}

TEST(Memory, nullIsFreedAndNowhereIsNoPlace)
{
    void *block = nullptr;
    EXPECT_EQ(ksys_memory_free_internal(&block), 0);
    kqfFree(nullptr);
    EXPECT_EQ(ksys_memory_alloc_internal(1, nullptr), ksys_statusBadArgument);
    EXPECT_EQ(ksys_memory_realloc_internal(1, nullptr), ksys_statusBadArgument);
}

// The allocator places every block differently between multiples of 64, so that the bytes must follow.
TEST(Memory, resizesKeepBytesAndAlignment)
{
    for (const bool isDefault : {false, true}) {
        FailingAllocator allocator;
        if (isDefault)
            ksys_memory_setHooks(nullptr);
        uint8_t *block = nullptr;
        size_t before = 0;
        for (const size_t size : std::initializer_list<size_t>{1, 100, 5000, 70, 70, 65, 0, 300, 1 << 20, 33}) {
            SCOPED_TRACE(testing::Message() << before << " to " << size);
            ASSERT_EQ(ksys_memory_realloc_internal(size, &block), 0);
            EXPECT_TRUE(isAligned(block));
            EXPECT_TRUE(isCounting(block, std::min(before, size)));
            writeCounting(block, size);
            before = size;
        }
        EXPECT_EQ(allocator.liveBlocks(), isDefault ? 0 : 1);
        ksys_memory_free_internal(&block);
        EXPECT_EQ(allocator.liveBlocks(), 0);
    }
}

TEST(Memory, failedResizesChangeNothing)
{
    FailingAllocator allocator;
    uint8_t *block = nullptr;
    ASSERT_EQ(ksys_memory_alloc_internal(100, &block), 0);
    writeCounting(block, 100);
    uint8_t *const before = block;
    allocator.failFrom(1);
    EXPECT_EQ(ksys_memory_realloc_internal(200, &block), ksys_statusOutOfMemory);
    EXPECT_EQ(block, before);
    for (const size_t size : kImpossibleSizes) {
        EXPECT_EQ(ksys_memory_realloc_internal(size, &block), ksys_statusSizeTooLarge);
        EXPECT_EQ(block, before);
    }
    EXPECT_EQ(allocator.requests(), 1);
    EXPECT_TRUE(isCounting(block, 100));
    ksys_memory_free_internal(&block);
    EXPECT_EQ(allocator.liveBlocks(), 0);
}

TEST(Memory, blocksStayWithTheirAllocator)
{
    void *ofDefault = nullptr;
    void *ofHooks = nullptr;
    ASSERT_EQ(ksys_memory_alloc_internal(10, &ofDefault), 0);
    FailingAllocator allocator;
    ASSERT_EQ(ksys_memory_alloc_internal(10, &ofHooks), 0);
    EXPECT_EQ(ksys_memory_realloc_internal(100, &ofDefault), 0);
    EXPECT_EQ(allocator.requests(), 1);
    ksys_memory_free_internal(&ofDefault);
    EXPECT_EQ(allocator.liveBlocks(), 1);

    ASSERT_EQ(ksys_memory_setHooks(nullptr), 0);
    EXPECT_EQ(ksys_memory_realloc_internal(1000, &ofHooks), 0);
    EXPECT_EQ(allocator.requests(), 2);
    EXPECT_GE(allocator.liveBytes(), 1000);
    ksys_memory_free_internal(&ofHooks);
    EXPECT_EQ(allocator.liveBlocks(), 0);
}

TEST(Memory, incompleteHooksAreNotInstalled)
{
    const ksys_memoryHooks whole = {[](size_t, void *) -> void * { return nullptr; },
                                    [](void *, size_t, void *) -> void * { return nullptr; }, [](void *, void *) {},
                                    nullptr};
    FailingAllocator allocator;
    for (int missing = 0; missing < 3; ++missing) {
        ksys_memoryHooks hooks = whole;
        if (missing == 0)
            hooks.alloc = nullptr;
        else if (missing == 1)
            hooks.realloc = nullptr;
        else
            hooks.free = nullptr;
        EXPECT_EQ(ksys_memory_setHooks(&hooks), ksys_statusBadArgument);
    }
    void *block = nullptr;
    EXPECT_EQ(ksys_memory_alloc_internal(1, &block), 0);
    EXPECT_EQ(allocator.requests(), 1);
    ksys_memory_free_internal(&block);
}

// Run under the thread sanitizer: hooks change while other threads take, resize and free blocks.
TEST(Memory, hooksChangeUnderRunningThreads)
{
    FailingAllocator allocator;
    std::atomic<int> running{4};
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 500; ++i) {
                uint8_t *block = nullptr;
                bool good = ksys_memory_alloc_internal(50, &block) == 0;
                writeCounting(block, 50);
                good =
                    good && ksys_memory_realloc_internal(500, &block) == 0 && isAligned(block) && isCounting(block, 50);
                ksys_memory_free_internal(&block);
                failures += good ? 0 : 1;
            }
            --running;
        });
    }
    const ksys_memoryHooks plain = {[](size_t size, void *) { return std::malloc(size); },
                                    [](void *block, size_t size, void *) { return std::realloc(block, size); },
                                    [](void *block, void *) { std::free(block); }, nullptr};
    while (running > 0) {
        EXPECT_EQ(ksys_memory_setHooks(&plain), 0);
        EXPECT_EQ(ksys_memory_setHooks(nullptr), 0);
    }
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(failures, 0);
    EXPECT_EQ(allocator.liveBlocks(), 0);
}

TEST(Memory, copiesRectangles)
{
    struct Case {
        const char *name;
        int64_t rowBytes, rows, sourcePitch, destinationPitch;
        int64_t sourceFirst, destinationFirst; // offsets of the first rows
    };
    constexpr Case kCases[] = {
        {"whole rows", 7, 5, 7, 7, 0, 0},
        {"rows with gaps", 7, 5, 9, 13, 1, 2},
        {"bottom-up source", 7, 5, -9, 13, 60, 0},
        {"bottom-up destination", 7, 5, 9, -13, 0, 60},
        {"pitch of minus one row", 7, 5, -7, 7, 60, 0},
        {"one row spread out", 3, 4, 0, 5, 10, 0},
        {"no bytes", 0, 5, 9, 9, 0, 0},
        {"no rows", 5, 0, 9, 9, 0, 0},
        {"negative size", -1, -1, 9, 9, 0, 0},
    };
    for (const Case &c : kCases) {
        SCOPED_TRACE(c.name);
        std::vector<uint8_t> source(80);
        writeCounting(source.data(), source.size());
        std::vector<uint8_t> destination(80, 0xEE);
        std::vector<uint8_t> expected = destination;
        for (int64_t y = 0; y < c.rows; ++y) {
            for (int64_t x = 0; x < c.rowBytes; ++x)
                expected[static_cast<size_t>(c.destinationFirst + y * c.destinationPitch + x)] =
                    source[static_cast<size_t>(c.sourceFirst + y * c.sourcePitch + x)];
        }
        EXPECT_EQ(ksys_memory_copyRect(c.rowBytes, c.rows, c.sourcePitch, c.destinationPitch,
                                       source.data() + c.sourceFirst, destination.data() + c.destinationFirst),
                  0);
        EXPECT_EQ(destination, expected);
        EXPECT_EQ(ksys_memory_copyRect(c.rowBytes, c.rows, c.sourcePitch, c.sourcePitch, source.data() + c.sourceFirst,
                                       source.data() + c.sourceFirst),
                  0);
        EXPECT_TRUE(isCounting(source.data(), source.size()));
    }
}

} // namespace
