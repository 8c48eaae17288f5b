#include "cache/sample_cache.h"

namespace {

struct Inputs {
    const kip_affineSampleParams &params;
    const kmath_xformLinear &srcFromClient;
    kstd_rect32 srcRect;
    kstd_rect32 dstRect;
};

// Compares cheapest first and stops at the first difference.
int32_t isSameGeometry(const kip_affineSampleCache &cache, const Inputs &inputs, bool *same)
{
    *same = false;
    if (cache.valid == 0)
        return 0;

    int32_t different;
    int32_t status = kstd_rect32_compare(&inputs.srcRect, &cache.srcRect, &different);
    if (status < 0 || different != 0)
        return status;
    status = kstd_rect32_compare(&inputs.dstRect, &cache.dstRect, &different);
    if (status < 0 || different != 0)
        return status;

    if (inputs.params.mode != cache.params.mode || inputs.params.destWidth != cache.params.destWidth ||
        inputs.params.destHeight != cache.params.destHeight)
        return status;
    int32_t equal;
    status = kmath_shapeAffineRect_compareEqual(&inputs.params.rect, &cache.params.rect, &equal);
    if (status < 0 || equal == 0)
        return status;
    status = kmath_xformLinear_compareEqual(&inputs.srcFromClient, &cache.srcFromClient, &equal);
    *same = status >= 0 && equal != 0;
    return status;
}

int32_t computeGeometry(kip_affineSampleCache *cache, const Inputs &inputs, int32_t oneRow)
{
    const int32_t status =
        kip_affineSampleParams_getDestImageFromClientXform(&inputs.params, oneRow, &cache->destImageFromClient);
    if (status < 0)
        return status;
    return kip_affine_imageAlignment_compute(&inputs.params, &inputs.srcFromClient, &cache->alignCode,
                                             &cache->alignSrcRect);
}

// The cache describes one geometry and holds two plans: each remembers by number which geometry it is for.
int32_t updatePlan(kip_affineSampleCache *cache, const kimg_windowConst &source, const kmath_xformLinear &srcFromClient,
                   const kimg_window &destination, const kip_affineSampleParams &params)
{
    const bool is8 = source.bytesPerPixel == 1;
    kip_affineTilePlan *const plan = is8 ? &cache->plan8 : &cache->plan16;
    if (!kip_affineTilePlan_needsRebuild(*plan, cache->geometry, source, destination))
        return 0;
    const int32_t status = is8 ? kip::buildTilePlan8(plan, source, srcFromClient, destination, params)
                               : kip::buildTilePlan16(plan, source, srcFromClient, destination, params);
    if (status >= 0)
        plan->builtFor = cache->geometry;
    return status;
}

} // namespace

int32_t kip_affineSampleCache_initLocal(kip_affineSampleCache *cache)
{
    cache->valid = 0;
    cache->geometry = 0;
    kip_affineTilePlan_init(&cache->plan8);
    kip_affineTilePlan_init(&cache->plan16);
    return 0;
}

int32_t kip_affineSampleCache_release(kip_affineSampleCache *cache)
{
    cache->valid = 0;
    kip_affineTilePlan_free(&cache->plan8);
    return kip_affineTilePlan_free(&cache->plan16);
}

int32_t kip_affineSampleCache_construct(kip_affineSampleCache **cache)
{
    *cache = nullptr;
    const int32_t status = ksys_memory_allocFastMem_internal(sizeof(kip_affineSampleCache), cache);
    if (status < 0)
        return status;
    return kip_affineSampleCache_initLocal(*cache);
}

int32_t kip_affineSampleCache_destruct(kip_affineSampleCache **cache)
{
    if (*cache == nullptr)
        return 0;
    const int32_t status = kip_affineSampleCache_release(*cache);
    if (status < 0)
        return status;
    return ksys_memory_free_internal(cache);
}

int32_t kip_affineSampleCache_update(kip_affineSampleCache *cache, const kimg_windowConst *source,
                                     const kmath_xformLinear *srcFromClient, const kimg_window *destination,
                                     const kip_affineSampleParams *params, int32_t oneRow)
{
    const Inputs inputs = {
        *params,
        *srcFromClient,
        {source->x, source->y, source->width, source->height},
        {destination->x, destination->y, destination->width, destination->height},
    };
    bool same;
    int32_t status = isSameGeometry(*cache, inputs, &same);
    if (status < 0)
        return status;

    if (!same) {
        cache->valid = 0;
        ++cache->geometry;
        status = computeGeometry(cache, inputs, oneRow);
        if (status < 0)
            return status;
    }

    if (cache->alignCode == kip_affine_alignNone && params->mode >= kip_affineModeBilinearSeparable) {
        status = updatePlan(cache, *source, *srcFromClient, *destination, *params);
        if (status < 0)
            return status;
    }
    if (same)
        return status;

    cache->params = *params;
    cache->srcFromClient = *srcFromClient;
    cache->srcRect = inputs.srcRect;
    cache->dstRect = inputs.dstRect;
    cache->valid = 1;
    return status;
}
