#include "support/two_pass_model.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <optional>

#include "support/images.h"

namespace kip::test {

namespace {

// 16.16 numbers are 32 bits that wrap; an integer part has 16 of them. Doubles are truncated toward zero.
uint32_t fixed(double v)
{
    if (std::isnan(v))
        return 0;
    return static_cast<uint32_t>(static_cast<int32_t>(std::clamp(v * 65536.0, -2147483648.0, 2147483647.0)));
}

int32_t integerOf(uint32_t v)
{
    return static_cast<int16_t>(v >> 16);
}

uint32_t fractionOf(uint32_t v)
{
    return v & 0xFFFF;
}

uint32_t times(int32_t count, uint32_t step)
{
    return static_cast<uint32_t>(count) * step;
}

// Keys' cubic convolution kernel with a = -0.5, at one of the taps -1, 0, 1 and 2 from a position of so many 256ths.
int64_t cubicWeight(int64_t phase, int64_t tap)
{
    const double x = std::fabs(static_cast<double>(phase) / 256.0 - static_cast<double>(tap - 1));
    const double weight = x < 1.0   ? (1.5 * x - 2.5) * x * x + 1.0
                          : x < 2.0 ? ((-0.5 * x + 2.5) * x - 4.0) * x + 2.0
                                    : 0.0;
    return static_cast<int64_t>(std::min(weight * 32768.0, 32767.0)); // exact before the truncation
}

struct Size {
    int32_t width, height;
};

// Tiles shrink until the box of source pixels that one reads, its margin included, has at most 200000.
Size tileSizeFor(const kmath_xformLinear &map, int32_t width, int32_t height, double margin)
{
    const auto extentOf = [margin](double perColumn, double perRow, const Size &size) {
        const double least = std::min(0.0, perColumn) * size.width + std::min(0.0, perRow) * size.height;
        const double greatest = std::max(0.0, perColumn) * size.width + std::max(0.0, perRow) * size.height;
        return std::ceil(greatest - 1e-6) + margin - (std::floor(least + 1e-6) - margin) + 1;
    };
    Size tile = {std::min(width, 96), std::min(height, 96)};
    if (tile.width == width && tile.height == height)
        return tile;
    while (tile.width > 1 || tile.height > 1) {
        const double area = extentOf(map.e0, map.e1, tile) * extentOf(map.e2, map.e3, tile);
        if (area <= 200000)
            break;
        const double factor = std::sqrt(200000 / area);
        tile.width = std::max(1, static_cast<int32_t>(factor * tile.width));
        tile.height = std::max(1, static_cast<int32_t>(factor * tile.height));
    }
    return tile;
}

// A value, or nothing where the definition gives none.
using Known = std::optional<int64_t>;

// The first pass samples along the source's axis closest to a destination row, the primary one, at every source pixel;
// the second takes a row's pixels from these samples. Tile by tile, row by row, one sample at a time.
class TwoPasses {
public:
    TwoPasses(const kimg_windowConst &window, const kmath_xformLinear &map, const kip_affineSampleParams &params,
              bool isFirstPassFast)
        : source(window), cubic(params.mode == kip_affineModeBicubic), roundsDown(isFirstPassFast),
          width(params.destWidth), height(params.destHeight), tile(tileSizeFor(map, width, height, cubic ? 3 : 2))
    {
        constexpr double pi = std::numbers::pi;
        const double quarter = map.e1 * map.e2 >= 0 ? -pi / 2 : pi / 2;
        const double angle = std::fabs(map.e0) >= 1e-6 ? -std::atan2(map.e2, map.e0) : map.e1 < 0 ? -quarter : quarter;
        scansColumns = std::fabs(angle) > pi / 4 && std::fabs(angle) < 3 * pi / 4;
        isReversed = scansColumns ? angle > 0 : std::fabs(angle) > pi / 4;

        // The factors of the map: its primary row and, along the samples, what remains of the other one.
        const kmath_vect primary = scansColumns ? kmath_vect{map.e2, map.e3} : kmath_vect{map.e0, map.e1};
        const kmath_vect secondary = scansColumns ? kmath_vect{map.e0, map.e1} : kmath_vect{map.e2, map.e3};
        const double sign = isReversed ? -1.0 : 1.0;
        primaryStep = fixed(sign * primary.x);
        primaryRowStep = fixed(sign * primary.y);
        shear = fixed(sign * secondary.x / primary.x);
        secondaryRowStep = fixed((primary.x * secondary.y - primary.y * secondary.x) / primary.x);

        const auto startOf = [](double position) { // of a pixel's centre; the fraction is never below a unit
            return fixed(position - std::floor(position) < 1.526e-05 ? position + 1.526e-05 : position);
        };
        startX = startOf(map.e0 * 0.5 + map.e1 * 0.5 + (map.tx - source.x) - 0.5);
        startY = startOf(map.e2 * 0.5 + map.e3 * 0.5 + (map.ty - source.y) - 0.5);
        columnStepX = fixed(map.e0 * tile.width);
        columnStepY = fixed(map.e2 * tile.width);
        rowStepX = fixed(map.e1 * tile.height);
        rowStepY = fixed(map.e3 * tile.height);
        const int32_t columnsOfLast = (width - 1) % tile.width + 1;
        line.assign(static_cast<size_t>(std::max({0, lastSampleOf(tile.width), lastSampleOf(columnsOfLast)})) + 5, 0);
    }

