#include <kippel/kippel.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>

namespace {

// The bytes of a window, rows in the order of their addresses.
struct ByteRows {
    uint64_t start;   // address of the lowest row
    int64_t rowBytes; // above 0
    int64_t pitch;    // bytes from one row to the next, above 0
    int64_t count;    // rows
    uint64_t end;     // address after the highest row
};

// Further than any memory reaches, yet far enough below 2^63 that no sum of this file overflows.
constexpr int64_t kGreatestBytes = int64_t{1} << 60;

template <typename Window>
bool isEmpty(const Window &window)
{
    return window.width < 1 || window.height < 1 || window.bytesPerPixel < 1 || !window.pixels;
}

// Bytes from the first pixel of a window's first row to that of its last one, with the sign of the pitch;
// at most 2^62 pixels, which kGreatestBytes cuts down before they are counted in bytes.
template <typename Window>
int64_t rowsReach(const Window &window)
{
    return (int64_t{window.height} - 1) * window.pitch;
}

// Whether some of the window's bytes have no address. Its numbers are wrong, and it may lie anywhere.
template <typename Window>
bool isImpossible(const Window &window)
{
    const int64_t reach = rowsReach(window);
    if (std::abs(reach) + window.width > kGreatestBytes / window.bytesPerPixel)
        return true;
    const auto start = static_cast<uint64_t>(reinterpret_cast<uintptr_t>(window.pixels));
    const auto reachBytes = static_cast<uint64_t>(std::abs(reach) * window.bytesPerPixel);
    return start > UINT64_MAX - kGreatestBytes || (reach < 0 && start < reachBytes);
}

template <typename Window>
ByteRows byteRows(const Window &window)
{
    const int64_t pixel = window.bytesPerPixel;
    const int64_t reach = rowsReach(window) * pixel;
    ByteRows rows{};
    rows.start = static_cast<uint64_t>(reinterpret_cast<uintptr_t>(window.pixels));
    if (reach < 0)
        rows.start -= static_cast<uint64_t>(-reach);
    rows.rowBytes = window.width * pixel;
    rows.end = rows.start + static_cast<uint64_t>(std::abs(reach) + rows.rowBytes);
    rows.pitch = std::abs(window.pitch * pixel);
    rows.count = window.height;
    if (rows.pitch <= rows.rowBytes) { // no gaps between the rows: one long row
        rows.rowBytes = static_cast<int64_t>(rows.end - rows.start);
        rows.pitch = rows.rowBytes;
        rows.count = 1;
    }
    return rows;
}

// The quotient rounded down; the divisor is above 0.
int64_t floorDivide(int64_t dividend, int64_t divisor)
{
    const int64_t quotient = dividend / divisor;
    return dividend % divisor < 0 ? quotient - 1 : quotient;
}

// Whether a whole n with first <= n <= last has least <= n * step <= greatest.
bool hasMultiple(int64_t step, int64_t first, int64_t last, int64_t least, int64_t greatest)
{
    const int64_t lowest = std::max(first, -floorDivide(-least, step));
    return lowest <= last && lowest <= floorDivide(greatest, step);
}

bool shareByte(const ByteRows &a, const ByteRows &b)
{
    // Row i of a and row j of b share a byte when i * a.pitch - j * b.pitch lies in [least, greatest].
    const auto distance = static_cast<int64_t>(b.start - a.start);
    const int64_t least = distance - a.rowBytes + 1;
    const int64_t greatest = distance + b.rowBytes - 1;
    if (a.pitch == b.pitch) // then only i - j counts, and it takes every value between its bounds
        return hasMultiple(a.pitch, 1 - b.count, a.count - 1, least, greatest);
    if (a.count > b.count) // at most one turn
        return shareByte(b, a);
    for (int64_t i = 0; i < a.count; ++i)
        if (hasMultiple(b.pitch, 0, b.count - 1, i * a.pitch - greatest, i * a.pitch - least))
            return true;
    return false;
}

} // namespace

int32_t kip_pelfunc_checkMemoryOverlap(const kimg_windowConst *read, const kimg_window *write)
{
    if (isEmpty(*read) || isEmpty(*write))
        return 0;
    if (isImpossible(*read) || isImpossible(*write))
        return kip_pelStatusOverlap;
    const ByteRows a = byteRows(*read);
    const ByteRows b = byteRows(*write);
    if (a.end <= b.start || b.end <= a.start)
        return 0;
    return shareByte(a, b) ? kip_pelStatusOverlap : 0;
}
