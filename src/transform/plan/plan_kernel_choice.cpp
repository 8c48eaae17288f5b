#include "transform/plan/plan_kernel_choice.h"

#include <ksys/ksys.h>

#include "support/target_region.h"
#include "transform/plan/x86/plan_rows_x86.h"

namespace kip {

template <typename Rule>
PlanRowKernels<typename Rule::Pixel, typename Rule::Entry> planRowKernels([[maybe_unused]] uint32_t features,
                                                                          uint32_t accumulate)
{
    auto kernels = portableRowKernels<Rule>(accumulate);
#if defined(KIP_HAS_X86_VARIANTS)
    const bool add = accumulate != 0;
    if ((features & ksys_featureAvx2) != 0)
        kernels = rowKernelsAvx2<Rule>(add);
    if ((features & ksys_featureAvx512Vbmi) != 0)
        if (auto *const band = bandKernelAvx512<Rule>(add); band != nullptr)
            kernels.band = band;
#endif
    return kernels;
}

template PlanRowKernels<uint8_t, Linear8::Entry> planRowKernels<Linear8>(uint32_t features, uint32_t accumulate);
template PlanRowKernels<uint8_t, CubicPacked8::Entry> planRowKernels<CubicPacked8>(uint32_t features,
                                                                                   uint32_t accumulate);
template PlanRowKernels<uint16_t, Linear16::Entry> planRowKernels<Linear16>(uint32_t features, uint32_t accumulate);
template PlanRowKernels<uint16_t, Cubic16::Entry> planRowKernels<Cubic16>(uint32_t features, uint32_t accumulate);

} // namespace kip
