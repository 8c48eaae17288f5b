#ifndef KIP_TRANSFORM_PLAN_X86_PLAN_ROWS_AVX2_H
#define KIP_TRANSFORM_PLAN_X86_PLAN_ROWS_AVX2_H

// The two passes over a row, by AVX2, for all modes and both sizes of pixels. Included after every other header.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "transform/plan/plan_rows.h"
#include "transform/plan/x86/plan_words_avx2.h"

KIP_TARGET_BEGIN(KIP_PLAN_TARGET)

namespace kip::avx2 {

// What a mode and a size of pixels make of registers; below, Kernel is one of these:
//   Rule
//   Entries                       sixteen entries of the line in registers
//   Runs                          what plan_sparse_rows_avx2.h loads for a tap of each
//   samples(fractions, taps)      the first pass of sixteen samples
//   sample(fractions, taps, out)  the same, stored as entries of the line
//   pixels(fractions, entries)    the second pass of sixteen pixels from their entries, as words
//   output(run, first)            the same from the line, where isFineStep
//   coarseOutput(run, first)      the same for any step
// Each one is defined in a file of its own, such as plan_cubic16_avx2.cpp.
template <typename Rule>
struct RowKernel;

// ---- Positions ----------------------------------------------------------------------------------------------------

// Positions start + n * step for n = 0 to 8 * kVectors - 1, as 32-bit lanes.
template <int kVectors>
struct Positions {
    __m256i at[kVectors];
};

template <int kVectors>
inline Positions<kVectors> positionsFrom(uint32_t start, uint32_t step)
{
    const __m256i lanes = _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7);
    const __m256i eight = _mm256_set1_epi32(static_cast<int32_t>(step * 8));
    Positions<kVectors> p;
    p.at[0] = _mm256_add_epi32(_mm256_set1_epi32(static_cast<int32_t>(start)),
                               _mm256_mullo_epi32(lanes, _mm256_set1_epi32(static_cast<int32_t>(step))));
    for (int k = 1; k < kVectors; ++k)
        p.at[k] = _mm256_add_epi32(p.at[k - 1], eight);
    return p;
}

// Packs work within halves of a register; this puts their quarters into order.
inline __m256i inOrder(__m256i packed)
{
    return _mm256_permute4x64_epi64(packed, 0xD8);
}

// The fractions of sixteen positions as words.
inline Words fractionWords(__m256i first, __m256i second)
{
    const __m256i mask = _mm256_set1_epi32(0xFFFF);
    return {inOrder(_mm256_packus_epi32(_mm256_and_si256(first, mask), _mm256_and_si256(second, mask)))};
}

// The integer parts of sixteen positions as words.
inline __m256i integerWords(__m256i first, __m256i second)
{
    return inOrder(_mm256_packs_epi32(_mm256_srai_epi32(first, 16), _mm256_srai_epi32(second, 16)));
}

// The integer parts of 32 positions as bytes; they lie less than 128 from the one at which counting begins.
inline __m256i integerBytes(const Positions<4> &p, int32_t from)
{
    const __m256i origin = _mm256_set1_epi32(from);
    __m256i part[4];
    for (int k = 0; k < 4; ++k)
        part[k] = _mm256_sub_epi32(_mm256_srai_epi32(p.at[k], 16), origin);
    const __m256i bytes =
        _mm256_packs_epi16(_mm256_packs_epi32(part[0], part[1]), _mm256_packs_epi32(part[2], part[3]));
    return _mm256_permutevar8x32_epi32(bytes, _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7));
}

// ---- Samples ------------------------------------------------------------------------------------------------------

// A register of pixels, one for each of as many samples.
template <typename Pixel>
struct PixelLanes;

template <>
struct PixelLanes<uint8_t> {
    static constexpr int32_t kCount = 32;

    static __m256i all(int32_t value) { return _mm256_set1_epi8(static_cast<char>(value)); }
    static __m256i equal(__m256i a, __m256i b) { return _mm256_cmpeq_epi8(a, b); }
    // The lines of samples, counted from the least.
    static __m256i lines(const Positions<4> &p, int32_t least) { return integerBytes(p, least); }
    // Sixteen of them as words.
    static Words words(__m256i pixels, int32_t part)
    {
        return {_mm256_cvtepu8_epi16(part == 0 ? _mm256_castsi256_si128(pixels) : _mm256_extracti128_si256(pixels, 1))};
    }
};

template <>
struct PixelLanes<uint16_t> {
    static constexpr int32_t kCount = 16;

    static __m256i all(int32_t value) { return _mm256_set1_epi16(static_cast<int16_t>(value)); }
    static __m256i equal(__m256i a, __m256i b) { return _mm256_cmpeq_epi16(a, b); }
    static __m256i lines(const Positions<2> &p, int32_t least)
    {
        return _mm256_sub_epi16(integerWords(p.at[0], p.at[1]), all(least));
    }
    static Words words(__m256i pixels, int32_t) { return {pixels}; }
};

