#include "transform/plan/x86/plan_kernels_x86.h"

#include "support/target_region.h"

#if defined(KIP_HAS_X86_VARIANTS)

#include "transform/plan/plan_linear.h"
#include "transform/plan/x86/plan_row_groups_avx2.h"

KIP_TARGET_BEGIN(KIP_PLAN_TARGET)

namespace kip::avx2 {

template <>
struct RowKernel<Linear8> {
    using Rule = Linear8;

    using Runs = Runs2;
    using Entries = Words;

    static Words samples(Words fractions, const Words *taps) { return blendBytes(taps[0], taps[1], fractions); }
    static Words pixels(Words fractions, const Words *entries) { return samples(fractions, entries); }
    static void sample(Words fractions, const Words *taps, uint8_t *out) { storeBytes(out, samples(fractions, taps)); }

    static Words output(const OutputRun<uint8_t> &run, int32_t first)
    {
        const uint32_t start = run.position + static_cast<uint32_t>(first) * run.step;
        const auto p = positionsFrom<2>(start, run.step);
        const int32_t lowOrigin = fixedInteger(start);
        const int32_t highOrigin = fixedInteger(start + 8 * run.step);
        const __m256i origins = _mm256_setr_m128i(_mm_set1_epi16(static_cast<int16_t>(lowOrigin)),
                                                  _mm_set1_epi16(static_cast<int16_t>(highOrigin)));
        // The top bit of a control byte makes a zero: the upper half of each word.
        const __m256i control =
            _mm256_or_si256(_mm256_sub_epi16(integerWords(p.at[0], p.at[1]), origins), _mm256_set1_epi16(INT16_MIN));
        const uint8_t *const low = run.line + lowOrigin;
        const uint8_t *const high = run.line + highOrigin;
        const Words a = {_mm256_shuffle_epi8(loadHalves(low, high), control)};
        const Words b = {_mm256_shuffle_epi8(loadHalves(low + 1, high + 1), control)};
        return blendBytes(a, b, fractionWords(p.at[0], p.at[1]));
    }

    static Words coarseOutput(const OutputRun<uint8_t> &run, int32_t first)
    {
        const auto p = positionsFrom<2>(run.position + static_cast<uint32_t>(first) * run.step, run.step);
        const Indices index(p);
        const auto pair = [&](int32_t n) {
            int16_t bytes;
            std::memcpy(&bytes, run.line + index.at[n], sizeof bytes);
            return bytes;
        };
        const Words pairs = {_mm256_setr_epi16(pair(0), pair(1), pair(2), pair(3), pair(4), pair(5), pair(6), pair(7),
                                               pair(8), pair(9), pair(10), pair(11), pair(12), pair(13), pair(14),
                                               pair(15))};
        return blendBytes(pairs & Words::all(0xFF), pairs.shiftedRight<8>(), fractionWords(p.at[0], p.at[1]));
    }
};

} // namespace kip::avx2

KIP_TARGET_END

namespace kip {

template PlanKernels<Linear8> planKernelsAvx2<Linear8, false>();
template PlanKernels<Linear8> planKernelsAvx2<Linear8, true>();

} // namespace kip

#endif
