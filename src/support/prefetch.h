#ifndef KIP_SUPPORT_PREFETCH_H
#define KIP_SUPPORT_PREFETCH_H

#include <cmath>
#include <cstddef>
#include <cstdint>

namespace kip {

inline constexpr int64_t kCacheLine = 64;

// Rows of memory, all of it inside one object.
struct MemoryBox {
    const uint8_t *first = nullptr;
    int64_t pitch = 0; // bytes from row to row
    int64_t rowBytes = 0;
    int64_t rows = 0;

    int64_t lines() const { return rows * (rowBytes / kCacheLine + 1); }
};

// Asks for the rows from begin to end - 1. Inlined for certain: GCC drops calls of a function that does nothing else.
[[gnu::always_inline]] inline void prefetchRows(const MemoryBox &box, int64_t begin, int64_t end)
{
    for (int64_t y = begin; y < end; ++y) {
        const uint8_t *const row = box.first + y * box.pitch;
        for (int64_t x = 0; x < box.rowBytes; x += kCacheLine)
            __builtin_prefetch(row + x);
        __builtin_prefetch(row + (box.rowBytes - 1));
    }
}

// What the tile after the current one reads and writes. It is asked for a little at a time, between the rows of the
// current one: a burst of requests would fill all of the processor's places for them and hold up what comes behind.
struct TileAhead {
    MemoryBox source, destination;

    // The part that falls to the current tile's rows from begin to end - 1.
    [[gnu::always_inline]] void prefetch(int32_t begin, int32_t end, int32_t rows) const
    {
        if (destination.rows == 0)
            return;
        prefetchRows(source, source.rows * begin / rows, source.rows * end / rows);
        prefetchRows(destination, destination.rows * begin / rows, destination.rows * end / rows);
    }
};

// Tells whether what a sampling reads and writes does not stay in the nearer caches, where asking for it only takes
// time. sourceArea: source pixels to a destination pixel.
inline bool leavesCaches(double sourceArea, int32_t destWidth, int32_t destHeight, size_t bytesPerPixel)
{
    constexpr double bytes = 8 * 1024.0 * 1024.0;
    return (1.0 + std::fabs(sourceArea)) * destWidth * destHeight * static_cast<double>(bytesPerPixel) >= bytes;
}

// A tile that reads more would be gone from the second-level cache again before its turn.
inline constexpr int64_t kMostLinesAhead = 2048;

} // namespace kip

#endif
