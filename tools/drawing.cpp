#include "drawing.h"

#include "bitmap_font.h"

#include <algorithm>
#include <cmath>

namespace kiptool {
namespace {

// Beyond this a line's end has no fraction left to speak of, and squares of lengths would grow out of hand.
constexpr double kFarthest = 1e12;

constexpr Colour kXSideColour = {0, 200, 60};
constexpr Colour kOtherSidesColour = {235, 40, 40};

uint8_t *pixelAt(Picture &picture, int64_t x, int64_t y)
{
    return samples8(picture).data() + static_cast<size_t>((y * picture.width + x) * 3);
}

void setPixel(uint8_t *pixel, Colour colour)
{
    pixel[0] = colour.red;
    pixel[1] = colour.green;
    pixel[2] = colour.blue;
}

void blend(uint8_t *pixel, Colour colour, double share)
{
    const auto mix = [share](uint8_t below, uint8_t above) {
        return static_cast<uint8_t>(std::lround(below + (above - below) * share));
    };
    setPixel(pixel, {mix(pixel[0], colour.red), mix(pixel[1], colour.green), mix(pixel[2], colour.blue)});
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

} // namespace

void fillArea(Picture &picture, int64_t x, int64_t y, int64_t width, int64_t height, Colour colour)
{
    const int64_t right = std::min<int64_t>(x + width, picture.width);
    const int64_t bottom = std::min<int64_t>(y + height, picture.height);
    for (int64_t row = std::max<int64_t>(y, 0); row < bottom; ++row)
        for (int64_t column = std::max<int64_t>(x, 0); column < right; ++column)
            setPixel(pixelAt(picture, column, row), colour);
}

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
                blend(pixelAt(picture, x, y), colour, share);
        }
    }
}

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

void drawEnlarged(Picture &picture, int64_t x, int64_t y, const Picture &from, int64_t factor)
{
    const std::vector<uint8_t> &samples = samples8(from);
    for (int32_t row = 0; row < from.height; ++row) {
        for (int32_t column = 0; column < from.width; ++column) {
            const size_t i =
                (static_cast<size_t>(row) * static_cast<size_t>(from.width) + static_cast<size_t>(column)) * 3;
            fillArea(picture, x + column * factor, y + row * factor, factor, factor,
                     {samples[i], samples[i + 1], samples[i + 2]});
        }
    }
}

void drawText(Picture &picture, int64_t x, int64_t y, const std::string &text, int64_t factor, Colour colour)
{
    for (const char character : text) {
        for (int row = 0; row < kGlyphHeight; ++row)
            for (int column = 0; column < kGlyphWidth; ++column)
                if (glyphDot(character, column, row))
                    fillArea(picture, x + column * factor, y + row * factor, factor, factor, colour);
        x += kGlyphPitch * factor;
    }
}

int64_t textWidth(const std::string &text, int64_t factor)
{
    return static_cast<int64_t>(text.size()) * kGlyphPitch * factor;
}

Picture reduced(const Picture &picture, int32_t divisor)
{
    Picture result =
        makePicture((picture.width + divisor - 1) / divisor, (picture.height + divisor - 1) / divisor, 3, 8);
    const uint8_t *const from = samples8(picture).data();
    for (int32_t y = 0; y < result.height; ++y) {
        for (int32_t x = 0; x < result.width; ++x) {
            const int32_t right = std::min((x + 1) * divisor, picture.width);
            const int32_t bottom = std::min((y + 1) * divisor, picture.height);
            uint64_t sums[3] = {}, count = 0;
            for (int64_t row = int64_t{y} * divisor; row < bottom; ++row)
                for (int64_t column = int64_t{x} * divisor; column < right; ++column, ++count)
                    for (int channel = 0; channel < 3; ++channel)
                        sums[channel] += from[(row * picture.width + column) * 3 + channel];
            const auto mean = [count](uint64_t sum) { return static_cast<uint8_t>((sum + count / 2) / count); };
            setPixel(pixelAt(result, x, y), {mean(sums[0]), mean(sums[1]), mean(sums[2])});
        }
    }
    return result;
}

} // namespace kiptool
