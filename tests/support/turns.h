#ifndef KIP_TESTS_SUPPORT_TURNS_H
#define KIP_TESTS_SUPPORT_TURNS_H

#include <algorithm>
#include <cstdint>
#include <iterator>

#include <kip/kip.h>

namespace kip::test {

struct Step {
    int32_t x, y;
};

// Where a destination step right and a destination step down go in the source.
struct Turn {
    const char *name;
    kip_affine_imageAlignment code;
    Step right, down;

    bool swapsAxes() const { return right.x == 0; }

    // The rectangle that puts the source block at (x, y) onto a width x height destination: it starts at the
    // block's corner from which both steps lead inwards.
    kmath_shapeAffineRect rect(int32_t x, int32_t y, int32_t width, int32_t height) const
    {
        const double startX = x + (right.x < 0 ? width : 0.0) + (down.x < 0 ? height : 0.0);
        const double startY = y + (right.y < 0 ? width : 0.0) + (down.y < 0 ? height : 0.0);
        const double w = width;
        const double h = height;
        return {startX, startY, right.x * w, down.x * h, right.y * w, down.y * h};
    }
};

inline constexpr Turn kTurns[] = {
    {"identity", kip_affine_alignIdentity, {1, 0}, {0, 1}},
    {"transpose", kip_affine_alignTranspose, {0, 1}, {1, 0}},
    {"rotate90", kip_affine_alignRotate90, {0, 1}, {-1, 0}},
    {"mirrorX", kip_affine_alignRotate90Transpose, {-1, 0}, {0, 1}},
    {"rotate180", kip_affine_alignRotate180, {-1, 0}, {0, -1}},
    {"rotate180Transpose", kip_affine_alignRotate180Transpose, {0, -1}, {-1, 0}},
    {"rotate270", kip_affine_alignRotate270, {0, -1}, {1, 0}},
    {"mirrorY", kip_affine_alignRotate270Transpose, {1, 0}, {0, -1}},
};

// Codes without a meaning of their own copy.
inline const Turn &turnOf(kip_affine_imageAlignment code)
{
    const auto *const turn =
        std::find_if(std::begin(kTurns), std::end(kTurns), [&](const Turn &t) { return t.code == code; });
    return turn == std::end(kTurns) ? kTurns[0] : *turn;
}

} // namespace kip::test

#endif
