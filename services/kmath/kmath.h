#ifndef KMATH_KMATH_H
#define KMATH_KMATH_H

/**
 * @file
 * Two-dimensional geometry: vectors, matrices, affine maps and affine rectangles.
 *
 * Formulas are evaluated in IEEE doubles as written, without fused operations, so that maps of whole and
 * dyadic numbers stay exact and every machine gives the same bits. A status is an int32_t: negative is
 * failure. All functions may be called from any thread.
 */

#include <stdint.h>

#include <kstd/kservices_api.h>
#include <kstd/kstd.h>

KSERVICES_BEGIN_C

/** Statuses of the geometry. */
enum {
    kmath_statusNotFinite = (int32_t)0x80000301u, /**< A value is infinite or not a number, or a result would be. */
    kmath_statusSingular = (int32_t)0x80000302u,  /**< A map without an inverse. */
    kmath_statusOutOfRange = (int32_t)0x80000303u /**< A coordinate that 32 bits cannot hold. */
};

/** A point or a vector. */
typedef struct {
    double x; /**< x coordinate */
    double y; /**< y coordinate */
} kmath_vect;

/** A 2 x 2 matrix in row order: (x, y) goes to (e0 x + e1 y, e2 x + e3 y). */
typedef struct {
    double e0; /**< x from x */
    double e1; /**< x from y */
    double e2; /**< y from x */
    double e3; /**< y from y */
} kmath_matrix;

/** An affine map: (x, y) goes to (e0 x + e1 y + tx, e2 x + e3 y + ty). */
typedef struct {
    double tx; /**< translation in x */
    double ty; /**< translation in y */
    double e0; /**< x from x */
    double e1; /**< x from y */
    double e2; /**< y from x */
    double e3; /**< y from y */
} kmath_xformLinear;

/**
 * An affine rectangle (a parallelogram), stored as the map of the unit square onto it: origin (tx, ty),
 * x side (e0, e2), y side (e1, e3).
 */
typedef kmath_xformLinear kmath_shapeAffineRect;

/** Centre form of an affine rectangle. */
typedef struct {
    double x;           /**< centre, x */
    double y;           /**< centre, y */
    double xSideLength; /**< length of the x side */
    double ySideLength; /**< length of the y side */
} kmath_shapeAffineRectCenter;

/** The three corners that define an affine rectangle. */
typedef struct {
    kmath_vect origin; /**< the origin corner */
    kmath_vect xEnd;   /**< the far end of the x side */
    kmath_vect yEnd;   /**< the far end of the y side */
} kmath_shapeAffineRectPoints;

/**
 * Rounds to the nearest integer; exact halves go away from zero.
 *
 * Returns the integer; values beyond 32 bits give the nearest one, not-a-number gives 0.
 */
KSERVICES_API int32_t kmath_double_round(double value);

/**
 * Compares within an absolute tolerance.
 *
 * Returns nonzero when |a - b| <= epsilon; 0 when either is not a number.
 */
KSERVICES_API int32_t kmath_double_epsilonEqual(double a, double b, double epsilon);

/**
 * The fractional part, value - floor(value).
 *
 * Returns a number in [0, 1]; for an infinite value or not-a-number, 0.
 */
KSERVICES_API double kqfFrac(double value);

/** The greatest integer not above value; values beyond 32 bits give the nearest one, not-a-number gives 0. */
KSERVICES_API int32_t kqfIFloor(double value);

/** The least integer not below value; values beyond 32 bits give the nearest one, not-a-number gives 0. */
KSERVICES_API int32_t kqfICeil(double value);

/** Sets result to (x, y). Returns 0. */
KSERVICES_API int32_t kmath_vect_init(kmath_vect *result, double x, double y);

/** Sets result to a - b. Returns 0. */
KSERVICES_API int32_t kmath_vect_initSubtract(kmath_vect *result, const kmath_vect *a, const kmath_vect *b);

/** Sets result to the matrix with the given elements in row order. Returns 0. */
KSERVICES_API int32_t kmath_matrix_init(kmath_matrix *result, double e0, double e1, double e2, double e3);

/** Gives e0 e3 - e1 e2. Returns 0. */
KSERVICES_API int32_t kmath_matrix_getDeterminant(const kmath_matrix *matrix, double *determinant);

/**
 * Gives the overall scale of a matrix: the greater of its two side lengths (#kmath_matrix_getXScale,
 * #kmath_matrix_getYScale), so that it is never below either. Returns 0.
 */
KSERVICES_API int32_t kmath_matrix_getScale(const kmath_matrix *matrix, double *scale);

/** Gives the length of the x side, sqrt(e0 e0 + e2 e2), exact for a side along an axis. Returns 0. */
KSERVICES_API int32_t kmath_matrix_getXScale(const kmath_matrix *matrix, double *scale);

/** Gives the length of the y side, sqrt(e1 e1 + e3 e3), exact for a side along an axis. Returns 0. */
KSERVICES_API int32_t kmath_matrix_getYScale(const kmath_matrix *matrix, double *scale);

/**
 * Composes two maps, the second applied first: result(p) = a(b(p)).
 *
 * result may be the same record as a or b.
 * Returns 0; #kmath_statusNotFinite when an element of the result is not finite, the result then untouched.
 */
KSERVICES_API int32_t kmath_xformLinear_initCompose(kmath_xformLinear *result, const kmath_xformLinear *a,
                                                    const kmath_xformLinear *b);

