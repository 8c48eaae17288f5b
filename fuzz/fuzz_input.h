#ifndef KIP_FUZZ_FUZZ_INPUT_H
#define KIP_FUZZ_FUZZ_INPUT_H

// Turns the fuzzer's bytes into records and pixels of hostile kinds, small enough for hundreds of runs a second.

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <span>
#include <vector>

#include <kip/kip.h>

namespace kip::fuzz {

// Reads the bytes in order; after the last one everything is 0, which always stands for the plainest choice.
class Input {
public:
    explicit Input(std::span<const uint8_t> bytes) : left(bytes) {}

    uint8_t byte()
    {
        if (left.empty())
            return 0;
        const uint8_t first = left.front();
        left = left.subspan(1);
        return first;
    }
    template <typename T>
    T raw()
    {
        uint64_t bits = 0;
        for (size_t i = 0; i < sizeof(T); ++i)
            bits |= uint64_t{byte()} << (8 * i);
        T value;
        std::memcpy(&value, &bits, sizeof value);
        return value;
    }
    // Both ends included.
    int32_t between(int32_t least, int32_t greatest)
    {
        const auto count = static_cast<uint32_t>(greatest - least + 1);
        return least + static_cast<int32_t>((count <= 256 ? byte() : raw<uint16_t>()) % count);
    }
    bool oneIn(int32_t n) { return between(1, n) == n; }
    template <typename T, size_t N>
    T pick(const T (&choices)[N])
    {
        return choices[byte() % N];
    }

private:
    std::span<const uint8_t> left;
};

// Any double: whole, dyadic, next to a whole one, at the ends of what doubles and integers hold.
inline double takeNumber(Input &input)
{
    static constexpr double kExtremes[] = {0.0,
                                           -0.0,
                                           std::numeric_limits<double>::quiet_NaN(),
                                           std::numeric_limits<double>::infinity(),
                                           -std::numeric_limits<double>::infinity(),
                                           1e308,
                                           -1e308,
                                           5e-324,
                                           1e-200,
                                           1e-12,
                                           32767.5,
                                           -32768.5,
                                           65536.0,
                                           2147483647.5,
                                           -2147483648.5,
                                           4294967296.0,
                                           9.3e18,
                                           -9.3e18};
    switch (input.byte() % 8) {
    case 0:
        return input.raw<int8_t>();
    case 1:
        return input.raw<int16_t>() / 16.0;
    case 2: // one unit of 16.16 positions, and parts of it
        return input.raw<int8_t>() + input.raw<int8_t>() * 0x1p-18;
    case 3:
        return std::bit_cast<double>(input.raw<uint64_t>());
    case 4:
        return input.pick(kExtremes);
    case 5: {
        const double whole = input.raw<int8_t>();
        return std::nextafter(whole, input.oneIn(2) ? 1e9 : -1e9);
    }
    case 6: // about the tolerance of alignments
        return input.raw<int8_t>() + input.raw<int8_t>() * 0x1p-44;
    default:
        return input.raw<int32_t>() * 0x1p-16;
    }
}

inline kmath_xformLinear takeMap(Input &input)
{
    kmath_xformLinear map = {0.0, 0.0, 1.0, 0.0, 0.0, 1.0};
    const int32_t kind = input.byte() % 4;
    if (kind >= 2) {
        map.tx = takeNumber(input);
        map.ty = takeNumber(input);
        map.e0 = takeNumber(input);
        map.e3 = takeNumber(input);
    }
    if (kind == 3) {
        map.e1 = takeNumber(input);
        map.e2 = takeNumber(input);
    }
    return map;
}

inline int32_t takeHostileInteger(Input &input)
{
    static constexpr int32_t kIntegers[] = {
        0, -1, 1, std::numeric_limits<int32_t>::min(), std::numeric_limits<int32_t>::max(), -65536, 65535, 32768};
    return input.pick(kIntegers);
}

inline int32_t takeSide(Input &input)
{
    switch (input.byte() % 8) {
    case 6:
        return input.between(1, 300);
    case 7: // more than what 16.16 positions reach, now and then
        return input.oneIn(8) ? input.between(32766, 33000) : input.between(1, 1500);
    default:
        return input.between(1, 67);
    }
}

// Pixels in a heap block that ends with the last of them, so that the address sanitizer sees what runs past either
// end. Bytes between the rows are compared at the end.
class Pixels {
public:
    Pixels(Input &input, int32_t pixelBytes, int32_t columns, int32_t rows)
        : bytesPerPixel(pixelBytes), width(columns), height(rows)
    {
        const int32_t gap = input.oneIn(2) ? input.between(0, 9) : 0;
        pitch = input.oneIn(4) ? -(width + gap) : width + gap;
        misalignment = input.oneIn(4) ? input.between(0, 3) : 0;
        const size_t rowStep = static_cast<size_t>(width + gap) * static_cast<size_t>(bytesPerPixel);
        size = static_cast<size_t>(misalignment) + static_cast<size_t>(height - 1) * rowStep + rowBytes();
        block.reset(static_cast<uint8_t *>(std::malloc(size)));
        uint64_t state = input.byte();
        for (size_t i = 0; i < size; ++i) {
            state = state * 6364136223846793005u + 1442695040888963407u;
            block[i] = static_cast<uint8_t>(state >> 56);
        }
        before.assign(block.get(), block.get() + size);
    }

