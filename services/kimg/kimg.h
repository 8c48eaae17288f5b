#ifndef KIMG_KIMG_H
#define KIMG_KIMG_H

/**
 * @file
 * Images and windows. Pixels are 1, 2 or 4 bytes, rows lie one pitch apart, pitches count pixels and may be
 * negative (bottom-up images). A status is an int32_t: negative is failure.
 *
 * Distinct images and windows may be used from different threads at once; one image may be read, not
 * written, by several threads.
 */

#include <stdint.h>

#include <kmath/kmath.h>
#include <kstd/kservices_api.h>
#include <kstd/kstd.h>

KSERVICES_BEGIN_C

/** Statuses of images and windows. */
enum {
    kimg_statusBadPixelSize = (int32_t)0x80000201u, /**< Bytes per pixel other than 1, 2 or 4. */
    kimg_statusBadSize = (int32_t)0x80000202u,      /**< A width or height below 1. */
    kimg_statusTooLarge = (int32_t)0x80000203u,     /**< More pixels than memory or a 32-bit pitch can address. */
    kimg_statusBadPitch = (int32_t)0x80000204u,     /**< A pitch below the width in magnitude. */
    kimg_statusNoPixels = (int32_t)0x80000205u      /**< Null where pixels are needed, or an unbound image. */
};

/** A writable view of pixels. Copied by value; it owns nothing. */
typedef struct kimg_window {
    int32_t width;         /**< columns */
    int32_t height;        /**< rows */
    int32_t x;             /**< column of the image at which the window's first pixel stands */
    int32_t y;             /**< row of the image at which the window's first pixel stands */
    int32_t originX;       /**< 0 in every window that the image library makes */
    int32_t originY;       /**< 0 in every window that the image library makes */
    int32_t fullWidth;     /**< width of the image that the window was taken from */
    int32_t fullHeight;    /**< height of the image that the window was taken from */
    int32_t pitch;         /**< pixels from one row to the next, negative for bottom-up images */
    void *pixels;          /**< the first pixel of the first row */
    int32_t bytesPerPixel; /**< 1, 2 or 4 */
} kimg_window;

/** A read-only view of pixels, otherwise as #kimg_window. */
typedef struct kimg_windowConst {
    int32_t width;         /**< columns */
    int32_t height;        /**< rows */
    int32_t x;             /**< column of the image at which the window's first pixel stands */
    int32_t y;             /**< row of the image at which the window's first pixel stands */
    int32_t originX;       /**< 0 in every window that the image library makes */
    int32_t originY;       /**< 0 in every window that the image library makes */
    int32_t fullWidth;     /**< width of the image that the window was taken from */
    int32_t fullHeight;    /**< height of the image that the window was taken from */
    int32_t pitch;         /**< pixels from one row to the next, negative for bottom-up images */
    const void *pixels;    /**< the first pixel of the first row */
    int32_t bytesPerPixel; /**< 1, 2 or 4 */
} kimg_windowConst;

/** Private part of an image: its storage and its client transform. */
struct kimg_imageState;

/**
 * An image: pixels, their place (x, y) in pixel coordinates and the map from client coordinates. An image
 * without pixels is unbound. The four numbers may be read at any time; x and y may be written to place a
 * constructed image, width and height are the library's.
 */
typedef struct kimg_image {
    int32_t width;                 /**< columns, 0 while unbound */
    int32_t height;                /**< rows, 0 while unbound */
    int32_t x;                     /**< pixel coordinate of the first column */
    int32_t y;                     /**< pixel coordinate of the first row */
    struct kimg_imageState *state; /**< private */
} kimg_image;

/** An image that is only read. */
typedef kimg_image kimg_imageConst;

/**
 * Makes a bound image with pixels of its own, 64-byte aligned and uninitialised, at place (0, 0), with the
 * identity as its client map. The pitch is the library's choice and may exceed the width; a window tells it. What
 * lies between the rows is 0, so that no result depends on what the memory held before.
 *
 * image          the record to initialise; needs #kimg_image_destruct afterwards, also after a failure.
 * bytesPerPixel  1, 2 or 4.
 * width, height  size in pixels, at least 1.
 * Returns 0; #kimg_statusBadPixelSize, #kimg_statusBadSize, #kimg_statusTooLarge or the status of the
 * failed allocation, the image then unbound.
 */
KSERVICES_API int32_t kimg_image_construct(kimg_image *image, int32_t bytesPerPixel, int32_t width, int32_t height);

/** Makes an unbound image; takes no memory. Returns 0. */
KSERVICES_API int32_t kimg_image_constructUnbound(kimg_image *image);

/**
 * Makes a bound image over the caller's memory, which is never freed and must outlive the image and every
 * image that it is assigned to.
 *
 * image          the record to initialise; needs #kimg_image_destruct afterwards, also after a failure.
 * bytesPerPixel  1, 2 or 4.
 * width, height  size in pixels, at least 1.
 * pitch          pixels from one row to the next, at least width in magnitude, negative for bottom-up images.
 * pixels         the first pixel of the first row, at any address; some operations on 16-bit pixels ask for an
 *                even one.
 * Returns 0; #kimg_statusBadPixelSize, #kimg_statusBadSize, #kimg_statusBadPitch, #kimg_statusTooLarge,
 * #kimg_statusNoPixels for null, or the status of the failed allocation, the image then unbound.
 */
KSERVICES_API int32_t kimg_image_constructExternal(kimg_image *image, int32_t bytesPerPixel, int32_t width,
                                                   int32_t height, int32_t pitch, void *pixels);

