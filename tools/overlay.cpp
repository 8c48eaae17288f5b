#include "overlay.h"

#include "parse.h"
#include "picture_io.h"

#include <algorithm>
#include <cmath>

namespace kiptool {
namespace {

// Beyond this a line's end has no fraction left to speak of, and squares of lengths would grow out of hand.
constexpr double kFarthest = 1e12;

struct Colour {
    uint8_t red, green, blue;
};

constexpr Colour kXSideColour = {0, 200, 60};
constexpr Colour kOtherSidesColour = {235, 40, 40};

// A point or vector in pixel coordinates: pixel (p, q) covers [p, p + 1) x [q, q + 1).
struct Point {
    double x, y;
};

void blend(uint8_t *pixel, Colour colour, double share)
{
    const auto mix = [share](uint8_t below, uint8_t above) {
        return static_cast<uint8_t>(std::lround(below + (above - below) * share));
    };
    pixel[0] = mix(pixel[0], colour.red);
    pixel[1] = mix(pixel[1], colour.green);
    pixel[2] = mix(pixel[2], colour.blue);
}

bool isNear(Point point)
{
    return std::fabs(point.x) < kFarthest && std::fabs(point.y) < kFarthest; // false for not-a-number
}

double distanceToSegment(Point p, Point from, Point along, double squaredLength)
{
    const double dx = p.x - from.x, dy = p.y - from.y;
    const double t = squaredLength > 0 ? std::clamp((dx * along.x + dy * along.y) / squaredLength, 0.0, 1.0) : 0;
    return std::hypot(dx - t * along.x, dy - t * along.y);
}

// A smooth line into an 8-bit colour picture, as far as it lies inside; left out with an end that is not finite or
// absurdly far away.
void drawLine(Picture &picture, Point from, Point to, double width, Colour colour)
{
    if (!isNear(from) || !isNear(to))
        return;
    const Point along = {to.x - from.x, to.y - from.y};
    const double squaredLength = along.x * along.x + along.y * along.y;
    const double reach = width / 2 + 1;
    const auto pixelIn = [](double position, int32_t size) {
        return static_cast<int32_t>(std::clamp(std::floor(position), 0.0, size - 1.0));
    };
    const int32_t top = pixelIn(std::min(from.y, to.y) - reach, picture.height);
    const int32_t bottom = pixelIn(std::max(from.y, to.y) + reach, picture.height);
    for (int32_t y = top; y <= bottom; ++y) {
        // Only the part of the line that can touch this row.
        double first = 0, last = 1;
        if (std::fabs(along.y) > 1e-9) {
            first = std::clamp((y + 0.5 - reach - from.y) / along.y, 0.0, 1.0);
            last = std::clamp((y + 0.5 + reach - from.y) / along.y, 0.0, 1.0);
        }
        const double x0 = from.x + first * along.x, x1 = from.x + last * along.x;
        const int32_t left = pixelIn(std::min(x0, x1) - reach, picture.width);
        const int32_t right = pixelIn(std::max(x0, x1) + reach, picture.width);
        for (int32_t x = left; x <= right; ++x) {
            const double distance = distanceToSegment({x + 0.5, y + 0.5}, from, along, squaredLength);
            const double share = std::clamp(width / 2 + 0.5 - distance, 0.0, 1.0);
            if (share > 0)
                blend(samples8(picture).data() + static_cast<size_t>(y) * rowSamples(picture) +
                          size_t{3} * static_cast<size_t>(x),
                      colour, share);
        }
    }
}

// The outline of a parallelogram, its x side with an arrow head, in a width that suits the picture.
void drawRectangle(Picture &picture, Point origin, Point xSide, Point ySide)
{
    const double width = std::max(1.2, std::max(picture.width, picture.height) / 500.0);
    const Point xEnd = {origin.x + xSide.x, origin.y + xSide.y};
    const Point yEnd = {origin.x + ySide.x, origin.y + ySide.y};
    const Point opposite = {xEnd.x + ySide.x, xEnd.y + ySide.y};
    drawLine(picture, origin, yEnd, width, kOtherSidesColour);
    drawLine(picture, yEnd, opposite, width, kOtherSidesColour);
    drawLine(picture, xEnd, opposite, width, kOtherSidesColour);
    drawLine(picture, origin, xEnd, width, kXSideColour);

    const double length = std::hypot(xSide.x, xSide.y);
    if (!(length > 0))
        return;
    const double head = std::min(6 * width, length / 3);
    const Point back = {-xSide.x / length * head, -xSide.y / length * head};
    for (const double turn : {0.5, -0.5}) // radians to either side
        drawLine(picture, xEnd,
                 {xEnd.x + back.x * std::cos(turn) - back.y * std::sin(turn),
                  xEnd.y + back.x * std::sin(turn) + back.y * std::cos(turn)},
                 width, kXSideColour);
}

} // namespace

void addOverlayOption(CLI::App &command, std::string &file)
{
    addFileOption(command, "--overlay", {".png"},
                  "Draw the rectangle over IN, its top side green with an arrow, into this file; drawn also when the "
                  "operation is refused",
                  file);
}

void writeOverlay(const std::string &file, const Picture &picture, const kmath_shapeAffineRect &rect)
{
    if (file.empty())
        return;
    Picture colour = toColour8(picture);
    drawRectangle(colour, {rect.tx, rect.ty}, {rect.e0, rect.e2}, {rect.e1, rect.e3});
    writePicture(file, colour);
}

} // namespace kiptool