    size_t rowBytes() const { return static_cast<size_t>(width) * static_cast<size_t>(bytesPerPixel); }

    uint8_t *row(int32_t y) const
    {
        const int64_t fromTop = pitch < 0 ? height - 1 - y : y;
        return block.get() + misalignment + fromTop * std::abs(pitch) * bytesPerPixel;
    }

    kimg_window window() const { return {width, height, 0, 0, 0, 0, width, height, pitch, row(0), bytesPerPixel}; }
    kimg_windowConst windowConst() const
    {
        return {width, height, 0, 0, 0, 0, width, height, pitch, row(0), bytesPerPixel};
    }

    // Of the rows, and whether the bytes between them are as they were.
    bool areGapsUntouched() const
    {
        std::vector<uint8_t> expected = before;
        for (int32_t y = 0; y < height; ++y)
            std::memcpy(expected.data() + (row(y) - block.get()), row(y), rowBytes());
        return std::memcmp(expected.data(), block.get(), size) == 0;
    }
    bool isUntouched() const { return std::memcmp(before.data(), block.get(), size) == 0; }

    int32_t bytesPerPixel, width, height, pitch = 0, misalignment = 0;

private:
    struct Free {
        void operator()(uint8_t *p) const { std::free(p); }
    };
    std::unique_ptr<uint8_t[], Free> block;
    std::vector<uint8_t> before;
    size_t size = 0;
};

// A rectangle of whole numbers, of any numbers, or with the centres of its corner samples about the source's edges,
// where clipping decides.
inline kmath_shapeAffineRect takeRectangle(Input &input, const kimg_windowConst &source,
                                           const kmath_xformLinear &srcFromClient, int32_t columns, int32_t rows)
{
    const double width = source.width, height = source.height;
    kmath_shapeAffineRect rect = {
        static_cast<double>(source.x), static_cast<double>(source.y), width, 0.0, 0.0, height};
    const int32_t kind = input.byte() % 4;
    if (kind == 1)
        return {takeNumber(input), takeNumber(input), takeNumber(input),
                takeNumber(input), takeNumber(input), takeNumber(input)};
    if (kind >= 2) {
        const auto takeCoordinate = [&input](double end) {
            const double places[] = {0.5, end - 0.5, 0.0, end, 1.5, end - 1.5, end / 2, end / 3};
            const double place = input.pick(places);
            return input.oneIn(2) ? place + input.raw<int8_t>() * 0x1p-18 : place;
        };
        const kmath_vect first = {takeCoordinate(width), takeCoordinate(height)};
        const kmath_vect endOfRow = {takeCoordinate(width), takeCoordinate(height)};
        const kmath_vect endOfColumn = {takeCoordinate(width), takeCoordinate(height)};
        const auto step = [](double from, double to, int32_t samples) {
            return samples < 2 ? 1.0 : (to - from) / (samples - 1.0);
        };
        const kmath_vect x = {step(first.x, endOfRow.x, columns), step(first.y, endOfRow.y, columns)};
        const kmath_vect y = {step(first.x, endOfColumn.x, rows), step(first.y, endOfColumn.y, rows)};
        rect = {first.x - (x.x + y.x) / 2 + source.x,
                first.y - (x.y + y.y) / 2 + source.y,
                x.x * columns,
                y.x * rows,
                x.y * columns,
                y.y * rows};
    }
    kmath_xformLinear clientFromSrc;
    if (kmath_xformLinear_initInverse(&clientFromSrc, &srcFromClient) >= 0)
        (void)kmath_shapeAffineRect_initMap(&rect, &clientFromSrc, &rect);
    return rect;
}

// A sampling. Its sizes make few samples, or one row of very many: a call takes the time that its samples take.
inline kip_affineSampleParams takeSampling(Input &input, const kimg_windowConst &source,
                                           const kmath_xformLinear &srcFromClient)
{
    const int64_t maxSamples = int64_t{1} << (input.oneIn(8) ? 17 : 14); // the former are worth jobs
    kip_affineSampleParams params;
    params.mode = input.oneIn(16) ? input.raw<uint32_t>() : input.byte() % 4;
    const bool sameSize = input.oneIn(4);
    params.destWidth = sameSize ? source.width : takeSide(input);
    params.destHeight = sameSize ? source.height : takeSide(input);
    if (input.oneIn(24))
        params.destWidth = takeHostileInteger(input);
    if (input.oneIn(24))
        params.destHeight = takeHostileInteger(input);
    if (params.destWidth > 0) {
        const int64_t most = std::max<int64_t>(1, maxSamples / params.destWidth);
        params.destHeight = static_cast<int32_t>(std::min<int64_t>(params.destHeight, most));
    }
    params.rect = takeRectangle(input, source, srcFromClient, params.destWidth, params.destHeight);
    return params;
}

} // namespace kip::fuzz

#endif
