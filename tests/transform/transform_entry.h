#ifndef KIP_TESTS_TRANSFORM_TRANSFORM_ENTRY_H
#define KIP_TESTS_TRANSFORM_TRANSFORM_ENTRY_H

#include <cstdint>

#include <gtest/gtest.h>
#include <kip/kip.h>

#include "support/depths.h"
#include "support/images.h"

namespace kip::test {

inline constexpr kmath_xformLinear kSomeMap = {7, -3, 2, 0.5, 0.25, 4};

// A slanted 32 x 16 sampling inside a 64 x 48 source; all its positions are dyadic.
inline constexpr kip_affineSampleParams kSlanted = {{20.25, 8.5, 32, -6, 6, 16}, kip_affineModeBilinear, 32, 16};

inline bool isEqual(const kmath_xformLinear &a, const kmath_xformLinear &b)
{
    int32_t equal = 0;
    kmath_xformLinear_compareEqual(&a, &b, &equal);
    return equal != 0;
}

inline kmath_xformLinear placementOf(const kip_affineSampleParams &params)
{
    kmath_xformLinear placement{};
    EXPECT_GE(kip_affineSampleParams_getDestImageFromClientXform(&params, 0, &placement), 0);
    return placement;
}

// A bound image over pixels that the test sees, with a client map of its own.
struct Bound {
    Pixels pixels;
    Image image;
    Pixels before;

    Bound(int32_t bytesPerPixel, int32_t width, int32_t height, int32_t pitch = 0, uint64_t seed = 77)
        : pixels(bytesPerPixel, width, height, pitch, seed), image(pixels), before(pixels)
    {
        image.setMap(kSomeMap);
    }

    void expectUntouched() const
    {
        EXPECT_TRUE(isSameMemory(before, pixels));
        EXPECT_TRUE(isEqual(image.map(), kSomeMap));
        EXPECT_TRUE(image.isBound());
    }
};

// A source in a black frame, as large as a sampling may read. Its own pixels are those of the source, or all of one
// value.
struct FramedSource {
    FramedSource(const Image &source, int32_t bytesPerPixel, const kip_affineSampleParams &params, int32_t value = -1)
        : rect(rectOf(source, params)), pixels(bytesPerPixel, rect.width, rect.height), image(pixels)
    {
        const kimg_image &own = *source.get();
        for (int32_t y = 0; y < rect.height; ++y) {
            for (int32_t x = 0; x < rect.width; ++x) {
                const int64_t column = int64_t{rect.x} + x - own.x;
                const int64_t row = int64_t{rect.y} + y - own.y;
                const bool isInside = column >= 0 && column < own.width && row >= 0 && row < own.height;
                hasSource = hasSource || isInside;
                pixels.set(x, y,
                           !isInside    ? 0
                           : value >= 0 ? static_cast<uint32_t>(value)
                                        : source.at(static_cast<int32_t>(column), static_cast<int32_t>(row)));
            }
        }
        image.place(rect.x, rect.y);
        image.setMap(source.map());
    }

    static kstd_rect32 rectOf(const Image &source, const kip_affineSampleParams &params)
    {
        kstd_rect32 found{};
        EXPECT_GE(kip_affineSampleParams_getMaxSrcRect(&params, source.get(), &found), 0);
        return found;
    }

    kstd_rect32 rect;
    Pixels pixels;
    Image image;
    bool hasSource = false;
};

// A cache that destructs itself.
class Cache {
public:
    Cache() { EXPECT_EQ(kip_affineSampleCache_construct(&handle), 0); }
    Cache(const Cache &) = delete;
    Cache &operator=(const Cache &) = delete;
    ~Cache() { EXPECT_EQ(kip_affineSampleCache_destruct(&handle), 0); }

    kip_affineSampleCache *handle = nullptr;
};

// Both depths; the parameter is the bytes per pixel.
class TransformEntry : public testing::TestWithParam<int32_t> {
protected:
    void TearDown() override { ksys_jobThreadGroup_setThreadCount(0); }

    int32_t transform(Image &from, Image &to, const kip_affineSampleParams &params,
                      kip_affineSampleCache **cache = nullptr) const
    {
        return bytes == 1 ? kip_affineTransform(from.get(), to.get(), &params, cache)
                          : kip_affineTransform16(from.get(), to.get(), &params, cache);
    }

    // Expects the top left of the destination, as it is placed, to hold the sampling's result, and all else of
    // its memory to be as before.
    void expectResult(const kip_affineSampleParams &params, const Bound &destination)
    {
        Image result;
        ASSERT_GE(transform(source, result, params), 0);
        Pixels expected = destination.before;
        const kimg_image &place = *destination.image.get();
        for (int32_t y = 0; y < params.destHeight; ++y) {
            for (int32_t x = 0; x < params.destWidth; ++x) {
                const int64_t column = int64_t{x} - place.x;
                const int64_t row = int64_t{y} - place.y;
                if (column >= 0 && column < expected.width && row >= 0 && row < expected.height)
                    expected.set(static_cast<int32_t>(column), static_cast<int32_t>(row), result.at(x, y));
            }
        }
        EXPECT_TRUE(isSameMemory(expected, destination.pixels));
        EXPECT_TRUE(isEqual(destination.image.map(), placementOf(params)));
    }

    // Expects a status and, whatever the destination is, that nothing of it changes.
    void expectRefusal(int32_t status, Image &from, const kip_affineSampleParams &params,
                       kip_affineSampleCache **cache = nullptr)
    {
        Bound larger(bytes, 40, 30, 45);
        EXPECT_EQ(transform(from, larger.image, params, cache), status);
        larger.expectUntouched();

        Bound smaller(bytes, 31, 16);
        EXPECT_EQ(transform(from, smaller.image, params, cache), status);
        smaller.expectUntouched();

        Bound placed(bytes, 40, 30, -40);
        placed.image.place(3, -2);
        EXPECT_EQ(transform(from, placed.image, params, cache), status);
        placed.expectUntouched();
        EXPECT_EQ(placed.image.get()->x, 3);
        EXPECT_EQ(placed.image.get()->y, -2);

        Image unbound;
        unbound.setMap(kSomeMap);
        EXPECT_EQ(transform(from, unbound, params, cache), status);
        EXPECT_FALSE(unbound.isBound());
        EXPECT_TRUE(isEqual(unbound.map(), kSomeMap));
    }

    const int32_t bytes = GetParam();
    Pixels sourcePixels{bytes, 64, 48, 70};
    Image source{sourcePixels};
};

} // namespace kip::test

#endif
