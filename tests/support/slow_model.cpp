#include "support/slow_model.h"

#include <algorithm>
#include <cmath>

namespace kip::test {

namespace {

// Affine maps as 3 x 3 matrices.
struct Matrix3 {
    double e[3][3];
};

Matrix3 matrixOf(const kmath_xformLinear &map)
{
    return {{{map.e0, map.e1, map.tx}, {map.e2, map.e3, map.ty}, {0.0, 0.0, 1.0}}};
}

Matrix3 product(const Matrix3 &a, const Matrix3 &b)
{
    Matrix3 result = {};
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c)
            for (int k = 0; k < 3; ++k)
                result.e[r][c] += a.e[r][k] * b.e[k][c];
    return result;
}

kmath_vect mapPoint(const Matrix3 &m, double x, double y)
{
    return {m.e[0][0] * x + m.e[0][1] * y + m.e[0][2], m.e[1][0] * x + m.e[1][1] * y + m.e[1][2]};
}

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
    const int64_t column = x < 0 ? 0 : x >= source.width ? source.width - 1 : x;
    const int64_t row = y < 0 ? 0 : y >= source.height ? source.height - 1 : y;
    const int64_t offset = row * source.pitch + column;
    if (source.bytesPerPixel == 1)
        return static_cast<const uint8_t *>(source.pixels)[offset];
    return static_cast<const uint16_t *>(source.pixels)[offset];
}

// ix, iy: the integer parts of the position; fx, fy: its 16 fraction bits.
uint32_t bilinear(const kimg_windowConst &source, int64_t ix, int64_t iy, uint64_t fx, uint64_t fy)
{
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
    const uint64_t sum =
        ((gx * gy) >> 16) * p00 + ((fx * gy) >> 16) * p01 + ((gx * fy) >> 16) * p10 + ((fx * fy) >> 16) * p11 + 0x8000;
    return static_cast<uint32_t>(sum >> 16);
}

// Column and row counts of one pixel: whole tiles, and pixels inside its tile.
struct Place {
    int64_t tileCol, tileRow;
    int64_t col, row;
};

// ---- 16.16 ---------------------------------------------------------------------------------------------------

// Along one axis.
int32_t fixedPosition(const SlowModel &m, double start, double rowStep, double colStep, const Place &at)
{
    const int64_t row = truncated32(rowStep * 65536.0);
    const int64_t col = truncated32(colStep * 65536.0);
    int64_t tileRow = wrapped(m.tileSize * row);
    int64_t tileCol = wrapped(m.tileSize * col);
    if (m.tilesFromDoubles) {
        tileRow = truncated32(m.tileSize * rowStep * 65536.0);
        tileCol = truncated32(m.tileSize * colStep * 65536.0);
    }
    int64_t position = truncated32(start * 65536.0 + 0.5);
    position = wrapped(position + wrapped(at.tileRow * tileRow));
    position = wrapped(position + wrapped(at.tileCol * tileCol));
    position = wrapped(position + wrapped(at.row * row));
    return wrapped(position + wrapped(at.col * col));
}

uint32_t sampleFixed(const SlowModel &m, int64_t baseX, int64_t baseY, int32_t x, int32_t y)
{
    if (m.mode == kip_affineModeNearest)
        return pixelAt(m.source, baseX + (x >> 16), baseY + (y >> 16));
    x = wrapped(int64_t{x} - 0x8000);
    y = wrapped(int64_t{y} - 0x8000);
    return bilinear(m.source, baseX + (x >> 16), baseY + (y >> 16), x & 0xFFFF, y & 0xFFFF);
}

// ---- 64 bits, 30 of them of the fraction -----------------------------------------------------------------------

struct RebasedPosition {
    int64_t base;
    int32_t position;
};

RebasedPosition rebasedPosition(const SlowModel &m, double start, double rowStep, double colStep, const Place &at)
{
    const double one = 1073741824.0;
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
double doublePosition(const SlowModel &m, double start, double rowStep, double colStep, const Place &at)
{
    const double tileRow = m.tileSize * rowStep;
    const double tileCol = m.tileSize * colStep;
    double position = start;
    if (m.transposedOrder) {
        for (int64_t n = 0; n < at.tileCol; ++n)
            position += tileCol;
        for (int64_t n = 0; n < at.tileRow; ++n)
            position += tileRow;
    } else {
        for (int64_t n = 0; n < at.tileRow; ++n)
            position += tileRow;
        for (int64_t n = 0; n < at.tileCol; ++n)
            position += tileCol;
    }
    if (m.mode == kip_affineModeBilinear)
        position -= 0.5;
    for (int64_t n = 0; n < at.row; ++n)
        position += rowStep;
    for (int64_t n = 0; n < at.col; ++n)
        position += colStep;
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
    return bilinear(m.source, ix, iy, doubleFraction(x), doubleFraction(y));
}

double spread(double step, int32_t count)
{
    return count > 1 ? std::fabs(step) * (count - 1) : 0.0;
}

} // namespace

