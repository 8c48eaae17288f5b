// Memory: 64-byte aligned blocks over any allocator.
//
// A block lies inside a larger raw block of the allocator's, right behind a header that tells how to give the
// raw block back:
//
//     raw                      header        block (a multiple of 64)
//     | 0 to 63 unused bytes  | BlockHeader | size bytes ...                | the rest of the 63 bytes |

#include <ksys/ksys.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>

#include "kept_record.h"

namespace {

struct BlockHeader {
    const ksys_memoryHooks *owner; // resizes and frees the block, whatever hooks are installed by then
    void *raw;
    size_t size;
};

constexpr size_t kAlignment = 64;
constexpr size_t kOverhead = sizeof(BlockHeader) + kAlignment - 1;
// Pointer differences inside a block must fit a ptrdiff_t.
constexpr size_t kLargestBlock = static_cast<size_t>(PTRDIFF_MAX) - kOverhead;

static_assert(kAlignment % alignof(BlockHeader) == 0, "a header right before a block is aligned");

constexpr ksys_memoryHooks kDefaultHooks = {
    [](size_t size, void *) { return std::malloc(size); },
    [](void *block, size_t size, void *) { return std::realloc(block, size); },
    [](void *block, void *) { std::free(block); },
    nullptr,
};

constinit std::atomic<const ksys_memoryHooks *> currentHooks{&kDefaultHooks};
constinit KeptRecords<ksys_memoryHooks> hooksRecords{nullptr};

// The caller's pointer may have any object type, so its bytes are copied, never read as a void *.
void *readPointer(const void *pointerAddress)
{
    void *pointer;
    std::memcpy(&pointer, pointerAddress, sizeof pointer);
    return pointer;
}

void writePointer(void *pointerAddress, void *pointer)
{
    std::memcpy(pointerAddress, &pointer, sizeof pointer);
}

unsigned char *blockIn(void *raw)
{
    unsigned char *first = static_cast<unsigned char *>(raw) + sizeof(BlockHeader);
    return first + (-reinterpret_cast<uintptr_t>(first) & (kAlignment - 1));
}

BlockHeader *headerOf(void *block)
{
    return std::launder(reinterpret_cast<BlockHeader *>(static_cast<unsigned char *>(block) - sizeof(BlockHeader)));
}

void writeHeader(void *block, const BlockHeader &header)
{
    new (static_cast<unsigned char *>(block) - sizeof(BlockHeader)) BlockHeader(header);
}

enum class Content { uninitialised, zero };

int32_t takeBlock(size_t size, Content content, void **block)
{
    *block = nullptr;
    if (size > kLargestBlock)
        return ksys_statusSizeTooLarge;
    const ksys_memoryHooks *owner = currentHooks.load(std::memory_order_acquire);
    // The system hands large blocks out as zeros already, and only calloc knows.
    const bool takeZeros = content == Content::zero && owner == &kDefaultHooks;
    void *raw = takeZeros ? std::calloc(1, size + kOverhead) : owner->alloc(size + kOverhead, owner->context);
    if (raw == nullptr)
        return ksys_statusOutOfMemory;
    unsigned char *at = blockIn(raw);
    writeHeader(at, {owner, raw, size});
    if (content == Content::zero && !takeZeros)
        std::memset(at, 0, size);
    *block = at;
    return 0;
}

int32_t takeBlockAt(size_t size, Content content, void *pointerAddress)
{
    if (pointerAddress == nullptr)
        return ksys_statusBadArgument;
    void *block;
    const int32_t status = takeBlock(size, content, &block);
    writePointer(pointerAddress, block);
    return status;
}

void releaseBlock(void *block)
{
    if (block == nullptr)
        return;
    const BlockHeader header = *headerOf(block);
    header.owner->free(header.raw, header.owner->context);
}

} // namespace

int32_t ksys_memory_alloc_internal(size_t size, void *pointerAddress)
{
    return takeBlockAt(size, Content::uninitialised, pointerAddress);
}

int32_t ksys_memory_allocFastMem_internal(size_t size, void *pointerAddress)
{
    return takeBlockAt(size, Content::uninitialised, pointerAddress);
}

int32_t ksys_memory_allocClear_internal(size_t size, void *pointerAddress)
{
    return takeBlockAt(size, Content::zero, pointerAddress);
}

int32_t ksys_memory_realloc_internal(size_t size, void *pointerAddress)
{
    if (pointerAddress == nullptr)
        return ksys_statusBadArgument;
    void *block = readPointer(pointerAddress);
    if (block == nullptr)
        return takeBlockAt(size, Content::uninitialised, pointerAddress);
    if (size > kLargestBlock)
        return ksys_statusSizeTooLarge;

    const BlockHeader before = *headerOf(block);
    const auto offset = static_cast<unsigned char *>(block) - static_cast<unsigned char *>(before.raw);
    void *raw = before.owner->realloc(before.raw, size + kOverhead, before.owner->context);
    if (raw == nullptr)
        return ksys_statusOutOfMemory;
    // The new raw block may lie differently between two multiples of 64 than the old one did.
    unsigned char *kept = static_cast<unsigned char *>(raw) + offset;
    unsigned char *placed = blockIn(raw);
    if (placed != kept)
        std::memmove(placed, kept, std::min(size, before.size));
    writeHeader(placed, {before.owner, raw, size});
    writePointer(pointerAddress, placed);
    return 0;
}

int32_t ksys_memory_free_internal(void *pointerAddress)
{
    if (pointerAddress == nullptr)
        return 0;
    releaseBlock(readPointer(pointerAddress));
    writePointer(pointerAddress, nullptr);
    return 0;
}

int32_t ksys_memory_fill(uint8_t value, size_t count, void *destination)
{
    if (count != 0)
        std::memset(destination, value, count);
    return 0;
}

int32_t ksys_memory_copyRect(int64_t rowBytes, int64_t rows, int64_t sourcePitch, int64_t destinationPitch,
                             const void *source, void *destination)
{
    if (rowBytes < 1 || rows < 1)
        return 0;
    const auto *from = static_cast<const unsigned char *>(source);
    auto *to = static_cast<unsigned char *>(destination);
    if (sourcePitch == rowBytes && destinationPitch == rowBytes) {
        rowBytes *= rows;
        rows = 1;
    }
    for (int64_t row = 0; row < rows; ++row) {
        const unsigned char *fromRow = from + row * sourcePitch;
        unsigned char *toRow = to + row * destinationPitch;
        if (fromRow != toRow) // memcpy onto itself is undefined
            std::memcpy(toRow, fromRow, static_cast<size_t>(rowBytes));
    }
    return 0;
}

void *kqfCacheAlloc(size_t size)
{
    void *block;
    return takeBlock(size, Content::uninitialised, &block) < 0 ? nullptr : block;
}

void kqfFree(void *block)
{
    releaseBlock(block);
}

int32_t ksys_memory_setHooks(const ksys_memoryHooks *hooks)
{
    const ksys_memoryHooks *next = &kDefaultHooks;
    if (hooks != nullptr) {
        if (hooks->alloc == nullptr || hooks->realloc == nullptr || hooks->free == nullptr)
            return ksys_statusBadArgument;
        next = keepRecord(hooksRecords, *hooks);
        if (next == nullptr)
            return ksys_statusOutOfMemory;
    }
    currentHooks.store(next, std::memory_order_release);
    return 0;
}