/** Sets result to the map with the given matrix elements in row order and the given translation. Returns 0. */
KSERVICES_API int32_t kmath_xformLinear_initMatrixTransElements(kmath_xformLinear *result, double e0, double e1,
                                                                double e2, double e3, double tx, double ty);

/** Sets result to the map with the given matrix and translation. Returns 0. */
KSERVICES_API int32_t kmath_xformLinear_initMatrixTrans(kmath_xformLinear *result, const kmath_matrix *matrix,
                                                        const kmath_vect *translation);

/**
 * Inverts a map.
 *
 * map     the map to invert.
 * result  receives the inverse; may be the same record as map.
 * Returns 0; #kmath_statusSingular when the determinant, worked out in doubles, is 0, #kmath_statusNotFinite when
 * an element of the map or of the inverse is not finite; the result is then untouched. A determinant that would be 0
 * without rounding may be a last bit away from it, and the inverse is then as good as random.
 */
KSERVICES_API int32_t kmath_xformLinear_initInverse(kmath_xformLinear *result, const kmath_xformLinear *map);

/** Maps a point; result may be the same record as point. Returns 0. */
KSERVICES_API int32_t kmath_xformLinear_mapPoint(const kmath_xformLinear *map, const kmath_vect *point,
                                                 kmath_vect *result);

/** Compares two maps; result receives nonzero when all six elements are equal as numbers. Returns 0. */
KSERVICES_API int32_t kmath_xformLinear_compareEqual(const kmath_xformLinear *a, const kmath_xformLinear *b,
                                                     int32_t *result);

/** Compares two rectangles; result receives nonzero when all six elements are equal as numbers. Returns 0. */
KSERVICES_API int32_t kmath_shapeAffineRect_compareEqual(const kmath_shapeAffineRect *a, const kmath_shapeAffineRect *b,
                                                         int32_t *result);

/**
 * Carries a rectangle by a map.
 *
 * result may be the same record as rect.
 * Returns 0; #kmath_statusNotFinite when the carried rectangle is not finite, the result then untouched.
 */
KSERVICES_API int32_t kmath_shapeAffineRect_initMap(kmath_shapeAffineRect *result, const kmath_xformLinear *map,
                                                    const kmath_shapeAffineRect *rect);

/**
 * Makes the rectangle with the given origin and side ends.
 *
 * Returns 0; #kmath_statusNotFinite when it is not finite, the result then untouched.
 */
KSERVICES_API int32_t kmath_shapeAffineRect_initPoints(kmath_shapeAffineRect *result,
                                                       const kmath_shapeAffineRectPoints *points);

/**
 * Makes the rectangle with the given centre and side lengths, turned about its centre.
 *
 * result            receives the rectangle; its x side runs along (cos angle, sin angle), its y side along
 *                   (-sin angle, cos angle).
 * centerX, centerY  the centre. The centre of pixel (p, q) is (p + 0.5, q + 0.5).
 * width, height     lengths of the x and the y side; a negative one turns its side round, which mirrors the rectangle.
 * angle             radians, clockwise as seen on the screen (y runs down): text that runs down to the right has a
 *                   positive angle. One that was computed from whole quarter turns, as k * (pi / 2) or
 *                   degrees * pi / 180, so that it is within 2^-51 of itself from that, counts as just that: the
 *                   sides then lie along the axes exactly. Other sines and cosines are less than a unit of their last
 *                   place off, and the same bits on every machine.
 * Returns 0; #kmath_statusNotFinite when a number or the rectangle is not finite, the result then untouched.
 */
KSERVICES_API int32_t kmath_shapeAffineRect_initCenter(kmath_shapeAffineRect *result, double centerX, double centerY,
                                                       double width, double height, double angle);

/**
 * Gives a rectangle's centre and side lengths.
 *
 * Returns 0; #kmath_statusNotFinite when one of them is not finite, the result then untouched.
 */
KSERVICES_API int32_t kmath_shapeAffineRect_getCenter(const kmath_shapeAffineRect *rect,
                                                      kmath_shapeAffineRectCenter *center);

/**
 * Gives a rectangle's three defining corners.
 *
 * Returns 0; #kmath_statusNotFinite when one of them is not finite, the result then untouched.
 */
KSERVICES_API int32_t kmath_shapeAffineRect_getPoints(const kmath_shapeAffineRect *rect,
                                                      kmath_shapeAffineRectPoints *points);

/** Gives the corner opposite the origin, xEnd + yEnd - origin. Returns 0. */
KSERVICES_API int32_t kmath_shapeAffineRectPoints_getPopp(const kmath_shapeAffineRectPoints *points,
                                                          kmath_vect *opposite);

/**
 * Gives the whole-pixel rectangle whose pixels contain the four corners of a mapped rectangle: a corner at
 * v lies in pixel floor(v).
 *
 * rect    the rectangle to map.
 * map     the map to pixel coordinates.
 * result  receives the pixel rectangle.
 * Returns 0; #kmath_statusNotFinite or #kmath_statusOutOfRange when a corner has no 32-bit pixel or the
 * rectangle no 32-bit end or size, the result then untouched.
 */
KSERVICES_API int32_t kmath_shapeAffineRect_getEncloseImageRect(const kmath_shapeAffineRect *rect,
                                                                const kmath_xformLinear *map, kstd_rect32 *result);

KSERVICES_END_C

#endif
