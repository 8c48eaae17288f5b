#include "cache/tile_plan.h"

int32_t kip_affineTilePlan_init(kip_affineTilePlan *plan)
{
    plan->built = 0;
    plan->scratch = nullptr;
    return 0;
}

int32_t kip_affineTilePlan_free(kip_affineTilePlan *plan)
{
    plan->built = 0;
    return ksys_memory_free_internal(&plan->scratch);
}

bool kip_affineTilePlan_needsRebuild(const kip_affineTilePlan &plan, const kimg_windowConst &source,
                                     const kimg_window &destination)
{
    return plan.built == 0 || plan.sourcePitch != source.pitch || plan.destinationPitch != destination.pitch;
}
