#ifndef KIP_TRANSFORM_PLAN_X86_PLAN_SPARSE_ROWS_AVX2_H
#define KIP_TRANSFORM_PLAN_X86_PLAN_SPARSE_ROWS_AVX2_H

// Sparse rows, by AVX2, for all modes and both sizes of pixels. Included after every other header.
//
// Vectors find the addresses and do the arithmetic; plain loads fetch a few pixels that lie next to each other, as many
// as there are taps. Gathers would do that in one instruction, but a slow one on many processors, and they read more
// than the taps.
//
// Sixteen pixels at a time, in the order of an unpack: lanes 0 to 3 and 8 to 11, then 4 to 7 and 12 to 15. Packs then
// give words in their natural order.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "cache/tile_plan.h"
#include "transform/plan/plan_rows.h"
#include "transform/plan/x86/plan_rows_avx2.h"

KIP_TARGET_BEGIN(KIP_PLAN_TARGET)

namespace kip::avx2 {

inline constexpr int32_t kSparseWidth = kMaxTileSize;

template <typename Pixel>
inline constexpr int32_t kPixelBits = 8 * sizeof(Pixel);

// Thirty-two bits of each of sixteen pixels.
struct SparseLanes {
    __m256i first, second;
};

inline SparseLanes operator+(SparseLanes a, __m256i b)
{
    return {_mm256_add_epi32(a.first, b), _mm256_add_epi32(a.second, b)};
}

inline __m256i allLanes(uint32_t value)
{
    return _mm256_set1_epi32(static_cast<int32_t>(value));
}

inline Words fractionWords(const SparseLanes &positions)
{
    const __m256i mask = _mm256_set1_epi32(0xFFFF);
    return {_mm256_packus_epi32(_mm256_and_si256(positions.first, mask), _mm256_and_si256(positions.second, mask))};
}

// ---- Pixels that lie next to each other ---------------------------------------------------------------------------

template <typename Bits, typename Pixel>
inline Bits bitsAt(const Pixel *pixels)
{
    Bits bits;
    std::memcpy(&bits, pixels, sizeof bits);
    return bits;
}

// As many neighbouring pixels as there are taps, at sixteen places: two, four or eight bytes at each.
struct Runs2 {
    __m256i v;

    static Runs2 load(const uint8_t *base, const int32_t *at)
    {
        const auto run = [=](int32_t n) { return bitsAt<int16_t>(base + at[n]); };
        return {_mm256_setr_epi16(run(0), run(1), run(2), run(3), run(8), run(9), run(10), run(11), run(4), run(5),
                                  run(6), run(7), run(12), run(13), run(14), run(15))};
    }
    // where for the lanes of a mask.
    static Runs2 select(const SparseLanes &mask, const Runs2 &otherwise, const Runs2 &where)
    {
        return {_mm256_blendv_epi8(otherwise.v, where.v, _mm256_packs_epi32(mask.first, mask.second))};
    }
    // The pixel that lies so many bits on, of each run.
    template <typename Pixel>
    Words words(__m128i bits) const
    {
        return Words{_mm256_srl_epi16(v, bits)} & Words::all(0xFF);
    }
};

struct Runs4 {
    __m256i v[2];

    template <typename Pixel>
    static Runs4 load(const Pixel *base, const int32_t *at)
    {
        const auto run = [=](int32_t n) { return bitsAt<int32_t>(base + at[n]); };
        return {{_mm256_setr_epi32(run(0), run(1), run(2), run(3), run(4), run(5), run(6), run(7)),
                 _mm256_setr_epi32(run(8), run(9), run(10), run(11), run(12), run(13), run(14), run(15))}};
    }
    static Runs4 select(const SparseLanes &mask, const Runs4 &otherwise, const Runs4 &where)
    {
        return {{_mm256_blendv_epi8(otherwise.v[0], where.v[0], mask.first),
                 _mm256_blendv_epi8(otherwise.v[1], where.v[1], mask.second)}};
    }
    template <typename Pixel>
    Words words(__m128i bits) const
    {
        const __m256i pixel = _mm256_set1_epi32(static_cast<Pixel>(-1));
        return {_mm256_packus_epi32(_mm256_and_si256(_mm256_srl_epi32(v[0], bits), pixel),
                                    _mm256_and_si256(_mm256_srl_epi32(v[1], bits), pixel))};
    }
};

struct Runs8 {
    __m256i v[4];