    std::vector<int64_t> run()
    {
        std::vector<int64_t> result(static_cast<size_t>(width) * static_cast<size_t>(height));
        for (int32_t top = 0; top < height; top += tile.height) {
            for (int32_t left = 0; left < width; left += tile.width) {
                const int32_t columns = std::min(tile.width, width - left);
                const TileStart start = startOfTile(left / tile.width, top / tile.height);
                for (int32_t y = top; y < std::min(top + tile.height, height); ++y) {
                    const uint32_t along = start.fraction + times(y - top, primaryRowStep);
                    sampleRow(start, integerOf(along), y - top, lastSampleOf(columns));
                    for (int32_t n = 0; n < columns; ++n)
                        result[static_cast<size_t>(y) * static_cast<size_t>(width) + static_cast<size_t>(left + n)] =
                            output(fractionOf(along) + times(n, primaryStep)).value_or(-1);
                }
            }
        }
        return result;
    }

private:
    // The pixel and the fractions where a tile begins.
    struct TileStart {
        int64_t at;
        uint32_t fraction, secondary;
    };

    uint32_t primaryOf(uint32_t x, uint32_t y) const { return scansColumns ? y : x; }
    int64_t majorStep() const { return (isReversed ? -1 : 1) * int64_t{scansColumns ? source.pitch : 1}; }
    int64_t minorStep() const { return scansColumns ? 1 : source.pitch; }

    // A backward scan begins one pixel further along, its fraction reversed.
    TileStart startOfTile(int32_t column, int32_t row) const
    {
        const uint32_t x = startX + times(column, columnStepX) + times(row, rowStepX);
        const uint32_t y = startY + times(column, columnStepY) + times(row, rowStepY);
        uint32_t fraction = fractionOf(primaryOf(x, y));
        if (fraction == 0 && (column > 0 || row > 0))
            fraction = 1;
        fraction = fractionOf(isReversed ? 0 - fraction : fraction);
        const uint32_t secondary =
            fractionOf(primaryOf(y, x)) - ((fractionOf(shear) * fraction) >> 16) - times(integerOf(shear), fraction);
        return {int64_t{integerOf(y)} * source.pitch + integerOf(x) + (isReversed ? -majorStep() : 0) +
                    integerOf(secondary) * minorStep(),
                fraction, fractionOf(secondary)};
    }

    // The number of a tile's last sample, but for the cubic mode's additional one, counts with the first tile's start.
    int32_t lastSampleOf(int32_t columns) const
    {
        return integerOf(times(columns - 1, primaryStep) + startOfTile(0, 0).fraction) + 2;
    }

    // The memory between the first and the last pixel.
    int64_t lastRow() const { return (source.height - 1) * int64_t{source.pitch}; }
    int64_t lowest() const { return std::min<int64_t>(0, lastRow()); }
    int64_t highest() const { return std::max<int64_t>(0, lastRow()) + source.width - 1; }
    bool has(int64_t at) const { return at >= lowest() && at <= highest(); }

    int64_t weight(uint32_t fraction, int64_t tap) const
    {
        if (cubic)
            return cubicWeight(fraction >> 8, tap);
        return tap == 0 ? 32768 - (fraction >> 1) : fraction >> 1;
    }

    // The sample of a run of taps; those in [from, to) count.
    Known sample(int64_t a, uint32_t fraction, int64_t from, int64_t to, bool down) const
    {
        int64_t sum = cubic ? 256 : 0;
        for (int64_t tap = from; tap < to; ++tap) {
            const int64_t at = a + (tap - (cubic ? 1 : 0)) * minorStep();
            if (!has(at))
                return std::nullopt;
            sum += weight(fraction, tap) * valueAt(source, at, 0);
        }
        return !cubic ? sum >> 15 : down ? sum >> 9 : sum / 512;
    }

