#ifndef KIMG_IMAGE_STATE_H
#define KIMG_IMAGE_STATE_H

// What an image keeps behind its public numbers. Private to the image library.

#include <kimg/kimg.h>

#include <cstdint>

struct PixelStorage;

// An image without a state is unbound and has the identity as its client map.
struct kimg_imageState {
    PixelStorage *storage;    // the library's own pixels, shared by counting; null for the caller's and for none
    void *pixels;             // the first pixel of the first row, null while unbound
    int32_t pitch;            // pixels from one row to the next
    int32_t bytesPerPixel;    // 0 while unbound
    kmath_xformLinear client; // from client coordinates to pixel coordinates
};

#endif
