#include <kmath/kmath.h>

#include <cmath>
#include <cstdint>

namespace {

bool isFinite(const kmath_xformLinear &map)
{
    return std::isfinite(map.tx) && std::isfinite(map.ty) && std::isfinite(map.e0) && std::isfinite(map.e1) &&
           std::isfinite(map.e2) && std::isfinite(map.e3);
}

bool isEqual(const kmath_xformLinear &a, const kmath_xformLinear &b)
{
    return a.tx == b.tx && a.ty == b.ty && a.e0 == b.e0 && a.e1 == b.e1 && a.e2 == b.e2 && a.e3 == b.e3;
}

// A double with an exponent of its own: mantissa * 2^exponent, the mantissa 0 or in [0.5, 1) in magnitude.
// Its operations round as those of doubles do, but neither overflow nor underflow.
struct WideDouble {
    double mantissa;
    int exponent;
};

WideDouble normalized(double mantissa, int exponent)
{
    int shift = 0;
    mantissa = std::frexp(mantissa, &shift);
    return {mantissa, exponent + shift};
}

WideDouble operator*(WideDouble a, WideDouble b)
{
    return normalized(a.mantissa * b.mantissa, a.exponent + b.exponent);
}

WideDouble operator/(WideDouble a, WideDouble b)
{
    return normalized(a.mantissa / b.mantissa, a.exponent - b.exponent);
}

WideDouble operator-(WideDouble a, WideDouble b)
{
    if (a.mantissa == 0.0)
        return {-b.mantissa, b.exponent};
    if (b.mantissa == 0.0)
        return a;
    // The smaller term may vanish in the shift only where it is far below the last bit of the greater one.
    const int exponent = a.exponent < b.exponent ? b.exponent : a.exponent;
    return normalized(std::ldexp(a.mantissa, a.exponent - exponent) - std::ldexp(b.mantissa, b.exponent - exponent),
                      exponent);
}

bool isZero(double value)
{
    return value == 0.0;
}

bool isZero(WideDouble value)
{
    return value.mantissa == 0.0;
}

double toDouble(double value)
{
    return value + 0.0; // turns a negative zero into the plain one
}

double toDouble(WideDouble value)
{
    return std::ldexp(value.mantissa, value.exponent) + 0.0;
}

template <typename Number>
struct Elements {
    Number tx, ty, e0, e1, e2, e3;
};

// Divides the adjugate by the determinant: one rounding an element for whole and dyadic maps, none where the
// quotient is a double.
template <typename Number>
int32_t invert(kmath_xformLinear &result, const Elements<Number> &m)
{
    const Number determinant = m.e0 * m.e3 - m.e1 * m.e2;
    if (isZero(determinant))
        return kmath_statusSingular;
    const Number zero{};
    const kmath_xformLinear inverse{
        toDouble((m.e1 * m.ty - m.e3 * m.tx) / determinant),
        toDouble((m.e2 * m.tx - m.e0 * m.ty) / determinant),
        toDouble(m.e3 / determinant),
        toDouble((zero - m.e1) / determinant),
        toDouble((zero - m.e2) / determinant),
        toDouble(m.e0 / determinant),
    };
    if (!isFinite(inverse))
        return kmath_statusNotFinite;
    result = inverse;
    return 0;
}

// Whether products of two such numbers, their differences and the quotients of those stay normal numbers.
bool isModerate(double value)
{
    const double magnitude = std::fabs(value);
    return magnitude == 0.0 || (magnitude > 0x1p-200 && magnitude < 0x1p+200);
}

} // namespace

int32_t kmath_xformLinear_initCompose(kmath_xformLinear *result, const kmath_xformLinear *a, const kmath_xformLinear *b)
{
    const kmath_xformLinear product{
        a->e0 * b->tx + a->e1 * b->ty + a->tx, //
        a->e2 * b->tx + a->e3 * b->ty + a->ty, //
        a->e0 * b->e0 + a->e1 * b->e2,         //
        a->e0 * b->e1 + a->e1 * b->e3,         //
        a->e2 * b->e0 + a->e3 * b->e2,         //
        a->e2 * b->e1 + a->e3 * b->e3,
    };
    if (!isFinite(product))
        return kmath_statusNotFinite;
    *result = product;
    return 0;
}

int32_t kmath_xformLinear_initMatrixTransElements(kmath_xformLinear *result, double e0, double e1, double e2, double e3,
                                                  double tx, double ty)
{
    *result = {tx, ty, e0, e1, e2, e3};
    return 0;
}

int32_t kmath_xformLinear_initMatrixTrans(kmath_xformLinear *result, const kmath_matrix *matrix,
                                          const kmath_vect *translation)
{
    *result = {translation->x, translation->y, matrix->e0, matrix->e1, matrix->e2, matrix->e3};
    return 0;
}

int32_t kmath_xformLinear_initInverse(kmath_xformLinear *result, const kmath_xformLinear *map)
{
    const kmath_xformLinear &m = *map;
    if (!isFinite(m))
        return kmath_statusNotFinite;
    if (isModerate(m.tx) && isModerate(m.ty) && isModerate(m.e0) && isModerate(m.e1) && isModerate(m.e2) &&
        isModerate(m.e3))
        return invert(*result, Elements<double>{m.tx, m.ty, m.e0, m.e1, m.e2, m.e3});
    return invert(*result, Elements<WideDouble>{normalized(m.tx, 0), normalized(m.ty, 0), normalized(m.e0, 0),
                                                normalized(m.e1, 0), normalized(m.e2, 0), normalized(m.e3, 0)});
}

int32_t kmath_xformLinear_mapPoint(const kmath_xformLinear *map, const kmath_vect *point, kmath_vect *result)
{
    *result = {map->e0 * point->x + map->e1 * point->y + map->tx, map->e2 * point->x + map->e3 * point->y + map->ty};
    return 0;
}

int32_t kmath_xformLinear_compareEqual(const kmath_xformLinear *a, const kmath_xformLinear *b, int32_t *result)
{
    *result = isEqual(*a, *b) ? 1 : 0;
    return 0;
}

int32_t kmath_shapeAffineRect_compareEqual(const kmath_shapeAffineRect *a, const kmath_shapeAffineRect *b,
                                           int32_t *result)
{
    return kmath_xformLinear_compareEqual(a, b, result);
}
