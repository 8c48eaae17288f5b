#ifndef KIP_TRANSFORM_TILES_TILE_SAMPLING_H
#define KIP_TRANSFORM_TILES_TILE_SAMPLING_H

// What the portable tile kernels are made of: a position, a source, an interpolation, and what happens to a sample.

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "support/fixed_point.h"
#include "transform/tiles/tile_kernels.h"

namespace kip {

// ---- Positions: what a tile's position means -------------------------------------------------------------

// 16.16. Positions wrap, so they are carried as unsigned numbers.
struct FixedPosition {
    using Value = int32_t;
    uint32_t x, y;

    static FixedPosition at(int32_t x, int32_t y) { return {static_cast<uint32_t>(x), static_cast<uint32_t>(y)}; }
    void move(int32_t dx, int32_t dy)
    {
        x += static_cast<uint32_t>(dx);
        y += static_cast<uint32_t>(dy);
    }
    static int32_t index(uint32_t v) { return static_cast<int32_t>(v) >> 16; }
    static int32_t boundedIndex(uint32_t v) { return index(v); }
    static uint32_t fraction(uint32_t v) { return v & 0xFFFF; }
};

// Doubles, for steps too coarse for 16.16.
struct DoublePosition {
    using Value = double;
    double x, y;

    static DoublePosition at(double x, double y) { return {x, y}; }
    void move(double dx, double dy)
    {
        x += dx;
        y += dy;
    }
    // Both truncate toward zero: at a margin, a position a last bit below 0 still names pixel 0.
    static int64_t index(double v) { return static_cast<int64_t>(v); }
    static int64_t boundedIndex(double v) { return truncateToInt64(v); }
    static uint32_t fraction(double v)
    {
        return static_cast<uint32_t>(truncateToInt32((v - std::trunc(v)) * kFixedOne)) & 0xFFFF;
    }
};

// ---- Sources: how a pixel is reached ---------------------------------------------------------------------

template <typename Pixel>
struct DirectSource {
    const Pixel *src;
    int64_t pitch;

    template <typename Position>
    Pixel nearest(const Position &p) const
    {
        return src[Position::index(p.y) * pitch + Position::index(p.x)];
    }
    template <typename Position, typename Interpolate>
    Pixel neighbourhood(const Position &p, Interpolate interpolate) const
    {
        const Pixel *const at = src + (Position::index(p.y) * pitch + Position::index(p.x));
        return interpolate(at[0], at[1], at[pitch], at[pitch + 1]);
    }
};

template <typename Pixel>
struct BoundedSource {
    const Pixel *src;
    int64_t pitch;
    SourceBounds bounds;

    Pixel pixel(int64_t x, int64_t y) const
    {
        const int64_t column = std::clamp<int64_t>(x, 0, bounds.width - 1);
        const int64_t row = std::clamp<int64_t>(y, 0, bounds.height - 1);
        return src[row * pitch + column];
    }
    // The base is at most 2^34 in magnitude and an index saturates: the sums below cannot overflow once the
    // index is cut to a range that still lies outside every source.
    static int64_t reachable(int64_t index)
    {
        return std::clamp<int64_t>(index, -(int64_t{1} << 40), int64_t{1} << 40);
    }

    template <typename Position>
    Pixel nearest(const Position &p) const
    {
        return pixel(bounds.baseX + reachable(Position::boundedIndex(p.x)),
                     bounds.baseY + reachable(Position::boundedIndex(p.y)));
    }
    template <typename Position, typename Interpolate>
    Pixel neighbourhood(const Position &p, Interpolate interpolate) const
    {
        const int64_t x = bounds.baseX + reachable(Position::boundedIndex(p.x));
        const int64_t y = bounds.baseY + reachable(Position::boundedIndex(p.y));
        return interpolate(pixel(x, y), pixel(x + 1, y), pixel(x, y + 1), pixel(x + 1, y + 1));
    }
};

// ---- Interpolations ----------------------------------------------------------------------------------------

// 8 bits: the complement of a fraction is taken to 65535 and each weight keeps 16 bits, so that all fits 32
// bits. The weights sum to at most 65534 and the sample to at most 255.
struct Accurate8 {
    static uint8_t interpolate(uint32_t fx, uint32_t fy, uint32_t p00, uint32_t p01, uint32_t p10, uint32_t p11)
    {
        const uint32_t gx = 65535 - fx;
        const uint32_t gy = 65535 - fy;
        const uint32_t sum =
            ((gx * gy) >> 16) * p00 + ((fx * gy) >> 16) * p01 + ((gx * fy) >> 16) * p10 + ((fx * fy) >> 16) * p11;
        return static_cast<uint8_t>((sum + 0x8000) >> 16);
    }
};

// 8 bits with 15-bit weights, which fit signed 16-bit lanes: the values of the fast path.
struct Fast8 {
    static uint8_t interpolate(uint32_t fx, uint32_t fy, uint32_t p00, uint32_t p01, uint32_t p10, uint32_t p11)
    {
        const uint32_t gx = 65535 - fx;
        const uint32_t gy = 65535 - fy;
        const uint32_t sum =
            ((gy * gx) >> 17) * p00 + ((gy * fx) >> 17) * p01 + ((fy * gx) >> 17) * p10 + ((fy * fx) >> 17) * p11;
        return static_cast<uint8_t>((2 * sum + 32768) >> 16);
    }
};

// 16 bits: the weights are exact and sum to 2^32; exact halves round down.
struct Accurate16 {
    static uint16_t interpolate(uint32_t fx, uint32_t fy, uint32_t p00, uint32_t p01, uint32_t p10, uint32_t p11)
    {
        const uint64_t gx = 65536 - fx;
        const uint64_t gy = 65536 - fy;
        const uint64_t sum = gx * gy * p00 + fx * gy * p01 + gx * fy * p10 + uint64_t{fx} * fy * p11;
        return static_cast<uint16_t>((sum + 0x7FFFFFFF) >> 32);
    }
};

struct Nearest {
    static constexpr int32_t kReach = 0;
    template <typename Value>
    static constexpr Value shift()
    {
        return 0;
    }

