#include "transform/plan/plan_tiles.h"

#include <algorithm>
#include <cstdlib>

#include <kip/kip.h>

#include "cache/cubic_weight_table.h"
#include "cache/sample_cache.h"
#include "support/fixed_point.h"
#include "support/prefetch.h"
#include "transform/plan/plan_cubic.h"
#include "transform/plan/plan_edge_rows.h"
#include "transform/plan/plan_footprint.h"
#include "transform/plan/plan_kernel_choice.h"
#include "transform/plan/plan_linear.h"
#include "transform/plan/plan_scan.h"

namespace kip {

namespace {

// A tile on its way through the kernels.
template <typename Rule>
struct TileRows {
    const Scan<Rule> &scan;
    const PlanTile &tile;
    bool isTileInside; // every row lies inside the source
    bool isLineLongEnough;
    bool isSparse;                         // the samples of each pixel are made, and no others
    SampleView<typename Rule::Pixel> view; // what a row inside the source reads
    uint8_t *dst;                          // the tile's first pixel, or the first of its sums
    int64_t rowAdvance;                    // bytes from there to the next row's

    PlanRow rowAt(int32_t j) const { return planRowAt(scan.plan, tile.start, j); }
    bool isInside(int32_t j) const { return isTileInside || isRowInside(scan, tile, rowAt(j)); }
    void *dstAt(int32_t j) const { return dst + j * rowAdvance; }
};

// ---- Rows in groups -----------------------------------------------------------------------------------------------

// How a tile is cut into groups.
template <typename Rule>
struct TileGroups {
    RowGroupKernel<typename Rule::Pixel> *kernel = nullptr; // null: rows run one by one
    int32_t rows = 0;
    int32_t width = 0;
};

// Source pixels that a destination pixel stands for, 16.16 twice.
int64_t areaOf(const kip_affineTilePlan &plan)
{
    return int64_t{plan.primaryStep} * std::abs(int64_t{plan.secondaryRowStep});
}

// A coarse group copies all of the source that lies between its pixels; of greater areas, sparse rows read less.
template <typename Rule>
constexpr int64_t kMostGroupArea = int64_t{Rule::kCubic ? 12 : 4} << 32;

template <typename Rule>
TileGroups<Rule> groupsOf(const Scan<Rule> &scan, const PlanTile &tile)
{
    const kip_affineTilePlan &plan = scan.plan;
    const auto isWithin = [&plan](int32_t mostStep) {
        return isGroupGeometry(plan.secondaryRowStep, plan.primaryStep, plan.primaryRowStep, mostStep);
    };
    if (!hasGentleShear(plan) || !isLineLongEnough<Rule>(plan, tile))
        return {};
    if (isWithin(kGroupStep))
        return {scan.kernels.rowGroup, kGroupRows, tile.width};
    if (!isWithin(kCoarseGroupStep) || areaOf(plan) > kMostGroupArea<Rule>)
        return {};
    constexpr int32_t registerWidth = 16; // only the last group of a row is left with a part of one
    const int32_t width = countWithinReach(kGroupWidth, plan.primaryStep);
    return {scan.kernels.coarseRowGroup,
            std::min(countWithinReach(kGroupRows, plan.secondaryRowStep),
                     countWithinReach(kGroupRows, plan.primaryRowStep)),
            width >= tile.width ? tile.width : width / registerWidth * registerWidth};
}

// What a tile's groups read. One within a row takes a sample more for each row than its pixels need: all rows are read
// up to the samples of the one that starts furthest along.
template <typename Rule>
struct GroupReach {
    PlanTile tile;
    bool isInside; // for every row

