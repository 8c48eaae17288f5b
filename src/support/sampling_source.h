#ifndef KIP_SUPPORT_SAMPLING_SOURCE_H
#define KIP_SUPPORT_SAMPLING_SOURCE_H

#include <kip/kip.h>

namespace kip {

// What a sampling reads: a window, and the map from client coordinates to its image's pixel coordinates.
struct SamplingSource {
    kimg_windowConst window;
    kmath_xformLinear fromClient;
};

// Opens a whole image.
inline int32_t openSamplingSource(const kimg_imageConst *image, SamplingSource *source)
{
    const int32_t status = kimg_windowConst_init(&source->window, image);
    return status < 0 ? status : kimg_imageConst_getLinearImageFromClientXform(image, &source->fromClient);
}

} // namespace kip

#endif
