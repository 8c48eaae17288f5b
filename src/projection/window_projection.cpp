#include <cstdint>

#include <kip/kip.h>

#include "projection/window_sums.h"

namespace {

// What a form asks for: the sums of every row, or of every column.
constexpr kip_affine_imageAlignment kRows = kip_affine_alignRotate90;
constexpr kip_affine_imageAlignment kColumns = kip_affine_alignIdentity;

// How many sums a source gives, and how many pixels go into each.
struct Extent {
    int32_t count, depth;
};

template <typename Source>
Extent extentOf(const Source &source, kip_affine_imageAlignment alignCode)
{
    return kip::isColumnProjection(alignCode) ? Extent{source.width, source.height}
                                              : Extent{source.height, source.width};
}

int32_t project(const kimg_windowConst &source, const kimg_window &destination, kip_affine_imageAlignment alignCode,
                int32_t *depth)
{
    const int32_t status = kip::projectWindowOriented8(source, destination, alignCode);
    if (status >= 0 && depth != nullptr)
        *depth = extentOf(source, alignCode).depth;
    return status;
}

int32_t initBoundSource(kimg_windowConst *window, const kimg_imageConst *image)
{
    int32_t bound;
    int32_t status = kimg_imageConst_getIsBound(image, &bound);
    if (status < 0)
        return status;
    if (bound == 0)
        return kip_statusProjectionSourceUnbound;
    status = kimg_windowConst_init(window, image);
    if (status < 0)
        return status;
    return kip::checkSumSource(*window, sizeof(uint8_t));
}

int32_t projectIntoImage(const kimg_imageConst *source, kimg_image *destination, kip_affine_imageAlignment alignCode,
                         int32_t *depth)
{
    kimg_windowConst read;
    int32_t status = initBoundSource(&read, source);
    if (status < 0)
        return status;
    int32_t bound;
    status = kimg_image_getIsBound(destination, &bound);
    if (status < 0)
        return status;
    if (bound == 0) {
        status = kimg_image_assignNew(destination, sizeof(uint32_t), extentOf(read, alignCode).count, 1);
        if (status < 0)
            return status;
    }
    kimg_window write;
    status = kimg_window_init(&write, destination);
    if (status < 0)
        return status;
    return project(read, write, alignCode, depth);
}

int32_t projectWindowIntoVector(const kimg_windowConst &source, kstd_vector32 *result,
                                kip_affine_imageAlignment alignCode, int32_t *depth)
{
    int32_t status = kip::checkSumSource(source, sizeof(uint8_t));
    if (status < 0)
        return status;
    const int32_t count = extentOf(source, alignCode).count;
    status = kstd_vector32_resize(result, count);
    if (status < 0)
        return status;
    uint32_t *sums;
    status = kstd_vector32_getBegin(result, &sums);
    if (status < 0)
        return status;

    kimg_window write;
    status = kimg_window_initUnbound(&write);
    if (status < 0)
        return status;
    write.width = write.fullWidth = write.pitch = count;
    write.height = write.fullHeight = 1;
    write.pixels = sums;
    write.bytesPerPixel = sizeof(uint32_t);
    return project(source, write, alignCode, depth);
}

int32_t projectImageIntoVector(const kimg_imageConst *source, kstd_vector32 *result,
                               kip_affine_imageAlignment alignCode, int32_t *depth)
{
    kimg_windowConst read;
    const int32_t status = initBoundSource(&read, source);
    return status < 0 ? status : projectWindowIntoVector(read, result, alignCode, depth);
}

} // namespace

int32_t kip_projectHorizontal8(const kimg_imageConst *source, kimg_image *destination, int32_t *depth)
{
    return projectIntoImage(source, destination, kRows, depth);
}

int32_t kip_projectVertical8(const kimg_imageConst *source, kimg_image *destination, int32_t *depth)
{
    return projectIntoImage(source, destination, kColumns, depth);
}

int32_t kip_projectHorizontalVector8(const kimg_imageConst *source, kstd_vector32 *result, int32_t *depth)
{
    return projectImageIntoVector(source, result, kRows, depth);
}

int32_t kip_projectVerticalVector8(const kimg_imageConst *source, kstd_vector32 *result, int32_t *depth)
{
    return projectImageIntoVector(source, result, kColumns, depth);
}

int32_t kip_projectHorizontalVectorWindow8(const kimg_windowConst *source, kstd_vector32 *result, int32_t *depth)
{
    return projectWindowIntoVector(*source, result, kRows, depth);
}

int32_t kip_projectVerticalVectorWindow8(const kimg_windowConst *source, kstd_vector32 *result, int32_t *depth)
{
    return projectWindowIntoVector(*source, result, kColumns, depth);
}

int32_t kip_projectHorizontalWindow8(const kimg_windowConst *source, kimg_window *destination, int32_t *depth)
{
    return project(*source, *destination, kRows, depth);
}

int32_t kip_projectVerticalWindow8(const kimg_windowConst *source, kimg_window *destination, int32_t *depth)
{
    return project(*source, *destination, kColumns, depth);
}
