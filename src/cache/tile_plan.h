#ifndef KIP_CACHE_TILE_PLAN_H
#define KIP_CACHE_TILE_PLAN_H

#include <cstddef>
#include <cstdint>

#include <kip/kip.h>

#include "support/sampling.h"

// The longest side of a tile, in destination pixels.
inline constexpr int32_t kMaxTileSize = 96;

// How a table-driven mode resamples a destination: its tiles, the order in which the source is scanned, and
// the fixed-point positions and steps of the two passes. Built once per geometry; the kernels only read it,
// but for the scratch memory.
//
// Along each destination row, samples are taken one source pixel at a time along the source axis closest to
// the row's direction (the primary axis), each interpolated across the other (the secondary) axis at a
// sheared position; the row's pixels are then interpolated from those samples.
//
// The source pixels that a tile reads lie in a box, its footprint; the margins of the taps are part of it.
//
// Positions are 16.16, in source-window coordinates in which the centres of pixels are whole numbers. Groups
// of four are indexed by tile class: 0 interior, 1 last column, 2 last row, 3 last column of the last row.
struct kip_affineTilePlan {
    int32_t tilesX, tilesY;
    uint16_t tileWidth[4], tileHeight[4];
    int32_t spanCount[4];           // samples along the primary axis for one row of a tile
    int64_t bandOffset[4];          // source pixels from a tile's start to the top-left one that it reads
    int32_t bandDx[4], bandDy[4];   // left and top edge of the footprint, less those of class 0
    int32_t majorStep, minorStep;   // source pixels of a step along the primary and the secondary axis
    int32_t transposed;             // 0: the primary axis is the source's x (row scan), 1: its y
    int32_t direction;              // -1 when the scan runs backwards along the primary axis, else 1
    int32_t bandStartX, bandStartY; // start of the first tile with its footprint's edges added
    int32_t startX, startY;         // the centre of the first destination pixel
    int32_t tileColumnStepX, tileColumnStepY;
    int32_t tileRowStepX, tileRowStepY;
    uint32_t primaryFraction;               // fraction of the primary start, reversed for a backward scan
    int32_t secondaryFraction;              // fraction of the secondary start, corrected for the shear
    int32_t secondaryShear;                 // secondary advance per sample
    int32_t secondaryRowStep;               // secondary advance per destination row
    int32_t primaryStep;                    // primary advance per destination pixel
    int32_t primaryRowStep;                 // primary advance per destination row
    int16_t bandX0, bandY0;                 // edges of the class 0 footprint before a reversal moves it
    uint32_t sourcePitch, destinationPitch; // of the windows that the plan was built for
    void *scratch;                          // owned; null while there is none
    int32_t scratchBytes;                   // what one destination row needs in the regular case

    // What the geometry asks for beyond the regular case.
    int32_t lineEntries;   // samples that scratch holds, at least what any row writes or reads
    int32_t stripPixels;   // pixels that scratch holds beyond them, for a strip: a copy of a tile's footprint
    size_t stripOffset;    // bytes from the start of scratch to that copy, 64-byte aligned
    size_t allocatedBytes; // the size of scratch
    uint64_t builtFor;     // number of the geometry that the plan was built for; 0: never built
};

// Gives a plan no storage; it then needs a build.
void kip_affineTilePlan_init(kip_affineTilePlan *plan);

// Frees a plan's storage. Returns the status of the free.
int32_t kip_affineTilePlan_free(kip_affineTilePlan *plan);

// Tells whether a plan was built for another geometry or other pitches, or never.
bool kip_affineTilePlan_needsRebuild(const kip_affineTilePlan &plan, uint64_t geometry, const kip::Sampling &sampling);

// Tells whether samples move across no more than the one pixel that they move along: neighbours then lie on the same
// line or on neighbouring ones.
inline bool hasGentleShear(const kip_affineTilePlan &plan)
{
    return plan.secondaryShear >= -0x10000 && plan.secondaryShear <= 0x10000;
}

// Tells whether each destination row takes nothing from the line of samples but what it has put there itself. Rows of
// tiles may then be resampled in any order, each with scratch memory of its own.
bool kip_affineTilePlan_hasIndependentRows(const kip_affineTilePlan &plan);

namespace kip {

// Build a plan of mode 2 or 3 for 8-bit and for all other sources. On failure (kip_statusSizeBelowOne, a status of
// the geometry or of the allocation) the plan is unchanged.
int32_t buildTilePlan8(kip_affineTilePlan *plan, const Sampling &sampling);
int32_t buildTilePlan16(kip_affineTilePlan *plan, const Sampling &sampling);

} // namespace kip

#endif
