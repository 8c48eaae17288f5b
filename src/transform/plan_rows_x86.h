#ifndef KIP_TRANSFORM_PLAN_ROWS_X86_H
#define KIP_TRANSFORM_PLAN_ROWS_X86_H

#include <cstdint>

#include "transform/plan_bands.h"
#include "transform/plan_rows.h"

namespace kip {

// Variants of the row kernels for x86-64 processors; see plan_rows.h for what they compute. Runs whose majorStep is
// not 1 go to the portable twins.

// AVX-512 F, BW, VBMI.
void linearBand8Avx512(const BandRun<uint8_t> &run);
void linearBandAdd8Avx512(const BandRun<uint8_t> &run);
void cubicBand8Avx512(const BandRun<uint8_t> &run);
void cubicBandAdd8Avx512(const BandRun<uint8_t> &run);
void linearBand16Avx512(const BandRun<uint16_t> &run);
void cubicBand16Avx512(const BandRun<uint16_t> &run);

// AVX2.
void linearSamples8Avx2(const SampleRun<uint8_t> &run, uint8_t *out);
void cubicSamples8Avx2(const SampleRun<uint8_t> &run, int16_t *out);
void linearOutputs8Avx2(const OutputRun<uint8_t> &run);
void linearOutputsAdd8Avx2(const OutputRun<uint8_t> &run);
void cubicOutputs8Avx2(const OutputRun<int16_t> &run);
void cubicOutputsAdd8Avx2(const OutputRun<int16_t> &run);
void linearBand8Avx2(const BandRun<uint8_t> &run);
void linearBandAdd8Avx2(const BandRun<uint8_t> &run);
void cubicBand8Avx2(const BandRun<uint8_t> &run);
void cubicBandAdd8Avx2(const BandRun<uint8_t> &run);

void linearSamples16Avx2(const SampleRun<uint16_t> &run, uint16_t *out);
void cubicSamples16Avx2(const SampleRun<uint16_t> &run, int32_t *out);
void linearOutputs16Avx2(const OutputRun<uint16_t> &run);
void linearOutputsAdd16Avx2(const OutputRun<uint16_t> &run);
void cubicOutputs16Avx2(const OutputRun<int32_t> &run);
void cubicOutputsAdd16Avx2(const OutputRun<int32_t> &run);
void linearBand16Avx2(const BandRun<uint16_t> &run);
void linearBandAdd16Avx2(const BandRun<uint16_t> &run);
void cubicBand16Avx2(const BandRun<uint16_t> &run);
void cubicBandAdd16Avx2(const BandRun<uint16_t> &run);

// SSE2, which every x86-64 processor has.
void copyStrip8Sse2(const StripCopy<uint8_t> &copy);
void copyStrip16Sse2(const StripCopy<uint16_t> &copy);

} // namespace kip

#endif
