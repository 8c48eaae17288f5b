#ifndef KIP_TESTS_SUPPORT_GUARDED_MEMORY_H
#define KIP_TESTS_SUPPORT_GUARDED_MEMORY_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#if defined(_WIN32)
#include "support/windows.h"
#else
#include <sys/mman.h>
#include <unistd.h>
#endif

namespace kip::test {

// At which end of its memory something touches an unreadable page.
enum class Guard { before, behind };

inline constexpr Guard kGuards[] = {Guard::before, Guard::behind};

// Bytes between unreadable pages: an access past either end ends the program. Kernels read and write with
// machine code of their own, which no sanitizer watches, so the processor has to.
class GuardedMemory {
public:
    explicit GuardedMemory(size_t bytes) : GuardedMemory(bytes, 0, bytes) {}

    // Addresses for reservedBytes, of which only the pages that hold usedBytes from usedOffset on are memory.
    GuardedMemory(size_t reservedBytes, size_t usedOffset, size_t usedBytes)
    {
        const size_t page = pageSize();
        const size_t first = usedOffset / page * page;
        usable = (usedOffset + usedBytes + page - 1) / page * page - first;
        reserved = (reservedBytes + page - 1) / page * page + 2 * page;
        mapping = reserve(reserved);
        if (mapping == nullptr || !makeUsable(mapping + page + first, usable))
            std::abort();
        start = mapping + page + first;
    }
    ~GuardedMemory() { release(mapping, reserved); }
    GuardedMemory(const GuardedMemory &) = delete;
    GuardedMemory &operator=(const GuardedMemory &) = delete;

    uint8_t *begin() const { return start; }
    uint8_t *end() const { return start + usable; }
    size_t size() const { return usable; }
    // The address that byte 0 of the reservation stands for; not necessarily memory.
    uint8_t *origin() const { return mapping + pageSize(); }

    // So many bytes that begin right behind an unreadable page or end right before one.
    uint8_t *place(size_t bytes, Guard guard) const
    {
        if (bytes > usable)
            std::abort();
        return guard == Guard::before ? begin() : end() - bytes;
    }

private:
#if defined(_WIN32)
    static size_t pageSize()
    {
        SYSTEM_INFO info;
        GetSystemInfo(&info);
        return info.dwPageSize;
    }
    static uint8_t *reserve(size_t bytes)
    {
        return static_cast<uint8_t *>(VirtualAlloc(nullptr, bytes, MEM_RESERVE, PAGE_NOACCESS));
    }
    static bool makeUsable(uint8_t *at, size_t bytes)
    {
        return VirtualAlloc(at, bytes, MEM_COMMIT, PAGE_READWRITE) != nullptr;
    }
    static void release(uint8_t *at, size_t)
    {
        VirtualFree(at, 0, MEM_RELEASE);
    }
#else
    static size_t pageSize()
    {
        return static_cast<size_t>(sysconf(_SC_PAGESIZE));
    }
    static uint8_t *reserve(size_t bytes)
    {
        void *const at = mmap(nullptr, bytes, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        return at == MAP_FAILED ? nullptr : static_cast<uint8_t *>(at);
    }
    static bool makeUsable(uint8_t *at, size_t bytes)
    {
        return mprotect(at, bytes, PROT_READ | PROT_WRITE) == 0;
    }
    static void release(uint8_t *at, size_t bytes)
    {
        munmap(at, bytes);
    }
#endif

    uint8_t *mapping = nullptr; // an unreadable page first
    uint8_t *start = nullptr;
    size_t reserved = 0;
    size_t usable = 0;
};

// Rows of pixels in memory, bottom-up where the pitch is negative.
template <typename Pixel>
struct PixelRows {
    Pixel *first; // the first pixel of the first row
    int32_t width, height, pitch;

    Pixel *row(int64_t y) const { return first + y * pitch; }
    uint8_t *lowest() const { return reinterpret_cast<uint8_t *>(pitch < 0 ? row(height - 1) : first); }
    size_t bytes() const { return bytesOf(width, height, pitch); }

    static size_t bytesOf(int32_t width, int32_t height, int32_t pitch)
    {
        return (static_cast<size_t>(std::abs(int64_t{pitch})) * static_cast<size_t>(height - 1) +
                static_cast<size_t>(width)) *
               sizeof(Pixel);
    }
};

// misalignment: bytes.
template <typename Pixel>
PixelRows<Pixel> placeRows(const GuardedMemory &memory, Guard guard, int32_t width, int32_t height, int32_t pitch,
                           int32_t misalignment = 0)
{
    const auto shift = static_cast<size_t>(misalignment);
    const size_t bytes = PixelRows<Pixel>::bytesOf(width, height, pitch) + shift;
    auto *const lowest = reinterpret_cast<Pixel *>(memory.place(bytes, guard) + (guard == Guard::before ? shift : 0));
    return {pitch < 0 ? lowest - int64_t{pitch} * (height - 1) : lowest, width, height, pitch};
}

inline bool isAll(const uint8_t *from, const uint8_t *to, uint8_t value)
{
    return to <= from || (*from == value && std::memcmp(from, from + 1, static_cast<size_t>(to - from - 1)) == 0);
}

// Canaries: what lies round the rows of a destination and in the gaps between them, up to kCanaryReach bytes
// away, is filled before a call and must be as it was afterwards.
inline constexpr uint8_t kCanary = 0xC3;
inline constexpr ptrdiff_t kCanaryReach = 256;

template <typename Pixel>
void putCanaries(const GuardedMemory &memory, const PixelRows<Pixel> &rows)
{
    uint8_t *const from = rows.lowest() - std::min<ptrdiff_t>(kCanaryReach, rows.lowest() - memory.begin());
    uint8_t *const end = rows.lowest() + rows.bytes();
    uint8_t *const to = end + std::min<ptrdiff_t>(kCanaryReach, memory.end() - end);
    std::memset(from, kCanary, static_cast<size_t>(to - from));
}

// Returns that a canary has died, or nothing.
template <typename Pixel>
std::string findDeadCanary(const GuardedMemory &memory, const PixelRows<Pixel> &rows)
{
    const uint8_t *const lowest = rows.lowest();
    const uint8_t *const end = lowest + rows.bytes();
    bool isAlive = isAll(lowest - std::min<ptrdiff_t>(kCanaryReach, lowest - memory.begin()), lowest, kCanary) &&
                   isAll(end, end + std::min<ptrdiff_t>(kCanaryReach, memory.end() - end), kCanary);
    const size_t rowBytes = static_cast<size_t>(rows.width) * sizeof(Pixel);
    const size_t pitchBytes = static_cast<size_t>(std::abs(int64_t{rows.pitch})) * sizeof(Pixel);
    for (size_t r = 0; isAlive && r + 1 < static_cast<size_t>(rows.height); ++r)
        isAlive = isAll(lowest + r * pitchBytes + rowBytes, lowest + (r + 1) * pitchBytes, kCanary);
    return isAlive ? "" : "stray write round an image; ";
}

} // namespace kip::test

#endif
