// Many small random calls of every export that reads pixels, their rectangles at the margins where clipping begins,
// their images between unreadable pages. Each case runs under two settings of processor level, threads, cache and
// guards, and of what fresh memory holds: no crash, every promise kept, the same bytes.
//
//   kip_boundary --seed S --cases N [--first F]
//
// A case depends on the seed and its own number alone: --first F --cases 1 repeats one.

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <string>
#include <vector>

#include "support/crash_note.h"
#include "support/draw_call.h"
#include "support/failing_allocator.h"
#include "support/levels.h"
#include "support/records.h"

namespace kip::test {

namespace {

constexpr int64_t kBatch = 1024; // cases that share their settings

struct Options {
    uint64_t seed = 1;
    int64_t first = 0, cases = 100000;
};

struct Setting {
    uint32_t features;
    int32_t threads;
    int32_t splitsAll;
};

struct Batch {
    Setting settings[2];
    bool isInhibited;
};

std::vector<uint32_t> runnableFeatures()
{
    std::vector<uint32_t> features = {0, ksys_featurePackedInteger}; // which no processor minds being said to have
    for (const Level &level : availableLevels())
        features.push_back(level.features);
    return features;
}

Batch drawBatch(const Options &options, int64_t number, const std::vector<uint32_t> &features)
{
    static constexpr int32_t kThreads[] = {1, 2, 3, 8};
    Random random(options.seed * 0x10001 + static_cast<uint64_t>(number));
    const size_t one = random.next() % features.size();
    const size_t other = (one + 1 + random.next() % (features.size() - 1)) % features.size();
    const auto setting = [&](size_t level) {
        return Setting{features[level], random.pick(kThreads), random.oneIn(2) ? 1 : 0}; // in this order
    };
    return {{setting(one), setting(other)}, random.oneIn(8)};
}

Random caseRandom(const Options &options, int64_t number)
{
    return Random(Random(options.seed).next() + static_cast<uint64_t>(number) * 0xD1342543DE82EF95);
}

// Makes a call another one by a single number.
void changeOne(Random &random, SamplingCall *call)
{
    kip_affineSampleParams &params = call->params;
    int32_t *const counts[] = {&call->x,     &call->y,           &call->width,    &call->height,      &params.destWidth,
                               &call->pitch, &params.destHeight, &call->result.x, &call->result.pitch};
    int32_t *const count = random.pick(counts);
    kmath_xformLinear *const map = random.oneIn(2) ? &params.rect : &call->srcFromClient;
    const auto element = random.pick(kElements);
    if (random.oneIn(3))
        map->*element += random.between(-1.0, 1.0);
    else if (random.oneIn(8))
        params.mode ^= 1;
    else if (count == &call->pitch || count == &call->result.pitch)
        *count += *count < 0 ? -1 : 1;
    else if (*count > 1 || count == &call->x || count == &call->y || count == &call->result.x)
        --*count;
}

// With a cache that holds another call's geometry, or the same, from this form or another.
Outcome runCached(SamplingCall call, const CallMemory &memory, Random &random)
{
    kip_affineSampleCache *cache = nullptr;
    kip_affineSampleCache_construct(&cache);
    SamplingCall earlier = call;
    if (random.oneIn(2)) {
        earlier.operation = random.pick(kOperations);
        if (!takesCache(earlier.operation))
            earlier.operation = call.operation;
        if (random.oneIn(4))
            earlier.bytesPerPixel = 3 - call.bytesPerPixel;
        if (random.oneIn(4))
            earlier.result.isBound = false;
    }
    if (random.oneIn(2))
        changeOne(random, &earlier);
    const Outcome primed = runCall(earlier, memory, &cache);
    Outcome outcome = runCall(call, memory, &cache);
    outcome.fault += primed.fault;
    kip_affineSampleCache_destruct(&cache);
    return outcome;
}

class Boundary {
public:
    explicit Boundary(const Options &given) : options(given) {}

