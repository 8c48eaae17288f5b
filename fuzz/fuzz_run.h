#ifndef KIP_FUZZ_FUZZ_RUN_H
#define KIP_FUZZ_FUZZ_RUN_H

// What one run of an operation works under, and what came of it.

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include <kip/kip.h>

#include "fuzz_input.h"

namespace kip::fuzz {

[[noreturn]] inline void fail(const char *what)
{
    (void)std::fprintf(stderr, "fuzz: %s\n", what);
    std::abort();
}

inline void require(bool condition, const char *what)
{
    if (!condition)
        fail(what);
}

class Run {
public:
    explicit Run(bool withCache) : isCached(withCache) {}
    ~Run() { require(kip_affineSampleCache_destruct(&handle) >= 0, "a cache was not destructed"); }
    Run(const Run &) = delete;
    Run &operator=(const Run &) = delete;

    // The run's cache, made when it is first asked for, or null in a run without one.
    kip_affineSampleCache **cache()
    {
        if (!isCached || (handle == nullptr && kip_affineSampleCache_construct(&handle) < 0))
            return nullptr;
        return &handle;
    }

    // Results, which must be the same however the operation is run.
    void note(const void *bytes, size_t size)
    {
        const auto *from = static_cast<const uint8_t *>(bytes);
        outcome.insert(outcome.end(), from, from + size);
    }
    template <typename T>
    void note(const T &value)
    {
        note(&value, sizeof value);
    }
    void notePixels(const kimg_windowConst &window)
    {
        const auto *first = static_cast<const uint8_t *>(window.pixels);
        for (int32_t y = 0; y < window.height; ++y)
            note(first + int64_t{y} * window.pitch * window.bytesPerPixel,
                 static_cast<size_t>(window.width) * static_cast<size_t>(window.bytesPerPixel));
    }

    std::vector<uint8_t> outcome;

private:
    bool isCached;
    kip_affineSampleCache *handle = nullptr;
};

// Every target defines it: draws a case from the bytes and runs it. It is called twice, once under the settings that
// the first bytes ask for and once plainly: portable kernels, one thread, no cache, the same hook.
void runCase(Input &input, Run &run);

} // namespace kip::fuzz

#endif
