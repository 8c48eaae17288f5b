#include "cache/sample_cache.h"

namespace {

template <typename Window>
kstd_rect32 rectOf(const Window &window)
{
    return {window.x, window.y, window.width, window.height};
}

// Compares cheapest first and stops at the first difference.
int32_t isSameGeometry(const kip::Sampling &sampling, bool *same)
{
    const kip_affineSampleCache &cache = sampling.cache;
    *same = false;
    if (cache.valid == 0)
        return 0;

    const kstd_rect32 srcRect = rectOf(sampling.source);
    const kstd_rect32 dstRect = rectOf(sampling.destination);
    int32_t different;
    int32_t status = kstd_rect32_compare(&srcRect, &cache.srcRect, &different);
    if (status < 0 || different != 0)
        return status;
    status = kstd_rect32_compare(&dstRect, &cache.dstRect, &different);
    if (status < 0 || different != 0)
        return status;

    const kip_affineSampleParams &params = sampling.params;
    if (params.mode != cache.params.mode || params.destWidth != cache.params.destWidth ||
        params.destHeight != cache.params.destHeight)
        return status;
    int32_t equal;
    status = kmath_shapeAffineRect_compareEqual(&params.rect, &cache.params.rect, &equal);
    if (status < 0 || equal == 0)
        return status;
    status = kmath_xformLinear_compareEqual(&sampling.srcFromClient, &cache.srcFromClient, &equal);
    *same = status >= 0 && equal != 0;
    return status;
}

int32_t computeGeometry(const kip::Sampling &sampling, int32_t oneRow)
{
    kip_affineSampleCache &cache = sampling.cache;
    const int32_t status =
        kip_affineSampleParams_getDestImageFromClientXform(&sampling.params, oneRow, &cache.destImageFromClient);
    if (status < 0)
        return status;
    return kip_affine_imageAlignment_compute(&sampling.params, &sampling.srcFromClient, &cache.alignCode,
                                             &cache.alignSrcRect);
}

// The cache describes one geometry and holds two plans: each remembers by number which geometry it is for.
int32_t updatePlan(const kip::Sampling &sampling)
{
    kip_affineSampleCache &cache = sampling.cache;
    const bool is8 = sampling.source.bytesPerPixel == 1;
    kip_affineTilePlan &plan = is8 ? cache.plan8 : cache.plan16;
    if (!kip_affineTilePlan_needsRebuild(plan, cache.geometry, sampling))
        return 0;
    const int32_t status = is8 ? kip::buildTilePlan8(&plan, sampling) : kip::buildTilePlan16(&plan, sampling);
    if (status >= 0)
        plan.builtFor = cache.geometry;
    return status;
}

} // namespace

void kip_affineSampleCache_initLocal(kip_affineSampleCache *cache)
{
    cache->valid = 0;
    cache->geometry = 0;
    kip_affineTilePlan_init(&cache->plan8);
    kip_affineTilePlan_init(&cache->plan16);
    cache->jobScratch = nullptr;
    cache->jobScratchBytes = 0;
}

int32_t kip_affineSampleCache_release(kip_affineSampleCache *cache)
{
    cache->valid = 0;
    cache->jobScratchBytes = 0;
    ksys_memory_free_internal(&cache->jobScratch);
    kip_affineTilePlan_free(&cache->plan8);
    return kip_affineTilePlan_free(&cache->plan16);
}

int32_t kip_affineSampleCache_construct(kip_affineSampleCache **cache)
{
    *cache = nullptr;
    const int32_t status = ksys_memory_allocFastMem_internal(sizeof(kip_affineSampleCache), cache);
    if (status < 0)
        return status;
    kip_affineSampleCache_initLocal(*cache);
    return status;
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

int32_t kip_affineSampleCache_update(const kip::Sampling &sampling, int32_t oneRow)
{
    kip_affineSampleCache &cache = sampling.cache;
    bool same;
    int32_t status = isSameGeometry(sampling, &same);
    if (status < 0)
        return status;

    if (!same) {
        cache.valid = 0;
        ++cache.geometry;
        status = computeGeometry(sampling, oneRow);
        if (status < 0)
            return status;
    }

    if (cache.alignCode == kip_affine_alignNone && sampling.params.mode >= kip_affineModeBilinearSeparable) {
        status = updatePlan(sampling);
        if (status < 0)
            return status;
    }
    if (same)
        return status;

    cache.params = sampling.params;
    cache.srcFromClient = sampling.srcFromClient;
    cache.srcRect = rectOf(sampling.source);
    cache.dstRect = rectOf(sampling.destination);
    cache.valid = 1;
    return status;
}

int32_t kip_affineSampleCache_lendScratch(kip_affineSampleCache *cache, size_t bytes, void **scratch)
{
    int32_t status = 0;
    if (bytes > cache->jobScratchBytes) {
        status = ksys_memory_realloc_internal(bytes, &cache->jobScratch);
        if (status < 0)
            return status;
        cache->jobScratchBytes = bytes;
    }
    *scratch = cache->jobScratch;
    return status;
}
