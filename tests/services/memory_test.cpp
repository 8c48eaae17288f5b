// Memory: alignment, sizes that no block can have, resizes, changing allocators.

#include <ksys/ksys.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <optional>

#include <gtest/gtest.h>

#include "support/failing_allocator.h"
#include "support/random.h"

namespace {

using kip::test::FailingAllocator;
using kip::test::Random;

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

struct Form {
    const char *name;
    int32_t (*alloc)(size_t, void *);
    int32_t (*free)(void *);
};

constexpr Form kForms[] = {
    {"alloc", ksys_memory_alloc_internal, ksys_memory_free_internal},
    {"allocFastMem", ksys_memory_allocFastMem_internal, ksys_memory_free_internal},
    {"allocClear", ksys_memory_allocClear_internal, ksys_memory_free_internal},
    {"cache", cacheAlloc, cacheFree},
};

constexpr ksys_memoryHooks kPlainHooks = {
    [](size_t size, void *) { return std::malloc(size); },
    [](void *block, size_t size, void *) { return std::realloc(block, size); },
    [](void *block, void *) { std::free(block); },
    nullptr,
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
    size_t i = 0;
    while (i < count && bytes[i] == static_cast<uint8_t>(i * 7 + 1))
        ++i;
    return i == count;
}

TEST(Memory, blocksAreAlignedAndWholeOrNull)
{
    for (const bool isDefault : {true, false}) {
        FailingAllocator allocator;
        if (isDefault)
            ksys_memory_setHooks(nullptr);
        for (const Form &form : kForms) {
            for (const size_t size : kSizes) {
                SCOPED_TRACE(testing::Message() << form.name << " " << size);
                uint16_t *block = nullptr; // any pointer type must do
                ASSERT_EQ(form.alloc(size, &block), 0);
                ASSERT_NE(block, nullptr);
                EXPECT_TRUE(isAligned(block));
                const auto *bytes = reinterpret_cast<const uint8_t *>(block);
                EXPECT_TRUE(form.alloc != ksys_memory_allocClear_internal ||
                            std::all_of(bytes, bytes + size, [](uint8_t byte) { return byte == 0; }));
                EXPECT_EQ(ksys_memory_fill(0xAB, size, block), 0);
                EXPECT_TRUE(std::all_of(bytes, bytes + size, [](uint8_t byte) { return byte == 0xAB; }));
                EXPECT_EQ(form.free(&block), 0);
                EXPECT_TRUE(block == nullptr || form.free == cacheFree);
            }
            EXPECT_EQ(allocator.requests(), isDefault ? 0 : static_cast<int64_t>(std::size(kSizes)));
            EXPECT_EQ(allocator.liveBlocks(), 0);
            allocator.failFrom(1);
            for (const size_t size : kImpossibleSizes) {
                void *block = &block;
                EXPECT_EQ(form.alloc(size, &block),
                          form.free == cacheFree ? ksys_statusOutOfMemory : ksys_statusSizeTooLarge);
                EXPECT_EQ(block, nullptr);
            }
            EXPECT_EQ(allocator.requests(), 0) << "asked for what no block can have";
            void *block = &block;
            EXPECT_TRUE(isDefault || (form.alloc(10, &block) == ksys_statusOutOfMemory && block == nullptr));
            allocator.failNone();
        }
    }
    void *block = nullptr;
    EXPECT_EQ(ksys_memory_free_internal(&block), 0);
    kqfFree(nullptr);
}

// Blocks of both allocators are resized and freed whichever is installed by then. The failing one moves every
// block, and between multiples of 64, so that the bytes must follow.
TEST(Memory, blocksKeepTheirBytesAndTheirAllocator)
{
    struct Block {
        uint8_t *at = nullptr;
        size_t size = 0;
        bool isOfHooks = false;
    } blocks[6];
    Random random(51);
    std::optional<FailingAllocator> allocator;
    for (int round = 0; round < 9000; ++round) {
        if (round == 3000)
            allocator.emplace();
        if (round == 6000)
            ksys_memory_setHooks(nullptr);
        Block &block = blocks[random.next() % 6];
        const bool isImpossible = random.oneIn(20);
        const auto size = isImpossible ? random.pick(kImpossibleSizes)
                                       : static_cast<size_t>(random.between32(0, random.oneIn(4) ? 5000 : 200));
        if (block.at == nullptr)
            block.isOfHooks = round >= 3000 && round < 6000;
        const bool isRefused = block.isOfHooks && random.oneIn(4);
        if (allocator)
            isRefused ? allocator->failFrom(1) : allocator->failNone();
        if (random.oneIn(5)) {
            ASSERT_EQ(ksys_memory_free_internal(&block.at), 0);
            ASSERT_EQ(block.at, nullptr);
            block = {};
        } else {
            const uint8_t *const before = block.at;
            const int32_t status = ksys_memory_realloc_internal(size, &block.at);
            ASSERT_EQ(status, isImpossible ? ksys_statusSizeTooLarge : isRefused ? ksys_statusOutOfMemory : 0);
            ASSERT_TRUE(status == 0 || block.at == before);
            ASSERT_TRUE(isAligned(block.at));
            ASSERT_TRUE(isCounting(block.at, status < 0 ? block.size : std::min(block.size, size)));
            if (status == 0) {
                block.size = size;
                writeCounting(block.at, size);
            }
        }
        if (allocator) {
            const auto isLive = [](const Block &b) { return b.isOfHooks && b.at != nullptr; };
            ASSERT_EQ(allocator->liveBlocks(), std::count_if(std::begin(blocks), std::end(blocks), isLive));
        }
    }
    for (Block &block : blocks)
        ksys_memory_free_internal(&block.at);
}

TEST(Memory, incompleteHooksAreNotInstalled)
{
    FailingAllocator allocator;
    const auto &[alloc, realloc, free, context] = kPlainHooks;
    for (const ksys_memoryHooks &hooks : {ksys_memoryHooks{nullptr, realloc, free, context},
                                          {alloc, nullptr, free, context},
                                          {alloc, realloc, nullptr, context}})
        EXPECT_EQ(ksys_memory_setHooks(&hooks), ksys_statusBadArgument);
    void *block = nullptr;
    EXPECT_EQ(ksys_memory_alloc_internal(1, &block), 0);
    EXPECT_EQ(allocator.requests(), 1);
    ksys_memory_free_internal(&block);
}

} // namespace
