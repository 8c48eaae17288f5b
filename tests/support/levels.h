#ifndef KIP_TESTS_SUPPORT_LEVELS_H
#define KIP_TESTS_SUPPORT_LEVELS_H

#include <cstdint>
#include <vector>

#include <kstd/kprt.h>
#include <ksys/ksys.h>

namespace kip::test {

// A level of the processor that has kernels of its own, with all that lies below it.
struct Level {
    const char *name;
    uint32_t features;
};

// The levels above the portable one that the processor is said to have; the others cannot be run.
inline std::vector<Level> availableLevels()
{
    constexpr uint32_t packed = ksys_featurePackedInteger;
    constexpr uint32_t avx2 = packed | ksys_featureAvx2;
    constexpr Level levels[] = {
        {"packed", packed},
        {"AVX2", avx2},
        {"AVX-512", avx2 | ksys_featureAvx512},
        {"AVX-512-VBMI", avx2 | ksys_featureAvx512 | ksys_featureAvx512Vbmi},
    };
    ksys_cpuinfo processor;
    ksys_cpuinfo_init(&processor);
    std::vector<Level> available;
    for (const Level &level : levels)
        if ((processor.features & level.features) == level.features)
            available.push_back(level);
    return available;
}

// Makes the library see a processor of a level while it lives. isInhibited: without the optimised 8-bit path, so that
// the portable one serves. Not for use beside operations on other threads.
class ProcessorLevel {
public:
    explicit ProcessorLevel(uint32_t features, bool isInhibited = false)
    {
        if (isInhibited)
            kprt_isOptimizationInhibitedFP = [](const wchar_t *) -> int32_t { return 1; };
        ksys_cpuinfo_init(&before);
        ksys_cpuinfo record = before;
        record.features = features;
        ksys_cpuinfo_setOverride(&record);
    }
    ~ProcessorLevel()
    {
        ksys_cpuinfo_setOverride(&before);
        kprt_isOptimizationInhibitedFP = hookBefore;
    }
    ProcessorLevel(const ProcessorLevel &) = delete;
    ProcessorLevel &operator=(const ProcessorLevel &) = delete;

private:
    ksys_cpuinfo before;
    const decltype(kprt_isOptimizationInhibitedFP) hookBefore = kprt_isOptimizationInhibitedFP;
};

} // namespace kip::test

#endif
