#ifndef KIP_TESTS_PROJECTION_PROJECTION_ENTRY_H
#define KIP_TESTS_PROJECTION_PROJECTION_ENTRY_H

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <kip/kip.h>

#include "support/images.h"
#include "transform/transform_entry.h"

namespace kip::test {

using Sums = std::vector<uint32_t>;

inline constexpr uint32_t kNoSum = 0xA5A5A5A5;

// Where a row of sums is to go: a window of any place and size, among other pixels.
struct SumsPlace {
    int32_t x = 0, y = 0;
    int32_t width = 1, height = 1;
    int32_t pitch = 1;        // below 0 for bottom-up rows
    int32_t misalignment = 0; // bytes
};

// A 32-bit window in memory whose every other pixel must stay as it is.
class SumsWindow {
public:
    explicit SumsWindow(const SumsPlace &sumsPlace)
        : place(sumsPlace), memory(static_cast<size_t>(std::abs(place.pitch) * (place.height + 2) + 1), kNoSum)
    {}

    kimg_window window()
    {
        // The origin is nothing that a caller should set; it must not shift anything.
        return {place.width, place.height, place.x,     place.y,  -5,          -300,
                place.width, place.height, place.pitch, at(0, 0), kBytesPerSum};
    }
    void *first() { return at(0, 0); }
    void clear() { std::fill(memory.begin(), memory.end(), kNoSum); }

    // Expects the pixels of row 0 that the window covers to hold the sums, and nothing else to be written.
    testing::AssertionResult holds(const Sums &sums)
    {
        Sums covered(memory.size(), kNoSum);
        std::swap(covered, memory);
        for (int32_t row = 0; row < place.height; ++row)
            for (int32_t column = 0; column < place.width; ++column) {
                const int64_t i = int64_t{place.x} + column;
                if (place.y + row == 0 && i >= 0 && i < std::ssize(sums))
                    std::memcpy(at(column, row), &sums[static_cast<size_t>(i)], sizeof(uint32_t));
            }
        std::swap(covered, memory);
        const auto [actual, expected] = std::mismatch(memory.begin(), memory.end(), covered.begin());
        if (actual == memory.end())
            return testing::AssertionSuccess();
        return testing::AssertionFailure() << "word " << actual - memory.begin() << " of " << memory.size() << " is "
                                           << *actual << " instead of " << *expected;
    }

    const SumsPlace place;

private:
    static constexpr int32_t kBytesPerSum = 4;

    unsigned char *at(int32_t column, int32_t row)
    {
        const int32_t line = place.pitch > 0 ? row : place.height - 1 - row;
        return reinterpret_cast<unsigned char *>(memory.data() + (line + 1) * std::abs(place.pitch) + column) +
               place.misalignment;
    }

    Sums memory;
};

// The sums of an image's row 0.
inline Sums sumsOf(const kimg_image *image)
{
    kimg_windowConst window;
    EXPECT_EQ(kimg_windowConst_init(&window, image), 0);
    EXPECT_EQ(window.bytesPerPixel, 4);
    const auto *const first = static_cast<const uint32_t *>(window.pixels);
    return {first, first + window.width};
}

inline kmath_xformLinear rowPlacementOf(const kip_affineSampleParams &params)
{
    kmath_xformLinear placement{};
    EXPECT_GE(kip_affineSampleParams_getDestImageFromClientXform(&params, 1, &placement), 0);
    return placement;
}

// The forms of both depths under one name.
struct Forms {
    int32_t bytesPerPixel;
    decltype(&kip_affineProject) project;
    decltype(&kip_affineProjectWindow) projectWindow;
    decltype(&kip_affineProjectClipped) projectClipped;
    decltype(&kip_affineProjectClippedWindow) projectClippedWindow;
    decltype(&kip_affineProjectNorm) projectNorm;
};

inline const Forms &formsOf(int32_t bytesPerPixel)
{
    static constexpr Forms forms8 = {1,
                                     kip_affineProject,
                                     kip_affineProjectWindow,
                                     kip_affineProjectClipped,
                                     kip_affineProjectClippedWindow,
                                     kip_affineProjectNorm};
    static constexpr Forms forms16 = {2,
                                      kip_affineProject16,
                                      kip_affineProjectWindow16,
                                      kip_affineProjectClipped16,
                                      kip_affineProjectClippedWindow16,
                                      kip_affineProjectNorm16};
    return bytesPerPixel == 1 ? forms8 : forms16;
}

} // namespace kip::test

#endif
