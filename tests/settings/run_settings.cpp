// Preloaded into a program, this makes the libraries see other conditions than the machine's, from the environment:
//
//   KIP_RUN_LEVEL      portable, avx2, avx512 or vbmi; the program ends with 77 where the processor has less
//   KIP_RUN_INHIBITED  1: the hook forbids every optimised kernel
//   KIP_RUN_THREADS    threads of the job pool

#include <cstdlib>
#include <cstring>

#include <kstd/kprt.h>
#include <ksys/ksys.h>

namespace {

constexpr int kSkipped = 77;

struct Level {
    const char *name;
    uint32_t features;
};

constexpr uint32_t kAvx2 = ksys_featurePackedInteger | ksys_featureAvx2;
constexpr Level kLevels[] = {
    {"portable", 0},
    {"avx2", kAvx2},
    {"avx512", kAvx2 | ksys_featureAvx512},
    {"vbmi", kAvx2 | ksys_featureAvx512 | ksys_featureAvx512Vbmi},
};

void setLevel(const char *name)
{
    for (const Level &level : kLevels) {
        if (std::strcmp(level.name, name) != 0)
            continue;
        ksys_cpuinfo processor;
        if (ksys_cpuinfo_init(&processor) < 0 || (processor.features & level.features) != level.features)
            std::_Exit(kSkipped);
        processor.features = level.features;
        ksys_cpuinfo_setOverride(&processor);
        return;
    }
    std::abort();
}

[[gnu::constructor]] void applySettings()
{
    if (const char *level = std::getenv("KIP_RUN_LEVEL"))
        setLevel(level);
    if (const char *inhibited = std::getenv("KIP_RUN_INHIBITED"); inhibited != nullptr && *inhibited == '1')
        kprt_isOptimizationInhibitedFP = [](const wchar_t *) -> int32_t { return 1; };
    if (const char *threads = std::getenv("KIP_RUN_THREADS"))
        ksys_jobThreadGroup_setThreadCount(std::atoi(threads));
}

} // namespace