    template <typename Source, typename Position>
    static auto sample(const Source &source, const Position &p)
    {
        return source.nearest(p);
    }
};

template <typename Weights>
struct Bilinear {
    static constexpr int32_t kReach = 1;
    // Half a pixel: the sample lies between the centres of the four pixels.
    template <typename Value>
    static constexpr Value shift()
    {
        if constexpr (sizeof(Value) == sizeof(int32_t))
            return kFixedHalf;
        else
            return 0.5;
    }

    template <typename Source, typename Position>
    static auto sample(const Source &source, const Position &p)
    {
        const uint32_t fx = Position::fraction(p.x);
        const uint32_t fy = Position::fraction(p.y);
        return source.neighbourhood(p, [fx, fy](auto p00, auto p01, auto p10, auto p11) {
            return Weights::interpolate(fx, fy, p00, p01, p10, p11);
        });
    }
};

// ---- What happens to a sample --------------------------------------------------------------------------------

struct Store {
    template <typename Pixel>
    using Element = Pixel;
    static int64_t rowAdvance(int32_t dstPitch) { return dstPitch; }
    template <typename Pixel>
    static void put(Pixel *at, Pixel sample)
    {
        *at = sample;
    }
};

// Every row adds into the same sums, modulo 2^32.
struct Add {
    template <typename Pixel>
    using Element = uint32_t;
    static int64_t rowAdvance(int32_t) { return 0; }
    static void put(uint32_t *at, uint32_t sample) { *at += sample; }
};

// ---- The walk over a tile ------------------------------------------------------------------------------------

template <typename Interpolation, typename Sink, typename Position, typename Pixel, typename Source>
void resampleTile(const Tile<typename Position::Value> &tile, const Source &source, void *dst, int32_t dstPitch)
{
    using Element = typename Sink::template Element<Pixel>;
    constexpr auto shift = Interpolation::template shift<typename Position::Value>();

    auto *row = static_cast<Element *>(dst);
    Position rowStart = Position::at(tile.x, tile.y);
    rowStart.move(-shift, -shift);
    for (int32_t r = 0; r < tile.rows; ++r) {
        Position position = rowStart;
        Element *at = row + r * Sink::rowAdvance(dstPitch);
        for (int32_t n = 0; n < tile.width; ++n) {
            Sink::put(at + n, Interpolation::sample(source, position));
            position.move(tile.colStepX, tile.colStepY);
        }
        rowStart.move(tile.rowStepX, tile.rowStepY);
    }
}

template <typename Interpolation, typename Sink, typename Position, typename Pixel>
void resampleInside(const Tile<typename Position::Value> &tile, const Pixel *src, int32_t srcPitch, void *dst,
                    int32_t dstPitch)
{
    resampleTile<Interpolation, Sink, Position, Pixel>(tile, DirectSource<Pixel>{src, srcPitch}, dst, dstPitch);
}

template <typename Interpolation, typename Sink, typename Position, typename Pixel>
void resampleBounded(const Tile<typename Position::Value> &tile, const Pixel *src, int32_t srcPitch,
                     const SourceBounds &bounds, void *dst, int32_t dstPitch)
{
    resampleTile<Interpolation, Sink, Position, Pixel>(tile, BoundedSource<Pixel>{src, srcPitch, bounds}, dst,
                                                       dstPitch);
}

// A kernel with the bounded twin of the same interpolation.
template <typename Interpolation, typename Sink, typename Position, typename Pixel>
TileKernels<Pixel, typename Position::Value> withTwin(TileKernel<Pixel, typename Position::Value> inside)
{
    return {inside, resampleBounded<Interpolation, Sink, Position, Pixel>, Interpolation::kReach,
            Interpolation::template shift<typename Position::Value>()};
}

template <typename Interpolation, typename Sink, typename Position, typename Pixel>
TileKernels<Pixel, typename Position::Value> portableTileKernels()
{
    return withTwin<Interpolation, Sink, Position, Pixel>(resampleInside<Interpolation, Sink, Position, Pixel>);
}

} // namespace kip

#endif
