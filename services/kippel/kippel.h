#ifndef KIPPEL_KIPPEL_H
#define KIPPEL_KIPPEL_H

/**
 * @file
 * Pixel operations: copies, fills, the greatest value and the memory overlap test.
 *
 * Copies move the pixels that both sides cover, placed by their pixel coordinates, and succeed copying
 * nothing when the two do not meet. Sides must not overlap in memory. A status is an int32_t: negative is
 * failure. Calls on distinct destinations may run side by side.
 */

#include <stdint.h>

#include <kimg/kimg.h>
#include <kstd/kservices_api.h>

KSERVICES_BEGIN_C

/** Statuses of the pixel operations. */
enum {
    kip_pelStatusOverlap = (int32_t)0x80000501u,   /**< Two windows share memory. */
    kip_pelStatusPixelSize = (int32_t)0x80000502u, /**< A window's bytes per pixel are not those of the operation. */
    kip_pelStatusEmpty = (int32_t)0x80000503u      /**< A window without a pixel, where one is needed. */
};

/**
 * Tests whether two windows share memory. Interleaved windows (side by side in one image) do not.
 *
 * Returns 0 when no byte belongs to a pixel of both, #kip_pelStatusOverlap otherwise.
 */
KSERVICES_API int32_t kip_pelfunc_checkMemoryOverlap(const kimg_windowConst *read, const kimg_window *write);

/** Copies 8-bit pixels between images. Returns 0, or #kip_pelStatusPixelSize with nothing written. */
KSERVICES_API int32_t kip_pelCopy8(const kimg_imageConst *source, kimg_image *destination);

/** Copies 16-bit pixels between images. Returns 0, or #kip_pelStatusPixelSize with nothing written. */
KSERVICES_API int32_t kip_pelCopy16(const kimg_imageConst *source, kimg_image *destination);

/** Copies 8-bit pixels between windows. Returns 0, or #kip_pelStatusPixelSize with nothing written. */
KSERVICES_API int32_t kip_pelCopyWindow8(const kimg_windowConst *source, kimg_window *destination);

/** Copies 16-bit pixels between windows. Returns 0, or #kip_pelStatusPixelSize with nothing written. */
KSERVICES_API int32_t kip_pelCopyWindow16(const kimg_windowConst *source, kimg_window *destination);

/** Copies 32-bit pixels between windows. Returns 0, or #kip_pelStatusPixelSize with nothing written. */
KSERVICES_API int32_t kip_pelCopyWindow32(const kimg_windowConst *source, kimg_window *destination);

/** Fills an 8-bit image with a value. Returns 0, or #kip_pelStatusPixelSize with nothing written. */
KSERVICES_API int32_t kip_pelSet8(kimg_image *image, uint8_t value);

/** Fills a 16-bit image with a value. Returns 0, or #kip_pelStatusPixelSize with nothing written. */
KSERVICES_API int32_t kip_pelSet16(kimg_image *image, uint16_t value);

/** Fills an 8-bit window with a value. Returns 0, or #kip_pelStatusPixelSize with nothing written. */
KSERVICES_API int32_t kip_pelSetWindow8(kimg_window *window, uint8_t value);

/** Fills a 16-bit window with a value. Returns 0, or #kip_pelStatusPixelSize with nothing written. */
KSERVICES_API int32_t kip_pelSetWindow16(kimg_window *window, uint16_t value);

/**
 * Gives the greatest value of a 32-bit window.
 *
 * Returns 0; #kip_pelStatusPixelSize or #kip_pelStatusEmpty, maximum then untouched.
 */
KSERVICES_API int32_t kip_pelUnaryMaxWindow32(const kimg_windowConst *window, uint32_t *maximum);

KSERVICES_END_C

#endif