    GroupReach(const TileRows<Rule> &rows, const TileGroups<Rule> &groups)
        : tile(rows.tile), isInside(rows.isTileInside)
    {
        if (groups.kernel == nullptr || groups.width >= tile.width)
            return;
        ++tile.spanCount;
        Footprint footprint;
        isInside = isInside && findFootprint(rows.scan, tile, &footprint);
    }
};

// How many rows from j on may run as one group.
template <typename Rule>
int32_t countGroupRows(const TileRows<Rule> &rows, const TileGroups<Rule> &groups, const GroupReach<Rule> &reach,
                       int32_t j)
{
    const int32_t most = std::min(groups.rows, rows.tile.height - j);
    int32_t count = 0;
    while (count < most && (reach.isInside || isRowInside(rows.scan, reach.tile, rows.rowAt(j + count))))
        ++count;
    return count;
}

// Pixels first to first + width - 1 of some rows; dst: the first of them.
template <typename Rule>
void runRowGroup(const TileRows<Rule> &rows, const TileGroups<Rule> &groups, int32_t j, int32_t count, int32_t first,
                 void *dst, const TileAhead &ahead)
{
    const Scan<Rule> &scan = rows.scan;
    const kip_affineTilePlan &plan = scan.plan;
    const PlanRow row = rows.rowAt(j);
    const SampleView<typename Rule::Pixel> view = sourceView(scan);
    const uint32_t along = row.outputPosition + static_cast<uint32_t>(first) * static_cast<uint32_t>(plan.primaryStep);
    const int32_t skipped = fixedInteger(along);
    groups.kernel(
        {view.origin + ((plan.direction * row.primary + skipped) * view.majorStep + row.secondary * view.minorStep),
         view.majorStep, view.minorStep, -row.secondary, scan.source.secondarySize() - 1 - row.secondary,
         static_cast<int32_t>(row.position) + skipped * plan.secondaryShear, plan.secondaryRowStep, plan.secondaryShear,
         static_cast<int32_t>(fixedFraction(along)), plan.primaryStep, plan.primaryRowStep,
         std::min(groups.width, rows.tile.width - first), count, scan.weights, dst, rows.rowAdvance, ahead, j,
         rows.tile.height});
}

// ---- Rows one by one ----------------------------------------------------------------------------------------------

// Tells whether the samples of each pixel are made, and no others. A shear of at most one keeps the lines of
// neighbouring samples next to each other; variants multiply by the pitch in words.
template <typename Rule>
bool isSparseGeometry(const Scan<Rule> &scan, const PlanTile &tile)
{
    const kip_affineTilePlan &plan = scan.plan;
    return isLineLongEnough<Rule>(plan, tile) && plan.primaryStep >= scan.kernels.leastSparseStep &&
           hasGentleShear(plan) && scan.source.pitch >= -INT16_MAX && scan.source.pitch <= INT16_MAX;
}

// The samples of a row, all of which lie inside the source.
template <typename Rule>
SampleRun<typename Rule::Pixel> sampleRunOf(const TileRows<Rule> &rows, const PlanRow &row)
{
    const Scan<Rule> &scan = rows.scan;
    const SampleView<typename Rule::Pixel> &view = rows.view;
    constexpr int32_t first = Scan<Rule>::kFirstSample;
    const auto shear = static_cast<uint32_t>(scan.plan.secondaryShear);
    const int64_t along = scan.plan.direction * (row.primary - view.primary) + first;
    return {view.origin + (along * view.majorStep + (row.secondary - view.secondary) * view.minorStep),
            view.majorStep,
            view.minorStep,
            row.position + static_cast<uint32_t>(first) * shear,
            shear,
            lastSampleOf<Rule>(rows.tile) - first + 1,
            scan.weights};
}

template <typename Rule, bool kAdd>
void runRow(const TileRows<Rule> &rows, int32_t j)
{
    const Scan<Rule> &scan = rows.scan;
    const PlanRow row = rows.rowAt(j);
    const OutputRun<typename Rule::Entry> outputs = {
        scan.line,       row.outputPosition, static_cast<uint32_t>(scan.plan.primaryStep),
        rows.tile.width, scan.weights,       rows.dstAt(j)};
    const bool isInside = rows.isInside(j);
    if (isInside && rows.isSparse)
        return scan.kernels.sparseRow(sampleRunOf(rows, row), outputs);
    if (isInside)
        scan.kernels.samples(sampleRunOf(rows, row), scan.entry(Scan<Rule>::kFirstSample));
    else
        runEdgeSamples(scan, rows.tile, row);
    if (rows.isLineLongEnough)
        scan.kernels.outputs(outputs);
    else
        runBoundedOutputs<Rule, kAdd>(outputs, scan.plan.lineEntries);
}

// ---- The walk -----------------------------------------------------------------------------------------------------

struct RowsOfTiles {
    int32_t first, end;
};

// A band is a whole number of them, but for the last one's end.
RowsOfTiles rowsOfTiles(const Sampling &sampling, const kip_affineTilePlan &plan)
{
    const int32_t tileHeight = plan.tileHeight[0];
    const int32_t first = -sampling.destination.originY / tileHeight;
    return {first, first + (sampling.rows() - 1) / tileHeight + 1};
}

// Goes from tile to tile of some rows of tiles.
struct PlanCursor {
    const kip_affineTilePlan &plan;
    int32_t ty, end;
    int32_t tx = 0;
    Position rowStart, at;

