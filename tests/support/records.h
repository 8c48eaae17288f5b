#ifndef KIP_TESTS_SUPPORT_RECORDS_H
#define KIP_TESTS_SUPPORT_RECORDS_H

#include <limits>
#include <ostream>

#include <kmath/kmath.h>
#include <kstd/kstd.h>

// What tests need to compare the services' records, as numbers, and to print them.

inline bool operator==(const kstd_rect32 &a, const kstd_rect32 &b)
{
    return a.x == b.x && a.y == b.y && a.width == b.width && a.height == b.height;
}

inline void PrintTo(const kstd_rect32 &r, std::ostream *out)
{
    *out << "(" << r.x << ", " << r.y << ", " << r.width << ", " << r.height << ")";
}

inline bool operator==(const kmath_vect &a, const kmath_vect &b)
{
    return a.x == b.x && a.y == b.y;
}

inline void PrintTo(const kmath_vect &v, std::ostream *out)
{
    *out << "(" << v.x << ", " << v.y << ")";
}

inline bool operator==(const kmath_xformLinear &a, const kmath_xformLinear &b)
{
    return a.tx == b.tx && a.ty == b.ty && a.e0 == b.e0 && a.e1 == b.e1 && a.e2 == b.e2 && a.e3 == b.e3;
}

inline void PrintTo(const kmath_xformLinear &m, std::ostream *out)
{
    *out << "(" << m.tx << ", " << m.ty << ", " << m.e0 << ", " << m.e1 << ", " << m.e2 << ", " << m.e3 << ")";
}

namespace kip::test {

inline constexpr double kInfinity = std::numeric_limits<double>::infinity();
inline constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
inline constexpr int32_t kMin32 = std::numeric_limits<int32_t>::min();
inline constexpr int32_t kMax32 = std::numeric_limits<int32_t>::max();

inline constexpr kmath_xformLinear kIdentity = {0, 0, 1, 0, 0, 1};

inline constexpr double kmath_xformLinear::*const kElements[] = {&kmath_xformLinear::tx, &kmath_xformLinear::ty,
                                                                 &kmath_xformLinear::e0, &kmath_xformLinear::e1,
                                                                 &kmath_xformLinear::e2, &kmath_xformLinear::e3};

} // namespace kip::test

#endif
