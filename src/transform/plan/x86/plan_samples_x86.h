#ifndef KIP_TRANSFORM_PLAN_X86_PLAN_SAMPLES_X86_H
#define KIP_TRANSFORM_PLAN_X86_PLAN_SAMPLES_X86_H

// The arithmetic that the plan's kernels of all instruction sets share, a register of words at a time. Words is that of
// the instruction set, whose header comes first: it also says what this code may use. The Words of two instruction sets
// are two types, so that no function here is compiled for both.

#include <cstdint>
#include <utility>

#include "support/target_region.h"
#include "transform/plan/x86/plan_row_groups_x86.h"

#if !defined(KIP_PLAN_TARGET)
#error "Include plan_words_avx2.h or plan_words_avx512.h first."
#endif

KIP_TARGET_BEGIN(KIP_PLAN_TARGET)

namespace kip {

// ---- Linear -------------------------------------------------------------------------------------------------------

// a + ((2 (b - a)) * w >> 16) with w the upper 15 bits of the fraction: the linear blend of 8-bit pixels.
template <typename Words>
inline Words blendBytes(Words a, Words b, Words fractions)
{
    const Words difference = b - a;
    return a + highProduct(difference + difference, fractions.template shiftedRight<1>());
}

// ---- Cubic --------------------------------------------------------------------------------------------------------

// The four cubic weights of as many fractions as there are words. They are whole-number polynomials of the phase p
// (q = 256 - p):
//   w0 = -(p q q >> 10)     w1 = 32768 - p p + (p p (3 p - 256) >> 10), at most 32767
// and w3, w2 the same with p and q exchanged; the shifts round down. Words hold every step of it.
template <typename Words>
struct CubicWeights {
    Words w[4];
};

template <typename Words>
inline Words outerWeight(Words pq, Words q)
{
    return Words::all(0) - highProductUnsigned(pq, q.template shiftedLeft<6>());
}

template <typename Words>
inline Words innerWeight(Words p)
{
    const Words square = p * p;
    const Words factor = (p + (p + p) - Words::all(256)).template shiftedLeft<6>();
    // An unsigned by signed high product: the square may have its top bit set.
    const Words high = highProduct(square, factor) + (square.signs() & factor);
    return leastUnsigned(Words::all(INT16_MIN) - square + high, Words::all(INT16_MAX));
}

template <typename Words>
inline CubicWeights<Words> cubicWeights(Words fractions)
{
    const Words p = fractions.template shiftedRight<8>();
    const Words q = Words::all(256) - p;
    const Words pq = p * q;
    // At phase 0 the square of q leaves a word; the weight there is 0.
    return {{outerWeight(pq, q), innerWeight(p), zeroWhereZero(p, innerWeight(q)), outerWeight(pq, p)}};
}

// The weights in pairs, in the order of an unpack.
template <typename Words>
struct WeightPairs {
    Words low01, high01, low23, high23;
};

template <typename Words>
inline WeightPairs<Words> weightPairs(const CubicWeights<Words> &weights)
{
    return {unpackLow(weights.w[0], weights.w[1]), unpackHigh(weights.w[0], weights.w[1]),
            unpackLow(weights.w[2], weights.w[3]), unpackHigh(weights.w[2], weights.w[3])};
}

// Sums of four products.
template <typename Words>
inline typename Words::Lanes weighPairs(Words taps01, Words taps23, Words weights01, Words weights23)
{
    return sumsOfPairs(taps01, weights01) + sumsOfPairs(taps23, weights23);
}

// The same, rounded and shifted.
template <int kShift, typename Words>
inline typename Words::Lanes weighRounded(Words taps01, Words taps23, Words weights01, Words weights23)
{
    const auto sum = weighPairs(taps01, taps23, weights01, weights23);
    return (sum + Words::Lanes::all(1 << (kShift - 1))).template shiftedRight<kShift>();
}

// Samples of 8-bit pixels: entries of the line.
template <typename Words>
inline Words cubicSamples8(Words fractions, const Words *taps)
{
    const WeightPairs<Words> weights = weightPairs(cubicWeights(fractions));
    const auto low =
        weighRounded<9>(unpackLow(taps[0], taps[1]), unpackLow(taps[2], taps[3]), weights.low01, weights.low23);
    const auto high =
        weighRounded<9>(unpackHigh(taps[0], taps[1]), unpackHigh(taps[2], taps[3]), weights.high01, weights.high23);
    return pack(low, high);
}

// Words are made signed by taking half their range off, so that pairs of them multiply and add in one step.
template <typename Words>
inline Words toSigned(Words words)
{
    return words ^ Words::all(INT16_MIN);
}

// A weighted sum of four signed taps and the sum of the weights, which makes up for the half range: it adds
// 32768 / 512 = 64 times itself. The division by 512 truncates toward zero.
template <typename Lanes>
inline Lanes cubicSample16(Lanes sum, Lanes weightSum)
{
    const Lanes rounded = sum + Lanes::all(256);
    const Lanes value = rounded.template shiftedRight<9>() + weightSum.template shiftedLeft<6>();
    return raisedWhereCut<9>(value, rounded);
}

// Samples in the order of an unpack.
template <typename Lanes>
struct UnpackedSamples {
    Lanes low, high;
};

template <typename Words>
inline UnpackedSamples<typename Words::Lanes> cubicSamples16(Words fractions, const Words *taps)
{
    const CubicWeights<Words> weights = cubicWeights(fractions);
    const WeightPairs<Words> pairs = weightPairs(weights);
    const Words total = (weights.w[0] + weights.w[1]) + (weights.w[2] + weights.w[3]);
    const Words t[4] = {toSigned(taps[0]), toSigned(taps[1]), toSigned(taps[2]), toSigned(taps[3])};
    const Words zero = Words::all(0);
    return {cubicSample16(weighPairs(unpackLow(t[0], t[1]), unpackLow(t[2], t[3]), pairs.low01, pairs.low23),
                          asLanes(unpackLow(total, zero))),
            cubicSample16(weighPairs(unpackHigh(t[0], t[1]), unpackHigh(t[2], t[3]), pairs.high01, pairs.high23),
                          asLanes(unpackHigh(total, zero)))};
}

// ---- The first pass of a row group --------------------------------------------------------------------------------

// The taps of samples at a place in the copy: those of its line and the next ones, or, where the sum of both fractions
// carries, each one line further. Spelt out by an index for each tap: as a loop, it would keep the registers in memory.
template <typename Words, typename Pixel, int... kTap>
inline void loadTaps(const Pixel *at, int64_t pitch, Words sum, Words rowFraction, Words *taps,
                     std::integer_sequence<int, kTap...>)
{
    constexpr int kTaps = sizeof...(kTap);
    const Words lines[kTaps + 1] = {Words::load(at + kTap * pitch)..., Words::load(at + kTaps * pitch)};
    ((taps[kTap] = selectByCarry(sum, rowFraction, lines[kTap], lines[kTap + 1])), ...);
}

// A register of a row's samples, from x on. Past the row's end the lanes compute from zeros: what lies beside the taps
// of a row need not have been written. No lane follows from another, but memcheck takes a multiply-add by pairs.
template <typename Words, typename Kernel, bool kIsEnd>
inline void sampleWords(const RowTaps<typename Kernel::Rule::Pixel> &row, int64_t pitch, int32_t x,
                        typename Kernel::Line *line)
{
    constexpr int kTaps = Kernel::Rule::kTaps;
    const Words rowFraction = Words::all(static_cast<int32_t>(row.rowFraction));
    Words sum = Words::load(row.columnFractions + x) + rowFraction;
    Words taps[kTaps];
    loadTaps(row.copy + x, pitch, sum, rowFraction, taps, std::make_integer_sequence<int, kTaps>());
    if constexpr (kIsEnd) {
        const Words isSample = Words::onesBefore(row.count - x);
        sum = sum & isSample;
        for (Words &tap : taps)
            tap = tap & isSample;
    }
    Kernel::sample(sum, taps, line, x);
}

// Kernel::sample(fractions, taps, line, at) makes the entries of the line from at on.
template <typename Words, typename Kernel>
inline void sampleRowsOf(const RowTaps<typename Kernel::Rule::Pixel> *rowTaps, int64_t pitch, int32_t rows,
                         typename Kernel::Line *lines)
{
    for (int32_t i = 0; i < rows; ++i) {
        int32_t x = 0;
        for (; x + Words::kCount <= rowTaps[i].count; x += Words::kCount)
            sampleWords<Words, Kernel, false>(rowTaps[i], pitch, x, &lines[i]);
        if (x < rowTaps[i].count)
            sampleWords<Words, Kernel, true>(rowTaps[i], pitch, x, &lines[i]);
    }
}

} // namespace kip

KIP_TARGET_END

#endif
