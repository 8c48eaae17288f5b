#ifndef KIP_TRANSFORM_TEMPORARY_RESULT_H
#define KIP_TRANSFORM_TEMPORARY_RESULT_H

#include <cstdint>

#include <kip/kip.h>

#include "support/cleanup_list.h"
#include "support/pixel_functions.h"

namespace kip {

// Lets fill(&image), which returns a status, make a result of destWidth x destHeight in an image of its own; then
// copies it into a bound destination, or lets an unbound one have it. Returns the first failure; the destination then
// is as it was.
template <typename Pixel, typename Fill>
int32_t makeThroughTemporary(kimg_image *destination, bool isBound, const kip_affineSampleParams &params, Fill fill)
{
    CleanupList cleanup;
    kimg_image temporary;
    int32_t status = kimg_image_construct(&temporary, sizeof(Pixel), params.destWidth, params.destHeight);
    addCleanup<kimg_image_destruct>(cleanup, &temporary);
    if (status >= 0)
        status = fill(&temporary);
    if (status >= 0)
        status =
            isBound ? PixelFunctions<Pixel>::copy(&temporary, destination) : kimg_image_assign(destination, &temporary);
    return runCleanup(cleanup, status);
}

} // namespace kip

#endif