    int run()
    {
        const auto start = std::chrono::steady_clock::now();
        const int64_t end = options.first + options.cases;
        for (int64_t from = options.first; from < end && failures < 10;) {
            const int64_t to = std::min(end, (from / kBatch + 1) * kBatch);
            runBatch(from, to);
            from = to;
        }
        const std::chrono::duration<double, std::micro> taken = std::chrono::steady_clock::now() - start;
        std::cout << "seed " << options.seed << ": " << options.cases << " cases, " << served << " served, "
                  << taken.count() / static_cast<double>(options.cases) << " microseconds a case, " << failures
                  << " failures\n";
        // A generator that draws nothing but refusals finds nothing.
        return failures == 0 && (options.cases < kBatch || served > options.cases / 4) ? 0 : 1;
    }

private:
    void runBatch(int64_t from, int64_t to)
    {
        const Batch batch = drawBatch(options, from / kBatch, features);
        std::vector<Outcome> outcomes(static_cast<size_t>(to - from));
        for (const int turn : {0, 1}) {
            allocator.fillWith(turn == 0 ? 0xFF : 0);
            const ProcessorLevel level(batch.settings[turn].features, batch.isInhibited);
            ksys_jobThreadGroup_setThreadCount(batch.settings[turn].threads);
            ksys_jobThreadGroup_setSplitAll(batch.settings[turn].splitsAll);
            runTurn(batch, turn, from, outcomes);
        }
    }

    void runTurn(const Batch &batch, int turn, int64_t from, std::vector<Outcome> &outcomes)
    {
        for (size_t n = 0; n < outcomes.size(); ++n) {
            const int64_t number = from + static_cast<int64_t>(n);
            noteForCrash(nameOfCase(number) + ", features " + std::to_string(batch.settings[turn].features));
            Random random = caseRandom(options, number);
            const SamplingCall call = drawCall(random, random.pick(kOperations));
            const bool isCached = takesCache(call.operation) && random.oneIn(3);
            if (turn == 0) {
                outcomes[n] = runCall(call, memory, nullptr, Check::meaning);
                served += outcomes[n].status >= 0 ? 1 : 0;
                report(number, call, batch, outcomes[n].fault);
                continue;
            }
            const Outcome outcome =
                isCached ? runCached(call, memory, random) : runCall(call, memory, nullptr, Check::promises, true);
            std::string fault = outcome.fault;
            if (outcome.digest != outcomes[n].digest)
                fault += "status " + std::to_string(outcomes[n].status) + ", then " + std::to_string(outcome.status) +
                         (outcome.status == outcomes[n].status ? ", other bytes" : "");
            report(number, call, batch, fault);
        }
    }

    // The options that repeat it.
    std::string nameOfCase(int64_t number) const
    {
        return "--seed " + std::to_string(options.seed) + " --first " + std::to_string(number) + " --cases 1";
    }

    void report(int64_t number, const SamplingCall &call, const Batch &batch, const std::string &fault)
    {
        if (options.cases == 1)
            std::cout << describe(call) << "\n";
        if (fault.empty())
            return;
        ++failures;
        std::cout << nameOfCase(number) << ": " << fault << "\n  " << describe(call) << "\n";
        for (const Setting &setting : batch.settings)
            std::cout << "  features " << setting.features << ", " << setting.threads << " threads"
                      << (setting.splitsAll != 0 ? ", all work split\n" : "\n");
    }

    FailingAllocator allocator;
    const Options options;
    const std::vector<uint32_t> features = runnableFeatures();
    const CallMemory memory{};
    int64_t served = 0;
    int failures = 0;
};

} // namespace

} // namespace kip::test

int main(int argc, char **argv)
{
    kip::test::Options options;
    for (int n = 1; n < argc; n += 2) {
        const std::string name = n + 1 < argc ? argv[n] : ""; // without a value: an unknown one
        const long long value = n + 1 < argc ? std::atoll(argv[n + 1]) : 0;
        if (name == "--seed")
            options.seed = static_cast<uint64_t>(value);
        else if (name == "--first" && value >= 0)
            options.first = value;
        else if (name == "--cases" && value > 0)
            options.cases = value;
        else
            return std::fprintf(stderr, "usage: %s [--seed S] [--cases N] [--first F]\n", argv[0]), 2;
    }
    kip::test::noteForCrash("the first case");
    return kip::test::Boundary(options).run();
}
