#ifndef KIP_SUPPORT_OPTIMIZED_PATH_H
#define KIP_SUPPORT_OPTIMIZED_PATH_H

#include <kip/kip.h>

namespace kip {

// Tells whether an optimised path declined (low 16 bits 0x600 to 0x61F): the portable code then runs.
constexpr bool isDeclined(int32_t status)
{
    return (static_cast<uint32_t>(status) & 0xFFE0u) == 0x600u;
}

// Tells whether the hook forbids the optimised variant of a kernel.
inline bool isInhibited(const wchar_t *kernelName)
{
    return kprt_isOptimizationInhibitedFP != nullptr && kprt_isOptimizationInhibitedFP(kernelName) != 0;
}

} // namespace kip

#endif
