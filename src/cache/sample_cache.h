#ifndef KIP_CACHE_SAMPLE_CACHE_H
#define KIP_CACHE_SAMPLE_CACHE_H

#include <cstddef>
#include <cstdint>

#include <kip/kip.h>

#include "cache/tile_plan.h"
#include "support/sampling.h"

// The geometry work of the last call, beside the inputs that it was computed from.
struct kip_affineSampleCache {
    uint32_t valid; // nonzero while everything below describes the inputs of the last successful update
    kip_affineSampleParams params;
    kmath_xformLinear srcFromClient;
    kstd_rect32 srcRect; // place and size of the source window
    kstd_rect32 dstRect; // place and size of the destination window
    kmath_xformLinear destImageFromClient;
    kip_affine_imageAlignment alignCode;
    kstd_rect32 alignSrcRect;  // meaningful only when alignCode is not kip_affine_alignNone
    kip_affineTilePlan plan8;  // for sources with 1 byte per pixel
    kip_affineTilePlan plan16; // for all others
    uint64_t geometry;         // number of the geometry that all but the plans were last computed for
    void *jobScratch; // owned: memory that the jobs of a call divide among themselves; null while there is none
    size_t jobScratchBytes;
};

// Makes a call's own cache: invalid, without storage.
void kip_affineSampleCache_initLocal(kip_affineSampleCache *cache);

// Frees the storage of a call's own cache. Returns the status of the last free.
int32_t kip_affineSampleCache_release(kip_affineSampleCache *cache);

// Brings the cache of a sampling up to date with its other members. The jobs of the call then only read it.
//
// oneRow is the placement's (the rectangle's height as one row) and is not compared: a call that differs in
// nothing else keeps the placement.
// Returns a negative status when the geometry has no placement, no alignment or no plan; the cache is then
// invalid, unless only a plan of a known geometry failed.
int32_t kip_affineSampleCache_update(const kip::Sampling &sampling, int32_t oneRow);

// Lends scratch memory of at least so many bytes, for one call, to the jobs of the cache's caller. It stays the
// cache's, and only grows. Returns the status of the allocation.
int32_t kip_affineSampleCache_lendScratch(kip_affineSampleCache *cache, size_t bytes, void **scratch);

#endif
