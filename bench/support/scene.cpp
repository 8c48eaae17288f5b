#include "support/scene.h"

#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <new>
#include <numbers>
#include <utility>
#include <vector>

namespace kip_bench {

namespace {

// Room round the square for the widest neighbourhood, four pixels of a cubic.
constexpr double kMargin = 8.0;

uint32_t nextRandom(uint32_t *state)
{
    *state ^= *state << 13;
    *state ^= *state >> 17;
    *state ^= *state << 5;
    return *state;
}

template <typename Pixel>
void paint(const Pixels &pixels)
{
    constexpr double range = sizeof(Pixel) == 1 ? 255.0 : 65535.0;
    constexpr uint32_t noiseMask = sizeof(Pixel) == 1 ? 0x1F : 0x1FFF;
    const size_t columns = static_cast<size_t>(pixels.pitchBytes) / sizeof(Pixel);

    std::vector<uint32_t> wave(columns);
    for (size_t x = 0; x < columns; ++x)
        wave[x] = static_cast<uint32_t>(range * (0.2 + 0.2 * std::sin(0.021 * static_cast<double>(x))));

    uint32_t random = 2463534242u;
    for (int32_t y = 0; y < pixels.height; ++y) {
        auto *const row = reinterpret_cast<Pixel *>(pixels.memory.get() + y * pixels.pitchBytes);
        const auto base = static_cast<uint32_t>(range * (0.2 + 0.2 * std::sin(0.013 * y)));
        for (size_t x = 0; x < columns; ++x)
            row[x] = static_cast<Pixel>(base + wave[x] + (nextRandom(&random) & noiseMask));
    }
}

template <typename Pixel>
double sumDifferences(const Pixels &a, const Pixels &b)
{
    int64_t sum = 0;
    for (int32_t y = 0; y < a.height; ++y) {
        const auto *const rowA = reinterpret_cast<const Pixel *>(a.memory.get() + y * a.pitchBytes);
        const auto *const rowB = reinterpret_cast<const Pixel *>(b.memory.get() + y * b.pitchBytes);
        for (int32_t x = 0; x < a.width; ++x)
            sum += std::abs(int32_t{rowA[x]} - int32_t{rowB[x]});
    }
    return static_cast<double>(sum);
}

Pixels makePixels(int32_t bytesPerPixel, int32_t width, int32_t height, int64_t pitchBytes)
{
    Block memory(static_cast<uint8_t *>(kqfCacheAlloc(static_cast<size_t>(pitchBytes * height))));
    if (!memory)
        throw std::bad_alloc();
    return {bytesPerPixel, width, height, pitchBytes, std::move(memory)};
}

} // namespace

int64_t padPitch(int64_t rowBytes)
{
    const int64_t lines = (rowBytes + 63) / 64;
    return (lines | 1) * 64;
}

Pixels makePicture(int32_t bytesPerPixel, int32_t width, int32_t height, int64_t pitchBytes)
{
    Pixels pixels = makePixels(bytesPerPixel, width, height, pitchBytes);
    if (bytesPerPixel == 1)
        paint<uint8_t>(pixels);
    else
        paint<uint16_t>(pixels);
    return pixels;
}

Pixels makeBlank(int32_t bytesPerPixel, int32_t width, int32_t height)
{
    Pixels pixels = makePixels(bytesPerPixel, width, height, int64_t{width} * bytesPerPixel);
    std::memset(pixels.memory.get(), 0, static_cast<size_t>(pixels.pitchBytes * height));
    return pixels;
}

double meanDifference(const Pixels &a, const Pixels &b)
{
    const double sum = a.bytesPerPixel == 1 ? sumDifferences<uint8_t>(a, b) : sumDifferences<uint16_t>(a, b);
    const double range = a.bytesPerPixel == 1 ? 255.0 : 65535.0;
    return sum / (range * a.width * a.height);
}

PlacedRect placeRect(const Geometry &geometry)
{
    const double angle = geometry.degrees * std::numbers::pi / 180.0;
    const kmath_vect along = {std::cos(angle), std::sin(angle)};
    const double sheared = geometry.shear * geometry.height;
    const double down = geometry.yStep * geometry.height;
    const kmath_vect xSide = {geometry.xStep * geometry.width * along.x, geometry.xStep * geometry.width * along.y};
    const kmath_vect ySide = {sheared * along.x - down * along.y, sheared * along.y + down * along.x};
    const auto sideFor = [](double extent) { return static_cast<int32_t>(std::ceil(extent + 2.0 * kMargin)); };
    const int32_t width = sideFor(std::fabs(xSide.x) + std::fabs(ySide.x));
    const int32_t height = sideFor(std::fabs(xSide.y) + std::fabs(ySide.y));
    return {
        width,
        height,
        {0.5 * (width - xSide.x - ySide.x), 0.5 * (height - xSide.y - ySide.y), xSide.x, ySide.x, xSide.y, ySide.y}};
}

} // namespace kip_bench
