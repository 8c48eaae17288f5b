#include <kmath/kmath.h>

#include <cmath>
#include <cstdint>

namespace {

// The length of (a, b). The squares are scaled, by a power of two, only where they would leave the range of a
// double, so that ordinary lengths have the bits of the plain formula. That gives |a| itself for (a, 0): the
// root of a square that was rounded rounds back.
double length(double a, double b)
{
    a = std::fabs(a);
    b = std::fabs(b);
    const double greater = a < b ? b : a;
    double scale = 1.0;
    if (greater > 0x1p+500)
        scale = 0x1p-600;
    else if (greater < 0x1p-500)
        scale = 0x1p+600;
    a *= scale;
    b *= scale;
    return std::sqrt(a * a + b * b) / scale;
}

} // namespace

int32_t kmath_vect_init(kmath_vect *result, double x, double y)
{
    *result = {x, y};
    return 0;
}

int32_t kmath_vect_initSubtract(kmath_vect *result, const kmath_vect *a, const kmath_vect *b)
{
    *result = {a->x - b->x, a->y - b->y};
    return 0;
}

int32_t kmath_matrix_init(kmath_matrix *result, double e0, double e1, double e2, double e3)
{
    *result = {e0, e1, e2, e3};
    return 0;
}

int32_t kmath_matrix_getDeterminant(const kmath_matrix *matrix, double *determinant)
{
    *determinant = matrix->e0 * matrix->e3 - matrix->e1 * matrix->e2;
    return 0;
}

int32_t kmath_matrix_getScale(const kmath_matrix *matrix, double *scale)
{
    const double xScale = length(matrix->e0, matrix->e2);
    const double yScale = length(matrix->e1, matrix->e3);
    *scale = xScale < yScale || std::isnan(yScale) ? yScale : xScale;
    return 0;
}

int32_t kmath_matrix_getXScale(const kmath_matrix *matrix, double *scale)
{
    *scale = length(matrix->e0, matrix->e2);
    return 0;
}

int32_t kmath_matrix_getYScale(const kmath_matrix *matrix, double *scale)
{
    *scale = length(matrix->e1, matrix->e3);
    return 0;
}
