#include "support/geometry_model.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstdlib>
#include <limits>

#include "support/turns.h"

namespace kip::test {

namespace {

using Wide = long double;

// A number that doubles work out as well, and how far off it they may be: exactly right where they hold every step.
struct Number {
    Wide value = 0;
    Wide error = 0;

    Number() = default;
    Number(double given) : value(given) {}
    // Of an operation on numbers that were off themselves.
    Number(Wide result, Wide errorBefore) : value(result), error(errorBefore)
    {
        const bool isHeld = std::fabs(result) <= DBL_MAX && static_cast<Wide>(static_cast<double>(result)) == result;
        if (!isHeld)
            error += std::fabs(result) > DBL_MAX ? std::numeric_limits<Wide>::infinity()
                                                 : std::fabs(result) * DBL_EPSILON + DBL_TRUE_MIN;
    }
};

Number operator+(const Number &a, const Number &b)
{
    return {a.value + b.value, a.error + b.error};
}

Number operator-(const Number &a, const Number &b)
{
    return {a.value - b.value, a.error + b.error};
}

Number operator*(const Number &a, const Number &b)
{
    return {a.value * b.value, a.error * std::fabs(b.value) + b.error * std::fabs(a.value) + a.error * b.error};
}

// Both of several are the least, either is the greatest.
enum class Answer { no, unknown, yes };

Answer operator!(Answer answer)
{
    return answer == Answer::unknown ? answer : answer == Answer::no ? Answer::yes : Answer::no;
}

Answer isLess(const Number &a, const Number &b)
{
    // The library may take its steps in another order.
    const Wide doubt = 4 * (a.error + b.error);
    const Wide gap = b.value - a.value;
    if (std::fabs(gap) > doubt || doubt == 0)
        return gap > 0 ? Answer::yes : Answer::no;
    return Answer::unknown;
}

std::optional<int64_t> floorOf(const Number &number)
{
    const Wide least = std::floor(number.value - 4 * number.error);
    const bool isKnown = least == std::floor(number.value + 4 * number.error) && std::fabs(least) < 0x1p62L;
    return isKnown ? std::optional(static_cast<int64_t>(least)) : std::nullopt;
}

struct Point {
    Number x, y;
};

Point operator+(const Point &a, const Point &b)
{
    return {a.x + b.x, a.y + b.y};
}

Point operator-(const Point &a, const Point &b)
{
    return {a.x - b.x, a.y - b.y};
}

Point operator*(const Point &a, const Number &by)
{
    return {a.x * by, a.y * by};
}

// A rectangle in pixel coordinates.
struct Sides {
    Point origin, x, y;

