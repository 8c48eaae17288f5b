#ifndef KIP_TESTS_SUPPORT_GUARDED_MEMORY_H
#define KIP_TESTS_SUPPORT_GUARDED_MEMORY_H

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

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
    // The address that byte 0 of the reservation stands for; not necessarily memory.
    uint8_t *origin() const { return mapping + pageSize(); }

    // Makes more of the reservation memory, and the pages that it shares with other bytes.
    void alsoUse(size_t offset, size_t bytes) const
    {
        const size_t first = offset / pageSize() * pageSize();
        if (!makeUsable(origin() + first, offset - first + bytes))
            std::abort();
    }

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

inline bool isAll(const uint8_t *from, const uint8_t *to, uint8_t value)
{
    return to <= from || (*from == value && std::memcmp(from, from + 1, static_cast<size_t>(to - from - 1)) == 0);
}

} // namespace kip::test

#endif
