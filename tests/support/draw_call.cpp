#include "support/draw_call.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "support/geometry_model.h"
#include "support/records.h"
#include "support/turns.h"

namespace kip::test {

namespace {

// ---- Rectangles -----------------------------------------------------------------------------------

kmath_xformLinear inClient(const SamplingCall &c, const kmath_xformLinear &rectInSource)
{
    kmath_xformLinear clientFromSource;
    kmath_xformLinear rect;
    if (kmath_xformLinear_initInverse(&clientFromSource, &c.srcFromClient) < 0 ||
        kmath_xformLinear_initCompose(&rect, &clientFromSource, &rectInSource) < 0)
        std::abort();
    return rect;
}

// Steps and start of whole and dyadic numbers, along the axes.
bool drawDyadicCorners(Random &random, const SamplingCall &c, CornerCenters *corners)
{
    static constexpr double kSteps[] = {0.125, 0.25, 0.5, 1.0, 1.0, 2.0, 1.25, 3.0};
    const double columns = c.params.destWidth - 1;
    const double rows = c.params.destHeight - 1;
    const bool swapped = random.oneIn(2);
    const double across = columns * random.pick(kSteps) * random.sign();
    const double down = rows * random.pick(kSteps) * random.sign();
    const kmath_vect x = swapped ? kmath_vect{0.0, across} : kmath_vect{across, 0.0};
    const kmath_vect y = swapped ? kmath_vect{down, 0.0} : kmath_vect{0.0, down};
    const double width = std::fabs(x.x + y.x);
    const double height = std::fabs(x.y + y.y);
    if (width > c.width - 1 || height > c.height - 1)
        return false;
    const double left = 0.5 + random.between32(0, static_cast<int32_t>((c.width - 1 - width) * 4)) / 4.0;
    const double top = 0.5 + random.between32(0, static_cast<int32_t>((c.height - 1 - height) * 4)) / 4.0;
    corners->first = {left - std::min(0.0, x.x + y.x), top - std::min(0.0, x.y + y.y)};
    corners->endOfRow = {corners->first.x + x.x, corners->first.y + x.y};
    corners->endOfColumn = {corners->first.x + y.x, corners->first.y + y.y};
    return true;
}

// Coordinates of two opposite corners' centres along one axis: well inside, or at the margin of some mode or a little
// beside it.
void drawEnds(Random &random, uint32_t mode, int32_t size, bool isAtMargin, double *a, double *b)
{
    static constexpr double kUnits[] = {0.0, 0.0, 1.0, -1.0, 0.5, -0.5, 0.25, -0.9375, 1.5, 1e-5, -1e-5, 1e-11, -1e-11};
    const auto inset = [&] {
        if (!isAtMargin) {
            const double room = std::max(0.0, size - 2 * kMargins[mode] - 0.001);
            return kMargins[mode] + 0.0005 + (random.oneIn(3) ? 0.0 : random.unit() * 0.5 * room);
        }
        const double margin = random.oneIn(4) ? random.pick(kMargins) : kMargins[mode];
        const double beyond = random.oneIn(4) ? random.between(-7.0, 1.0) : 0.0;
        return margin + beyond + random.pick(kUnits) / 65536.0;
    };
    *a = inset();
    *b = size - inset();
    if (random.oneIn(4))
        *b = *a + (*b - *a) * random.unit();
    if (random.oneIn(2))
        std::swap(*a, *b);
}

// A parallelogram in the box of these ends, two opposite corners in the box's.
CornerCenters drawCorners(Random &random, const SamplingCall &call, bool isAtMargin)
{
    double left, right, top, bottom;
    drawEnds(random, call.params.mode, call.width, isAtMargin, &left, &right);
    drawEnds(random, call.params.mode, call.height, isAtMargin, &top, &bottom);
    double shareX = random.oneIn(2) && isAtMargin ? 1.0 : random.unit();
    double shareY = random.oneIn(2) && isAtMargin ? 0.0 : random.unit();
    if (random.oneIn(2))
        std::swap(shareX, shareY);
    if (random.oneIn(16)) // the sides all but parallel
        shareY = shareX + random.sign() * std::ldexp(1.0, -random.between32(3, 50));
    CornerCenters corners = {{left, top},
                             {left + (right - left) * shareX, top + (bottom - top) * shareY},
                             {right - (right - left) * shareX, bottom - (bottom - top) * shareY}};
    // One sample along a side takes no step, so that the side may be as long as it likes.
    const double reach = random.oneIn(4) ? std::ldexp(1.0, random.between32(4, 30)) : 9.0;
    corners.singleSample = {random.between(-reach, reach), random.between(-reach, reach)};
    return corners;
}

// ---- Calls -------------------------------------------------------------------------------------------

constexpr int32_t kRoundTiles[] = {47, 48, 49, 63, 64, 65, 95, 96, 97, 223, 224, 225};

int32_t drawSize(Random &random)
{
    const int32_t kind = random.between32(0, 15);
    return kind < 4 ? random.between32(1, 2) : kind == 15 ? random.between32(3, 40) : random.between32(3, 12);
}

void drawImages(Random &random, SamplingCall *call)
{
    call->bytesPerPixel =
        call->operation == Operation::transformShort || isSum(call->operation) ? 1 : random.between32(1, 2);
    call->width = drawSize(random);
    call->height = drawSize(random);
    call->params.destWidth = drawSize(random);
    call->params.destHeight = drawSize(random);
    const bool isAcross = random.oneIn(2);
    int32_t &sourceLength = isAcross ? call->width : call->height;
    int32_t &resultLength = isAcross ? call->params.destWidth : call->params.destHeight;
    switch (random.between32(0, 1023)) {
    case 0: // worth a dispatch of jobs
        call->width = call->height = random.between32(200, 300);
        call->params.destWidth = random.between32(190, 230);
        call->params.destHeight = random.between32(340, 460);
        break;
    case 1:
        sourceLength = random.between32(32766, 32769);
        break;
    case 2:
        call->pitch = random.between32(32766, 32769);
        call->height = std::min(call->height, 4);
        break;
    default:
        if (random.oneIn(12))
            resultLength = random.pick(kRoundTiles);
        if (random.oneIn(24))
            sourceLength = random.pick(kRoundTiles);
        if (random.oneIn(64)) { // reductions
            resultLength = random.between32(1, 4);
            sourceLength = resultLength * random.between32(20, 400);
        }
    }
    if (call->pitch < call->width)
        call->pitch = call->width + (random.oneIn(2) ? 0 : random.between32(1, 9));
    if (random.oneIn(4))
        call->pitch = -call->pitch;
    call->x = random.oneIn(2) ? 0 : random.between32(-300, 300);
    call->y = random.oneIn(2) ? 0 : random.between32(-300, 300);
    if (random.oneIn(64))
        (random.oneIn(2) ? call->x : call->y) = random.between32(INT32_MIN / 2, INT32_MAX / 2);
    call->sourceGuard = random.pick(kGuards);
    call->destinationGuard = random.pick(kGuards);
    call->seed = random.next();
    call->isWhite = random.oneIn(16);
    const uint32_t modes = isProjection(call->operation) && call->bytesPerPixel == 2 && !random.oneIn(16) ? 2 : 4;
    call->params.mode = static_cast<uint32_t>(random.next() % modes);
}

// Have exact inverses.
constexpr kmath_xformLinear kExactMaps[] = {
    {0, 0, 1, 0, 0, 1},    {0.5, -0.25, 1, 0, 0, 1},   {3, -5, 2, 0, 0, 2}, {0, 0, 4, 0, 0, 0.125},
    {0, 480, 1, 0, 0, -1}, {64, 0, 0, -0.25, 0.25, 0}, {0, 0, 0, 2, 2, 0},  {0, 0, 1, 0.5, 0, 1},
};

// At most 2 x 2 samples, a corner of theirs so many sixteenths of a 16.16 unit beside a margin, all in numbers that
// doubles hold.
void drawExactMargin(Random &random, SamplingCall *call)
{
    call->srcFromClient = random.pick(kExactMaps);
    call->params.destWidth = random.between32(1, 2);
    call->params.destHeight = random.between32(1, 2);
    int32_t width = call->width, height = call->height;
    if (call->operation == Operation::analyse && random.oneIn(3)) { // beyond 16.16, or beside it
        (random.oneIn(2) ? width : height) = random.oneIn(2) ? 40000 : random.between32(32766, 32769);
        call->hasOtherWindow = true;
        call->windowWidth = width;
        call->windowHeight = height;
        if (random.oneIn(4) && std::max(call->width, call->height) <= 300)
            call->pitch = random.sign() * random.between32(32766, 32769);
    }
    double inwards[2];
    const auto near = [&](int32_t size, double *direction) {
        const bool isLower = random.oneIn(2);
        *direction = isLower ? 1.0 : -1.0;
        if (random.oneIn(2))
            return size / 2.0;
        const double beyond = random.between32(-40, 40) * 0x1p-20;
        const double upper = size > 32767 && random.oneIn(2) ? 32767.0 : size - kMargins[call->params.mode];
        return isLower ? kMargins[call->params.mode] + beyond : upper - beyond;
    };
    const kmath_vect at = {near(width, &inwards[0]), near(height, &inwards[1])};
    const auto side = [&] {
        const bool isOutwards = random.oneIn(8);
        return kmath_vect{inwards[0] * random.between32(isOutwards ? -2 : 0, call->width / 2) / 2,
                          inwards[1] * random.between32(isOutwards ? -2 : 0, call->height / 2) / 2};
    };
    const kmath_vect x = side(), y = side();
    const double alongX = random.between32(0, 1), alongY = random.between32(0, 1); // which corner it is
    const kmath_vect first = {at.x - alongX * x.x - alongY * y.x, at.y - alongX * x.y - alongY * y.y};
    CornerCenters corners = {first, {first.x + x.x, first.y + x.y}, {first.x + y.x, first.y + y.y}};
    corners.singleSample = {random.between32(-9, 9) * 0.5, random.between32(-9, 9) * 0.5};
    placeCorners(corners, call);
}

void drawWholePixels(Random &random, SamplingCall *call)
{
    call->srcFromClient = random.pick(kExactMaps);
    const Turn turn = random.pick(kTurns);
    const auto near = [&](int32_t extent, int32_t size) {
        return random.oneIn(2) ? random.between32(-2, 2) : extent - size + random.between32(-2, 2);
    };
    const int32_t w = call->params.destWidth, h = call->params.destHeight;
    call->params.rect =
        turn.rect(near(call->width, turn.swapsAxes() ? h : w), near(call->height, turn.swapsAxes() ? w : h), w, h);
    call->params.rect.tx += call->x;
    call->params.rect.ty += call->y;
    if (random.oneIn(8)) // the tolerance
        call->params.rect.*random.pick(kElements) += random.sign() * (random.oneIn(2) ? 0.9e-12 : 1.1e-12);
    call->params.rect = inClient(*call, call->params.rect);
}

void drawTarget(Random &random, int32_t width, int32_t height, bool isSums, Target *target)
{
    const int32_t kind = random.between32(0, 7);
    target->isBound = kind > 0;
    target->width = width;
    target->height = height;
    if (kind == 1 || kind == 2)
        target->width += random.between32(0, 9);
    if (kind == 2)
        target->height += random.between32(0, 3);
    if (kind == 3) { // whatever it has in common with the result
        target->x = random.between32(-3, 3);
        target->y = random.between32(-1, 1);
        target->width = std::max(1, width + random.between32(-3, 5));
        target->height = std::max(1, height + random.between32(-2, 2));
    }
    target->pitch = (target->width + (random.oneIn(2) ? 0 : random.between32(1, 5))) * (random.oneIn(4) ? -1 : 1);
    target->misalignment = isSums && random.oneIn(8) ? random.between32(1, 3) : 0;
}

void drawAligned(Random &random, SamplingCall *call)
{
    static constexpr int32_t kOtherCodes[] = {-1, 2, 180 << 8, INT32_MIN, INT32_MAX};
    call->alignCode = random.oneIn(16) ? random.pick(kOtherCodes) : random.pick(kTurns).code;
    const Extent extent = resultExtent(*call);
    drawTarget(random, static_cast<int32_t>(extent.width), static_cast<int32_t>(extent.height), false, &call->result);
    call->result.isBound = true;
    call->result.x = call->result.y = 0;
    call->isInPlace = random.oneIn(4);
    if (call->isInPlace)
        call->sourceGuard = Guard::behind;
}

// ---- Any numbers ----------------------------------------------------------------------------------------------------

constexpr double kNumbers[] = {0.0,     -0.0,      4.9e-324,   -1e-310, 1e-300,        -1e-17,      0x1p-16,
                               0.5,     1.0,       -1.0,       1e5,     -32767.5,      32768.0,     65535.99999999,
                               1e9,     -1e12,     9.3e18,     -1e19,   2147483647,    1e300,       -1e308,
                               1.7e308, kInfinity, -kInfinity, kNan,    -2147483648.5, 4294967296.0};
constexpr int32_t kSizes[] = {0, -1, INT32_MIN, INT32_MAX, INT32_MAX - 1, 46341, 65536};
constexpr int32_t kPlaces[] = {INT32_MIN, INT32_MIN + 1, INT32_MAX, INT32_MAX - 1, 1 << 30, -(1 << 30)};
constexpr uint32_t kModes[] = {4, 5, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF};

void spoilNumbers(Random &random, uint64_t rarity, kmath_xformLinear *record)
{
    for (double kmath_xformLinear::*const element : kElements)
        if (random.oneIn(rarity))
            record->*element = random.oneIn(8) ? -random.pick(kNumbers) : random.pick(kNumbers);
}

void spoilSizes(Random &random, SamplingCall *call)
{
    (random.oneIn(2) ? call->params.destWidth : call->params.destHeight) = random.pick(kSizes);
    if (random.oneIn(2))
        (random.oneIn(2) ? call->params.destWidth : call->params.destHeight) = random.pick(kSizes);
    // A projection takes no memory for its samples: as many as a caller asks for, it adds up. These take too long.
    constexpr int32_t kMostSamples = 1 << 16;
    kip_affineSampleParams &params = call->params;
    if (call->operation >= Operation::project && params.destWidth > 0 && params.destWidth <= kMostMemory / 4)
        params.destHeight = std::min(params.destHeight, std::max(1, kMostSamples / params.destWidth));
}

} // namespace

void placeCorners(const CornerCenters &corners, SamplingCall *c)
{
    const double width = c->params.destWidth;
    const double height = c->params.destHeight;
    const auto side = [&](const kmath_vect &end, double samples) {
        if (samples < 2.0)
            return corners.singleSample;
        // Divided first: a whole step then gives a whole side.
        return kmath_vect{(end.x - corners.first.x) / (samples - 1.0) * samples,
                          (end.y - corners.first.y) / (samples - 1.0) * samples};
    };
    const kmath_vect x = side(corners.endOfRow, width);
    const kmath_vect y = side(corners.endOfColumn, height);
    const double tx = corners.first.x - x.x / width * 0.5 - y.x / height * 0.5 + c->x;
    const double ty = corners.first.y - x.y / width * 0.5 - y.y / height * 0.5 + c->y;
    c->params.rect = inClient(*c, {tx, ty, x.x, y.x, x.y, y.y});
}

void drawRectangle(Random &random, SamplingCall *c)
{
    CornerCenters corners;
    if (!random.oneIn(4) || !drawDyadicCorners(random, *c, &corners))
        corners = drawCorners(random, *c, false);
    placeCorners(corners, c);
}

kmath_xformLinear drawClientMap(Random &random)
{
    const double tx = random.between32(-4000, 4000) / 4.0;
    const double ty = random.between32(-4000, 4000) / 4.0;
    static constexpr double kScales[] = {-2.0, 0.25, 0.5, 1.0, 4.0};
    const int32_t kind = random.between32(0, 3);
    if (kind == 0)
        return kIdentity;
    if (kind == 1)
        return {tx, ty, random.pick(kScales), 0.0, 0.0, random.pick(kScales)};
    const double e0 = random.between(0.3, 3.0), e1 = random.between(-0.2, 0.2), e2 = random.between(-0.2, 0.2);
    return {tx, ty, e0, e1, e2, random.between(-3.0, -0.3)};
}

SamplingCall drawCall(Random &random, Operation operation)
{
    SamplingCall call;
    call.operation = operation;
    call.pitch = 0;
    drawImages(random, &call);
    if (operation == Operation::transformAligned) {
        drawAligned(random, &call);
        return call;
    }
    call.sumsColumns = random.oneIn(2);
    call.asksAll = !random.oneIn(8);
    if (isSum(operation)) {
        drawTarget(random, call.sumsColumns ? call.width : call.height, 1, true, &call.result);
        call.result.x = call.result.y = 0;
        return call;
    }
    if (random.oneIn(2))
        call.srcFromClient = drawClientMap(random);
    const int32_t kind = random.between32(0, 7);
    if (kind == 0)
        drawRectangle(random, &call);
    else if (kind == 1)
        drawWholePixels(random, &call);
    else if (kind == 2 || (kind < 6 && operation == Operation::analyse))
        drawExactMargin(random, &call);
    else
        placeCorners(drawCorners(random, call, true), &call);
    drawTargets(random, &call);
    return call;
}

void drawTargets(Random &random, SamplingCall *call)
{
    const bool isSums = isProjection(call->operation);
    const kip_affineSampleParams &params = call->params;
    drawTarget(random, params.destWidth, isSums ? 1 : params.destHeight, isSums, &call->result);
    if (hasSecond(*call)) {
        drawTarget(random, params.destWidth, isSums ? 1 : params.destHeight, isSums, &call->second);
        call->hasMask = !random.oneIn(4);
        if (!call->hasMask && call->operation == Operation::transformClipped)
            call->second = {};
    }
    call->clip = random.oneIn(4) ? 0 : static_cast<uint32_t>(random.next());
    call->coverageValue = random.oneIn(2) ? 255 : static_cast<uint8_t>(random.next());
}

void spoilCall(Random &random, SamplingCall *call)
{
    const uint64_t rarity = random.oneIn(3) ? 1 : 16;
    const int32_t kind = random.between32(0, 7);
    if (kind < 5) {
        spoilNumbers(random, rarity, &call->params.rect);
        spoilNumbers(random, rarity * 2, &call->srcFromClient);
    }
    if (kind == 5 || random.oneIn(16))
        spoilSizes(random, call);
    if (kind == 6 || random.oneIn(16)) {
        // Only sampling asks where its result lies.
        const bool placesResult = samples(call->operation);
        for (int32_t *const place : {&call->x, &call->y, placesResult ? &call->result.x : &call->x,
                                     placesResult ? &call->result.y : &call->y, &call->second.x})
            if (random.oneIn(3))
                *place = random.pick(kPlaces);
    }
    if (kind == 7 || random.oneIn(32))
        call->params.mode = random.pick(kModes);
    if (random.oneIn(16)) {
        const bool readsPixels = call->operation != Operation::analyse;
        call->hasOtherWindow = true;
        call->windowWidth = std::min(random.pick(kSizes), readsPixels ? call->width : INT32_MAX);
        call->windowHeight = std::min(random.pick(kSizes), readsPixels ? call->height : INT32_MAX);
    }
    if (random.oneIn(4))
        call->alignCode = static_cast<int32_t>(random.next());
}

} // namespace kip::test
