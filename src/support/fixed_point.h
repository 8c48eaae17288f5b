#ifndef KIP_SUPPORT_FIXED_POINT_H
#define KIP_SUPPORT_FIXED_POINT_H

#include <cstdint>

namespace kip {

inline constexpr double kFixedOne = 65536.0;
inline constexpr uint32_t kFixedHalf = 0x8000;

// Sources whose row pitch or height is above this are beyond 16.16 positions.
inline constexpr int32_t kFixedMaxExtent = 32767;

// Truncates toward zero. Values that 32 bits cannot hold give the nearest one, not-a-number gives 0: they
// occur only as steps that are never taken, where a side has a single sample.
inline int32_t truncateToInt32(double value)
{
    if (!(value > -2147483649.0))
        return value < 0.0 ? INT32_MIN : 0;
    return value < 2147483648.0 ? static_cast<int32_t>(value) : INT32_MAX;
}

inline int64_t truncateToInt64(double value)
{
    if (!(value >= -9223372036854775808.0))
        return value < 0.0 ? INT64_MIN : 0;
    return value < 9223372036854775808.0 ? static_cast<int64_t>(value) : INT64_MAX;
}

// 16.16 of a step: truncated toward zero.
inline int32_t fixedStep(double value)
{
    return truncateToInt32(value * kFixedOne);
}

// 16.16 of a position: half a unit is added before the truncation toward zero.
inline int32_t fixedPosition(double value)
{
    return truncateToInt32(value * kFixedOne + 0.5);
}

} // namespace kip

#endif