int32_t modelTileSize(const kimg_windowConst &source)
{
    if (source.bytesPerPixel == 1)
        return 64;
    if (source.pitch > 3072)
        return 48;
    if (source.pitch > 2048)
        return 64;
    return source.pitch > 1024 ? 96 : 224;
}

SlowModel makeSlowModel(const kimg_windowConst &source, const kmath_xformLinear &srcFromClient,
                        const kip_affineSampleParams &params, ModelWalker walker, int32_t tileSize)
{
    const Matrix3 unitFromDest = {{{1.0 / params.destWidth, 0, 0}, {0, 1.0 / params.destHeight, 0}, {0, 0, 1}}};
    const Matrix3 map = product(matrixOf(srcFromClient), product(matrixOf(params.rect), unitFromDest));
    const auto inWindow = [&](double x, double y) {
        const kmath_vect p = mapPoint(map, x, y);
        return kmath_vect{p.x - source.x, p.y - source.y};
    };
    const kmath_vect q0 = inWindow(0.5, 0.5);
    const kmath_vect q1 = inWindow(0.5, 1.5);
    const kmath_vect q2 = inWindow(1.5, 0.5);

    SlowModel model;
    model.source = source;
    model.mode = params.mode;
    model.walker = walker;
    model.tileSize = tileSize;
    model.tilesFromDoubles = params.destWidth > 1024 || params.destHeight > 1024;
    model.start = q0;
    model.rowStep = {q1.x - q0.x, q1.y - q0.y};
    model.colStep = {q2.x - q0.x, q2.y - q0.y};
    model.transposedOrder = std::fabs(model.colStep.y) > std::fabs(model.rowStep.y);
    return model;
}

uint32_t sampleSlowly(const SlowModel &m, int32_t x, int32_t y)
{
    const Place at = {x / m.tileSize, y / m.tileSize, x % m.tileSize, y % m.tileSize};
    if (m.walker == ModelWalker::fixed)
        return sampleFixed(m, 0, 0, fixedPosition(m, m.start.x, m.rowStep.x, m.colStep.x, at),
                           fixedPosition(m, m.start.y, m.rowStep.y, m.colStep.y, at));
    if (m.walker == ModelWalker::rebased) {
        const RebasedPosition px = rebasedPosition(m, m.start.x, m.rowStep.x, m.colStep.x, at);
        const RebasedPosition py = rebasedPosition(m, m.start.y, m.rowStep.y, m.colStep.y, at);
        return sampleFixed(m, px.base, py.base, px.position, py.position);
    }
    return sampleDouble(m, doublePosition(m, m.start.x, m.rowStep.x, m.colStep.x, at),
                        doublePosition(m, m.start.y, m.rowStep.y, m.colStep.y, at));
}

ModelWalker modelWalker(const kimg_windowConst &source, const kmath_xformLinear &srcFromClient,
                        const kip_affineSampleParams &params)
{
    if (source.pitch <= 32767 && source.height <= 32767)
        return ModelWalker::fixed;
    const int32_t size = modelTileSize(source);
    const kmath_shapeAffineRect &rect = params.rect;
    if (size * std::hypot(rect.e0, rect.e2) / params.destWidth >= 32768.0 ||
        size * std::hypot(rect.e1, rect.e3) / params.destHeight >= 32768.0)
        return ModelWalker::inDoubles;
    const SlowModel grid = makeSlowModel(source, srcFromClient, params, ModelWalker::rebased, size);
    const int32_t columns = std::min(size, params.destWidth);
    const int32_t rows = std::min(size, params.destHeight);
    const double spreadX = spread(grid.colStep.x, columns) + spread(grid.rowStep.x, rows);
    const double spreadY = spread(grid.colStep.y, columns) + spread(grid.rowStep.y, rows);
    return std::max(spreadX, spreadY) >= 32766.0 ? ModelWalker::inDoubles : ModelWalker::rebased;
}

} // namespace kip::test