/**
 * Makes a bound image over memory of the caller's that is only read, otherwise as #kimg_image_constructExternal. The
 * image may be the source of any operation and be assigned to others that are; nothing may write into it.
 */
KSERVICES_API int32_t kimg_imageConst_constructExternal(kimg_imageConst *image, int32_t bytesPerPixel, int32_t width,
                                                        int32_t height, int32_t pitch, const void *pixels);

/** Releases an image's pixels and record; the image is then unbound and may be destructed again. Returns 0. */
KSERVICES_API int32_t kimg_image_destruct(kimg_image *image);

/** Releases an image's pixels; its place becomes (0, 0), its client map stays. Returns 0. */
KSERVICES_API int32_t kimg_image_setUnbound(kimg_image *image);

/** Tells whether an image has pixels; bound receives nonzero exactly then. Returns 0. */
KSERVICES_API int32_t kimg_image_getIsBound(const kimg_image *image, int32_t *bound);

/** Tells whether an image has pixels; bound receives nonzero exactly then. Returns 0. */
KSERVICES_API int32_t kimg_imageConst_getIsBound(const kimg_imageConst *image, int32_t *bound);

/**
 * Gives an image fresh pixels as #kimg_image_construct makes them, at place (0, 0); its client map stays.
 *
 * image          a constructed image, bound or not.
 * bytesPerPixel  1, 2 or 4.
 * width, height  size in pixels, at least 1.
 * Returns 0, or a status of #kimg_image_construct, the image then untouched.
 */
KSERVICES_API int32_t kimg_image_assignNew(kimg_image *image, int32_t bytesPerPixel, int32_t width, int32_t height);

/**
 * Makes destination hold source's pixels, place and client map. The pixels are shared and live until the
 * last image that holds them lets go.
 *
 * Returns 0, or the status of a failed allocation, the destination then untouched.
 */
KSERVICES_API int32_t kimg_image_assign(kimg_image *destination, const kimg_imageConst *source);

/**
 * Gives the map from client coordinates to pixel coordinates, in which pixel (p, q) covers
 * [p, p + 1) x [q, q + 1). A new image's is the identity. Returns 0.
 */
KSERVICES_API int32_t kimg_imageConst_getLinearImageFromClientXform(const kimg_imageConst *image,
                                                                    kmath_xformLinear *xform);

/**
 * Sets the map from client coordinates to pixel coordinates; it is kept as it is, without a test. Takes no
 * memory for a bound image. Returns 0, or the status of the allocation that an unbound image may need.
 */
KSERVICES_API int32_t kimg_image_setLinearImageFromClientXform(kimg_image *image, const kmath_xformLinear *xform);

/** Gives destination source's client map. Returns 0, or the status of the allocation that an unbound one may need. */
KSERVICES_API int32_t kimg_image_copyXforms(kimg_image *destination, const kimg_imageConst *source);

/** Makes a window over a whole image; an unbound image gives an empty window without pixels. Returns 0. */
KSERVICES_API int32_t kimg_window_init(kimg_window *window, const kimg_image *image);

/** Makes a read-only window over a whole image; an unbound image gives an empty one. Returns 0. */
KSERVICES_API int32_t kimg_windowConst_init(kimg_windowConst *window, const kimg_imageConst *image);

/** Makes an empty window without pixels. Returns 0. */
KSERVICES_API int32_t kimg_window_initUnbound(kimg_window *window);

/**
 * Makes a window over the part of an image that lies inside a rectangle.
 *
 * window  receives the window, empty when they do not meet.
 * image   the image.
 * rect    the rectangle, in the image's pixel coordinates.
 * flags   0.
 * Returns 0.
 */
KSERVICES_API int32_t kimg_window_initWindow(kimg_window *window, const kimg_image *image, const kstd_rect32 *rect,
                                             int32_t flags);

/**
 * Narrows a window to the part of it inside a rectangle.
 *
 * window         the window; it becomes empty (width and height 0) when they do not meet.
 * x, y           the rectangle's place, in the image's pixel coordinates.
 * width, height  the rectangle's size; below 0 counts as 0.
 * clipped        receives nonzero when the rectangle reached outside the window; may be null.
 * Returns 0.
 */
KSERVICES_API int32_t kimg_window_window(kimg_window *window, int32_t x, int32_t y, int32_t width, int32_t height,
                                         int32_t *clipped);

/** Narrows a read-only window, as #kimg_window_window does. Returns 0. */
KSERVICES_API int32_t kimg_windowConst_window(kimg_windowConst *window, int32_t x, int32_t y, int32_t width,
                                              int32_t height, int32_t *clipped);

/** Narrows a window to a rectangle, as #kimg_window_window does; flags is 0. Returns 0. */
KSERVICES_API int32_t kimg_window_windowRect(kimg_window *window, const kstd_rect32 *rect, int32_t flags);

/**
 * Gives the rectangle that two images have in common.
 *
 * a, b    the images.
 * common  receives the rectangle, in pixel coordinates; (0, 0, 0, 0) when there is none.
 * empty   receives nonzero when they share no pixel.
 * Returns 0.
 */
KSERVICES_API int32_t kimg_imageConst_gcr(const kimg_imageConst *a, const kimg_imageConst *b, kstd_rect32 *common,
                                          int32_t *empty);

/** Gives the rectangle that two windows have in common, as #kimg_imageConst_gcr does. Returns 0. */
KSERVICES_API int32_t kimg_windowConst_gcr(const kimg_windowConst *a, const kimg_windowConst *b, kstd_rect32 *common,
                                           int32_t *empty);

KSERVICES_END_C

#endif
