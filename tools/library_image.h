#ifndef KIP_TOOLS_LIBRARY_IMAGE_H
#define KIP_TOOLS_LIBRARY_IMAGE_H

#include "picture.h"

#include <kimg/kimg.h>

namespace kiptool {

/** An image of the library that is let go at the end. */
struct LibraryImage {
    kimg_image image;

    LibraryImage() { kimg_image_constructUnbound(&image); }
    LibraryImage(const LibraryImage &) = delete;
    LibraryImage &operator=(const LibraryImage &) = delete;
    ~LibraryImage() { kimg_image_destruct(&image); }
};

/** Puts a grey picture's own memory behind an unbound image, to be read; the picture must outlive it. */
void bindTo(LibraryImage &image, const Picture &picture);

/** A copy of an image with pixels of 8 or 16 bits. */
Picture pictureOf(const LibraryImage &image, int depth);

} // namespace kiptool

#endif
