#include "support/slow_model.h"

#include <algorithm>
#include <cmath>
#include <optional>

#include "cache/cubic_weight_table.h"
#include "cache/sample_cache.h"
#include "cache/tile_plan.h"

namespace kip::test {

namespace {

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
    return bilinear(m, baseX + (x >> 16), baseY + (y >> 16), x & 0xFFFF, y & 0xFFFF);
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

// ---- Through a plan ------------------------------------------------------------------------------------------------

int32_t integerOf(uint32_t v)
{
    return static_cast<int16_t>(v >> 16);
}

// A value, or nothing where the definition gives none.
using Known = std::optional<int64_t>;

// Tile by tile, row by row, with addresses and one sample at a time.
struct PlanModel {
    const kip_affineTilePlan &plan;
    const kimg_windowConst &source;
    bool cubic;
    bool roundsDown; // the fast 8-bit path's first pass
    std::vector<Known> line = std::vector<Known>(static_cast<size_t>(plan.lineEntries), 0);

    int64_t pixel(int64_t at) const
    {
        return source.bytesPerPixel == 1 ? static_cast<const uint8_t *>(source.pixels)[at]
                                         : static_cast<const uint16_t *>(source.pixels)[at];
    }
    int64_t low() const { return std::min<int64_t>(0, (source.height - 1) * int64_t{source.pitch}); }
    int64_t high() const
    {
        return std::max<int64_t>(0, (source.height - 1) * int64_t{source.pitch}) + source.width - 1;
    }
    bool has(int64_t at) const { return at >= low() && at <= high(); }

    int64_t weight(uint32_t fraction, int64_t tap) const
    {
        if (!cubic)
            return tap == 0 ? 32768 - (fraction >> 1) : fraction >> 1;
        const int16_t *const weights = getCubicWeightsBase(cubicWeightTable());
        return weights[4 * static_cast<size_t>(fraction >> 8) + static_cast<size_t>(tap)];
    }
    static int64_t divided(int64_t value, int64_t by, bool down)
    {
        return value / by - (down && value % by < 0 ? 1 : 0);
    }

    // The sample of a run of taps; those in [from, to) count.
    Known sample(int64_t a, uint32_t fraction, int64_t from, int64_t to, bool down) const
    {
        int64_t sum = cubic ? 256 : 0;
        for (int64_t tap = from; tap < to; ++tap) {
            const int64_t at = a + (tap - (cubic ? 1 : 0)) * plan.minorStep;
            if (!has(at))
                return std::nullopt;
            sum += weight(fraction, tap) * pixel(at);
        }
        return cubic ? divided(sum, 512, down) : sum >> 15;
    }

    void sampleRow(int64_t base, uint32_t position, int32_t c)
    {
        const int32_t taps = cubic ? 4 : 2;
        const auto shear = static_cast<uint32_t>(plan.secondaryShear);
        const auto positionOf = [&](int32_t r) { return position + static_cast<uint32_t>(r) * shear; };
        const auto addressOf = [&](int32_t r) {
            return base + int64_t{r} * plan.majorStep + int64_t{integerOf(positionOf(r))} * plan.minorStep;
        };
        const auto isInside = [&](int32_t r) {
            const int64_t first = addressOf(r) - (cubic ? plan.minorStep : 0);
            return has(first) && has(first + int64_t{taps - 1} * plan.minorStep);
        };
        const auto isOutside = [&](int32_t r) {
            const auto [least, greatest] = std::minmax({addressOf(r), addressOf(r) + plan.minorStep});
            return cubic ? least < low() || greatest > high() : greatest < low() || least > high();
        };
        const auto partial = [&](int32_t r, uint32_t fraction) {
            const int64_t a = addressOf(r);
            return has(a - (cubic ? plan.minorStep : 0)) ? sample(a, fraction, 0, taps - 1, false)
                                                         : sample(a, fraction, 1, taps, false);
        };
        const auto entry = [&](int32_t r) -> Known & { return line[static_cast<size_t>(r + (cubic ? 1 : 0))]; };

        int32_t first = cubic ? -1 : 0;
        uint32_t trailing = position & 0xFFFF;
        if (cubic && !isInside(-1)) {
            entry(-1) = partial(-1, positionOf(-1) & 0xFFFF);
            trailing = positionOf(1) & 0xFFFF;
            first = 0;
        }
        int32_t last = plan.spanCount[c] + (cubic ? 1 : 0);
        while (last >= first && isOutside(last))
            --last;
        for (; last >= first && !isInside(last); --last)
            entry(last) = partial(last, trailing);
        for (int32_t r = first; r <= last; ++r)
            entry(r) = sample(addressOf(r), positionOf(r) & 0xFFFF, 0, taps, roundsDown);
    }

