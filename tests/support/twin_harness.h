#ifndef KIP_TESTS_SUPPORT_TWIN_HARNESS_H
#define KIP_TESTS_SUPPORT_TWIN_HARNESS_H

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <functional>
#include <limits>
#include <string>
#include <type_traits>
#include <vector>

#include "support/crash_note.h"
#include "support/guarded_memory.h"
#include "support/random.h"

namespace kip::test {

// Runs a kernel and the variant that must give the same bits.
//
// A family is a record that says what its kernels' calls look like:
//
//   using Pixel, Element   types of what is read and of what is written
//   using Call             a call's arguments but for the two buffers
//   Call draw(Random &, int32_t width, int32_t rows) const
//                          random arguments for so many elements of output; width counts what the kernel's
//                          inner loop runs over
//   Shape shape(const Call &) const
//                          what such a call may read and has to write
//
// Kernels of any signature join as functions of (call, source, destination) that return a status.

struct Shape {
    int32_t sourceWidth, sourceHeight, sourcePitch;
    int32_t width, rows, pitch; // of the destination
};

template <typename Family>
using TwinKernel = std::function<int32_t(const typename Family::Call &call, const typename Family::Pixel *source,
                                         typename Family::Element *destination)>;

enum class Pattern { random, zero, maximum, alternating };

inline constexpr Pattern kPatterns[] = {Pattern::random, Pattern::zero, Pattern::maximum, Pattern::alternating};

template <typename Pixel>
void fillPixels(const PixelRows<Pixel> &rows, Pattern pattern, Random &random)
{
    constexpr Pixel greatest = std::numeric_limits<Pixel>::max();
    // The gaps between rows as well: whatever a kernel reads there is not what it should.
    auto *const pixels = reinterpret_cast<Pixel *>(rows.lowest());
    const size_t count = rows.bytes() / sizeof(Pixel);
    for (size_t n = 0; n < count; ++n) {
        const auto noise = static_cast<Pixel>(random.next() >> 40);
        pixels[n] = pattern == Pattern::random    ? noise
                    : pattern == Pattern::zero    ? Pixel{0}
                    : pattern == Pattern::maximum ? greatest
                                                  : static_cast<Pixel>(n % 2 == 0 ? 0 : greatest);
    }
}

struct TwinCase {
    uint64_t seed;
    int32_t width, rows;
    Pattern pattern;
    Guard sourceGuard, destinationGuard;
};

inline std::string describe(const std::string &twin, const TwinCase &c)
{
    return twin + ", seed " + std::to_string(c.seed) + ", " + std::to_string(c.width) + " x " + std::to_string(c.rows) +
           ", pattern " + std::to_string(static_cast<int>(c.pattern)) + ", guards " +
           (c.sourceGuard == Guard::before ? "before" : "behind") + " the source and " +
           (c.destinationGuard == Guard::before ? "before" : "behind") + " the destination";
}

// Memory for both kernels, reused from case to case.
struct TwinMemory {
    GuardedMemory source{4 << 20};
    GuardedMemory expected{1 << 18};
    GuardedMemory actual{1 << 18};
};

// Returns nothing when the two agree and kept to their memory, else what happened.
template <typename Family>
std::string compareTwins(const Family &family, const TwinKernel<Family> &definition, const TwinKernel<Family> &variant,
                         const TwinCase &c, const TwinMemory &memory)
{
    using Pixel = typename Family::Pixel;
    using Element = typename Family::Element;

    Random random(c.seed);
    const auto call = family.draw(random, c.width, c.rows);
    const Shape shape = family.shape(call);
    const auto source =
        placeRows<Pixel>(memory.source, c.sourceGuard, shape.sourceWidth, shape.sourceHeight, shape.sourcePitch);
    fillPixels(source, c.pattern, random);
    const auto expected = placeRows<Element>(memory.expected, c.destinationGuard, shape.width, shape.rows, shape.pitch);
    const auto actual = placeRows<Element>(memory.actual, c.destinationGuard, shape.width, shape.rows, shape.pitch);
    putCanaries(memory.expected, expected);
    putCanaries(memory.actual, actual);
    // Kernels that add start from the same sums, some of them about to wrap.
    for (int32_t y = 0; y < shape.rows; ++y) {
        for (int32_t x = 0; x < shape.width; ++x) {
            const auto before = static_cast<Element>(0 - (random.next() >> 52));
            expected.row(y)[x] = before;
            actual.row(y)[x] = before;
        }
    }

    const int32_t expectedStatus = definition(call, source.first, expected.first);
    const int32_t actualStatus = variant(call, source.first, actual.first);
    if (actualStatus != expectedStatus)
        return "status " + std::to_string(actualStatus) + " instead of " + std::to_string(expectedStatus);
    for (int32_t y = 0; y < shape.rows; ++y)
        for (int32_t x = 0; x < shape.width; ++x)
            if (actual.row(y)[x] != expected.row(y)[x])
                return "at (" + std::to_string(x) + ", " + std::to_string(y) + ") " + std::to_string(actual.row(y)[x]) +
                       " instead of " + std::to_string(expected.row(y)[x]);
    const std::string strayed = findDeadCanary(memory.expected, expected);
    return strayed.empty() ? findDeadCanary(memory.actual, actual) : "definition: " + strayed;
}

// One variant of one kernel: a row of the table of twins.
struct Twin {
    std::string name;
    uint32_t features; // bits of ksys_cpuinfo::features that the variant needs
    bool isVariant;    // not the definition itself under another name
    std::function<std::string(const TwinCase &c, const TwinMemory &memory)> compare;
};

// adapt: makes a TwinKernel<Family> of a kernel. For kernels of the same signature one adapter serves both.
template <typename Family, typename Adapt, typename Definition, typename Variant>
Twin makeTwin(const std::string &name, uint32_t features, const Family &family, Adapt adapt, Definition definition,
              Variant variant)
{
    bool isVariant = variant != nullptr;
    if constexpr (std::is_same_v<Definition, Variant>)
        isVariant = isVariant && definition != variant;
    return {name, features, isVariant,
            [family, reference = TwinKernel<Family>(adapt(definition)),
             tested = TwinKernel<Family>(adapt(variant))](const TwinCase &c, const TwinMemory &memory) {
                return compareTwins(family, reference, tested, c, memory);
            }};
}

// Runs a twin on every width up to two vectors of 64 lanes and one more, and on some long ones. Returns the
// first failure with all that is needed to repeat it, or nothing.
inline std::string runTwin(const Twin &twin, uint64_t seed)
{
    const TwinMemory memory{};
    std::vector<int32_t> widths = {191, 224, 257, 1009};
    for (int32_t width = 1; width <= 129; ++width)
        widths.push_back(width);

    Random random(seed);
    for (const int32_t width : widths) {
        for (const Guard sourceGuard : kGuards) {
            for (const Guard destinationGuard : kGuards) {
                // The random pattern tells most; the others find sums that overflow and lanes that mix.
                // Few rows and many: some kernels work on blocks.
                for (const bool isTall : {false, false, true, false}) {
                    const Pattern pattern = random.oneIn(4) ? random.pick(kPatterns) : Pattern::random;
                    const TwinCase c = {
                        random.next(), width,       isTall ? random.between32(6, 40) : random.between32(1, 5),
                        pattern,       sourceGuard, destinationGuard};
                    const std::string description = describe(twin.name, c);
                    noteForCrash(description);
                    const std::string failure = twin.compare(c, memory);
                    if (!failure.empty())
                        return description + ": " + failure;
                }
            }
        }
    }
    return "";
}

} // namespace kip::test

#endif