    // The samples of row j of a tile, so many samples further along than the tile's start.
    void sampleRow(const TileStart &start, int32_t skipped, int32_t j, int32_t lastSample)
    {
        const int32_t taps = cubic ? 4 : 2;
        const auto positionOf = [&](int32_t r) {
            return start.secondary + times(j, secondaryRowStep) + times(skipped + r, shear);
        };
        const auto addressOf = [&](int32_t r) {
            return start.at + int64_t{skipped + r} * majorStep() + int64_t{integerOf(positionOf(r))} * minorStep();
        };
        const auto isInside = [&](int32_t r) {
            const int64_t first = addressOf(r) - (cubic ? minorStep() : 0);
            return has(first) && has(first + (taps - 1) * minorStep());
        };
        const auto isOutside = [&](int32_t r) {
            const auto [least, greatest] = std::minmax({addressOf(r), addressOf(r) + minorStep()});
            return cubic ? least < lowest() || greatest > highest() : greatest < lowest() || least > highest();
        };
        const auto partial = [&](int32_t r, uint32_t fraction) {
            const bool hasFirst = has(addressOf(r) - (cubic ? minorStep() : 0));
            return sample(addressOf(r), fraction, hasFirst ? 0 : 1, hasFirst ? taps - 1 : taps, false);
        };
        const auto entry = [&](int32_t r) -> Known & { return line[static_cast<size_t>(r + (cubic ? 1 : 0))]; };

        int32_t first = cubic ? -1 : 0;
        uint32_t trailing = fractionOf(positionOf(0));
        if (cubic && !isInside(-1)) {
            entry(-1) = partial(-1, fractionOf(positionOf(-1)));
            trailing = fractionOf(positionOf(1));
            first = 0;
        }
        int32_t last = lastSample + (cubic ? 1 : 0);
        while (last >= first && isOutside(last))
            --last;
        for (; last >= first && !isInside(last); --last)
            entry(last) = partial(last, trailing);
        for (int32_t r = first; r <= last; ++r)
            entry(r) = sample(addressOf(r), fractionOf(positionOf(r)), 0, taps, roundsDown);
    }

    Known output(uint32_t position) const
    {
        int64_t sum = cubic ? 0x100000 : 0;
        for (int32_t tap = 0; tap < (cubic ? 4 : 2); ++tap) {
            const int32_t at = integerOf(position) + tap;
            if (at < 0 || at >= static_cast<int32_t>(line.size()) || !line[static_cast<size_t>(at)])
                return std::nullopt;
            sum += weight(fractionOf(position), tap) * *line[static_cast<size_t>(at)];
        }
        const int64_t greatest = source.bytesPerPixel == 1 ? 255 : 65535;
        return cubic ? std::clamp<int64_t>(sum / 0x200000, 0, greatest) : sum >> 15;
    }

    const kimg_windowConst source;
    const bool cubic, roundsDown;
    const int32_t width, height;
    const Size tile;
    bool scansColumns, isReversed;
    uint32_t primaryStep, primaryRowStep, shear, secondaryRowStep;
    uint32_t startX, startY, columnStepX, columnStepY, rowStepX, rowStepY;
    std::vector<Known> line;
};

// The second map first.
kmath_xformLinear composed(const kmath_xformLinear &a, const kmath_xformLinear &b)
{
    return {a.e0 * b.tx + a.e1 * b.ty + a.tx, a.e2 * b.tx + a.e3 * b.ty + a.ty, a.e0 * b.e0 + a.e1 * b.e2,
            a.e0 * b.e1 + a.e1 * b.e3,        a.e2 * b.e0 + a.e3 * b.e2,        a.e2 * b.e1 + a.e3 * b.e3};
}

} // namespace

kmath_xformLinear sourceFromDest(const kmath_xformLinear &srcFromClient, const kip_affineSampleParams &params)
{
    const kmath_xformLinear unitFromDest = {0, 0, 1.0 / params.destWidth, 0, 0, 1.0 / params.destHeight};
    return composed(srcFromClient, composed(params.rect, unitFromDest));
}

std::vector<int64_t> resampleInTwoPasses(const kimg_windowConst &source, const kmath_xformLinear &srcFromClient,
                                         const kip_affineSampleParams &params, bool roundsDown)
{
    return TwoPasses(source, sourceFromDest(srcFromClient, params), params, roundsDown).run();
}

} // namespace kip::test
