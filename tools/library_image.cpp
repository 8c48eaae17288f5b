#include "library_image.h"

#include "failure.h"

#include <algorithm>

namespace kiptool {

void bindTo(LibraryImage &image, const Picture &picture)
{
    requireSuccess(kimg_imageConst_constructExternal(&image.image, depthOf(picture) / 8, picture.width, picture.height,
                                                     picture.width, bytesOf(picture)),
                   "source image");
}

Picture pictureOf(const LibraryImage &image, int depth)
{
    kimg_windowConst window;
    requireSuccess(kimg_windowConst_init(&window, &image.image), "result");
    Picture picture = makePicture(window.width, window.height, 1, depth);
    std::visit(
        [&window](auto &samples) {
            const auto *from = static_cast<decltype(samples.data())>(const_cast<void *>(window.pixels));
            for (ptrdiff_t y = 0; y < window.height; ++y)
                std::copy_n(from + y * window.pitch, window.width, samples.begin() + y * window.width);
        },
        picture.samples);
    return picture;
}

} // namespace kiptool
