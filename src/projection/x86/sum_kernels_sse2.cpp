// Sixteen columns at a time; rows by sums of absolute differences from nothing.

#include "projection/sum_kernels.h"

#if defined(KIP_HAS_X86_VARIANTS)

#include <emmintrin.h>

namespace kip {

namespace {

constexpr int32_t kLanes = 16;

__m128i load(const void *at)
{
    return _mm_loadu_si128(static_cast<const __m128i *>(at));
}

void store(void *at, __m128i value)
{
    _mm_storeu_si128(static_cast<__m128i *>(at), value);
}

void addTo(unsigned char *sums, __m128i values)
{
    store(sums, _mm_add_epi32(load(sums), values));
}

// The sum of the last few pixels of a row, at most 15.
uint32_t sumTail(const uint8_t *pixels, int32_t count)
{
    uint32_t sum = 0;
    for (int32_t x = 0; x < count; ++x)
        sum += pixels[x];
    return sum;
}

} // namespace

void addRowsToPartialsSse2(const PixelRows8 &rows, uint16_t *partials)
{
    const __m128i zero = _mm_setzero_si128();
    int32_t x = 0;
    for (; x + kLanes <= rows.width; x += kLanes) {
        __m128i low = load(partials + x);
        __m128i high = load(partials + x + kLanes / 2);
        for (int32_t y = 0; y < rows.height; ++y) {
            const __m128i pixels = load(rows.row(y) + x);
            low = _mm_add_epi16(low, _mm_unpacklo_epi8(pixels, zero));
            high = _mm_add_epi16(high, _mm_unpackhi_epi8(pixels, zero));
        }
        store(partials + x, low);
        store(partials + x + kLanes / 2, high);
    }
    addRowsToPartialsPortable({rows.first + x, rows.pitch, rows.width - x, rows.height}, partials + x);
}

void widenPartialsSse2(uint16_t *partials, int32_t width, SumRow sums)
{
    const __m128i zero = _mm_setzero_si128();
    int32_t x = 0;
    for (; x + kLanes / 2 <= width; x += kLanes / 2) {
        const __m128i words = load(partials + x);
        addTo(sums.at(x), _mm_unpacklo_epi16(words, zero));
        addTo(sums.at(x + kLanes / 4), _mm_unpackhi_epi16(words, zero));
        store(partials + x, zero);
    }
    widenPartialsPortable(partials + x, width - x, SumRow(sums.at(x)));
}

void sumRowsSse2(const PixelRows8 &rows, SumRow sums, int32_t step)
{
    const __m128i zero = _mm_setzero_si128();
    for (int32_t y = 0; y < rows.height; ++y) {
        const uint8_t *const row = rows.row(y);
        __m128i sum = zero; // 64-bit lanes
        int32_t x = 0;
        for (; x + kLanes <= rows.width; x += kLanes)
            sum = _mm_add_epi64(sum, _mm_sad_epu8(load(row + x), zero));
        sum = _mm_add_epi64(sum, _mm_unpackhi_epi64(sum, sum));
        const auto whole = static_cast<uint32_t>(_mm_cvtsi128_si32(sum));
        sums.set(int64_t{y} * step, whole + sumTail(row + x, rows.width - x));
    }
}

} // namespace kip

#endif
