#include "transform/plan/plan_tiles.h"

#include <algorithm>
#include <cstring>

#include <kip/kip.h>

#include "cache/cubic_weight_table.h"
#include "cache/sample_cache.h"
#include "transform/plan/plan_bands.h"
#include "transform/plan/plan_kernel_choice.h"
#include "transform/plan/plan_rows.h"

namespace kip {

namespace {

// The source, seen along the scan: which coordinate is primary, how far it reaches, what memory it may be read from.
template <typename Pixel>
struct ScanSource {
    const Pixel *first;
    int64_t pitch;
    bool transposed;
    int64_t width, height;
    int64_t lowest, highest; // offsets of the memory between the first and the last pixel

    int64_t primarySize() const { return transposed ? height : width; }
    int64_t secondarySize() const { return transposed ? width : height; }
    int64_t offset(int64_t primary, int64_t secondary) const
    {
        return transposed ? primary * pitch + secondary : secondary * pitch + primary;
    }
    bool contains(int64_t at) const { return at >= lowest && at <= highest; }

    // The pixel at a place that may lie outside. What is inside the source's memory is read there, as the scan
    // without tests does; anything else is taken from the nearest pixel.
    Pixel pixel(int64_t primary, int64_t secondary) const
    {
        const int64_t at = offset(primary, secondary);
        if (contains(at))
            return first[at];
        return first[offset(std::clamp<int64_t>(primary, 0, primarySize() - 1),
                            std::clamp<int64_t>(secondary, 0, secondarySize() - 1))];
    }
};

template <typename Pixel>
ScanSource<Pixel> scanSourceOf(const kimg_windowConst &source, const kip_affineTilePlan &plan)
{
    // In a bottom-up image the last pixel lies before the first.
    const int64_t lastRow = (int64_t{source.height} - 1) * source.pitch;
    return {static_cast<const Pixel *>(source.pixels),
            source.pitch,
            plan.transposed != 0,
            source.width,
            source.height,
            std::min<int64_t>(0, lastRow),
            std::max<int64_t>(0, lastRow) + source.width - 1};
}

// Where a tile begins: the source pixel of its first sample, and the fractions from there.
struct TileStart {
    int64_t primary, secondary;
    uint32_t primaryFraction;
    uint32_t secondaryFraction;
};

struct Position {
    uint32_t x, y;

    void move(int32_t dx, int32_t dy)
    {
        x += static_cast<uint32_t>(dx);
        y += static_cast<uint32_t>(dy);
    }
};

// A backward scan starts one pixel further along, in step with its reversed fraction.
TileStart tileStartAt(const kip_affineTilePlan &plan, const Position &at, uint32_t primaryFraction,
                      uint32_t secondaryFraction)
{
    const int64_t x = fixedInteger(at.x);
    const int64_t y = fixedInteger(at.y);
    const int64_t reversal = plan.direction < 0 ? 1 : 0;
    return {(plan.transposed != 0 ? y : x) + reversal, (plan.transposed != 0 ? x : y) + fixedInteger(secondaryFraction),
            primaryFraction, fixedFraction(secondaryFraction)};
}

TileStart firstTileStart(const kip_affineTilePlan &plan)
{
    return tileStartAt(plan, {static_cast<uint32_t>(plan.startX), static_cast<uint32_t>(plan.startY)},
                       fixedFraction(plan.primaryFraction), static_cast<uint32_t>(plan.secondaryFraction));
}

TileStart laterTileStart(const kip_affineTilePlan &plan, const Position &at)
{
    const uint32_t along = fixedFraction(plan.transposed != 0 ? at.y : at.x);
    const uint32_t across = fixedFraction(plan.transposed != 0 ? at.x : at.y);
    const uint32_t primaryFraction = fixedFraction(static_cast<uint32_t>(plan.direction) * (along == 0 ? 1u : along));
    const auto shearHigh = static_cast<uint32_t>(plan.secondaryShear >> 16);
    const uint32_t shearLow = fixedFraction(static_cast<uint32_t>(plan.secondaryShear));
    return tileStartAt(plan, at, primaryFraction,
                       across - ((shearLow * primaryFraction) >> 16) - shearHigh * primaryFraction);
}

// One destination row of a tile. Sample r lies at primary + direction * r, secondary + int(position + r * shear).
struct PlanRow {
    int64_t primary, secondary;
    uint32_t position;
    uint32_t outputPosition;
};

PlanRow planRowAt(const kip_affineTilePlan &plan, const TileStart &tile, int32_t j)
{
    const auto row = static_cast<uint32_t>(j);
    const uint32_t along = tile.primaryFraction + row * static_cast<uint32_t>(plan.primaryRowStep);
    const int32_t skipped = fixedInteger(along);
    const uint32_t across = tile.secondaryFraction + row * static_cast<uint32_t>(plan.secondaryRowStep) +
                            static_cast<uint32_t>(skipped) * static_cast<uint32_t>(plan.secondaryShear);
    return {tile.primary + int64_t{plan.direction} * skipped, tile.secondary, across, fixedFraction(along)};
}

// Everything that the rows of one call share.
template <typename Rule>
struct Scan {
    using Pixel = typename Rule::Pixel;
    using Entry = typename Rule::Entry;