    Known output(uint32_t position) const
    {
        const int32_t taps = cubic ? 4 : 2;
        int64_t sum = cubic ? 0x100000 : 0;
        for (int32_t tap = 0; tap < taps; ++tap) {
            const int32_t at = integerOf(position) + tap;
            if (at < 0 || at >= static_cast<int32_t>(line.size()) || !line[static_cast<size_t>(at)])
                return std::nullopt;
            sum += weight(position & 0xFFFF, tap) * *line[static_cast<size_t>(at)];
        }
        const int64_t greatest = source.bytesPerPixel == 1 ? 255 : 65535;
        return cubic ? std::clamp<int64_t>(sum / 0x200000, 0, greatest) : sum >> 15;
    }

    // All pixels, row by row.
    std::vector<int64_t> run(int32_t width, int32_t height)
    {
        std::vector<int64_t> result(static_cast<size_t>(width) * static_cast<size_t>(height));
        const auto shearLow = static_cast<uint32_t>(plan.secondaryShear) & 0xFFFF;
        const auto shearHigh = static_cast<uint32_t>(plan.secondaryShear >> 16);
        int32_t bx = integerOf(static_cast<uint32_t>(plan.bandStartX));
        int32_t by = integerOf(static_cast<uint32_t>(plan.bandStartY));
        uint32_t pf = plan.primaryFraction & 0xFFFF;
        auto sf = static_cast<uint32_t>(plan.secondaryFraction);
        auto rowX = static_cast<uint32_t>(plan.startX);
        auto rowY = static_cast<uint32_t>(plan.startY);
        for (int32_t ty = 0; ty < plan.tilesY; ++ty) {
            uint32_t x = rowX;
            uint32_t y = rowY;
            for (int32_t tx = 0; tx < plan.tilesX; ++tx) {
                const int32_t c = (tx == plan.tilesX - 1 ? 1 : 0) + (ty == plan.tilesY - 1 ? 2 : 0);
                const int64_t tileBase =
                    int64_t{by + plan.bandDy[c] + (plan.transposed == 0 ? integerOf(sf) : 0)} * source.pitch +
                    plan.bandDx[c] + (plan.transposed == 1 ? integerOf(sf) : 0) + bx - plan.bandOffset[c];
                for (int32_t j = 0; j < plan.tileHeight[c]; ++j) {
                    const uint32_t along = pf + static_cast<uint32_t>(j) * static_cast<uint32_t>(plan.primaryRowStep);
                    const int32_t skipped = integerOf(along);
                    sampleRow(tileBase + int64_t{skipped} * plan.majorStep,
                              (sf & 0xFFFF) + static_cast<uint32_t>(j) * static_cast<uint32_t>(plan.secondaryRowStep) +
                                  static_cast<uint32_t>(skipped) * static_cast<uint32_t>(plan.secondaryShear),
                              c);
                    for (int32_t n = 0; n < plan.tileWidth[c]; ++n)
                        result[static_cast<size_t>((ty * plan.tileHeight[0] + j) * width + tx * plan.tileWidth[0] +
                                                   n)] =
                            output((along & 0xFFFF) +
                                   static_cast<uint32_t>(n) * static_cast<uint32_t>(plan.primaryStep))
                                .value_or(-1);
                }
                x += static_cast<uint32_t>(plan.tileColumnStepX);
                y += static_cast<uint32_t>(plan.tileColumnStepY);
                if (tx == plan.tilesX - 1) {
                    rowX += static_cast<uint32_t>(plan.tileRowStepX);
                    rowY += static_cast<uint32_t>(plan.tileRowStepY);
                    x = rowX;
                    y = rowY;
                }
                bx = static_cast<int16_t>(integerOf(x) + plan.bandX0);
                by = static_cast<int16_t>(integerOf(y) + plan.bandY0);
                const uint32_t a = std::max<uint32_t>((plan.transposed == 0 ? x : y) & 0xFFFF, 1);
                const uint32_t b = (plan.transposed == 0 ? y : x) & 0xFFFF;
                pf = (static_cast<uint32_t>(plan.direction) * a) & 0xFFFF;
                sf = b - ((shearLow * pf) >> 16) - shearHigh * pf;
            }
        }
        return result;
    }
};

} // namespace

SlowModel makeSlowModel(const kimg_windowConst &source, const kmath_xformLinear &srcFromClient,
                        const kip_affineSampleParams &params, ModelWalker walker, int32_t tileSize)
{
    const kmath_xformLinear &a = srcFromClient;
    const kmath_xformLinear &r = params.rect;
    // Of the destination's pixels in client coordinates.
    const double perColumn = 1.0 / params.destWidth;
    const double perRow = 1.0 / params.destHeight;
    const double inClient[] = {r.e0 * perColumn, r.e1 * perRow, r.e2 * perColumn, r.e3 * perRow};
    const kmath_vect right = {a.e0 * inClient[0] + a.e1 * inClient[2], a.e2 * inClient[0] + a.e3 * inClient[2]};
    const kmath_vect down = {a.e0 * inClient[1] + a.e1 * inClient[3], a.e2 * inClient[1] + a.e3 * inClient[3]};
    const kmath_vect corner = {a.e0 * r.tx + a.e1 * r.ty + a.tx, a.e2 * r.tx + a.e3 * r.ty + a.ty};
    const auto inWindow = [&](double x, double y) {
        return kmath_vect{right.x * x + down.x * y + corner.x - source.x,
                          right.y * x + down.y * y + corner.y - source.y};
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
    model.isFast = false;
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
            for (const double distance : {(c == 0 ? 0.0 : c * grid.colStep.x) + (r == 0 ? 0.0 : r * grid.rowStep.x),
                                          (c == 0 ? 0.0 : c * grid.colStep.y) + (r == 0 ? 0.0 : r * grid.rowStep.y)})
                if (!(std::fabs(distance) < 32766.0))
                    return ModelWalker::inDoubles;
    return ModelWalker::rebased;
}

std::vector<int64_t> resampleSlowly(const kimg_windowConst &source, const kmath_xformLinear &srcFromClient,
                                    const kip_affineSampleParams &params, bool isFast)
{
    const bool is8 = source.bytesPerPixel == 1;
    isFast = isFast && is8 && isInReachOf16(source);
    std::vector<int64_t> pixels;
    if (params.mode > kip_affineModeBilinear) {
        kimg_window destination = {};
        destination.width = params.destWidth;
        destination.height = params.destHeight;
        kip_affineTilePlan plan = {};
        kip_affineTilePlan_init(&plan);
        const auto build = is8 ? buildTilePlan8 : buildTilePlan16;
        kip_affineSampleCache cache;
        if (build(&plan, {source, srcFromClient, destination, params, cache, 0}) >= 0)
            pixels = PlanModel{plan, source, params.mode == kip_affineModeBicubic, isFast}.run(params.destWidth,
                                                                                               params.destHeight);
        kip_affineTilePlan_free(&plan);
        return pixels;
    }
    const int32_t tileSize = is8 && !isFast ? 64 : tileSizeOf(source);
    SlowModel model =
        makeSlowModel(source, srcFromClient, params, modelWalker(source, srcFromClient, params), tileSize);
    if (isFast && params.mode == kip_affineModeBilinear)
        model.isFast = model.tilesFromDoubles = true;
    for (int32_t y = 0; y < params.destHeight; ++y)
        for (int32_t x = 0; x < params.destWidth; ++x)
            pixels.push_back(sampleSlowly(model, x, y));
    return pixels;
}

} // namespace kip::test
