#include "transform/tiles/tile_kernel_choice.h"

#include <kip/kip.h>

#include "support/target_region.h"
#include "transform/tiles/tile_sampling.h"
#include "transform/tiles/x86/tile_kernels_x86.h"

namespace kip {

namespace {

// Portable kernels with the inner one replaced level by level: rows or blocks by AVX2, then wider blocks.
template <typename Interpolation, typename Sink, typename Pixel>
TileKernels<Pixel, int32_t> withVariants([[maybe_unused]] uint32_t features, TileKernels<Pixel, int32_t> kernels)
{
#if defined(KIP_HAS_X86_VARIANTS)
    constexpr uint32_t blockFeature = sizeof(Pixel) == 1 ? ksys_featureAvx512Vbmi : ksys_featureAvx512;
    if ((features & ksys_featureAvx2) != 0)
        kernels.inside = tileKernelAvx2<Interpolation, Sink, Pixel>();
    if ((features & blockFeature) != 0)
        kernels.inside = tileBlockKernelAvx512<Interpolation, Sink, Pixel>();
#endif
    return kernels;
}

template <typename Interpolation, typename Pixel>
TileKernels<Pixel, int32_t> withVariants(uint32_t features, uint32_t accumulate, TileKernels<Pixel, int32_t> kernels)
{
    return accumulate == 0 ? withVariants<Interpolation, Store>(features, kernels)
                           : withVariants<Interpolation, Add>(features, kernels);
}

#if defined(KIP_HAS_X86_VARIANTS)

// A variant of the 16-bit bilinear store kernel, about which the hook is asked for every tile.
template <TileKernel<uint16_t, int32_t> (*kVariant)()>
void unlessInhibited(const FixedTile &tile, const uint16_t *src, int32_t srcPitch, void *dst, int32_t dstPitch)
{
    if (mayOptimiseTransformTileBilinear16())
        kVariant()(tile, src, srcPitch, dst, dstPitch);
    else
        resampleInside<Bilinear<Accurate16>, Store, FixedPosition>(tile, src, srcPitch, dst, dstPitch);
}

#endif

} // namespace

TileKernels<uint8_t, int32_t> fastTileKernels8(uint32_t features, uint32_t accumulate, uint32_t mode)
{
    if (mode == kip_affineModeNearest)
        return withVariants<Nearest>(features, accumulate, fixedTileKernels8(accumulate, mode));
    using Fast = Bilinear<Fast8>;
    return withVariants<Fast>(features, accumulate,
                              accumulate == 0 ? portableTileKernels<Fast, Store, FixedPosition, uint8_t>()
                                              : portableTileKernels<Fast, Add, FixedPosition, uint8_t>());
}

TileKernels<uint16_t, int32_t> tileKernels16(uint32_t features, uint32_t accumulate, uint32_t mode)
{
    const auto portable = fixedTileKernels16(accumulate, mode);
    if (mode == kip_affineModeNearest)
        return withVariants<Nearest>(features, accumulate, portable);
    using Accurate = Bilinear<Accurate16>;
    auto kernels = withVariants<Accurate>(features, accumulate, portable);
#if defined(KIP_HAS_X86_VARIANTS)
    if (accumulate == 0 && (features & ksys_featureAvx512) != 0)
        kernels.inside = unlessInhibited<tileBlockKernelAvx512<Accurate, Store, uint16_t>>;
    else if (accumulate == 0 && (features & ksys_featureAvx2) != 0)
        kernels.inside = unlessInhibited<tileKernelAvx2<Accurate, Store, uint16_t>>;
#endif
    return kernels;
}

} // namespace kip