    const kip_affineTilePlan &plan;
    ScanSource<Pixel> source;
    PlanRowKernels<Pixel, Entry> kernels;
    const int16_t *weights;
    Entry *line;
    bool add;

    static constexpr int32_t kFirstSample = Rule::kCubic ? -1 : 0;
    int32_t lastSample(int32_t c) const { return plan.spanCount[c] + (Rule::kCubic ? 1 : 0); }
    // Where sample r is kept.
    Entry *entry(int32_t r) const { return line + (r - kFirstSample); }
};

// Finds whether an interval [least, greatest] lies in [0, size).
bool isInRange(int64_t least, int64_t greatest, int64_t size)
{
    return least >= 0 && greatest < size;
}

// Finds whether all taps of a row's samples lie inside the source. Along a row both coordinates are monotone, so
// the first and the last sample decide, provided that the position does not wrap.
template <typename Rule>
bool isRowInside(const Scan<Rule> &scan, const PlanRow &row, int32_t c)
{
    const int64_t shear = scan.plan.secondaryShear;
    const int64_t firstSample = scan.kFirstSample;
    const int64_t lastSample = scan.lastSample(c);
    const int64_t position = static_cast<int32_t>(row.position);
    const auto [least, greatest] = std::minmax({position + firstSample * shear, position + lastSample * shear});
    if (least < INT32_MIN || greatest > INT32_MAX)
        return false;
    const auto [nearEnd, farEnd] =
        std::minmax({row.primary + scan.plan.direction * firstSample, row.primary + scan.plan.direction * lastSample});
    return isInRange(nearEnd, farEnd, scan.source.primarySize()) &&
           isInRange(row.secondary + (least >> 16) + Rule::kFirstTap,
                     row.secondary + (greatest >> 16) + Rule::kFirstTap + Rule::kTaps - 1, scan.source.secondarySize());
}

// Finds whether the taps of a row's pixels stay on the line of samples, whatever fraction the row starts at.
template <typename Rule>
bool isLineLongEnough(const Scan<Rule> &scan, int32_t c)
{
    const int64_t last = 0xFFFF + int64_t{scan.plan.primaryStep} * (scan.plan.tileWidth[c] - 1);
    return scan.plan.primaryStep >= 0 && last <= INT32_MAX && (last >> 16) + Rule::kTaps <= scan.plan.lineEntries;
}

// Pixels in the order of a scan: the source itself, or a copy of a tile's band. origin is the pixel at
// (primary, secondary); the steps count pixels per step of the scan.
template <typename Pixel>
struct SampleView {
    const Pixel *origin;
    int64_t primary, secondary;
    int64_t majorStep, minorStep;
};

template <typename Rule>
SampleView<typename Rule::Pixel> sourceView(const Scan<Rule> &scan)
{
    return {scan.source.first, 0, 0, scan.plan.direction * scan.source.offset(1, 0), scan.source.offset(0, 1)};
}

template <typename Rule>
void runSamples(const Scan<Rule> &scan, const SampleView<typename Rule::Pixel> &view, const PlanRow &row, int32_t c)
{
    const int32_t first = scan.kFirstSample;
    const auto shear = static_cast<uint32_t>(scan.plan.secondaryShear);
    const int64_t along = scan.plan.direction * (row.primary - view.primary) + first;
    scan.kernels.samples({view.origin + (along * view.majorStep + (row.secondary - view.secondary) * view.minorStep),
                          view.majorStep, view.minorStep, row.position + static_cast<uint32_t>(first) * shear, shear,
                          scan.lastSample(c) - first + 1, scan.weights},
                         scan.entry(first));
}

// ---- Tiles ------------------------------------------------------------------------------------------------------

// What all rows of a tile read, in source coordinates.
struct TileBox {
    int64_t primaryLeast, primaryGreatest;
    int64_t secondaryLeast, secondaryGreatest;
};

// Finds whether all taps of a tile lie inside the source, without a position that wraps. The row's own advance is
// linear in the row, and a sample's secondary position in both its row and its place along the primary axis:
// the corners bound them.
template <typename Rule>
bool isTileInside(const Scan<Rule> &scan, const TileStart &tile, int32_t c, TileBox *box)
{
    const kip_affineTilePlan &plan = scan.plan;
    const int64_t lastRow = plan.tileHeight[c] - 1;
    const auto [alongLeast, alongGreatest] =
        std::minmax({int64_t{tile.primaryFraction}, tile.primaryFraction + lastRow * plan.primaryRowStep});
    if (lastRow < 0 || alongLeast < INT32_MIN || alongGreatest > INT32_MAX)
        return false;
    const int64_t first = (alongLeast >> 16) + scan.kFirstSample;
    const int64_t last = (alongGreatest >> 16) + scan.lastSample(c);

    const int64_t shear = plan.secondaryShear;
    const auto [shearLeast, shearGreatest] = std::minmax({first * shear, last * shear});
    const auto [rowLeast, rowGreatest] = std::minmax({int64_t{0}, lastRow * plan.secondaryRowStep});
    const int64_t least = tile.secondaryFraction + shearLeast + rowLeast;
    const int64_t greatest = tile.secondaryFraction + shearGreatest + rowGreatest;
    if (least < INT32_MIN || greatest > INT32_MAX)
        return false;

    const auto [nearEnd, farEnd] =
        std::minmax({tile.primary + plan.direction * first, tile.primary + plan.direction * last});
    *box = {nearEnd, farEnd, tile.secondary + (least >> 16) + Rule::kFirstTap,
            tile.secondary + (greatest >> 16) + Rule::kFirstTap + Rule::kTaps - 1};
    return isInRange(box->primaryLeast, box->primaryGreatest, scan.source.primarySize()) &&
           isInRange(box->secondaryLeast, box->secondaryGreatest, scan.source.secondarySize());
}

// Copies what a tile reads into the scan's order if the kernels ask for it and it fits; the view of the source
// otherwise.
template <typename Rule>
SampleView<typename Rule::Pixel> tileView(const Scan<Rule> &scan, const TileBox &box)
{
    using Pixel = typename Rule::Pixel;
    const SampleView<Pixel> direct = sourceView(scan);
    if (scan.kernels.copyStrip == nullptr || direct.majorStep == 1)
        return direct;
    const int64_t primary = box.primaryGreatest - box.primaryLeast + 1;
    const int64_t secondary = box.secondaryGreatest - box.secondaryLeast + 1;
    const int64_t pitch = (primary + 63) / 64 * 64;
    if (pitch * secondary > scan.plan.stripPixels)
        return direct;

    auto *const strip = reinterpret_cast<Pixel *>(static_cast<uint8_t *>(scan.plan.scratch) + scan.plan.stripOffset);
    const int64_t start = scan.plan.direction > 0 ? box.primaryLeast : box.primaryGreatest;
    scan.kernels.copyStrip({direct.origin + scan.source.offset(start, box.secondaryLeast), direct.majorStep,
                            direct.minorStep, static_cast<int32_t>(primary), static_cast<int32_t>(secondary), strip,
                            pitch});
    return {strip, start, box.secondaryLeast, 1, pitch};
}

// ---- Rows that reach the source's edges -----------------------------------------------------------------------

// One sample of such a row.
struct EdgeSample {
    int64_t primary, secondary;
    uint32_t fraction;
};

template <typename Rule>
EdgeSample edgeSampleAt(const Scan<Rule> &scan, const PlanRow &row, int32_t r)
{
    const uint32_t position = row.position + static_cast<uint32_t>(r) * static_cast<uint32_t>(scan.plan.secondaryShear);
    return {row.primary + int64_t{scan.plan.direction} * r, row.secondary + fixedInteger(position),
            fixedFraction(position)};
}

template <typename Rule>
bool hasTap(const Scan<Rule> &scan, const EdgeSample &sample, int32_t tap)
{
    return scan.source.contains(scan.source.offset(sample.primary, sample.secondary + tap));
}

template <typename Rule>
bool isWhollyInside(const Scan<Rule> &scan, const EdgeSample &sample)
{
    return hasTap(scan, sample, Rule::kFirstTap) && hasTap(scan, sample, Rule::kFirstTap + Rule::kTaps - 1);
}

// Such a sample counts for no pixel: both taps next to it lie before the source, or both after it (linear); the
// cubic one is left out as soon as one of the two does.
template <typename Rule>
bool isWhollyOutside(const Scan<Rule> &scan, const EdgeSample &sample)
{
    const int64_t a = scan.source.offset(sample.primary, sample.secondary);
    const int64_t b = scan.source.offset(sample.primary, sample.secondary + 1);
    if constexpr (Rule::kCubic)
        return std::min(a, b) < scan.source.lowest || std::max(a, b) > scan.source.highest;
    else
        return std::max(a, b) < scan.source.lowest || std::min(a, b) > scan.source.highest;
}

// A sample from the taps that lie inside the source: one of two, or three of four.
template <typename Rule>
typename Rule::Entry partialSample(const Scan<Rule> &scan, const EdgeSample &sample, uint32_t fraction)
{
    const bool keepLate = !hasTap(scan, sample, Rule::kFirstTap);
    const auto kept = [&](int32_t tap) -> int32_t {
        if (keepLate ? tap == Rule::kFirstTap : tap == Rule::kFirstTap + Rule::kTaps - 1)
            return 0;
        return scan.source.pixel(sample.primary, sample.secondary + tap);
    };
    if constexpr (Rule::kCubic) {
        using Portable = CubicRule<typename Rule::Pixel, typename Rule::Entry, typename Rule::Wide, TruncatingDivision>;
        return Portable::sample(fraction, scan.weights, kept);
    } else {
        return Rule::sample(fraction, scan.weights, kept);
    }
}

template <typename Rule>
void runEdgeSamples(const Scan<Rule> &scan, const PlanRow &row, int32_t c)
{
    int32_t first = scan.kFirstSample;
    int32_t last = scan.lastSample(c);
    if constexpr (Rule::kCubic) {
        const EdgeSample leading = edgeSampleAt(scan, row, first);
        if (!isWhollyInside(scan, leading)) {
            *scan.entry(first) = partialSample(scan, leading, leading.fraction);
            ++first;
        }
    }

    // All trailing samples take one fraction: that of the sample at which the row's run is said to start.
    const uint32_t fraction = edgeSampleAt(scan, row, Rule::kCubic ? first + 1 : first).fraction;
    while (last >= first && isWhollyOutside(scan, edgeSampleAt(scan, row, last)))
        --last;
    for (; last >= first; --last) {
        const EdgeSample sample = edgeSampleAt(scan, row, last);
        if (isWhollyInside(scan, sample))
            break;
        *scan.entry(last) = partialSample(scan, sample, fraction);
    }

    for (int32_t r = first; r <= last; ++r) {
        const EdgeSample sample = edgeSampleAt(scan, row, r);
        *scan.entry(r) = Rule::sample(sample.fraction, scan.weights, [&](int32_t tap) -> int32_t {
            return scan.source.pixel(sample.primary, sample.secondary + tap);
        });
    }
}

// Pixels whose taps may leave the line: they take its nearest entry.
template <typename Rule>
void runBoundedOutputs(const Scan<Rule> &scan, const OutputRun<typename Rule::Entry> &run)
{
    uint32_t position = run.position;
    for (int32_t n = 0; n < run.count; ++n) {
        const int32_t index = fixedInteger(position);
        const auto value = Rule::output(fixedFraction(position), run.weights, [&](int32_t tap) {
            return run.line[std::clamp(index + tap, 0, scan.plan.lineEntries - 1)];
        });
        if (scan.add)
            static_cast<uint32_t *>(run.dst)[n] += value;
        else
            static_cast<typename Rule::Pixel *>(run.dst)[n] = value;
        position += run.step;
    }
}

// ---- The walk ---------------------------------------------------------------------------------------------------

// Rows of a tile as one run; row is the first of them.
template <typename Rule>
BandRun<typename Rule::Pixel> bandAt(const Scan<Rule> &scan, const PlanRow &row, int32_t c, int32_t rows, void *dst,
                                     int64_t rowAdvance)
{
    const kip_affineTilePlan &plan = scan.plan;
    const SampleView<typename Rule::Pixel> view = sourceView(scan);
    return {view.origin + (plan.direction * row.primary * view.majorStep + row.secondary * view.minorStep),
            view.majorStep,
            view.minorStep,
            -row.secondary,
            scan.source.secondarySize() - 1 - row.secondary,
            static_cast<int32_t>(row.position),
            plan.secondaryRowStep,
            plan.secondaryShear,
            static_cast<int32_t>(row.outputPosition),
            plan.primaryStep,
            plan.primaryRowStep,
            plan.tileWidth[c],
            rows,
            scan.weights,
            dst,
            rowAdvance};
}

// dst: the tile's first pixel, or the first of its sums.
template <typename Rule>
void processTile(const Scan<Rule> &scan, const TileStart &tile, int32_t c, void *dst)
{
    using Pixel = typename Rule::Pixel;
    const int64_t rowAdvance =
        scan.add ? 0 : static_cast<int32_t>(scan.plan.destinationPitch) * static_cast<int64_t>(sizeof(Pixel));
    const auto dstOfRow = [dst, rowAdvance](int32_t j) { return static_cast<uint8_t *>(dst) + j * rowAdvance; };
    const bool longEnough = isLineLongEnough(scan, c);
    TileBox box = {};
    const bool tileInside = isTileInside(scan, tile, c, &box);
    const auto rowInside = [&](int32_t j) { return tileInside || isRowInside(scan, planRowAt(scan.plan, tile, j), c); };
    const bool inBands = scan.kernels.band != nullptr && longEnough &&
                         isBandGeometry(scan.plan.secondaryShear, scan.plan.secondaryRowStep, scan.plan.primaryStep,
                                        scan.plan.primaryRowStep, scan.plan.tileWidth[c]);
    const SampleView<Pixel> view = tileInside && !inBands ? tileView(scan, box) : sourceView(scan);

    const int32_t height = scan.plan.tileHeight[c];
    for (int32_t j = 0; j < height;) {
        int32_t rows = 0;
        if (inBands)
            while (rows < kBandRows && j + rows < height && rowInside(j + rows))
                ++rows;
        if (rows > 0) {
            scan.kernels.band(bandAt(scan, planRowAt(scan.plan, tile, j), c, rows, dstOfRow(j), rowAdvance));
            j += rows;
            continue;
        }
        const PlanRow row = planRowAt(scan.plan, tile, j);
        if (rowInside(j))
            runSamples(scan, view, row, c);
        else
            runEdgeSamples(scan, row, c);
        const OutputRun<typename Rule::Entry> outputs = {
            scan.line,    row.outputPosition, static_cast<uint32_t>(scan.plan.primaryStep), scan.plan.tileWidth[c],
            scan.weights, dstOfRow(j)};
        if (longEnough)
            scan.kernels.outputs(outputs);
        else
            runBoundedOutputs(scan, outputs);
        ++j;
    }
}

template <typename Rule>
int32_t processPlan(const Sampling &sampling, const kip_affineTilePlan &plan,
                    const PlanRowKernels<typename Rule::Pixel, typename Rule::Entry> &kernels)
{
    const int32_t status = ensureCubicWeightTable();
    if (status < 0)
        return status;
    const int16_t *const weights = getCubicWeightsBase(cubicWeightTable());

    const bool add = sampling.adds();
    auto *const line = static_cast<typename Rule::Entry *>(plan.scratch);
    const Scan<Rule> scan = {plan, scanSourceOf<typename Rule::Pixel>(sampling.source, plan), kernels, weights, line,
                             add};
    // A row leaves out samples that lie wholly outside; what they hold must not depend on earlier calls.
    std::fill_n(line, plan.lineEntries, typename Rule::Entry{0});

    const int64_t elementSize = add ? sizeof(uint32_t) : sizeof(typename Rule::Pixel);
    const int64_t dstPitch = add ? 0 : static_cast<int32_t>(plan.destinationPitch);
    Position rowStart = {static_cast<uint32_t>(plan.startX), static_cast<uint32_t>(plan.startY)};
    for (int32_t ty = 0; ty < plan.tilesY; ++ty) {
        const int32_t rowClass = ty == plan.tilesY - 1 ? 2 : 0;
        Position at = rowStart;
        for (int32_t tx = 0; tx < plan.tilesX; ++tx) {
            const TileStart tile = tx == 0 && ty == 0 ? firstTileStart(plan) : laterTileStart(plan, at);
            const int64_t column = int64_t{tx} * plan.tileWidth[0];
            const int64_t row = int64_t{ty} * plan.tileHeight[0];
            processTile(scan, tile, rowClass + (tx == plan.tilesX - 1 ? 1 : 0),
                        static_cast<uint8_t *>(sampling.destination.pixels) + (row * dstPitch + column) * elementSize);
            at.move(plan.tileColumnStepX, plan.tileColumnStepY);
        }
        rowStart.move(plan.tileRowStepX, plan.tileRowStepY);
    }
    return status;
}

} // namespace

int32_t processPlanTiles8(const Sampling &sampling)
{
    const kip_affineTilePlan &plan = sampling.cache.plan8;
    return sampling.params.mode == kip_affineModeBicubic
               ? processPlan<Cubic8>(sampling, plan, portableRowKernels<Cubic8>(sampling.accumulate))
               : processPlan<Linear8>(sampling, plan, portableRowKernels<Linear8>(sampling.accumulate));
}

int32_t processPlanTiles16(const Sampling &sampling, uint32_t features)
{
    const kip_affineTilePlan &plan = sampling.cache.plan16;
    return sampling.params.mode == kip_affineModeBicubic
               ? processPlan<Cubic16>(sampling, plan, planRowKernels<Cubic16>(features, sampling.accumulate))
               : processPlan<Linear16>(sampling, plan, planRowKernels<Linear16>(features, sampling.accumulate));
}

int32_t processTilePlanPacked8(const Sampling &sampling, uint32_t features)
{
    const kip_affineTilePlan &plan = sampling.cache.plan8;
    return sampling.params.mode == kip_affineModeBicubic
               ? processPlan<CubicPacked8>(sampling, plan, planRowKernels<CubicPacked8>(features, sampling.accumulate))
               : processPlan<Linear8>(sampling, plan, planRowKernels<Linear8>(features, sampling.accumulate));
}

} // namespace kip
