#ifndef KIP_PROJECTION_SUM_MEMORY_H
#define KIP_PROJECTION_SUM_MEMORY_H

#include <cstdint>
#include <cstring>

namespace kip {

// Callers place their pixels and sums at any address, where a loop over uint32_t could end in an aligned store.

// Sums in memory of any alignment.
class SumRow {
public:
    explicit SumRow(void *first) : bytes(static_cast<unsigned char *>(first)) {}

    uint32_t get(int64_t i) const
    {
        uint32_t sum;
        std::memcpy(&sum, at(i), sizeof sum);
        return sum;
    }
    void set(int64_t i, uint32_t sum) const { std::memcpy(at(i), &sum, sizeof sum); }
    void add(int64_t i, uint32_t value) const { set(i, get(i) + value); }
    unsigned char *at(int64_t i) const { return bytes + i * static_cast<int64_t>(sizeof(uint32_t)); }

private:
    unsigned char *bytes;
};

// Pixels in rows of any alignment.
template <typename Pixel>
struct PixelRows {
    const uint8_t *first;
    int64_t pitch; // bytes
    int32_t width, height;

    const uint8_t *row(int64_t y) const { return first + y * pitch; }
    uint32_t get(int64_t x, int64_t y) const
    {
        Pixel pixel;
        std::memcpy(&pixel, row(y) + x * static_cast<int64_t>(sizeof pixel), sizeof pixel);
        return pixel;
    }
};

} // namespace kip

#endif