// A shear of at most one pixel a sample keeps the samples of a register within as many lines. A run shorter than a
// register would be read past its end.
template <typename Pixel>
inline bool isVectorRun(const SampleRun<Pixel> &run)
{
    return run.majorStep == 1 && run.shear + 65536 <= 131072 && run.count >= PixelLanes<Pixel>::kCount;
}

// Collects the taps of the samples from first on, a register of each. Neighbouring samples lie next to each other as
// long as they are on one line: each line that the samples touch is loaded once and spread to the taps that need it.
template <typename Rule, int kVectors>
inline void gatherTaps(const SampleRun<typename Rule::Pixel> &run, int32_t first, const Positions<kVectors> &p,
                       __m256i (&taps)[Rule::kTaps])
{
    using Pixels = PixelLanes<typename Rule::Pixel>;
    const int32_t firstLine = fixedInteger(run.position + static_cast<uint32_t>(first) * run.shear);
    const int32_t lastLine = fixedInteger(run.position + static_cast<uint32_t>(first + Pixels::kCount - 1) * run.shear);
    const int32_t least = std::min(firstLine, lastLine);
    const int32_t count = std::max(firstLine, lastLine) - least + Rule::kTaps;
    const __m256i lines = Pixels::lines(p, least);
    __m256i on[Rule::kTaps]; // the samples whose tap k lies on the current line
    for (int k = 0; k < Rule::kTaps; ++k)
        on[k] = taps[k] = _mm256_setzero_si256();
    const auto *row = run.base + first + (least + Rule::kFirstTap) * run.minorStep;
    for (int32_t i = 0; i < count; ++i, row += run.minorStep) {
        // Tap k of a sample lies k lines below its tap 0.
        for (int k = Rule::kTaps - 1; k > 0; --k)
            on[k] = on[k - 1];
        on[0] = Pixels::equal(lines, Pixels::all(i));
        const __m256i pixels = load(row);
        for (int k = 0; k < Rule::kTaps; ++k)
            taps[k] = _mm256_or_si256(taps[k], _mm256_and_si256(pixels, on[k]));
    }
}

// Runs registers of samples; the last one overlaps the one before, and computes the same entries again.
template <typename Kernel>
inline void sampleLine(const SampleRun<typename Kernel::Rule::Pixel> &run, typename Kernel::Rule::Entry *out)
{
    using Rule = typename Kernel::Rule;
    using Pixels = PixelLanes<typename Rule::Pixel>;
    if (!isVectorRun(run))
        return sampleLinePortable<Rule>(run, out);
    for (int32_t begin = 0; begin < run.count; begin += Pixels::kCount) {
        const int32_t first = std::min(begin, run.count - Pixels::kCount);
        const auto p =
            positionsFrom<Pixels::kCount / 8>(run.position + static_cast<uint32_t>(first) * run.shear, run.shear);
        __m256i taps[Rule::kTaps];
        gatherTaps<Rule>(run, first, p, taps);
        for (int32_t part = 0; part < Pixels::kCount / 16; ++part) {
            Words words[Rule::kTaps];
            for (int k = 0; k < Rule::kTaps; ++k)
                words[k] = Pixels::words(taps[k], part);
            Kernel::sample(fractionWords(p.at[2 * part], p.at[2 * part + 1]), words,
                           out + first + ptrdiff_t{16} * part);
        }
    }
}

// ---- Outputs ------------------------------------------------------------------------------------------------------

// At most two entries a pixel: eight pixels then lie within sixteen bytes, four within eight words.
inline bool isFineStep(uint32_t step)
{
    return step <= 2 * 65536;
}

// Sixteen bytes from each of two places, one in each half.
inline __m256i loadHalves(const void *low, const void *high)
{
    return _mm256_inserti128_si256(_mm256_castsi128_si256(_mm_loadu_si128(static_cast<const __m128i *>(low))),
                                   _mm_loadu_si128(static_cast<const __m128i *>(high)), 1);
}

// Where pairs of neighbouring words of a line stand for eight of sixteen outputs: 0 to 3 and 8 to 11 (part 0), or 4 to
// 7 and 12 to 15 (part 1), which is the order of unpacked weights. Each four lie in a window of eight words.
struct PairWindows {
    int32_t low, high;
    __m256i control;
};

