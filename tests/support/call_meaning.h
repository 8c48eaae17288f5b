#ifndef KIP_TESTS_SUPPORT_CALL_MEANING_H
#define KIP_TESTS_SUPPORT_CALL_MEANING_H

#include <cstdint>
#include <cstring>
#include <vector>

#include <kip/kip.h>

#include "support/sampling_call.h"

namespace kip::test {

// Pixels or sums, row by row.
struct Picture {
    int32_t width = 0, height = 0;
    std::vector<int64_t> pixels{}; // kUnknown where the definition gives none

    int64_t at(int64_t x, int64_t y) const { return pixels[static_cast<size_t>(y * width + x)]; }
};

inline constexpr int64_t kUnknown = -1;

inline constexpr int32_t kUnset = 0x5A5A5A5A;

// The numbers that a call writes.
struct Scalars {
    uint32_t depth = kUnset;
    int32_t sumDepth = kUnset;
    int32_t first = kUnset, end = kUnset;
    kmath_xformLinear placement = {7, 7, 7, 7, 7, 7};

    bool operator==(const Scalars &other) const { return std::memcmp(this, &other, sizeof other) == 0; } // to the bit
};

// What a call has to give.
struct Meaning {
    int32_t status = 0;
    bool clips = false; // of the forms that tell
    Picture result{}, second{};
    Scalars scalars{};
};

// Works out what a call gives, whose result and source images are as they are before it: a transform's pixels by the
// slow model, all else by what it is of transforms: clipped ones are those of a source in a black frame, masks those
// of a white one, projections their column sums. A transform's own status is taken as it is.
Meaning meaningOf(const SamplingCall &call, const kimg_image &source, const kimg_image &result, int32_t status);

} // namespace kip::test

#endif
