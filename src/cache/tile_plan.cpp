#include "cache/tile_plan.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "geometry/sampling_grid.h"
#include "support/fixed_point.h"

namespace kip {

namespace {

// Source pixels that one tile's footprint may cover, so that it stays in the second-level cache.
constexpr double kMaxFootprintArea = 200000.0;
// The least start fraction, one unit of 16.16: a fraction of 0 has no place in a reversed scan.
constexpr double kLeastStartFraction = 1.526e-05;
// Bytes after the last sample that vector kernels may read: two registers of 64 bytes and a few taps.
constexpr size_t kScratchSlack = 192;

struct Corner {
    double x, y;
};

// Edges of the source pixels that a block of the destination reads, relative to the block's start. 64 bits: a
// side of a single sample may be of any length.
struct Footprint {
    int64_t x0, y0, x1, y1;
};

// What the footprints of all blocks share: the sides of a destination pixel in the source, and which corner of a
// block lies farthest on each side. Corners: the origin, the end of the first row, the one opposite, the start
// of the last row.
struct BlockGeometry {
    kmath_matrix matrix;
    int32_t margin;
    int32_t leftmost, rightmost, topmost, bottommost;
};

Corner cornerOf(const kmath_matrix &matrix, int32_t index, double width, double height)
{
    const Corner right = {matrix.e0 * width, matrix.e2 * width};
    const Corner down = {matrix.e1 * height, matrix.e3 * height};
    switch (index) {
    case 0:
        return {0.0, 0.0};
    case 1:
        return right;
    case 2:
        return {right.x + down.x, right.y + down.y};
    default:
        return down;
    }
}

// Chooses the outermost corners once, by the whole destination; among equal ones the first.
BlockGeometry findOutermostCorners(const kmath_xformLinear &map, double width, double height, int32_t margin)
{
    BlockGeometry geometry = {{map.e0, map.e1, map.e2, map.e3}, margin, 0, 0, 0, 0};
    const auto corner = [&](int32_t index) { return cornerOf(geometry.matrix, index, width, height); };
    for (int32_t i = 1; i < 4; ++i) {
        if (corner(i).x < corner(geometry.leftmost).x)
            geometry.leftmost = i;
        if (corner(i).x > corner(geometry.rightmost).x)
            geometry.rightmost = i;
        if (corner(i).y < corner(geometry.topmost).y)
            geometry.topmost = i;
        if (corner(i).y > corner(geometry.bottommost).y)
            geometry.bottommost = i;
    }
    return geometry;
}

// The footprint of a block of the given size.
Footprint footprintOf(const BlockGeometry &geometry, double width, double height)
{
    constexpr double inset = 1e-6;
    const auto corner = [&](int32_t index) { return cornerOf(geometry.matrix, index, width, height); };
    return {int64_t{kqfIFloor(corner(geometry.leftmost).x + inset)} - geometry.margin,
            int64_t{kqfIFloor(corner(geometry.topmost).y + inset)} - geometry.margin,
            int64_t{kqfICeil(corner(geometry.rightmost).x - inset)} + geometry.margin,
            int64_t{kqfICeil(corner(geometry.bottommost).y - inset)} + geometry.margin};
}

double areaOf(const Footprint &footprint)
{
    return static_cast<double>(footprint.x1 - footprint.x0 + 1) * static_cast<double>(footprint.y1 - footprint.y0 + 1);
}

// The map from the destination window's pixel coordinates to the source window's.
int32_t composeDestToSourceMap(const Sampling &sampling, kmath_xformLinear *map)
{
    const kip_affineSampleParams &params = sampling.params;
    kmath_xformLinear place;
    int32_t status = kmath_xformLinear_initMatrixTransElements(&place, 1.0, 0.0, 0.0, 1.0, sampling.destination.x,
                                                               sampling.destination.y);
    if (status < 0)
        return status;
    status = unitSquareFromDest(params.destWidth, params.destHeight, map);
    if (status < 0)
        return status;
    status = kmath_xformLinear_initCompose(map, map, &place);
    if (status < 0)
        return status;
    status = kmath_xformLinear_initCompose(map, &params.rect, map);
    if (status < 0)
        return status;
    status = kmath_xformLinear_initCompose(map, &sampling.srcFromClient, map);
    map->tx -= sampling.source.x;
    map->ty -= sampling.source.y;
    return status;
}

double withLeastFraction(double coordinate)
{
    return kqfFrac(coordinate) < kLeastStartFraction ? coordinate + kLeastStartFraction : coordinate;
}

// The position of the first destination pixel's centre, where pixel centres are whole numbers.
int32_t computeStart(const kmath_xformLinear &map, kmath_vect *start)
{
    const kmath_vect half = {0.5, 0.5};
    int32_t status = kmath_xformLinear_mapPoint(&map, &half, start);
    if (status < 0)
        return status;
    status = kmath_vect_initSubtract(start, start, &half);
    start->x = withLeastFraction(start->x);
    start->y = withLeastFraction(start->y);
    return status;
}

// Cuts the destination into tiles and finds the footprint of each class.
void planTiles(const BlockGeometry &geometry, int32_t width, int32_t height, kip_affineTilePlan *plan,
               Footprint (&footprints)[4])
{
    int32_t tw = std::min(kMaxTileSize, width);
    int32_t th = std::min(kMaxTileSize, height);
    int32_t lastWidth = tw;
    int32_t lastHeight = th;
    plan->tilesX = 1;
    plan->tilesY = 1;
    if (tw != width || th != height) {
        for (;;) {
            const double area = areaOf(footprintOf(geometry, tw, th));
            // A tile of one pixel is as small as they get: such a reduction reads what it has to.
            if (area <= kMaxFootprintArea || (tw == 1 && th == 1))
                break;
            const double factor = std::sqrt(kMaxFootprintArea / area);
            th = std::max(1, kqfIFloor(factor * th));
            tw = std::max(1, kqfIFloor(factor * tw));
        }
        plan->tilesX = (width - 1) / tw + 1;
        plan->tilesY = (height - 1) / th + 1;
        lastWidth = width - (plan->tilesX - 1) * tw;
        lastHeight = height - (plan->tilesY - 1) * th;
    }

    for (int32_t c = 0; c < 4; ++c) {
        const int32_t w = (c & 1) != 0 ? lastWidth : tw;
        const int32_t h = (c & 2) != 0 ? lastHeight : th;
        plan->tileWidth[c] = static_cast<uint16_t>(w);
        plan->tileHeight[c] = static_cast<uint16_t>(h);
        footprints[c] = footprintOf(geometry, w, h);
    }
}

enum class Scan { rowForward, rowReversed, columnForward, columnReversed };

// Chooses the source axis closest to the direction of a destination row.
Scan chooseScan(const kmath_xformLinear &map)
{
    constexpr double pi = std::numbers::pi;
    double angle;
    if (std::fabs(map.e0) >= 1e-6)
        angle = -std::atan2(map.e2, map.e0);
    else if (map.e1 * map.e2 >= 0.0)
        angle = map.e1 < 0.0 ? pi / 2 : -pi / 2;
    else
        angle = map.e1 < 0.0 ? -pi / 2 : pi / 2;

    if (-pi / 4 <= angle && angle <= pi / 4)
        return Scan::rowForward;
    if (angle >= 3 * pi / 4 || angle <= -3 * pi / 4)
        return Scan::rowReversed;
    return angle > 0.0 ? Scan::columnReversed : Scan::columnForward;
}

// The integer part of a 16.16 value moved by a count, modulo 2^16.
int32_t withIntegerAdded(int32_t value, int64_t count)
{
    return static_cast<int32_t>(static_cast<uint32_t>(value) + (static_cast<uint32_t>(count) << 16));
}

uint32_t fractionOf(int32_t value)
{
    return static_cast<uint32_t>(value) & 0xFFFF;
}

int32_t computeSpanCount(int32_t primaryStep, int32_t tileWidth, uint32_t primaryFraction)
{
    const uint32_t last = static_cast<uint32_t>(primaryStep) * static_cast<uint32_t>(tileWidth - 1) + primaryFraction;
    return (static_cast<int32_t>(last) >> 16) + 2;
}

// Starts, steps and the two factors of the map: along a row of samples, then from samples to pixels.
int32_t planScan(const kmath_xformLinear &map, const kmath_vect &start, int32_t sourcePitch, kip_affineTilePlan *plan,
                 Footprint (&footprints)[4])
{
    plan->startX = fixedStep(start.x);
    plan->startY = fixedStep(start.y);
    plan->bandStartX = withIntegerAdded(plan->startX, footprints[0].x0);
    plan->bandStartY = withIntegerAdded(plan->startY, footprints[0].y0);
    plan->bandX0 = static_cast<int16_t>(footprints[0].x0);
    plan->bandY0 = static_cast<int16_t>(footprints[0].y0);
    uint32_t fx = fractionOf(plan->startX);
    uint32_t fy = fractionOf(plan->startY);

    const Scan scan = chooseScan(map);
    const bool reversed = scan == Scan::rowReversed || scan == Scan::columnReversed;
    const double sign = reversed ? -1.0 : 1.0;
    plan->direction = reversed ? -1 : 1;
    kmath_matrix m;
    int32_t status;
    if (scan == Scan::rowForward || scan == Scan::rowReversed) {
        status = kmath_matrix_init(&m, map.e0, map.e1, map.e2, map.e3);
        plan->transposed = 0;
        plan->majorStep = plan->direction;
        plan->minorStep = sourcePitch;
        if (reversed) {
            fx = (65536 - fx) & 0xFFFF;
            for (Footprint &footprint : footprints)
                --footprint.x0;
        }
    } else {
        status = kmath_matrix_init(&m, map.e2, map.e3, map.e0, map.e1);
        plan->transposed = 1;
        plan->majorStep = reversed ? static_cast<int32_t>(0u - static_cast<uint32_t>(sourcePitch)) : sourcePitch;
        plan->minorStep = 1;
        if (reversed) {
            fy = (65536 - fy) & 0xFFFF;
            for (Footprint &footprint : footprints)
                --footprint.y0;
        }
    }
    if (status < 0)
        return status;

    double determinant;
    status = kmath_matrix_getDeterminant(&m, &determinant);
    if (status < 0)
        return status;
    plan->primaryStep = fixedStep(sign * m.e0);
    plan->primaryRowStep = fixedStep(sign * m.e1);
    plan->secondaryShear = fixedStep(sign * m.e2 / m.e0);
    plan->secondaryRowStep = fixedStep(determinant / m.e0);

    const uint32_t a = plan->transposed == 0 ? fx : fy;
    const uint32_t b = plan->transposed == 0 ? fy : fx;
    const auto shearHigh = static_cast<uint32_t>(plan->secondaryShear >> 16);
    const uint32_t shearLow = fractionOf(plan->secondaryShear);
    plan->primaryFraction = a;
    plan->secondaryFraction = static_cast<int32_t>(b - (shearHigh * a + shearLow * a / 65536));
    return status;
}

// Samples that a row of any class may write or read.
int32_t countLineEntries(const kip_affineTilePlan &plan)
{
    // The last pixel of a row lies at most one sample beyond spanCount's last, and has up to four taps.
    constexpr int32_t taps = 4;
    return std::max({plan.spanCount[0], plan.spanCount[1], 0}) + 1 + taps;
}

// Pixels of a copy of a class 0 tile's footprint with 64-pixel aligned rows, for the scans that do not follow the
// source's rows; 0 when it would not stay in the cache.
int32_t countStripPixels(const kip_affineTilePlan &plan, const Footprint &footprint)
{
    if (plan.transposed == 0 && plan.direction > 0)
        return 0;
    const double columns =
        static_cast<double>(plan.transposed != 0 ? footprint.y1 - footprint.y0 : footprint.x1 - footprint.x0) + 1.0 +
        64.0;
    const double rows =
        static_cast<double>(plan.transposed != 0 ? footprint.x1 - footprint.x0 : footprint.y1 - footprint.y0) + 2.0;
    return columns * rows <= 2 * kMaxFootprintArea ? static_cast<int32_t>(columns * rows) : 0;
}

// Resizes the scratch memory and takes over what was computed.
int32_t storeTilePlan(kip_affineTilePlan *plan, const kip_affineTilePlan &computed)
{
    void *scratch = plan->scratch;
    const int32_t status = ksys_memory_realloc_internal(computed.allocatedBytes, &scratch);
    if (status < 0)
        return status;
    const uint64_t builtFor = plan->builtFor;
    *plan = computed;
    plan->builtFor = builtFor;
    plan->scratch = scratch;
    return status;
}

// Bytes of scratch memory for one sample of a row, as the kernels store it: a pixel, or 64 times a pixel with a sign.
template <typename Pixel>
constexpr size_t entryBytes(bool cubic)
{
    return cubic ? 2 * sizeof(Pixel) : sizeof(Pixel);
}

// What the recorded size counts for one sample of a row, which for 16-bit pixels is more than the kernels take.
template <typename Pixel>
constexpr uint32_t recordedEntryBytes(bool cubic)
{
    constexpr uint32_t unit = sizeof(Pixel) == 1 ? 1 : 4;
    return (cubic ? 4 : 2) * unit;
}

template <typename Pixel>
int32_t buildTilePlan(kip_affineTilePlan *plan, const Sampling &sampling)
{
    const kimg_windowConst &source = sampling.source;
    const kimg_window &destination = sampling.destination;
    const kip_affineSampleParams &params = sampling.params;
    const int32_t width = destination.width;
    const int32_t height = params.destHeight;
    if (width < 1 || height < 1 || params.destWidth < 1)
        return kip_statusSizeBelowOne;
    const bool cubic = params.mode == kip_affineModeBicubic;

    kmath_xformLinear map;
    int32_t status = composeDestToSourceMap(sampling, &map);
    if (status < 0)
        return status;
    kmath_vect start;
    status = computeStart(map, &start);
    if (status < 0)
        return status;

    kip_affineTilePlan computed = {};
    Footprint footprints[4];
    planTiles(findOutermostCorners(map, width, height, cubic ? 3 : 2), width, height, &computed, footprints);
    status = planScan(map, start, source.pitch, &computed, footprints);
    if (status < 0)
        return status;

    for (int32_t c = 0; c < 4; ++c) {
        computed.spanCount[c] =
            computeSpanCount(computed.primaryStep, computed.tileWidth[c & 1], computed.primaryFraction);
        computed.bandOffset[c] = footprints[c].y0 * source.pitch + footprints[c].x0;
        computed.bandDx[c] = static_cast<int32_t>(footprints[c].x0 - footprints[0].x0);
        computed.bandDy[c] = static_cast<int32_t>(footprints[c].y0 - footprints[0].y0);
    }
    computed.tileColumnStepX = fixedStep(map.e0 * computed.tileWidth[0]);
    computed.tileColumnStepY = fixedStep(map.e2 * computed.tileWidth[0]);
    computed.tileRowStepX = fixedStep(map.e1 * computed.tileHeight[0]);
    computed.tileRowStepY = fixedStep(map.e3 * computed.tileHeight[0]);

    const kmath_matrix matrix = {map.e0, map.e1, map.e2, map.e3};
    double scale;
    status = kmath_matrix_getScale(&matrix, &scale);
    if (status < 0)
        return status;
    const uint32_t recordedSamples = (static_cast<uint32_t>(kqfIFloor(scale)) + 1) * computed.tileWidth[0];
    computed.scratchBytes = static_cast<int32_t>(recordedSamples * recordedEntryBytes<Pixel>(cubic) + (cubic ? 4 : 0));
    computed.sourcePitch = static_cast<uint32_t>(source.pitch);
    computed.destinationPitch = static_cast<uint32_t>(destination.pitch);

    // The recorded size follows the scale alone and can be short of what a row writes, or far beyond it where a
    // side has a single sample; the memory itself follows the rows.
    computed.lineEntries = countLineEntries(computed);
    const size_t lineBytes = static_cast<size_t>(computed.lineEntries) * entryBytes<Pixel>(cubic) + kScratchSlack;
    computed.stripPixels = countStripPixels(computed, footprints[0]);
    computed.stripOffset = (lineBytes + 63) / 64 * 64;
    computed.allocatedBytes =
        computed.stripOffset + static_cast<size_t>(computed.stripPixels) * sizeof(Pixel) + kScratchSlack;
    return storeTilePlan(plan, computed);
}

} // namespace

int32_t buildTilePlan8(kip_affineTilePlan *plan, const Sampling &sampling)
{
    return buildTilePlan<uint8_t>(plan, sampling);
}

int32_t buildTilePlan16(kip_affineTilePlan *plan, const Sampling &sampling)
{
    return buildTilePlan<uint16_t>(plan, sampling);
}

} // namespace kip

void kip_affineTilePlan_init(kip_affineTilePlan *plan)
{
    plan->builtFor = 0;
    plan->scratch = nullptr;
}

int32_t kip_affineTilePlan_free(kip_affineTilePlan *plan)
{
    plan->builtFor = 0;
    return ksys_memory_free_internal(&plan->scratch);
}

bool kip_affineTilePlan_needsRebuild(const kip_affineTilePlan &plan, uint64_t geometry, const kip::Sampling &sampling)
{
    return plan.builtFor != geometry || plan.sourcePitch != static_cast<uint32_t>(sampling.source.pitch) ||
           plan.destinationPitch != static_cast<uint32_t>(sampling.destination.pitch);
}

// A sample that lies outside the source is left out, and its place on the line keeps what it held. Where samples move
// across no more than the one pixel that they move along, the clipping test keeps all that a pixel needs inside. The
// line is long enough if its length did not wrap.
bool kip_affineTilePlan_hasIndependentRows(const kip_affineTilePlan &plan)
{
    const int64_t last = 0xFFFF + int64_t{plan.primaryStep} * (plan.tileWidth[0] - 1);
    return hasGentleShear(plan) && plan.primaryStep >= 0 && last <= INT32_MAX;
}
