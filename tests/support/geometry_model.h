#ifndef KIP_TESTS_SUPPORT_GEOMETRY_MODEL_H
#define KIP_TESTS_SUPPORT_GEOMETRY_MODEL_H

#include <cstdint>
#include <optional>

#include <kip/kip.h>

namespace kip::test {

// What a mode needs of the source round a sample.
inline constexpr double kMargins[] = {0.0, 0.5, 1.5, 2.5};

// What analyses of a sampling have to answer. Worked out in more digits than a double has, with a bound of what
// doubles may be off: there is no answer where they may round either way.
struct GeometryModel {
    std::optional<bool> clips;
    std::optional<kip_affine_imageAlignment> alignment;
    std::optional<kstd_rect32> block; // of an alignment
    std::optional<kstd_rect32> footprint;
    std::optional<bool> isParallel; // of the sides: whether there is no placement
};

// Of parameters that are not refused. The source's pixels do not count.
GeometryModel modelGeometry(const kip_affineSampleParams &params, const kmath_xformLinear &srcFromClient,
                            const kimg_windowConst &source);

} // namespace kip::test

#endif
