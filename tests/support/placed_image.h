#ifndef KIP_TESTS_SUPPORT_PLACED_IMAGE_H
#define KIP_TESTS_SUPPORT_PLACED_IMAGE_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <kip/kip.h>

#include "support/call_meaning.h"
#include "support/guarded_memory.h"
#include "support/images.h"
#include "support/sampling_call.h"

namespace kip::test {

// What an image that receives something has before a call.
inline constexpr kmath_xformLinear kMapBefore = {7, -3, 2, 0.5, 0.25, 4};
inline constexpr uint8_t kBefore = 0x5A;

// Canaries: what lies round the rows of an image and in the gaps between them, up to kCanaryReach bytes away, is filled
// before a call and must be as it was afterwards.
inline constexpr uint8_t kCanary = 0xC3;
inline constexpr ptrdiff_t kCanaryReach = 256;

// An image in guarded memory, or an unbound one. Its rows are taken as bytes.
class PlacedImage : public Image {
public:
    PlacedImage(const GuardedMemory &guarded, Guard guard, const Target &target, int32_t usualPixelBytes)
        : memory(guarded), place(target), bytesPerPixel(target.pixelBytes != 0 ? target.pixelBytes : usualPixelBytes)
    {
        status = kimg_image_setLinearImageFromClientXform(&image, &kMapBefore);
        if (!place.isBound || status < 0)
            return;
        rowBytes = ptrdiff_t{place.width} * bytesPerPixel;
        pitchBytes = std::abs(ptrdiff_t{place.pitch}) * bytesPerPixel;
        const ptrdiff_t bytes = pitchBytes * (place.height - 1) + rowBytes;
        lowest = memory.place(static_cast<size_t>(bytes + place.misalignment), guard) +
                 (guard == Guard::before ? place.misalignment : 0);
        end = lowest + bytes;
        kimg_image_destruct(&image);
        status = kimg_image_constructExternal(&image, bytesPerPixel, place.width, place.height, place.pitch, row(0));
        if (status >= 0)
            status = kimg_image_setLinearImageFromClientXform(&image, &kMapBefore);
        image.x = place.x;
        image.y = place.y;
    }

    bool hasMap(const kmath_xformLinear &expected) const
    {
        const kmath_xformLinear actual = map();
        return std::memcmp(&actual, &expected, sizeof actual) == 0;
    }

    void fill(uint8_t value) const
    {
        if (!place.isBound)
            return;
        std::memset(canariesBegin(), kCanary, static_cast<size_t>(canariesEnd() - canariesBegin()));
        for (int32_t y = 0; y < place.height; ++y)
            std::memset(row(y), value, static_cast<size_t>(rowBytes));
    }
    void fillRows(const std::vector<uint8_t> &noise, uint64_t seed) const
    {
        for (int32_t y = 0; place.isBound && y < place.height; ++y)
            std::memcpy(row(y), &noise[(seed + 977 * uint64_t(y)) % kNoiseBytes], size_t(rowBytes));
    }

    std::string strayWrite() const
    {
        if (!place.isBound)
            return "";
        bool isAlive = isAll(canariesBegin(), lowest, kCanary) && isAll(end, canariesEnd(), kCanary);
        for (const uint8_t *at = lowest; isAlive && at + pitchBytes < end; at += pitchBytes)
            isAlive = isAll(at + rowBytes, at + pitchBytes, kCanary);
        return isAlive ? "" : "stray write round an image; ";
    }

    // Whether only pixels at columns below width and rows below height, as the image is placed, were written.
    std::string writtenBeyond(int64_t width, int64_t height) const
    {
        for (int32_t y = 0; place.isBound && y < place.height; ++y) {
            const bool isReached = int64_t{place.y} + y >= 0 && int64_t{place.y} + y < height;
            const int64_t left = isReached ? std::clamp<int64_t>(-int64_t{place.x}, 0, place.width) : place.width;
            const int64_t right = isReached ? std::clamp<int64_t>(width - place.x, left, place.width) : place.width;
            if (!isAll(row(y), row(y) + left * bytesPerPixel, kBefore) ||
                !isAll(row(y) + right * bytesPerPixel, row(y) + rowBytes, kBefore))
                return "write where no result belongs; ";
        }
        return "";
    }

    // Whether it has pixels in columns 0 to width - 1 of row 0.
    bool holds(int32_t width) const
    {
        const kimg_windowConst actual = constWindowOf(image);
        return actual.width > 0 && (width == 0 || (image.x <= 0 && int64_t{image.x} + actual.width >= width &&
                                                   image.y <= 0 && int64_t{image.y} + actual.height > 0));
    }

    // Whether it holds what it has in common with a result, all of it if it was unbound.
    std::string difference(const Picture &result) const
    {
        const kimg_windowConst actual = constWindowOf(image);
        if (!place.isBound &&
            (actual.width != result.width || actual.height != result.height || image.x != 0 || image.y != 0))
            return "an image of another size; ";
        const int64_t left = std::max(0, image.x);
        const int64_t top = std::max(0, image.y);
        for (int64_t y = top; y < std::min<int64_t>(result.height, int64_t{image.y} + actual.height); ++y) {
            for (int64_t x = left; x < std::min<int64_t>(result.width, int64_t{image.x} + actual.width); ++x) {
                const int64_t value = valueAt(actual, x - image.x, y - image.y);
                if (result.at(x, y) != kUnknown && value != result.at(x, y))
                    return "at (" + std::to_string(x) + ", " + std::to_string(y) + ") " + std::to_string(value) +
                           " instead of " + std::to_string(result.at(x, y)) + "; ";
            }
        }
        return "";
    }

private:
    uint8_t *row(int32_t y) const { return lowest + pitchBytes * (place.pitch < 0 ? place.height - 1 - y : y); }
    uint8_t *canariesBegin() const { return lowest - std::min(kCanaryReach, lowest - memory.begin()); }
    uint8_t *canariesEnd() const { return end + std::min(kCanaryReach, memory.end() - end); }

    const GuardedMemory &memory;
    const Target place;
    const int32_t bytesPerPixel;
    ptrdiff_t rowBytes = 0, pitchBytes = 0;
    uint8_t *lowest = nullptr, *end = nullptr; // where its rows lie in memory
};

} // namespace kip::test

#endif
