#include "support/slow_model.h"

#include <algorithm>
#include <cmath>

#include "support/images.h"
#include "support/two_pass_model.h"

namespace kip::test {

namespace {

// Along one axis: the centre of destination pixel (0, 0) and the steps to the pixel below and to the one on the right.
struct Axis {
    double start, rowStep, colStep;
};

struct SlowModel {
    kimg_windowConst source; // 1 or 2 bytes per pixel
    uint32_t mode;           // kip_affineModeNearest or kip_affineModeBilinear
    ModelWalker walker;
    int32_t tileSize;
    bool tilesFromDoubles;
    bool isFast; // weights of the optimised 8-bit path
    Axis x, y;
};

// Toward zero. What 64 bits cannot hold are steps that are never taken: the nearest number will do.
int64_t truncated(double v)
{
    if (std::isnan(v))
        return 0;
    if (std::fabs(v) >= 0x1p63)
        return v < 0 ? INT64_MIN : INT64_MAX;
    return static_cast<int64_t>(v);
}

int32_t truncated32(double v)
{
    return static_cast<int32_t>(std::clamp<int64_t>(truncated(v), INT32_MIN, INT32_MAX));
}

// 32-bit numbers that wrap.
int32_t wrapped(int64_t v)
{
    return static_cast<int32_t>(static_cast<uint32_t>(static_cast<uint64_t>(v)));
}

uint32_t pixelAt(const kimg_windowConst &source, int64_t x, int64_t y)
{
    return static_cast<uint32_t>(
        valueAt(source, std::clamp<int64_t>(x, 0, source.width - 1), std::clamp<int64_t>(y, 0, source.height - 1)));
}

// ix, iy: the integer parts of the position; fx, fy: its 16 fraction bits.
uint32_t bilinear(const SlowModel &m, int64_t ix, int64_t iy, uint64_t fx, uint64_t fy)
{
    const kimg_windowConst &source = m.source;
    const uint64_t p00 = pixelAt(source, ix, iy);
    const uint64_t p01 = pixelAt(source, ix + 1, iy);
    const uint64_t p10 = pixelAt(source, ix, iy + 1);
    const uint64_t p11 = pixelAt(source, ix + 1, iy + 1);
    if (source.bytesPerPixel == 2) {
        const uint64_t one = 65536;
        const uint64_t sum =
            (one - fx) * (one - fy) * p00 + fx * (one - fy) * p01 + (one - fx) * fy * p10 + fx * fy * p11 + 0x7FFFFFFF;
        return static_cast<uint32_t>(sum >> 32);
    }
    const uint64_t gx = 65535 - fx;
    const uint64_t gy = 65535 - fy;
    const int lost = m.isFast ? 17 : 16;
    const uint64_t sum =
        ((gx * gy) >> lost) * p00 + ((fx * gy) >> lost) * p01 + ((gx * fy) >> lost) * p10 + ((fx * fy) >> lost) * p11;
    return static_cast<uint32_t>(((sum << (lost - 16)) + 0x8000) >> 16);
}

// Column and row counts of one pixel: whole tiles, and pixels inside its tile.
struct Place {
    int64_t tileCol, tileRow;
    int64_t col, row;
};

// In 16.16 from a pixel.
struct Position {
    int64_t base;
    int32_t position;
};

// ---- 16.16 ---------------------------------------------------------------------------------------------------

Position fixedPosition(const SlowModel &m, const Axis &axis, const Place &at)
{
    const int64_t row = truncated32(axis.rowStep * 65536.0);
    const int64_t col = truncated32(axis.colStep * 65536.0);
    int64_t tileRow = wrapped(m.tileSize * row);
    int64_t tileCol = wrapped(m.tileSize * col);
    if (m.tilesFromDoubles) {
        tileRow = truncated32(m.tileSize * axis.rowStep * 65536.0);
        tileCol = truncated32(m.tileSize * axis.colStep * 65536.0);
    }
    int64_t position = truncated32(axis.start * 65536.0 + 0.5);
    position = wrapped(position + wrapped(at.tileRow * tileRow));
    position = wrapped(position + wrapped(at.tileCol * tileCol));
    position = wrapped(position + wrapped(at.row * row));
    return {0, wrapped(position + wrapped(at.col * col))};
}

uint32_t sampleFixed(const SlowModel &m, const Position &px, const Position &py)
{
    const int64_t half = m.mode == kip_affineModeNearest ? 0 : 0x8000;
    const int32_t x = wrapped(px.position - half), y = wrapped(py.position - half);
    const int64_t ix = px.base + (x >> 16), iy = py.base + (y >> 16);
    return half == 0 ? pixelAt(m.source, ix, iy) : bilinear(m, ix, iy, x & 0xFFFF, y & 0xFFFF);
}

// ---- 64 bits, 30 of them of the fraction -----------------------------------------------------------------------

Position rebasedPosition(const SlowModel &m, const Axis &axis, const Place &at)
{
    const double one = 1073741824.0;
    const auto &[start, rowStep, colStep] = axis;
    // Unsigned: a tile that is never reached may be anywhere.
    uint64_t tile = static_cast<uint64_t>(truncated(start >= 0 ? start * one + 0.5 : start * one - 0.4999999999));
    const uint64_t size = static_cast<uint64_t>(m.tileSize);
    tile += static_cast<uint64_t>(at.tileRow) * size * static_cast<uint64_t>(truncated(rowStep * one));
    tile += static_cast<uint64_t>(at.tileCol) * size * static_cast<uint64_t>(truncated(colStep * one));
    int64_t position = static_cast<int64_t>(((tile & 0x3FFFFFFF) + 0x2000) >> 14);
    position = wrapped(position + wrapped(at.row * truncated32(rowStep * 65536.0)));
    position = wrapped(position + wrapped(at.col * truncated32(colStep * 65536.0)));
    return {static_cast<int64_t>(tile) >> 30, static_cast<int32_t>(position)};
}

// ---- Doubles -----------------------------------------------------------------------------------------------------

// Sums of doubles depend on their order: first along the outer direction of the tiles, then along the inner
// one, then half a pixel back for the bilinear mode, then down the tile's rows and along the row.
double doublePosition(const SlowModel &m, const Axis &axis, const Place &at)
{
    double position = axis.start;
    const auto advance = [&position](int64_t count, double step) {
        for (int64_t n = 0; n < count; ++n)
            position += step;
    };
    const bool isTransposed = std::fabs(m.y.colStep) > std::fabs(m.y.rowStep);
    if (isTransposed)
        advance(at.tileCol, m.tileSize * axis.colStep);
    advance(at.tileRow, m.tileSize * axis.rowStep);
    if (!isTransposed)
        advance(at.tileCol, m.tileSize * axis.colStep);
    if (m.mode == kip_affineModeBilinear)
        position -= 0.5;
    advance(at.row, axis.rowStep);
    advance(at.col, axis.colStep);
    return position;
}

uint64_t doubleFraction(double v)
{
    return static_cast<uint64_t>(truncated((v - std::trunc(v)) * 65536.0)) & 0xFFFF;
}

uint32_t sampleDouble(const SlowModel &m, double x, double y)
{
    // No source reaches 2^40: one such position is as far outside as another, and its neighbour must not wrap.
    const int64_t ix = std::clamp(truncated(x), -(int64_t{1} << 40), int64_t{1} << 40);
    const int64_t iy = std::clamp(truncated(y), -(int64_t{1} << 40), int64_t{1} << 40);
    if (m.mode == kip_affineModeNearest)
        return pixelAt(m.source, ix, iy);
    return bilinear(m, ix, iy, doubleFraction(x), doubleFraction(y));
}

// Of all but the portable 8-bit walkers, which have a single size.
int32_t tileSizeOf(const kimg_windowConst &source)
{
    if (source.pitch > 3072)
        return 48;
    if (source.pitch > 2048)
        return 64;
    return source.pitch > 1024 ? 96 : 224;
}

bool isInReachOf16(const kimg_windowConst &source)
{
    return source.pitch <= 32767 && source.height <= 32767;
}

SlowModel makeSlowModel(const kimg_windowConst &source, const kmath_xformLinear &srcFromClient,
                        const kip_affineSampleParams &params, ModelWalker walker, int32_t tileSize)
{
    const kmath_xformLinear map = sourceFromDest(srcFromClient, params);
    const auto inWindow = [&](double x, double y) {
        return kmath_vect{map.e0 * x + map.e1 * y + map.tx - source.x, map.e2 * x + map.e3 * y + map.ty - source.y};
    };
    const kmath_vect q0 = inWindow(0.5, 0.5);
    const kmath_vect q1 = inWindow(0.5, 1.5);
    const kmath_vect q2 = inWindow(1.5, 0.5);

    return {source,
            params.mode,
            walker,
            tileSize,
            params.destWidth > 1024 || params.destHeight > 1024,
            false,
            {q0.x, q1.x - q0.x, q2.x - q0.x},
            {q0.y, q1.y - q0.y, q2.y - q0.y}};
}

// The sample of destination pixel (x, y).
uint32_t sampleSlowly(const SlowModel &m, int32_t x, int32_t y)
{
    const Place at = {x / m.tileSize, y / m.tileSize, x % m.tileSize, y % m.tileSize};
    if (m.walker == ModelWalker::inDoubles)
        return sampleDouble(m, doublePosition(m, m.x, at), doublePosition(m, m.y, at));
    const auto positionOf = m.walker == ModelWalker::fixed ? fixedPosition : rebasedPosition;
    return sampleFixed(m, positionOf(m, m.x, at), positionOf(m, m.y, at));
}

} // namespace

ModelWalker modelWalker(const kimg_windowConst &source, const kmath_xformLinear &srcFromClient,
                        const kip_affineSampleParams &params)
{
    if (isInReachOf16(source))
        return ModelWalker::fixed;
    constexpr int32_t size = 64;
    const kmath_shapeAffineRect &rect = params.rect;
    if (size * std::hypot(rect.e0, rect.e2) / params.destWidth >= 32768.0 ||
        size * std::hypot(rect.e1, rect.e3) / params.destHeight >= 32768.0)
        return ModelWalker::inDoubles;
    const SlowModel grid = makeSlowModel(source, srcFromClient, params, ModelWalker::rebased, size);
    const int32_t columns = std::min(size, params.destWidth);
    const int32_t rows = std::min(size, params.destHeight);
    // 16.16 holds what lies between the corners of a tile, each counted from the pixel of the first.
    for (const int32_t c : {0, columns - 1})
        for (const int32_t r : {0, rows - 1})
            for (const Axis &axis : {grid.x, grid.y}) // 0 times infinity is nothing
                if (!(std::fabs((c == 0 ? 0.0 : c * axis.colStep) + (r == 0 ? 0.0 : r * axis.rowStep)) < 32766.0))
                    return ModelWalker::inDoubles;
    return ModelWalker::rebased;
}

std::vector<int64_t> resampleSlowly(const kimg_windowConst &source, const kmath_xformLinear &srcFromClient,
                                    const kip_affineSampleParams &params, bool isFast)
{
    const bool is8 = source.bytesPerPixel == 1;
    isFast = isFast && is8 && isInReachOf16(source);
    if (params.mode > kip_affineModeBilinear)
        return resampleInTwoPasses(source, srcFromClient, params, isFast);
    const int32_t tileSize = is8 && !isFast ? 64 : tileSizeOf(source);
    SlowModel model =
        makeSlowModel(source, srcFromClient, params, modelWalker(source, srcFromClient, params), tileSize);
    if (isFast && params.mode == kip_affineModeBilinear)
        model.isFast = model.tilesFromDoubles = true;
    std::vector<int64_t> pixels;
    for (int32_t y = 0; y < params.destHeight; ++y)
        for (int32_t x = 0; x < params.destWidth; ++x)
            pixels.push_back(sampleSlowly(model, x, y));
    return pixels;
}

} // namespace kip::test
