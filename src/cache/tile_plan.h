#ifndef KIP_CACHE_TILE_PLAN_H
#define KIP_CACHE_TILE_PLAN_H

#include <cstdint>

#include <kip/kip.h>

// What the table-driven modes compute once per geometry: so far its storage and what it was built for.
struct kip_affineTilePlan {
    uint32_t built;           // 0 until the first build
    int32_t sourcePitch;      // source window pitch of the last build, in pixels
    int32_t destinationPitch; // destination window pitch of the last build, in pixels
    void *scratch;            // owned; null while there is none
};

// Gives a plan no storage; it then needs a build. Returns 0.
int32_t kip_affineTilePlan_init(kip_affineTilePlan *plan);

// Frees a plan's storage. Returns the status of the free.
int32_t kip_affineTilePlan_free(kip_affineTilePlan *plan);

// Tells whether a plan of an unchanged geometry was built for other pitches, or never.
bool kip_affineTilePlan_needsRebuild(const kip_affineTilePlan &plan, const kimg_windowConst &source,
                                     const kimg_window &destination);

#endif
