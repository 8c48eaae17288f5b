#ifndef KIP_TESTS_SUPPORT_SLOW_MODEL_H
#define KIP_TESTS_SUPPORT_SLOW_MODEL_H

#include <cstdint>

#include <kip/kip.h>

namespace kip::test {

// The per-pixel transform once more, for one destination pixel at a time and with nothing of the library's:
// what position a pixel has, and what sample that position gives. A neighbour outside the source is the
// nearest pixel of it.

enum class ModelWalker { fixed, rebased, inDoubles };

struct SlowModel {
    // The sampling.
    kimg_windowConst source; // 1 or 2 bytes per pixel
    uint32_t mode;           // kip_affineModeNearest or kip_affineModeBilinear
    ModelWalker walker;
    int32_t tileSize;
    bool tilesFromDoubles;
    bool transposedOrder;

    // The centre of destination pixel (0, 0) and the steps to the pixel below and to the one on the right.
    kmath_vect start, rowStep, colStep;
};

// The source row pitch decides on the tiles of 16-bit sources; 8-bit ones have a single size.
int32_t modelTileSize(const kimg_windowConst &source);

SlowModel makeSlowModel(const kimg_windowConst &source, const kmath_xformLinear &srcFromClient,
                        const kip_affineSampleParams &params, ModelWalker walker, int32_t tileSize);

// The sample of destination pixel (x, y).
uint32_t sampleSlowly(const SlowModel &model, int32_t x, int32_t y);

// The walker that a source and a sampling call for: 16.16 wherever it can address the source; else doubles if
// a tile is 32768 or more client units long, or if its samples lie 32768 or more source pixels apart.
ModelWalker modelWalker(const kimg_windowConst &source, const kmath_xformLinear &srcFromClient,
                        const kip_affineSampleParams &params);

} // namespace kip::test

#endif