inline PairWindows pairWindows(const Positions<2> &p, uint32_t start, uint32_t step, uint32_t part)
{
    const int32_t low = fixedInteger(start + 4 * part * step);
    const int32_t high = fixedInteger(start + (4 * part + 8) * step);
    const __m256i positions = part == 0 ? _mm256_permute2x128_si256(p.at[0], p.at[1], 0x20)
                                        : _mm256_permute2x128_si256(p.at[0], p.at[1], 0x31);
    const __m256i origins = _mm256_setr_m128i(_mm_set1_epi32(low), _mm_set1_epi32(high));
    const __m256i index = _mm256_sub_epi32(_mm256_srai_epi32(positions, 16), origins);
    return {low, high,
            _mm256_add_epi32(_mm256_mullo_epi32(index, _mm256_set1_epi32(0x02020202)), _mm256_set1_epi32(0x03020100))};
}

template <typename Word>
inline Words pairsAt(const Word *line, const PairWindows &windows)
{
    return {_mm256_shuffle_epi8(loadHalves(line + windows.low, line + windows.high), windows.control)};
}

// Two neighbouring words of a line from each of eight places.
template <typename Word>
inline Words pairsFrom(const Word *line, const int32_t *index)
{
    const auto pair = [=](int32_t n) {
        int32_t words;
        std::memcpy(&words, line + index[n], sizeof words);
        return words;
    };
    return {_mm256_setr_epi32(pair(0), pair(1), pair(2), pair(3), pair(8), pair(9), pair(10), pair(11))};
}

// Sixteen words that are bytes.
inline void storeBytes(uint8_t *at, Words words)
{
    const __m256i bytes = inOrder(_mm256_packus_epi16(words.v, words.v));
    _mm_storeu_si128(reinterpret_cast<__m128i *>(at), _mm256_castsi256_si128(bytes));
}

inline void storeWords(void *at, Words words)
{
    _mm256_storeu_si256(static_cast<__m256i *>(at), words.v);
}

// Adds sixteen unsigned words to as many sums.
inline void addWords(uint32_t *sums, Words words)
{
    auto *const at = reinterpret_cast<__m256i *>(sums);
    const __m256i low = _mm256_cvtepu16_epi32(_mm256_castsi256_si128(words.v));
    const __m256i high = _mm256_cvtepu16_epi32(_mm256_extracti128_si256(words.v, 1));
    _mm256_storeu_si256(at, _mm256_add_epi32(_mm256_loadu_si256(at), low));
    _mm256_storeu_si256(at + 1, _mm256_add_epi32(_mm256_loadu_si256(at + 1), high));
}

template <typename Pixel, bool kAdd>
inline void emitPixels(void *dst, int32_t first, Words words)
{
    if constexpr (kAdd)
        addWords(static_cast<uint32_t *>(dst) + first, words);
    else if constexpr (sizeof(Pixel) == 1)
        storeBytes(static_cast<uint8_t *>(dst) + first, words);
    else
        storeWords(static_cast<uint16_t *>(dst) + first, words);
}

// The integer parts of sixteen positions.
struct Indices {
    alignas(32) int32_t at[16];

    explicit Indices(const Positions<2> &p)
    {
        _mm256_store_si256(reinterpret_cast<__m256i *>(at), _mm256_srai_epi32(p.at[0], 16));
        _mm256_store_si256(reinterpret_cast<__m256i *>(at + 8), _mm256_srai_epi32(p.at[1], 16));
    }
};

// Pixels that lie further apart than a window of the line holds, whole registers of them. Returns how many. Not
// inlined: the other loop would lose registers to it.
template <typename Kernel, bool kAdd>
[[gnu::noinline]] int32_t outputCoarsely(const OutputRun<typename Kernel::Rule::Entry> &run)
{
    int32_t done = 0;
    for (; done + Words::kCount <= run.count; done += Words::kCount)
        emitPixels<typename Kernel::Rule::Pixel, kAdd>(run.dst, done, Kernel::coarseOutput(run, done));
    return done;
}

template <typename Kernel, bool kAdd>
inline void outputLine(const OutputRun<typename Kernel::Rule::Entry> &run)
{
    using Rule = typename Kernel::Rule;
    using Pixel = typename Rule::Pixel;
    constexpr int32_t elementSize = kAdd ? sizeof(uint32_t) : sizeof(Pixel);
    int32_t done = 0;
    if (isFineStep(run.step))
        for (; done + Words::kCount <= run.count; done += Words::kCount)
            emitPixels<Pixel, kAdd>(run.dst, done, Kernel::output(run, done));
    else
        done = outputCoarsely<Kernel, kAdd>(run);
    outputLinePortable<Rule, kAdd>({run.line, run.position + static_cast<uint32_t>(done) * run.step, run.step,
                                    run.count - done, run.weights,
                                    static_cast<uint8_t *>(run.dst) + ptrdiff_t{done} * elementSize});
}

} // namespace kip::avx2

KIP_TARGET_END

#endif
