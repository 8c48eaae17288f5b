#include <ksys/ksys.h>

#include "support/target_region.h"
#include "transform/aligned/aligned_rows.h"

namespace kip {

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
