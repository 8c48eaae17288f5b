#include "transform/plan/plan_kernel_choice.h"

#include <ksys/ksys.h>

#include "support/target_region.h"
#include "transform/plan/plan_cubic.h"
#include "transform/plan/plan_linear.h"
#include "transform/plan/x86/plan_kernels_x86.h"

namespace kip {

template <typename Rule, bool kAdd>
PlanKernels<Rule> planKernels([[maybe_unused]] uint32_t features)
{
    auto kernels = portablePlanKernels<Rule, kAdd>();
#if defined(KIP_HAS_X86_VARIANTS)
    if ((features & ksys_featureAvx2) != 0)
        kernels = planKernelsAvx2<Rule, kAdd>();
    if ((features & ksys_featureAvx512Vbmi) != 0)
        kernels.rowGroup = rowGroupKernelAvx512<Rule, kAdd>();
#endif
    return kernels;
}

template PlanKernels<Linear8> planKernels<Linear8, false>(uint32_t features);
template PlanKernels<Linear8> planKernels<Linear8, true>(uint32_t features);
template PlanKernels<CubicOptimized8> planKernels<CubicOptimized8, false>(uint32_t features);
template PlanKernels<CubicOptimized8> planKernels<CubicOptimized8, true>(uint32_t features);
template PlanKernels<Linear16> planKernels<Linear16, false>(uint32_t features);
template PlanKernels<Cubic16> planKernels<Cubic16, false>(uint32_t features);

} // namespace kip
