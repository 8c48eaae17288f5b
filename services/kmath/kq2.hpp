#ifndef KMATH_KQ2_HPP
#define KMATH_KQ2_HPP

/**
 * @file
 * Geometry classes over the C functions of kmath.h, which fix their arithmetic. Failures are thrown as
 * kqException. Header only: no class crosses the library's boundary.
 */

#include <kmath/kmath.h>

/** What the geometry classes throw: the status of the operation that failed. */
struct kqException {
    int32_t status; /**< the negative status */
};

/** A point or a vector. */
class kq2Vect {
public:
    /** The point (x, y). */
    kq2Vect(double x, double y) : vect{x, y} {}
    /** A copy of a record. */
    explicit kq2Vect(const kmath_vect &source) : vect(source) {}
    /** The x coordinate. */
    double x() const { return vect.x; }
    /** The y coordinate. */
    double y() const { return vect.y; }
    /** The record. */
    const kmath_vect &record() const { return vect; }

private:
    kmath_vect vect;
};

/** A 2 x 2 matrix. */
class kq2Matrix {
public:
    /** The matrix with the given elements in row order. */
    kq2Matrix(double e0, double e1, double e2, double e3) : matrix{e0, e1, e2, e3} {}
    /** The record. */
    const kmath_matrix &record() const { return matrix; }

private:
    kmath_matrix matrix;
};

/** An affine map. */
class kq2Xform {
public:
    /** The map of a record. */
    explicit kq2Xform(const kmath_xformLinear &source) : xform(source) {}
    /** The linear map of a matrix, translation (0, 0). */
    explicit kq2Xform(const kq2Matrix &matrix)
        : xform{0.0, 0.0, matrix.record().e0, matrix.record().e1, matrix.record().e2, matrix.record().e3}
    {}

    /** The composition; the right operand is applied first. Throws kqException when it is not finite. */
    kq2Xform operator*(const kq2Xform &right) const
    {
        kq2Xform product(xform);
        throwOnFailure(kmath_xformLinear_initCompose(&product.xform, &xform, &right.xform));
        return product;
    }

    /** The mapped point. */
    kq2Vect operator*(const kq2Vect &point) const
    {
        kmath_vect mapped;
        throwOnFailure(kmath_xformLinear_mapPoint(&xform, &point.record(), &mapped));
        return kq2Vect(mapped);
    }

    /** Writes the inverse. Returns 0, or the negative status of a map without one; inverse is then untouched. */
    int32_t getInverse(kq2Xform &inverse) const { return kmath_xformLinear_initInverse(&inverse.xform, &xform); }

    /** The record. */
    const kmath_xformLinear &record() const { return xform; }

private:
    static void throwOnFailure(int32_t status)
    {
        if (status < 0)
            throw kqException{status};
    }

    kmath_xformLinear xform;
};

#endif
