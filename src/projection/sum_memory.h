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

// Puts sums that were made from left to right the other way round.
inline void reverseSums(SumRow sums, int32_t count)
{
    for (int32_t i = 0; i < count / 2; ++i) {
        const uint32_t sum = sums.get(i);
        sums.set(i, sums.get(count - 1 - i));
        sums.set(count - 1 - i, sum);
    }
}

// Pixels in rows of any alignment.
template <typename Pixel>
class SumPixels {
public:
    SumPixels(const void *first, int32_t pitch)
        : bytes(static_cast<const unsigned char *>(first)), pitchBytes(int64_t{pitch} * int64_t{sizeof(Pixel)})
    {}

    const unsigned char *row(int64_t y) const { return bytes + y * pitchBytes; }

    static uint32_t get(const unsigned char *row, int64_t x)
    {
        Pixel pixel;
        std::memcpy(&pixel, row + x * static_cast<int64_t>(sizeof pixel), sizeof pixel);
        return pixel;
    }

private:
    const unsigned char *bytes;
    int64_t pitchBytes;
};

} // namespace kip

#endif
