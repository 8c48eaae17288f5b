// Calls of the library, drawn from the fuzzer's bytes, some of them with hostile numbers. Each runs twice: at the
// level, thread count, cache and failing allocation that the first bytes ask for, and plainly, held against the slow
// model.

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <span>
#include <string>

#include "support/crash_note.h"
#include "support/draw_call.h"
#include "support/failing_allocator.h"
#include "support/levels.h"

namespace kip::test {

namespace {

constexpr Operation kFuzzed[] = {KIP_FUZZED_OPERATIONS};

void require(bool condition, const std::string &what)
{
    if (condition)
        return;
    std::fprintf(stderr, "fuzz: %s\n%s", what.c_str(), crashNote);
    std::abort();
}

struct Settings {
    uint32_t features = 0;
    int32_t threads = 1;
    bool isCached = false;
    int64_t failingRequest = 0; // 0: none
    bool failsOn = false;       // all that follow, too
};

Outcome runUnder(const Settings &settings, const SamplingCall &call, FailingAllocator &allocator, Check check)
{
    static const CallMemory memory{};
    const ProcessorLevel level(settings.features);
    ksys_jobThreadGroup_setThreadCount(settings.threads); // which may take memory
    ksys_jobThreadGroup_setSplitAll(settings.threads > 1 ? 1 : 0);
    const int64_t blocksBefore = allocator.liveBlocks();
    kip_affineSampleCache *cache = nullptr;
    require(kip_affineSampleCache_construct(&cache) >= 0, "no cache");
    if (settings.failingRequest > 0)
        settings.failsOn ? allocator.failFrom(settings.failingRequest) : allocator.failOnly(settings.failingRequest);
    const bool isCached = settings.isCached && takesCache(call.operation);
    const Outcome outcome = runCall(call, memory, isCached ? &cache : nullptr, check);
    require(outcome.fault.empty(), outcome.fault);
    require(kip_affineSampleCache_destruct(&cache) >= 0, "a cache was not destructed");
    require(allocator.liveBlocks() == blocksBefore, "memory was not released");
    return outcome;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    Random random(std::span<const uint8_t>(data, size));
    static FailingAllocator &allocator = *new FailingAllocator; // threads and tables that stay take memory of it
    static const bool isSetUp = kip_affineTransform_setup() >= 0;
    static const auto levels = availableLevels();
    require(isSetUp, "no cubic weights");
    const Settings settings = {levels.empty() ? 0 : levels[random.next() % levels.size()].features,
                               random.oneIn(4) ? 3 : 1, random.oneIn(2), random.oneIn(4) ? random.between(1, 16) : 0,
                               random.oneIn(2)};
    const bool isInhibited = random.oneIn(4);
    const bool isHostile = random.oneIn(2);
    SamplingCall call = drawCall(random, random.pick(kFuzzed));
    if (isHostile)
        spoilCall(random, &call);
    noteForCrash(describe(call));
    allocator.failBeyond(allocator.liveBytes() + kMostMemory);
    kprt_isOptimizationInhibitedFP = isInhibited ? +[](const wchar_t *) -> int32_t { return 1; } : nullptr;
    allocator.failNone();
    const Outcome expected = runUnder({}, call, allocator, isHostile ? Check::promises : Check::meaning);
    const Outcome outcome = runUnder(settings, call, allocator, Check::promises);
    require(allocator.refused() > 0 || outcome.digest == expected.digest, "level, cache or threads count");
    return 0;
}

} // namespace kip::test
