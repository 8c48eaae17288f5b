#ifndef KIP_TESTS_SUPPORT_DEPTHS_H
#define KIP_TESTS_SUPPORT_DEPTHS_H

#include <cstdint>
#include <string>
#include <tuple>

#include <gtest/gtest.h>

namespace kip::test {

// For INSTANTIATE_TEST_SUITE_P of a suite over both depths; the parameter is the bytes per pixel.
inline auto bothDepths()
{
    return testing::Values(1, 2);
}

inline std::string depthName(const testing::TestParamInfo<int32_t> &depth)
{
    return depth.param == 1 ? "Bits8" : "Bits16";
}

// And of one over the depths and the modes.
using DepthAndMode = std::tuple<int32_t, uint32_t>;

inline auto depthsAndModes(uint32_t lastMode)
{
    return testing::Combine(bothDepths(), testing::Range(0u, lastMode + 1));
}

inline std::string depthAndModeName(const testing::TestParamInfo<DepthAndMode> &suite)
{
    return std::to_string(8 * std::get<0>(suite.param)) + "Mode" + std::to_string(std::get<1>(suite.param));
}

} // namespace kip::test

#endif
