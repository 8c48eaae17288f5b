#ifndef KIP_PROJECTION_X86_SUM_KERNELS_VECTORS_H
#define KIP_PROJECTION_X86_SUM_KERNELS_VECTORS_H

// The sum kernels by vectors of any width: the one definition of all variants. A variant's file includes it within its
// target region, after every other header, and gives it a Vector of its own from an unnamed namespace: no code for one
// instruction set is then shared with another's.
//
// A Vector is kBytes long: quarters of 16 bytes, however many there are. It has
//   load, store, zero                     at any address
//   plusWords, minusWords                 of 16 bits
//   upperBytes, raisedBytes               its words shifted by 8 bits, down and up
//   interleavedLower, interleavedUpper    its words and another's in turn, of each quarter's lower or upper half
//   quarter, addEightWords                a quarter, and the words of one added to as many sums
//   sumsOfBytes, plusSums                 sums of eight bytes each in 64 bits
//   foldedSums                            these added up to two
//   Tail                                  loads the pixels of a row that come after its last whole vector, and zeros

#include <cstdint>

#include "projection/sum_kernels.h"

namespace kip {

// Pixels are not unpacked: words of two pixels and their upper halves are added up, from which the sums of the lower
// halves follow, as the sums of either are below 2^16. That takes three instructions instead of four.
// A known number of rows, so that their loop is unrolled: 1024 x 1024 by AVX2 take 17 instead of 35 microseconds.
template <typename Vector, int32_t kRows>
void addWholeVectors(const PixelRows8 &rows, uint16_t *partials)
{
    constexpr int32_t lanes = Vector::kBytes;
    for (int32_t x = 0; x + lanes <= rows.width; x += lanes) {
        Vector both = Vector::load(partials + x);
        Vector odd = Vector::load(partials + x + lanes / 2);
        const uint8_t *at = rows.first + x;
        for (int32_t y = 0; y < kRows; ++y) {
            const Vector pixels = Vector::load(at);
            both = both.plusWords(pixels);
            odd = odd.plusWords(pixels.upperBytes());
            if (y + 1 < kRows)
                at += rows.pitch;
        }
        both.store(partials + x);
        odd.store(partials + x + lanes / 2);
    }
}

// The columns after the last whole vector are left to a narrower kernel.
template <typename Vector>
void addRowsByVectors(const PixelRows8 &rows, uint16_t *partials, AddRowsKernel *narrower)
{
    if (rows.height == kRowsAtATime)
        addWholeVectors<Vector, kRowsAtATime>(rows, partials);
    else
        for (int32_t y = 0; y < rows.height; ++y)
            addWholeVectors<Vector, 1>({rows.row(y), rows.pitch, rows.width, 1}, partials);
    const int32_t x = rows.width - rows.width % Vector::kBytes;
    if (x < rows.width)
        narrower({rows.first + x, rows.pitch, rows.width - x, rows.height}, partials + x);
}

template <typename Vector, int kQuarter = 0>
void addQuarters(unsigned char *sums, Vector low, Vector high)
{
    constexpr int64_t eightSums = 8 * sizeof(uint32_t);
    Vector::addEightWords(sums, low.template quarter<kQuarter>());
    Vector::addEightWords(sums + eightSums, high.template quarter<kQuarter>());
    if constexpr (16 * (kQuarter + 1) < Vector::kBytes)
        addQuarters<Vector, kQuarter + 1>(sums + 2 * eightSums, low, high);
}

template <typename Vector>
void widenByVectors(uint16_t *partials, int32_t width, SumRow sums, WidenKernel *narrower)
{
    constexpr int32_t lanes = Vector::kBytes;
    int32_t x = 0;
    for (; x + lanes <= width; x += lanes) {
        const Vector both = Vector::load(partials + x);
        const Vector odd = Vector::load(partials + x + lanes / 2);
        const Vector even = both.minusWords(odd.raisedBytes());
        addQuarters(sums.at(x), even.interleavedLower(odd), even.interleavedUpper(odd));
        Vector::zero().store(partials + x);
        Vector::zero().store(partials + x + lanes / 2);
    }
    if (x < width)
        narrower(partials + x, width - x, SumRow(sums.at(x)));
}

// The low 32 bits of four pairs of 64-bit sums, each pair added up.
inline __m128i totalsOf(__m128i a, __m128i b, __m128i c, __m128i d)
{
    const __m128i ab = _mm_add_epi32(_mm_unpacklo_epi32(a, b), _mm_unpackhi_epi32(a, b));
    const __m128i cd = _mm_add_epi32(_mm_unpacklo_epi32(c, d), _mm_unpackhi_epi32(c, d));
    return _mm_unpacklo_epi64(ab, cd);
}

// Sums four rows at once: in short ones most of the work is to add up their vectors, which is done together.
template <typename Vector>
__m128i sumFourRows(const uint8_t *row, int64_t pitch, int32_t width, const typename Vector::Tail &tail)
{
    constexpr int32_t lanes = Vector::kBytes;
    Vector a = Vector::zero();
    Vector b = a;
    Vector c = a;
    Vector d = a;
    const auto add = [&](const auto &load) {
        a = a.plusSums(load(row).sumsOfBytes());
        b = b.plusSums(load(row + pitch).sumsOfBytes());
        c = c.plusSums(load(row + 2 * pitch).sumsOfBytes());
        d = d.plusSums(load(row + 3 * pitch).sumsOfBytes());
    };
    for (int32_t x = 0; x + lanes <= width; x += lanes)
        add([x](const uint8_t *at) { return Vector::load(at + x); });
    if (width % lanes != 0)
        add([&tail](const uint8_t *at) { return tail.load(at); });
    return totalsOf(a.foldedSums(), b.foldedSums(), c.foldedSums(), d.foldedSums());
}

template <typename Vector>
uint32_t sumOneRow(const uint8_t *row, int32_t width, const typename Vector::Tail &tail)
{
    constexpr int32_t lanes = Vector::kBytes;
    Vector sum = tail.load(row).sumsOfBytes();
    Vector other = Vector::zero(); // two chains of additions
    int32_t x = 0;
    for (; x + 2 * lanes <= width; x += 2 * lanes) {
        sum = sum.plusSums(Vector::load(row + x).sumsOfBytes());
        other = other.plusSums(Vector::load(row + x + lanes).sumsOfBytes());
    }
    if (x + lanes <= width)
        sum = sum.plusSums(Vector::load(row + x).sumsOfBytes());
    const __m128i folded = sum.plusSums(other).foldedSums();
    return static_cast<uint32_t>(_mm_cvtsi128_si32(totalsOf(folded, folded, folded, folded)));
}

template <typename Vector>
void sumRowsByVectors(const PixelRows8 &rows, SumRow sums, int32_t step)
{
    constexpr int32_t shortRow = 512;
    const typename Vector::Tail tail(rows.width);
    int64_t y = 0;
    for (; rows.width <= shortRow && y + 4 <= rows.height; y += 4) {
        alignas(16) uint32_t totals[4];
        _mm_store_si128(reinterpret_cast<__m128i *>(totals),
                        sumFourRows<Vector>(rows.row(y), rows.pitch, rows.width, tail));
        for (int n = 0; n < 4; ++n)
            sums.set((y + n) * step, totals[n]);
    }
    for (; y < rows.height; ++y)
        sums.set(y * step, sumOneRow<Vector>(rows.row(y), rows.width, tail));
}

} // namespace kip

#endif
