#ifndef KIP_TRANSFORM_ALIGNED_X86_ALIGNED_ROWS_X86_H
#define KIP_TRANSFORM_ALIGNED_X86_ALIGNED_ROWS_X86_H

#include <cstdint>

#include "transform/aligned/aligned_rows.h"

namespace kip {

// Variants of the kernels of aligned maps for x86-64 processors; see aligned_rows.h for what they do. For uint8_t and
// uint16_t.

// SSE2, which every x86-64 processor has.
template <typename Pixel>
void transposeSse2(const Rows<const Pixel> &input, const Rows<Pixel> &output);
template <typename Pixel>
void mirrorSse2(const Rows<const Pixel> &input, const Rows<Pixel> &output);

template <typename Pixel>
void transposeAvx2(const Rows<const Pixel> &input, const Rows<Pixel> &output);
template <typename Pixel>
void mirrorAvx2(const Rows<const Pixel> &input, const Rows<Pixel> &output);

// AVX-512 F, BW.
template <typename Pixel>
void transposeAvx512(const Rows<const Pixel> &input, const Rows<Pixel> &output);

} // namespace kip

#endif