    static Runs8 load(const uint16_t *base, const int32_t *at)
    {
        const auto runs = [=](int32_t n) {
            return _mm256_setr_epi64x(bitsAt<int64_t>(base + at[n]), bitsAt<int64_t>(base + at[n + 1]),
                                      bitsAt<int64_t>(base + at[n + 4]), bitsAt<int64_t>(base + at[n + 5]));
        };
        return {{runs(0), runs(2), runs(8), runs(10)}};
    }
    static Runs8 select(const SparseLanes &mask, const Runs8 &otherwise, const Runs8 &where)
    {
        return {{_mm256_blendv_epi8(otherwise.v[0], where.v[0], _mm256_unpacklo_epi32(mask.first, mask.first)),
                 _mm256_blendv_epi8(otherwise.v[1], where.v[1], _mm256_unpackhi_epi32(mask.first, mask.first)),
                 _mm256_blendv_epi8(otherwise.v[2], where.v[2], _mm256_unpacklo_epi32(mask.second, mask.second)),
                 _mm256_blendv_epi8(otherwise.v[3], where.v[3], _mm256_unpackhi_epi32(mask.second, mask.second))}};
    }
    template <typename Pixel>
    Words words(__m128i bits) const
    {
        const auto part = [&](int i) {
            return _mm256_and_si256(_mm256_srl_epi64(v[i], bits), _mm256_set1_epi64x(0xFFFF));
        };
        return {_mm256_packus_epi32(_mm256_packus_epi32(part(0), part(1)), _mm256_packus_epi32(part(2), part(3)))};
    }
};

// ---- The places of a row's samples --------------------------------------------------------------------------------

// Of the samples that a row's pixels read, sixteen pixels at a time. They are found before any pixel is loaded:
// compilers take the offsets of a single vector out of its register, where plain loads are faster.
template <int kTaps>
struct SparsePlaces {
    alignas(32) int32_t offsets[kTaps][kSparseWidth]; // pixels from the base of the samples to that of a pixel
    SparseLanes positions[kTaps][kSparseWidth / 16];
    Words fractions[kSparseWidth / 16]; // of the pixels
};

// Places n of each pixel lie at the position of its sample `first` and n advances on.
template <typename Rule>
inline void findPlaces(const SampleRun<typename Rule::Pixel> &samples, const OutputRun<typename Rule::Entry> &outputs,
                       uint32_t first, uint32_t advance, SparsePlaces<Rule::kTaps> *places)
{
    // Integer parts fit words, and so do the steps.
    const __m256i steps =
        allLanes((static_cast<uint32_t>(samples.minorStep) << 16) | static_cast<uint16_t>(samples.majorStep));
    const __m256i numbers = _mm256_setr_epi32(0, 1, 2, 3, 8, 9, 10, 11);
    const __m256i shear = allLanes(samples.shear);
    const __m256i start =
        _mm256_add_epi32(allLanes(outputs.position), _mm256_mullo_epi32(numbers, allLanes(outputs.step)));
    SparseLanes along = {start, _mm256_add_epi32(start, allLanes(4 * outputs.step))};
    for (int32_t g = 0; g < outputs.count / 16; ++g) {
        const SparseLanes index = {_mm256_srli_epi32(along.first, 16), _mm256_srli_epi32(along.second, 16)};
        const SparseLanes sheared = {_mm256_mullo_epi32(index.first, shear), _mm256_mullo_epi32(index.second, shear)};
        SparseLanes position = sheared + allLanes(samples.position + first * samples.shear);
        places->fractions[g] = fractionWords(along);
        for (int n = 0; n < Rule::kTaps; ++n) {
            places->positions[n][g] = position;
            auto *const at = reinterpret_cast<__m256i *>(places->offsets[n] + ptrdiff_t{16} * g);
            _mm256_store_si256(at, _mm256_madd_epi16(_mm256_blend_epi16(index.first, position.first, 0xAA), steps));
            _mm256_store_si256(at + 1,
                               _mm256_madd_epi16(_mm256_blend_epi16(index.second, position.second, 0xAA), steps));
            position = position + allLanes(advance);
        }
        along = along + allLanes(16 * outputs.step);
    }
}

// ---- The samples of sixteen pixels --------------------------------------------------------------------------------

template <typename Kernel>
inline typename Kernel::Entries sampleRuns(const typename Kernel::Runs *runs, __m128i bits,
                                           const SparseLanes &positions)
{
    using Rule = typename Kernel::Rule;
    Words taps[Rule::kTaps];
    for (int t = 0; t < Rule::kTaps; ++t)
        taps[t] = runs[t].template words<typename Rule::Pixel>(bits);
    return Kernel::samples(fractionWords(positions), taps);
}

// The taps of a sample lie next to each other: a run for each sample.
template <typename Kernel>
inline void sampleDownColumns(const SampleRun<typename Kernel::Rule::Pixel> &samples,
                              const SparsePlaces<Kernel::Rule::kTaps> &places, int32_t g,
                              typename Kernel::Entries *entries)
{
    using Rule = typename Kernel::Rule;
    using Pixel = typename Rule::Pixel;
    for (int k = 0; k < Rule::kTaps; ++k) {
        const auto run = Kernel::Runs::load(samples.base + k * samples.majorStep + Rule::kFirstTap,
                                            places.offsets[k] + ptrdiff_t{16} * g);
        Words taps[Rule::kTaps];
        for (int t = 0; t < Rule::kTaps; ++t)
            taps[t] = run.template words<Pixel>(_mm_cvtsi32_si128(t * kPixelBits<Pixel>));
        entries[k] = Kernel::samples(fractionWords(places.positions[k][g]), taps);
    }
}

// Lanes whose integer parts are the same.
inline SparseLanes equalIntegers(const SparseLanes &a, const SparseLanes &b)
{
    const __m256i zero = _mm256_setzero_si256();
    return {_mm256_cmpeq_epi32(_mm256_srli_epi32(_mm256_xor_si256(a.first, b.first), 16), zero),
            _mm256_cmpeq_epi32(_mm256_srli_epi32(_mm256_xor_si256(a.second, b.second), 16), zero)};
}

// The samples of a pixel lie next to each other: a run for each line that they touch. Places come in the order in which
// their lines grow: the taps of a sample are those of the one before, or each one line further.
template <typename Kernel>
inline void sampleAlongRows(const SampleRun<typename Kernel::Rule::Pixel> &samples,
                            const SparsePlaces<Kernel::Rule::kTaps> &places, int32_t g,
                            typename Kernel::Entries *entries)
{
    using Rule = typename Kernel::Rule;
    using Pixel = typename Rule::Pixel;
    using Runs = typename Kernel::Runs;
    constexpr int kLast = Rule::kTaps - 1;
    const bool isFalling = static_cast<int32_t>(samples.shear) < 0;
    const bool isBackward = samples.majorStep < 0;
    // Runs count upwards in memory.
    const Pixel *const base = samples.base + Rule::kFirstTap * samples.minorStep - (isBackward ? kLast : 0);
    const int32_t step = isFalling == isBackward ? kPixelBits<Pixel> : -kPixelBits<Pixel>;
    const int32_t bits = step > 0 ? 0 : kLast * kPixelBits<Pixel>;

    Runs lines[Rule::kTaps];
    for (int t = 0; t <= kLast; ++t)
        lines[t] = Runs::load(base + t * samples.minorStep, places.offsets[0] + ptrdiff_t{16} * g);
    entries[0] = sampleRuns<Kernel>(lines, _mm_cvtsi32_si128(bits), places.positions[0][g]);
    for (int n = 1; n <= kLast; ++n) {
        const SparseLanes stays = equalIntegers(places.positions[n - 1][g], places.positions[n][g]);
        for (int t = 0; t < kLast; ++t)
            lines[t] = Runs::select(stays, lines[t + 1], lines[t]);
        lines[kLast] = Runs::load(base + kLast * samples.minorStep, places.offsets[n] + ptrdiff_t{16} * g);
        entries[n] = sampleRuns<Kernel>(lines, _mm_cvtsi32_si128(bits + n * step), places.positions[n][g]);
    }
    if (isFalling)
        std::reverse(entries, entries + Rule::kTaps);
}

// ---- The row ------------------------------------------------------------------------------------------------------

template <typename Kernel, bool kAdd>
inline void sparseRow(const SampleRun<typename Kernel::Rule::Pixel> &samples,
                      const OutputRun<typename Kernel::Rule::Entry> &outputs)
{
    using Rule = typename Kernel::Rule;
    using Pixel = typename Rule::Pixel;
    constexpr int32_t elementSize = kAdd ? sizeof(uint32_t) : sizeof(Pixel);
    const bool isAlongRows = samples.minorStep != 1;
    const bool isFalling = isAlongRows && static_cast<int32_t>(samples.shear) < 0;
    SparsePlaces<Rule::kTaps> places;
    findPlaces<Rule>(samples, outputs, isFalling ? Rule::kTaps - 1 : 0, isFalling ? 0 - samples.shear : samples.shear,
                     &places);
    const int32_t groups = outputs.count / Words::kCount;
    for (int32_t g = 0; g < groups; ++g) {
        typename Kernel::Entries entries[Rule::kTaps];
        if (isAlongRows)
            sampleAlongRows<Kernel>(samples, places, g, entries);
        else
            sampleDownColumns<Kernel>(samples, places, g, entries);
        emitPixels<Pixel, kAdd>(outputs.dst, 16 * g, Kernel::pixels(places.fractions[g], entries));
    }
    const int32_t done = groups * Words::kCount;
    sparseRowPortable<Rule, kAdd>(samples, {outputs.line, outputs.position + static_cast<uint32_t>(done) * outputs.step,
                                            outputs.step, outputs.count - done, outputs.weights,
                                            static_cast<uint8_t *>(outputs.dst) + ptrdiff_t{done} * elementSize});
}

} // namespace kip::avx2

KIP_TARGET_END

#endif
