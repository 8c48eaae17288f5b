#include "transform/plan/x86/plan_kernels_x86.h"

#include "support/target_region.h"

#if defined(KIP_HAS_X86_VARIANTS)

#include <cstring>

#include "support/x86/block_transpose_sse2.h"

namespace kip {

namespace {

// A part of a copy: from (secondary, primary) on, of the given size.
template <typename Pixel>
StripCopy<Pixel> partOf(const StripCopy<Pixel> &copy, int32_t s, int32_t p, int32_t secondary, int32_t primary)
{
    return {copy.src + p * copy.majorStep + s * copy.minorStep,
            copy.majorStep,
            copy.minorStep,
            primary,
            secondary,
            copy.strip + s * copy.stripPitch + p,
            copy.stripPitch};
}

template <typename Pixel>
void transposeStrip(const StripCopy<Pixel> &copy)
{
    constexpr int32_t block = kTransposedBlock<Pixel>;
    const int32_t wholePrimary = copy.primary / block * block;
    const int32_t wholeSecondary = copy.secondary / block * block;
    for (int32_t s = 0; s < wholeSecondary; s += block)
        for (int32_t p = 0; p < wholePrimary; p += block)
            transposeBlock<Pixel>(copy.src + p * copy.majorStep + s, copy.majorStep,
                                  copy.strip + s * copy.stripPitch + p, copy.stripPitch);
    copyStripPortable(partOf(copy, 0, wholePrimary, wholeSecondary, copy.primary - wholePrimary));
    copyStripPortable(partOf(copy, wholeSecondary, 0, copy.secondary - wholeSecondary, copy.primary));
}

// The pixels of a word in reversed order.
uint64_t reversed(uint64_t word, uint8_t)
{
    return __builtin_bswap64(word);
}

uint64_t reversed(uint64_t word, uint16_t)
{
    const uint64_t swappedHalves = (word >> 32) | (word << 32);
    return ((swappedHalves >> 16) & 0x0000FFFF0000FFFF) | ((swappedHalves & 0x0000FFFF0000FFFF) << 16);
}

// Rows that run backwards.
template <typename Pixel>
void mirrorStrip(const StripCopy<Pixel> &copy)
{
    constexpr int32_t block = sizeof(uint64_t) / sizeof(Pixel);
    for (int32_t s = 0; s < copy.secondary; ++s) {
        const Pixel *const src = copy.src + s * copy.minorStep;
        Pixel *const strip = copy.strip + s * copy.stripPitch;
        int32_t p = 0;
        for (; p + block <= copy.primary; p += block) {
            uint64_t word;
            std::memcpy(&word, src - p - (block - 1), sizeof(word));
            word = reversed(word, Pixel{});
            std::memcpy(strip + p, &word, sizeof(word));
        }
        for (; p < copy.primary; ++p)
            strip[p] = src[-p];
    }
}

} // namespace

template <typename Pixel>
void copyStripSse2(const StripCopy<Pixel> &copy)
{
    if (copy.minorStep == 1)
        transposeStrip(copy);
    else if (copy.majorStep == -1)
        mirrorStrip(copy);
    else
        copyStripPortable(copy);
}

template void copyStripSse2(const StripCopy<uint8_t> &copy);
template void copyStripSse2(const StripCopy<uint16_t> &copy);

} // namespace kip

#endif