    PlanCursor(const kip_affineTilePlan &walked, const RowsOfTiles &rows)
        : plan(walked), ty(rows.first), end(rows.end), rowStart(rowOfTilesStart(walked, rows.first)), at(rowStart)
    {}
    bool isDone() const { return ty >= end; }
    PlanTile tile() const
    {
        const int32_t tileClass = (tx == plan.tilesX - 1 ? 1 : 0) + (ty == plan.tilesY - 1 ? 2 : 0);
        return planTileOf(plan, tx == 0 && ty == 0 ? firstTileStart(plan) : laterTileStart(plan, at), tileClass);
    }
    void advance()
    {
        at.move(plan.tileColumnStepX, plan.tileColumnStepY);
        if (++tx < plan.tilesX)
            return;
        tx = 0;
        ++ty;
        rowStart.move(plan.tileRowStepX, plan.tileRowStepY);
        at = rowStart;
    }
};

// The first pixels, or sums, of tiles.
struct PlanDestination {
    uint8_t *first;
    int64_t pitch; // bytes; 0 where all rows add to the same sums
    int64_t elementSize;

    uint8_t *dstOf(const PlanCursor &cursor) const
    {
        const int64_t row = int64_t{cursor.ty} * cursor.plan.tileHeight[0];
        const int64_t column = int64_t{cursor.tx} * cursor.plan.tileWidth[0];
        return first + (row * pitch + column * elementSize);
    }
};

template <typename Rule>
TileAhead aheadOf(const Scan<Rule> &scan, const PlanDestination &destination, const PlanCursor &cursor)
{
    constexpr int64_t bytes = sizeof(typename Rule::Pixel);
    const auto &source = scan.source;
    const PlanTile tile = cursor.tile();
    Footprint footprint = {};
    findFootprint(scan, tile, &footprint); // what lies outside is left out
    const auto clamped = [](int64_t at, int64_t size) { return std::clamp<int64_t>(at, 0, size - 1); };
    const int64_t primary = clamped(footprint.primaryLeast, source.primarySize());
    const int64_t secondary = clamped(footprint.secondaryLeast, source.secondarySize());
    const int64_t along = clamped(footprint.primaryGreatest, source.primarySize()) + 1 - primary;
    const int64_t across = clamped(footprint.secondaryGreatest, source.secondarySize()) + 1 - secondary;
    const MemoryBox box = {reinterpret_cast<const uint8_t *>(source.first + source.offset(primary, secondary)),
                           source.pitch * bytes, (source.transposed ? across : along) * bytes,
                           source.transposed ? along : across};
    return {box.lines() <= kMostLinesAhead ? box : MemoryBox{},
            {destination.dstOf(cursor), destination.pitch, tile.width * destination.elementSize,
             destination.pitch == 0 ? 1 : tile.height}};
}

template <typename Rule, bool kAdd>
void processTile(const Scan<Rule> &scan, const PlanTile &tile, void *dst, const TileAhead &ahead)
{
    using Pixel = typename Rule::Pixel;
    Footprint footprint = {};
    const bool isTileInside = findFootprint(scan, tile, &footprint);
    const TileGroups<Rule> groups = groupsOf(scan, tile);
    const bool inGroups = groups.kernel != nullptr;
    const bool isSparse = isSparseGeometry(scan, tile);
    if (isTileInside && scan.touchesTiles)
        touchFootprint(scan, footprint);
    constexpr int64_t elementSize = kAdd ? sizeof(uint32_t) : sizeof(Pixel);
    const int64_t rowAdvance = kAdd ? 0 : static_cast<int32_t>(scan.plan.destinationPitch) * elementSize;
    const TileRows<Rule> rows = {scan,
                                 tile,
                                 isTileInside,
                                 isLineLongEnough<Rule>(scan.plan, tile),
                                 isSparse,
                                 isTileInside && !inGroups && !isSparse ? viewOf(scan, footprint) : sourceView(scan),
                                 static_cast<uint8_t *>(dst),
                                 rowAdvance};
    const GroupReach<Rule> reach(rows, groups);
    for (int32_t j = 0; j < tile.height;) {
        const int32_t grouped = inGroups ? countGroupRows(rows, groups, reach, j) : 0;
        const int32_t count = std::max(grouped, 1);
        for (int32_t x = 0; grouped > 0 && x < tile.width; x += groups.width)
            runRowGroup(rows, groups, j, grouped, x, static_cast<uint8_t *>(rows.dstAt(j)) + x * elementSize,
                        x == 0 ? ahead : TileAhead{});
        if (grouped == 0) {
            ahead.prefetch(j, j + count, tile.height);
            runRow<Rule, kAdd>(rows, j);
        }
        j += count;
    }
}

// Tells whether tiles are read ahead of their rows: where these lie far apart in a source too large for the caches.
template <typename Rule>
bool touchesTiles(const Sampling &sampling, const kip_affineTilePlan &plan)
{
    constexpr double leastArea = 6.0;
    constexpr double leastBytes = 3 * 1024.0 * 1024.0;
    const double area = static_cast<double>(areaOf(plan)) / (65536.0 * 65536.0);
    return area >= leastArea &&
           area * sampling.params.destWidth * sampling.params.destHeight * sizeof(typename Rule::Pixel) >= leastBytes;
}

template <typename Rule, bool kAdd>
int32_t processPlan(const Sampling &sampling, const kip_affineTilePlan &plan, const PlanKernels<Rule> &kernels)
{
    const int32_t status = ensureCubicWeightTable();
    if (status < 0)
        return status;
    using Pixel = typename Rule::Pixel;
    void *const scratch = sampling.scratch != nullptr ? sampling.scratch : plan.scratch;
    auto *const line = static_cast<typename Rule::Entry *>(scratch);
    const Scan<Rule> scan = {plan,
                             scanSourceOf<Pixel>(sampling.source, plan),
                             kernels,
                             getCubicWeightsBase(cubicWeightTable()),
                             static_cast<uint8_t *>(scratch),
                             line,
                             touchesTiles<Rule>(sampling, plan)};
    // A row leaves out samples that lie wholly outside; what they hold must not depend on earlier calls.
    std::fill_n(line, plan.lineEntries, typename Rule::Entry{0});

    const int64_t elementSize = kAdd ? sizeof(uint32_t) : sizeof(Pixel);
    const PlanDestination destination = {static_cast<uint8_t *>(sampling.destination.pixels),
                                         kAdd ? 0 : static_cast<int32_t>(plan.destinationPitch) * elementSize,
                                         elementSize};
    // What is touched tile by tile is not asked for before.
    const bool prefetches =
        !scan.touchesTiles && leavesCaches(plan.primaryStep / kFixedOne * (plan.secondaryRowStep / kFixedOne),
                                           sampling.destination.width, sampling.params.destHeight, sizeof(Pixel));
    PlanCursor cursor(plan, rowsOfTiles(sampling, plan));
    while (!cursor.isDone()) {
        const PlanTile tile = cursor.tile();
        uint8_t *const dst = destination.dstOf(cursor);
        cursor.advance();
        processTile<Rule, kAdd>(scan, tile, dst,
                                prefetches && !cursor.isDone() ? aheadOf(scan, destination, cursor) : TileAhead{});
    }
    return status;
}

template <typename Rule>
int32_t processPortable8(const Sampling &sampling)
{
    const kip_affineTilePlan &plan = sampling.cache.plan8;
    return sampling.adds() ? processPlan<Rule, true>(sampling, plan, portablePlanKernels<Rule, true>())
                           : processPlan<Rule, false>(sampling, plan, portablePlanKernels<Rule, false>());
}

template <typename Rule>
int32_t processOptimized8(const Sampling &sampling, uint32_t features)
{
    const kip_affineTilePlan &plan = sampling.cache.plan8;
    return sampling.adds() ? processPlan<Rule, true>(sampling, plan, planKernels<Rule, true>(features))
                           : processPlan<Rule, false>(sampling, plan, planKernels<Rule, false>(features));
}

template <typename Rule>
int32_t process16(const Sampling &sampling, uint32_t features)
{
    return processPlan<Rule, false>(sampling, sampling.cache.plan16, planKernels<Rule, false>(features));
}

bool isCubic(const Sampling &sampling)
{
    return sampling.params.mode == kip_affineModeBicubic;
}

} // namespace

int32_t processPlanTiles8(const Sampling &sampling)
{
    return isCubic(sampling) ? processPortable8<Cubic8>(sampling) : processPortable8<Linear8>(sampling);
}

int32_t processPlanTiles16(const Sampling &sampling, uint32_t features)
{
    return isCubic(sampling) ? process16<Cubic16>(sampling, features) : process16<Linear16>(sampling, features);
}

int32_t processTilePlanPacked8(const Sampling &sampling, uint32_t features)
{
    return isCubic(sampling) ? processOptimized8<CubicOptimized8>(sampling, features)
                             : processOptimized8<Linear8>(sampling, features);
}

} // namespace kip
