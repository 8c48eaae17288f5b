#include "transform/aligned/aligned_kernel_choice.h"

#include <ksys/ksys.h>

#include "support/target_region.h"
#include "transform/aligned/x86/aligned_rows_x86.h"

namespace kip {

template <typename Pixel>
AlignedKernels<Pixel> alignedKernels([[maybe_unused]] uint32_t features)
{
    AlignedKernels<Pixel> kernels = {transposePortable<Pixel>, mirrorPortable<Pixel>};
#if defined(KIP_HAS_X86_VARIANTS)
    if ((features & ksys_featurePackedInteger) != 0)
        kernels = {transposeSse2<Pixel>, mirrorSse2<Pixel>};
    if ((features & ksys_featureAvx2) != 0)
        kernels = {transposeAvx2<Pixel>, mirrorAvx2<Pixel>};
    if ((features & ksys_featureAvx512) != 0)
        kernels.transpose = transposeAvx512<Pixel>;
#endif
    return kernels;
}

template AlignedKernels<uint8_t> alignedKernels<uint8_t>(uint32_t features);
template AlignedKernels<uint16_t> alignedKernels<uint16_t>(uint32_t features);

} // namespace kip
