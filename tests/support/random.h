#ifndef KIP_TESTS_SUPPORT_RANDOM_H
#define KIP_TESTS_SUPPORT_RANDOM_H

#include <algorithm>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <span>

namespace kip::test {

// Numbers from a seed, the same on every machine (the standard library's distributions are not), or from given bytes,
// as a fuzzer has them: all 0 after the last.
class Random {
public:
    explicit Random(uint64_t seed) : state(seed) {}
    explicit Random(std::span<const uint8_t> givenBytes) : isGiven(true), given(givenBytes) {}

    uint64_t next()
    {
        if (isGiven)
            return takeGiven();
        state += 0x9E3779B97F4A7C15;
        uint64_t z = state;
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EB;
        return z ^ (z >> 31);
    }
    // Both ends included.
    template <std::integral A, std::integral B>
    int64_t between(A least, B greatest)
    {
        const uint64_t count = static_cast<uint64_t>(greatest) - static_cast<uint64_t>(least) + 1;
        const uint64_t n = count == 0 ? next() : next() % count;
        return static_cast<int64_t>(static_cast<uint64_t>(least) + n);
    }
    int32_t between32(int32_t least, int32_t greatest) { return static_cast<int32_t>(between(least, greatest)); }
    // In [0, 1).
    double unit() { return static_cast<double>(next() >> 11) * 0x1p-53; }
    double between(double least, double greatest) { return least + (greatest - least) * unit(); }
    bool oneIn(uint64_t n) { return next() % n == 0; }
    int32_t sign() { return (next() & 1) != 0 ? 1 : -1; }

    template <typename T, size_t N>
    T pick(const T (&choices)[N])
    {
        return choices[next() % N];
    }

private:
    uint64_t takeGiven()
    {
        uint64_t number = 0;
        const size_t count = std::min(given.size(), sizeof number);
        for (size_t i = 0; i < count; ++i)
            number |= uint64_t{given[i]} << (8 * i);
        given = given.subspan(count);
        return number;
    }

    uint64_t state = 0;
    bool isGiven = false;
    std::span<const uint8_t> given{};
};

} // namespace kip::test

#endif
