#include "transform/tiles/tile_kernel_choice.h"

#include <kip/kip.h>

#include "support/optimized_path.h"
#include "support/target_region.h"
#include "transform/tiles/tile_sampling.h"
#include "transform/tiles/x86/tile_kernels_x86.h"

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

} // namespace kip
