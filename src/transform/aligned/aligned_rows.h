#ifndef KIP_TRANSFORM_ALIGNED_ALIGNED_ROWS_H
#define KIP_TRANSFORM_ALIGNED_ALIGNED_ROWS_H

// The portable kernels of aligned maps, which define what is moved where.

#include <algorithm>
#include <cstdint>

namespace kip {

// Rows of pixels, without what else a window tells.
template <typename Pixel>
struct Rows {
    Pixel *first;
    int64_t pitch;
    int64_t width, height;

    Pixel *row(int64_t r) const { return first + r * pitch; }
};

// output(r, c) := input(c, r); as many rows as the other has columns. Walks blocks: both the rows that are written and
// the columns that are read then stay in the first-level cache.
template <typename Pixel>
void transposePortable(const Rows<const Pixel> &input, const Rows<Pixel> &output)
{
    constexpr int64_t block = 32;
    for (int64_t r0 = 0; r0 < output.height; r0 += block) {
        const int64_t rEnd = std::min(r0 + block, output.height);
        for (int64_t c0 = 0; c0 < output.width; c0 += block) {
            const int64_t cEnd = std::min(c0 + block, output.width);
            for (int64_t r = r0; r < rEnd; ++r)
                for (int64_t c = c0; c < cEnd; ++c)
                    output.row(r)[c] = input.row(c)[r];
        }
    }
}

// output(r, width - 1 - c) := input(r, c)
template <typename Pixel>
void mirrorPortable(const Rows<const Pixel> &input, const Rows<Pixel> &output)
{
    for (int64_t r = 0; r < output.height; ++r)
        std::reverse_copy(input.row(r), input.row(r) + output.width, output.row(r));
}

} // namespace kip

#endif
