#include "fuzz_run.h"

#include <algorithm>
#include <atomic>

namespace kip::fuzz {
namespace {

// A bounded allocator: refuses what would make a run slow, and the requests that it is told to.
struct Allocator {
    std::atomic<int64_t> requests{0}, refused{0}, liveBlocks{0};
    int64_t firstRefused = 0, lastRefused = 0;
};
constexpr size_t kMaxBlockBytes = size_t{2} << 20;
Allocator theAllocator;

bool isRefused(size_t size)
{
    const int64_t number = ++theAllocator.requests;
    const bool refused =
        size > kMaxBlockBytes || (number >= theAllocator.firstRefused && number <= theAllocator.lastRefused);
    theAllocator.refused += refused ? 1 : 0;
    return refused;
}

void *allocate(size_t size, void *)
{
    if (isRefused(size))
        return nullptr;
    void *block = std::malloc(size);
    theAllocator.liveBlocks += block != nullptr ? 1 : 0;
    return block;
}

void *reallocate(void *block, size_t size, void *)
{
    return isRefused(size) ? nullptr : std::realloc(block, size);
}

void release(void *block, void *)
{
    --theAllocator.liveBlocks;
    std::free(block);
}

int32_t inhibit(const wchar_t *)
{
    return 1;
}

const ksys_cpuinfo &realProcessor()
{
    static const ksys_cpuinfo processor = [] {
        ksys_cpuinfo record;
        (void)ksys_cpuinfo_init(&record);
        return record;
    }();
    return processor;
}

struct Settings {
    uint32_t features = 0;
    bool isInhibited = false, isCached = false;
    int32_t threads = 1;
    int64_t firstRefused = 0, lastRefused = 0;
};

Settings takeSettings(Input &input)
{
    constexpr uint32_t avx2 = ksys_featurePackedInteger | ksys_featureAvx2;
    constexpr uint32_t avx512 = avx2 | ksys_featureAvx512;
    static constexpr uint32_t kLevels[] = {avx512 | ksys_featureAvx512Vbmi, avx512, avx2, ksys_featurePackedInteger, 0};
    Settings settings;
    settings.features = realProcessor().features & input.pick(kLevels);
    const uint8_t flags = input.byte();
    settings.isCached = (flags & 1) != 0;
    settings.isInhibited = (flags & 14) == 14;
    settings.threads = (flags & 48) == 48 ? 3 : 1;
    if ((flags & 192) == 192) {
        settings.firstRefused = input.between(1, 16);
        settings.lastRefused = input.oneIn(2) ? settings.firstRefused : std::numeric_limits<int64_t>::max();
    }
    return settings;
}

// Returns whether every request for memory was met.
bool runUnder(const Settings &settings, Input input, std::vector<uint8_t> *outcome)
{
    ksys_cpuinfo processor = realProcessor();
    processor.features = settings.features;
    require(ksys_cpuinfo_setOverride(&processor) >= 0, "no processor override");
    kprt_isOptimizationInhibitedFP = settings.isInhibited ? inhibit : nullptr;
    require(ksys_jobThreadGroup_setThreadCount(settings.threads) >= 0, "no thread count");
    // Until here, threads and tables that stay may have taken memory.
    const int64_t blocksBefore = theAllocator.liveBlocks;
    theAllocator.requests = 0;
    theAllocator.refused = 0;
    theAllocator.firstRefused = settings.firstRefused;
    theAllocator.lastRefused = settings.lastRefused;
    {
        Run run(settings.isCached);
        runCase(input, run);
        *outcome = std::move(run.outcome);
    }
    require(theAllocator.liveBlocks == blocksBefore, "memory was not released");
    return theAllocator.refused == 0;
}

void requireSame(const std::vector<uint8_t> &asAsked, const std::vector<uint8_t> &plain)
{
    if (asAsked == plain)
        return;
    const auto first = std::mismatch(asAsked.begin(), asAsked.end(), plain.begin(), plain.end()).first;
    (void)std::fprintf(stderr, "fuzz: %zu and %zu noted bytes differ from byte %td on\n", asAsked.size(), plain.size(),
                       first - asAsked.begin());
    fail("the results depend on level, cache or threads");
}

} // namespace
} // namespace kip::fuzz

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    using namespace kip::fuzz;
    (void)realProcessor();
    const ksys_memoryHooks hooks = {allocate, reallocate, release, nullptr};
    require(ksys_memory_setHooks(&hooks) >= 0, "no memory hooks");
    require(kip_affineTransform_setup() >= 0, "no cubic weights"); // they stay
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    using namespace kip::fuzz;
    Input input({data, size});
    const Settings settings = takeSettings(input);
    std::vector<uint8_t> asAsked, plain;
    const bool hadMemory = runUnder(settings, input, &asAsked);
    Settings plainSettings;
    plainSettings.isInhibited = settings.isInhibited; // the 8-bit paths that the hook chooses between round apart
    if (runUnder(plainSettings, input, &plain) && hadMemory)
        requireSame(asAsked, plain);
    return 0;
}
