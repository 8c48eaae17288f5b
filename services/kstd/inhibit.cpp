// The hook by which a caller turns optimised kernels off.

#include <kstd/kprt.h>

kprt_inhibitFunction kprt_isOptimizationInhibitedFP = nullptr;

int32_t kprt_isOptimizationInhibited(const wchar_t *kernelName)
{
    const kprt_inhibitFunction hook = kprt_isOptimizationInhibitedFP;
    return hook == nullptr ? 0 : hook(kernelName);
}
