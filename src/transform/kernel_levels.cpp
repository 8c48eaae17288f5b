#include "transform/kernel_levels.h"

#include <kip/kip.h>

#include "support/optimized_path.h"
#include "support/target_region.h"
#include "transform/plan_rows_x86.h"
#include "transform/tile_kernels_x86.h"
#include "transform/tile_sampling.h"

namespace kip {

namespace {

#if defined(KIP_HAS_X86_VARIANTS)

// A kernel in the place of the 16-bit bilinear store kernel.
template <TileKernel<uint16_t, int32_t> kKernel>
int32_t ifNotServed16(const FixedTile &tile, const uint16_t *src, int32_t srcPitch, void *dst, int32_t dstPitch)
{
    const int32_t status = offerTransformTileBilinear16();
    return isDeclined(status) ? kKernel(tile, src, srcPitch, dst, dstPitch) : status;
}

#endif

} // namespace

uint32_t processorFeatures()
{
    ksys_cpuinfo info;
    return ksys_cpuinfo_init(&info) < 0 ? 0 : info.features;
}

TileKernels<uint8_t, int32_t> fastTileKernels8([[maybe_unused]] uint32_t features, uint32_t accumulate, uint32_t mode)
{
    const bool add = accumulate != 0;
    if (mode == kip_affineModeNearest) {
        auto kernels = fixedTileKernels8(accumulate, mode);
#if defined(KIP_HAS_X86_VARIANTS)
        if ((features & ksys_featureAvx2) != 0)
            kernels.inside = add ? kip_affineProjectTileNearest8Avx2 : kip_affineTransformTileNearest8Avx2;
        if ((features & ksys_featureAvx512Vbmi) != 0)
            kernels.inside = add ? kip_affineProjectTileNearest8Avx512Vbmi : kip_affineTransformTileNearest8Avx512Vbmi;
#endif
        return kernels;
    }
    auto kernels = add ? withTwin<Bilinear<Fast8>, Add, FixedPosition, uint8_t>(
                             resampleInside<Bilinear<Fast8>, Add, FixedPosition, uint8_t>)
                       : withTwin<Bilinear<Fast8>, Store, FixedPosition, uint8_t>(
                             resampleInside<Bilinear<Fast8>, Store, FixedPosition, uint8_t>);
#if defined(KIP_HAS_X86_VARIANTS)
    if ((features & ksys_featureAvx2) != 0)
        kernels.inside = add ? kip_affineProjectTileBilinearFast8Avx2 : kip_affineTransformTileBilinearFast8Avx2;
    if ((features & ksys_featureAvx512Vbmi) != 0)
        kernels.inside =
            add ? kip_affineProjectTileBilinearFast8Avx512Vbmi : kip_affineTransformTileBilinearFast8Avx512Vbmi;
#endif
    return kernels;
}

TileKernels<uint16_t, int32_t> tileKernels16([[maybe_unused]] uint32_t features, uint32_t accumulate, uint32_t mode)
{
    auto kernels = fixedTileKernels16(accumulate, mode);
#if defined(KIP_HAS_X86_VARIANTS)
    const bool add = accumulate != 0;
    if ((features & ksys_featureAvx2) != 0) {
        if (mode == kip_affineModeNearest)
            kernels.inside = add ? kip_affineProjectTileNearest16Avx2 : kip_affineTransformTileNearest16Avx2;
        else
            kernels.inside = add ? kip_affineProjectTileBilinearAccurate16Avx2
                                 : ifNotServed16<kip_affineTransformTileBilinearAccurate16Avx2>;
    }
    if ((features & ksys_featureAvx512) != 0) {
        if (mode == kip_affineModeNearest)
            kernels.inside = add ? kip_affineProjectTileNearest16Avx512 : kip_affineTransformTileNearest16Avx512;
        else
            kernels.inside = add ? kip_affineProjectTileBilinearAccurate16Avx512
                                 : ifNotServed16<kip_affineTransformTileBilinearAccurate16Avx512>;
    }
#endif
    return kernels;
}

PlanRowKernels<uint8_t, uint8_t> linearRowKernels8([[maybe_unused]] uint32_t features, uint32_t accumulate)
{
    auto kernels = portableRowKernels<Linear8>(accumulate);
#if defined(KIP_HAS_X86_VARIANTS)
    if ((features & ksys_featureAvx2) != 0)
        kernels = {linearSamples8Avx2, accumulate == 0 ? linearOutputs8Avx2 : linearOutputsAdd8Avx2, copyStrip8Sse2,
                   accumulate == 0 ? linearBand8Avx2 : linearBandAdd8Avx2};
    if ((features & ksys_featureAvx512Vbmi) != 0)
        kernels.band = accumulate == 0 ? linearBand8Avx512 : linearBandAdd8Avx512;
#endif
    return kernels;
}

PlanRowKernels<uint8_t, int16_t> cubicRowKernels8([[maybe_unused]] uint32_t features, uint32_t accumulate)
{
    auto kernels = portableRowKernels<CubicPacked8>(accumulate);
#if defined(KIP_HAS_X86_VARIANTS)
    if ((features & ksys_featureAvx2) != 0)
        kernels = {cubicSamples8Avx2, accumulate == 0 ? cubicOutputs8Avx2 : cubicOutputsAdd8Avx2, copyStrip8Sse2,
                   accumulate == 0 ? cubicBand8Avx2 : cubicBandAdd8Avx2};
    if ((features & ksys_featureAvx512Vbmi) != 0)
        kernels.band = accumulate == 0 ? cubicBand8Avx512 : cubicBandAdd8Avx512;
#endif
    return kernels;
}

PlanRowKernels<uint16_t, uint16_t> linearRowKernels16([[maybe_unused]] uint32_t features, uint32_t accumulate)
{
    auto kernels = portableRowKernels<Linear16>(accumulate);
#if defined(KIP_HAS_X86_VARIANTS)
    if ((features & ksys_featureAvx2) != 0)
        kernels = {linearSamples16Avx2, accumulate == 0 ? linearOutputs16Avx2 : linearOutputsAdd16Avx2, copyStrip16Sse2,
                   accumulate == 0 ? linearBand16Avx2 : linearBandAdd16Avx2};
    if ((features & ksys_featureAvx512Vbmi) != 0 && accumulate == 0)
        kernels.band = linearBand16Avx512;
#endif
    return kernels;
}

PlanRowKernels<uint16_t, int32_t> cubicRowKernels16([[maybe_unused]] uint32_t features, uint32_t accumulate)
{
    auto kernels = portableRowKernels<Cubic16>(accumulate);
#if defined(KIP_HAS_X86_VARIANTS)
    if ((features & ksys_featureAvx2) != 0)
        kernels = {cubicSamples16Avx2, accumulate == 0 ? cubicOutputs16Avx2 : cubicOutputsAdd16Avx2, copyStrip16Sse2,
                   accumulate == 0 ? cubicBand16Avx2 : cubicBandAdd16Avx2};
    if ((features & ksys_featureAvx512Vbmi) != 0 && accumulate == 0)
        kernels.band = cubicBand16Avx512;
#endif
    return kernels;
}

template <>
AlignedKernels<uint8_t> alignedKernels<uint8_t>([[maybe_unused]] uint32_t features)
{
    AlignedKernels<uint8_t> kernels = {transposePortable<uint8_t>, reversePortable<uint8_t>};
#if defined(KIP_HAS_X86_VARIANTS)
    if ((features & ksys_featurePackedInteger) != 0)
        kernels = {transpose8Sse2, reverse8Sse2};
    if ((features & ksys_featureAvx2) != 0)
        kernels.reverse = reverse8Avx2;
    if ((features & ksys_featureAvx512) != 0)
        kernels.transpose = transpose8Avx512;
#endif
    return kernels;
}

template <>
AlignedKernels<uint16_t> alignedKernels<uint16_t>([[maybe_unused]] uint32_t features)
{
    AlignedKernels<uint16_t> kernels = {transposePortable<uint16_t>, reversePortable<uint16_t>};
#if defined(KIP_HAS_X86_VARIANTS)
    if ((features & ksys_featurePackedInteger) != 0)
        kernels = {transpose16Sse2, reverse16Sse2};
    if ((features & ksys_featureAvx2) != 0)
        kernels.reverse = reverse16Avx2;
    if ((features & ksys_featureAvx512) != 0)
        kernels.transpose = transpose16Avx512;
#endif
    return kernels;
}

} // namespace kip
