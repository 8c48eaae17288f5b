#ifndef KIP_SUPPORT_PROCESSOR_FEATURES_H
#define KIP_SUPPORT_PROCESSOR_FEATURES_H

#include <cstdint>

#include <ksys/ksys.h>

namespace kip {

// The ksys_feature... bits that the processor information reports now; none if it fails. An operation asks once and
// hands them to the choice of its family of kernels.
inline uint32_t processorFeatures()
{
    ksys_cpuinfo info;
    return ksys_cpuinfo_init(&info) < 0 ? 0 : info.features;
}

} // namespace kip

#endif
