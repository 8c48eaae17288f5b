#ifndef KIP_TOOLS_DRAWING_H
#define KIP_TOOLS_DRAWING_H

#include "picture.h"

#include <string>

namespace kiptool {

// Drawing into 8-bit colour pictures. Whatever lies outside the picture is left out.

/** A point or vector in pixel coordinates: pixel (p, q) covers [p, p + 1) x [q, q + 1). */
struct Point {
    double x, y;
};

void fillArea(Picture &picture, int64_t x, int64_t y, int64_t width, int64_t height, Colour colour);

/** A smooth line; width in pixels. A line with an end that is not finite or absurdly far away is left out. */
void drawLine(Picture &picture, Point from, Point to, double width, Colour colour);

/**
 * The outline of a parallelogram, its x side green with an arrow head and the others red, in a width that
 * suits the picture.
 */
void drawRectangle(Picture &picture, Point origin, Point xSide, Point ySide);

/** Puts a colour picture into another, each pixel as factor x factor pixels. */
void drawEnlarged(Picture &picture, int64_t x, int64_t y, const Picture &from, int64_t factor);

/** A line of text; each dot of the font is factor x factor pixels. */
void drawText(Picture &picture, int64_t x, int64_t y, const std::string &text, int64_t factor, Colour colour);

/** Width of a line of text in pixels. */
int64_t textWidth(const std::string &text, int64_t factor);

/** A picture reduced by a whole divisor: each pixel is the mean of a square, smaller at the far edges. */
Picture reduced(const Picture &picture, int32_t divisor);

} // namespace kiptool

#endif