    Sides(const kmath_shapeAffineRect &rect, const kmath_xformLinear &map)
    {
        const auto turned = [&map](double a, double b) {
            return Point{Number(map.e0) * a + Number(map.e1) * b, Number(map.e2) * a + Number(map.e3) * b};
        };
        origin = turned(rect.tx, rect.ty) + Point{map.tx, map.ty};
        x = turned(rect.e0, rect.e2);
        y = turned(rect.e1, rect.e3);
    }
};

// Positions that are truncated toward zero after half a unit of 16.16 was added.
Answer isInside(const Number &x, int32_t size, uint32_t mode, bool isLarge)
{
    const double margin = kMargins[mode];
    if (isLarge)
        return std::min(!isLess(x, margin), !isLess(Number(size) - margin - 1e-5, x));
    const Number position = x * 65536.0 + 0.5;
    const double low = margin * 65536.0;
    const double high = size * 65536.0 - low - (mode <= kip_affineModeBilinear ? 1.0 : 0.0);
    return std::min({!isLess(x, -32767.0), !isLess(32767.0, x),
                     low == 0.0 ? isLess(-1.0, position) : !isLess(position, low), isLess(position, high + 1.0)});
}

Answer clips(const Point (&corners)[4], const kimg_windowConst &source, uint32_t mode, bool isLarge)
{
    static constexpr int32_t kLeastSizes[] = {1, 1, 5, 7};
    const int32_t least = isLarge ? 1 : kLeastSizes[mode];
    if (source.width < least || source.height < least)
        return Answer::yes;
    Answer inside = Answer::yes;
    for (const Point &corner : corners)
        inside = std::min({inside, isInside(corner.x - source.x, source.width, mode, isLarge),
                           isInside(corner.y - source.y, source.height, mode, isLarge)});
    return !inside;
}

constexpr double kTolerance = 1e-12;

Answer isClose(const Number &a, const Number &b)
{
    const Number apart = a - b;
    return std::min(!isLess(kTolerance, apart), !isLess(apart, -kTolerance));
}

Answer isWhole(const Number &a)
{
    const auto nearest = static_cast<double>(std::clamp<Wide>(std::round(a.value), INT32_MIN, INT32_MAX));
    return std::min({isClose(a, nearest), !isLess(a, INT32_MIN), !isLess(INT32_MAX, a)});
}

// Whether a step right and one down are the turn's.
Answer takesTurn(const Sides &sides, const kip_affineSampleParams &params, const Turn &turn)
{
    const double w = params.destWidth;
    const double h = params.destHeight;
    return std::min({isWhole(sides.origin.x), isWhole(sides.origin.y), isClose(sides.x.x, turn.right.x * w),
                     isClose(sides.x.y, turn.right.y * w), isClose(sides.y.x, turn.down.x * h),
                     isClose(sides.y.y, turn.down.y * h)});
}

// Six pixels round the corner pixels' centres. Doubles that are held in the steps of one road to them need not be in
// those of another.
std::optional<kstd_rect32> footprintOf(const Sides &sides, double width, double height)
{
    const Point perColumn = sides.x * Number(1 / Wide{width}, 0), perRow = sides.y * Number(1 / Wide{height}, 0);
    const auto centre = [&](double x, double y) { return perColumn * x + perRow * y + sides.origin; };
    const Point corners[] = {centre(0.5, 0.5), centre(width - 0.5, 0.5), centre(0.5, height - 0.5),
                             centre(width - 0.5, height - 0.5)};
    Number left = corners[0].x, right = left, top = corners[0].y, bottom = top;
    const auto enclose = [](const Number &value, Number &least, Number &greatest) {
        least = {std::min(least.value, value.value), std::max(least.error, value.error)};
        greatest = {std::max(greatest.value, value.value), std::max(greatest.error, value.error)};
    };
    for (const Point &corner : corners) {
        enclose(corner.x, left, right);
        enclose(corner.y, top, bottom);
    }
    const auto x0 = floorOf(left - 6.0), y0 = floorOf(top - 6.0);
    const auto x1 = floorOf(Number(-6.0) - right), y1 = floorOf(Number(-6.0) - bottom); // less their ceilings
    if (!x0 || !y0 || !x1 || !y1 || std::max({std::abs(*x0), std::abs(*y0), std::abs(*x1), std::abs(*y1)}) > 1 << 30)
        return std::nullopt;
    return kstd_rect32{static_cast<int32_t>(*x0), static_cast<int32_t>(*y0), static_cast<int32_t>(-*x1 - *x0 + 1),
                       static_cast<int32_t>(-*y1 - *y0 + 1)};
}

// An area of less than eight roundings of the products whose difference it is, one of which the library may be off by.
// Sides that counts divide down to nothing are left to it.
std::optional<bool> areParallel(const kmath_shapeAffineRect &rect)
{
    const Wide a = Wide{rect.e0} * rect.e3, b = Wide{rect.e1} * rect.e2;
    const Wide area = std::fabs(a - b), unit = (std::fabs(a) + std::fabs(b)) * (DBL_EPSILON / 2);
    const auto mayVanish = [&](double side) { return side != 0 && std::fabs(side) < DBL_MIN * 0x1p64; };
    if (area <= 6.5L * unit)
        return true;
    const bool isKnown =
        area > 9.5L * unit && !mayVanish(rect.e0) && !mayVanish(rect.e1) && !mayVanish(rect.e2) && !mayVanish(rect.e3);
    return isKnown ? std::optional(false) : std::nullopt;
}

} // namespace

GeometryModel modelGeometry(const kip_affineSampleParams &params, const kmath_xformLinear &srcFromClient,
                            const kimg_windowConst &source)
{
    const Sides sides(params.rect, srcFromClient);
    const Point xEnd = sides.origin + sides.x, yEnd = sides.origin + sides.y;
    const Point halfX = (xEnd - sides.origin) * Number(Wide{0.5} / params.destWidth, 0);
    const Point halfY = (yEnd - sides.origin) * Number(Wide{0.5} / params.destHeight, 0);
    Point corners[] = {sides.origin + halfX + halfY, xEnd - halfX + halfY, yEnd + halfX - halfY, {}};
    corners[3] = corners[1] + corners[2] - corners[0];

    GeometryModel model;
    model.isParallel = areParallel(params.rect);
    model.footprint = footprintOf(sides, params.destWidth, params.destHeight);
    Answer isAligned = Answer::no;
    for (const Turn &turn : kTurns) {
        const Answer answer = takesTurn(sides, params, turn);
        isAligned = std::max(isAligned, answer);
        if (answer != Answer::yes)
            continue;
        const int32_t w = params.destWidth, h = params.destHeight;
        const Wide left = std::round(sides.origin.x.value) - (turn.right.x < 0 ? w : 0) - (turn.down.x < 0 ? h : 0);
        const Wide top = std::round(sides.origin.y.value) - (turn.right.y < 0 ? w : 0) - (turn.down.y < 0 ? h : 0);
        model.alignment = turn.code;
        if (std::max(std::fabs(left), std::fabs(top)) < 1 << 30)
            model.block = {static_cast<int32_t>(left), static_cast<int32_t>(top), turn.swapsAxes() ? h : w,
                           turn.swapsAxes() ? w : h};
    }
    if (isAligned == Answer::no)
        model.alignment = kip_affine_alignNone;

    const bool isLarge = source.pitch > 32767 || source.height > 32767;
    // Whole pixels need no support round them.
    const uint32_t mode = isAligned == Answer::yes ? uint32_t{kip_affineModeNearest} : params.mode;
    const Answer answer = clips(corners, source, mode, isLarge);
    if (answer != Answer::unknown && (isAligned != Answer::unknown || mode == kip_affineModeNearest))
        model.clips = answer == Answer::yes;
    return model;
}

} // namespace kip::test
