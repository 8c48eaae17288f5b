#ifndef KIP_CPP_GEOMETRY_HPP
#define KIP_CPP_GEOMETRY_HPP

/**
 * @file
 * Points, maps and affine rectangles. Pixel (p, q) covers [p, p + 1) x [q, q + 1), so that its centre is
 * (p + 0.5, q + 0.5); y points down.
 */

#include <cmath>
#include <cstdint>

#include <kip/cpp/error.hpp>
#include <kip/kip.h>

namespace kip {

/** Numbers of columns and rows. */
struct Size {
    int32_t width = 0;  /**< columns */
    int32_t height = 0; /**< rows */

    /** Equal in both. */
    friend bool operator==(const Size &, const Size &) = default;
};

/** A point, in client or pixel coordinates. */
struct Point {
    double x = 0; /**< to the right */
    double y = 0; /**< down */

    /** Equal in both. */
    friend bool operator==(const Point &, const Point &) = default;
};

/** An affine map: (x, y) goes to (e0 x + e1 y + tx, e2 x + e3 y + ty). */
using Xform = kmath_xformLinear;

/** The map that leaves everything where it is. */
inline constexpr Xform kIdentity{0, 0, 1, 0, 0, 1};

/** Carries a point by a map. */
inline Point map(const Xform &xform, Point point) noexcept
{
    const kmath_vect from{point.x, point.y};
    kmath_vect to;
    (void)kmath_xformLinear_mapPoint(&xform, &from, &to);
    return {to.x, to.y};
}

/** The inverse of a map. Throws Error for one that has none. */
inline Xform inverse(const Xform &xform)
{
    Xform result;
    check(kmath_xformLinear_initInverse(&result, &xform), "inverse of a map");
    return result;
}

/**
 * An affine rectangle (a parallelogram): an origin, an x side, along which the columns of a result lie, and a y side,
 * along which its rows lie. A value without state of its own; safe to read from several threads.
 */
class AffineRect {
public:
    /** Takes over the C record as it is, without a test. */
    constexpr explicit AffineRect(const kmath_shapeAffineRect &record) noexcept : record_(record) {}

    /**
     * The rectangle with a given centre.
     *
     * center         its middle.
     * width, height  lengths of its x and its y side.
     * angle          by how much it is turned about its centre: radians, clockwise as seen on the screen; multiples of
     *                a quarter turn are exact.
     * Throws Error when a number is not finite.
     */
    static AffineRect fromCenter(Point center, double width, double height, double angle = 0)
    {
        kmath_shapeAffineRect record;
        check(kmath_shapeAffineRect_initCenter(&record, center.x, center.y, width, height, angle),
              "rectangle from its centre");
        return AffineRect(record);
    }

    /**
     * The rectangle with three given corners: its origin, where its x side ends and where its y side ends.
     * Throws Error when a number is not finite.
     */
    static AffineRect fromCorners(Point origin, Point xEnd, Point yEnd)
    {
        const kmath_shapeAffineRectPoints points{{origin.x, origin.y}, {xEnd.x, xEnd.y}, {yEnd.x, yEnd.y}};
        kmath_shapeAffineRect record;
        check(kmath_shapeAffineRect_initPoints(&record, &points), "rectangle from its corners");
        return AffineRect(record);
    }

    /** The point at fractions u of the x side and v of the y side; (0.5, 0.5) is the centre. */
    Point at(double u, double v) const noexcept { return map(record_, {u, v}); }
    /** The corner at which both sides begin. */
    Point origin() const noexcept { return {record_.tx, record_.ty}; }
    /** The corner at which the x side ends. */
    Point xEnd() const noexcept { return at(1, 0); }
    /** The corner at which the y side ends. */
    Point yEnd() const noexcept { return at(0, 1); }
    /** The corner opposite the origin. */
    Point opposite() const noexcept { return at(1, 1); }
    /** The middle. */
    Point center() const noexcept { return at(0.5, 0.5); }
    /** Length of the x side. */
    double width() const noexcept { return std::hypot(record_.e0, record_.e2); }
    /** Length of the y side. */
    double height() const noexcept { return std::hypot(record_.e1, record_.e3); }

    /**
     * One sample for each unit of length along either side, rounded to nearest; 0 for a side below one half.
     * Throws Error when the rectangle is not finite.
     */
    Size standardSize() const
    {
        kip_affineSampleParams params;
        check(kip_affineSampleParams_initRectStandard(&params, &record_, nullptr), "size of a rectangle");
        return {params.destWidth, params.destHeight};
    }

    /** The rectangle carried by a map. Throws Error when the result is not finite. */
    AffineRect mapped(const Xform &xform) const
    {
        kmath_shapeAffineRect result;
        check(kmath_shapeAffineRect_initMap(&result, &xform, &record_), "a rectangle carried by a map");
        return AffineRect(result);
    }

    /** The C record. */
    constexpr const kmath_shapeAffineRect &record() const noexcept { return record_; }

    /** Equal in all six numbers. */
    friend bool operator==(const AffineRect &a, const AffineRect &b) noexcept
    {
        int32_t equal = 0;
        (void)kmath_shapeAffineRect_compareEqual(&a.record_, &b.record_, &equal);
        return equal != 0;
    }

private:
    kmath_shapeAffineRect record_;
};

} // namespace kip

#endif
