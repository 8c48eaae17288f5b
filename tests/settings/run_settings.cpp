// Preloaded into a program, this makes the libraries see other conditions than the machine's, from the environment:
//
//   KIP_RUN_LEVEL      portable, AVX2, AVX-512 or AVX-512-VBMI; the program ends with 77 where the processor has less
//   KIP_RUN_INHIBITED  1: the hook forbids every optimised kernel
//   KIP_RUN_THREADS    threads of the job pool
//   KIP_RUN_SPLIT_ALL  1: table-driven transforms and projections are split over it, too

#include <algorithm>
#include <cstdlib>
#include <string>

#include <kstd/kprt.h>
#include <ksys/ksys.h>

#include "support/levels.h"

namespace {

constexpr int kSkipped = 77;

void setLevel(const std::string &name)
{
    ksys_cpuinfo processor;
    ksys_cpuinfo_init(&processor);
    const auto levels = kip::test::availableLevels();
    const auto level = std::find_if(levels.begin(), levels.end(), [&](const auto &l) { return l.name == name; });
    if (level == levels.end() && name != "portable")
        std::_Exit(kSkipped);
    processor.features = level == levels.end() ? 0 : level->features;
    ksys_cpuinfo_setOverride(&processor);
}

[[gnu::constructor]] void applySettings()
{
    if (const char *level = std::getenv("KIP_RUN_LEVEL"))
        setLevel(level);
    if (const char *inhibited = std::getenv("KIP_RUN_INHIBITED"); inhibited != nullptr && *inhibited == '1')
        kprt_isOptimizationInhibitedFP = [](const wchar_t *) -> int32_t { return 1; };
    if (const char *threads = std::getenv("KIP_RUN_THREADS"))
        ksys_jobThreadGroup_setThreadCount(std::atoi(threads));
    if (const char *split = std::getenv("KIP_RUN_SPLIT_ALL"))
        ksys_jobThreadGroup_setSplitAll(std::atoi(split));
}

} // namespace
