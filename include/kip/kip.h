#ifndef KIP_KIP_H
#define KIP_KIP_H

/**
 * @file
 * kip: geometric image operations for machine vision.
 *
 * From a grey 8- or 16-bit image, kip resamples an affine rectangle (a parallelogram placed in the image's
 * client coordinates) onto a destination image, or adds its samples up to a profile along one of its sides.
 * Rectangles may lie inside the image, or reach outside it if asked to.
 *
 * Coordinates. Pixel (p, q) covers [p, p + 1) x [q, q + 1), so its centre is (p + 0.5, q + 0.5). An image
 * carries a map from client coordinates to its pixel coordinates (the identity unless the caller sets
 * another), and rectangles are given in client coordinates.
 *
 * Status. Every function returns an int32_t: negative is failure, zero or positive success; test the sign.
 * The first failure ends an operation. Statuses of the service libraries pass through unchanged. Pointers
 * are not tested for null unless a comment says so.
 *
 * Threads. Of their own, the functions keep nothing between calls but the table of cubic weights
 * (#kip_affineTransform_setup), which is made once and only read. Calls may run side by side as long as no
 * image, window or cache that one of them writes is used by another.
 *
 * The results are the same bits on every machine, for every number of threads.
 */

#include <stdint.h>

#include <kimg/kimg.h>
#include <kip/version.h>
#include <kippel/kippel.h>
#include <kmath/kmath.h>
#include <kstd/kprt.h>
#include <kstd/kstd.h>
#include <ksys/ksys.h>

/** Marks a function that the library exports; a static one shows nothing (KIP_STATIC). */
#if defined(KIP_STATIC)
#define KIP_API
#elif defined(_WIN32)
#if defined(KIP_BUILDING)
#define KIP_API __declspec(dllexport)
#else
#define KIP_API __declspec(dllimport)
#endif
#else
#define KIP_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

/** Statuses of the library's own. */
enum {
    /** An optimised path declined or was inhibited; never returned by an exported function. */
    kip_statusOptimizationDeclined = (int32_t)0x80000601u,
    /** The source image of a projection is not bound. */
    kip_statusProjectionSourceUnbound = (int32_t)0x80000782u,
    /** A plain projection would sample outside its source. */
    kip_statusProjectionWouldClip = (int32_t)0x80000783u,
    /** A clipped projection's rectangle and the six pixels round it (#kip_affineSampleParams_getMaxSrcRect) share no
     * pixel with the source. */
    kip_statusProjectionOutsideSource = (int32_t)0x80000784u,
    /** The source image of a transform is not bound. */
    kip_statusTransformSourceUnbound = (int32_t)0x80000786u,
    /** A plain transform would sample outside its source. */
    kip_statusTransformWouldClip = (int32_t)0x80000787u,
    /** A clipped transform's rectangle and the six pixels round it (#kip_affineSampleParams_getMaxSrcRect) share no
     * pixel with the source. */
    kip_statusTransformOutsideSource = (int32_t)0x80000788u,
    /** destWidth or destHeight is below 1. */
    kip_statusSizeBelowOne = (int32_t)0x8000078au,
    /** The source's row pitch or height is above 32767 on a path that keeps 16.16 positions. */
    kip_statusSourceTooLarge = (int32_t)0x8000078bu,
    /** A 16-bit projection in a table-driven mode. */
    kip_statusProjectionModeUnsupported = (int32_t)0x8000078cu,
    /** An interpolation mode above 3. */
    kip_statusUnknownMode = (int32_t)0x80000790u,
    /** Windows whose sizes do not fit each other, or a shared one that an operation cannot work in. */
    kip_statusWindowMismatch = (int32_t)0x80000791u,
    /** An image or window whose bytes per pixel are not those of the operation. */
    kip_statusPixelDepth = (int32_t)0x80000792u,
    /** A cache argument whose handle is null: construct the cache first. */
    kip_statusCacheNotConstructed = (int32_t)0x80000793u,
    /** An image or window of 16-bit pixels at an odd address. */
    kip_statusMisaligned = (int32_t)0x80000794u
};

/** Interpolation modes, the values of kip_affineSampleParams::mode. */
enum {
    /** Nearest neighbour: each destination pixel takes the source pixel under its mapped centre. */
    kip_affineModeNearest = 0,
    /** Bilinear interpolation of the 2 x 2 neighbourhood, computed per pixel. */
    kip_affineModeBilinear = 1,
    /** Bilinear interpolation as two separable one-dimensional passes. */
    kip_affineModeBilinearSeparable = 2,
    /** Cubic convolution (a = -0.5) as two separable four-tap passes. */
    kip_affineModeBicubic = 3
};

/**
 * Alignment code of a map that moves whole pixels: the rotation angle in degrees, plus 1 when the axes are
 * also swapped.
 */
typedef int32_t kip_affine_imageAlignment;

/**
 * The alignment codes. Each comment tells where a destination step right and a destination step down go in
 * the source.
 */
enum {
    kip_affine_alignNone = -1,                /**< not a map of whole pixels */
    kip_affine_alignIdentity = 0,             /**< right, down */
    kip_affine_alignTranspose = 1,            /**< down, right */
    kip_affine_alignRotate90 = 90,            /**< down, left */
    kip_affine_alignRotate90Transpose = 91,   /**< left, down: mirror in x */
    kip_affine_alignRotate180 = 180,          /**< left, up: half turn */
    kip_affine_alignRotate180Transpose = 181, /**< up, left */
    kip_affine_alignRotate270 = 270,          /**< up, right */
    kip_affine_alignRotate270Transpose = 271  /**< right, up: mirror in y */
};

/** What an affine operation samples. A plain record that the caller owns and fills. */
typedef struct {
    kmath_shapeAffineRect rect; /**< the rectangle, in the source's client coordinates */
    uint32_t mode;              /**< interpolation mode, kip_affineMode... */
    int32_t destWidth;          /**< samples along the rectangle's x side: destination columns, at least 1 */
    int32_t destHeight;         /**< samples along the rectangle's y side: destination rows, at least 1 */
} kip_affineSampleParams;

/**
 * Geometry work kept between calls. Opaque; a handle is a pointer to it. A cache must not be used by two
 * calls at once.
 */
typedef struct kip_affineSampleCache kip_affineSampleCache;

/** @name Sampling parameters
 * @{ */

/**
 * Fills a record, without any check.
 *
 * params                  the record.
 * mode                    interpolation mode.
 * rect                    the rectangle.
 * destWidth, destHeight   samples along its x and y side.
 * Returns 0.
 */
KIP_API int32_t kip_affineSampleParams_init(kip_affineSampleParams *params, uint32_t mode,
                                            const kmath_shapeAffineRect *rect, int32_t destWidth, int32_t destHeight);

/**
 * Sets up standard sampling: bilinear, one sample per unit of length along each side of the rectangle as
 * seen through a map, the lengths rounded to the nearest integer.
 *
 * params  the record; its rect becomes the given, unmapped one.
 * rect    the rectangle.
 * map     measures the sides, usually the source's map from client to pixel coordinates; null: the identity.
 * Returns 0; a rectangle that is not finite gives the math library's status, the record then untouched.
 */
KIP_API int32_t kip_affineSampleParams_initRectStandard(kip_affineSampleParams *params,
                                                        const kmath_shapeAffineRect *rect,
                                                        const kmath_xformLinear *map);

/**
 * Gives the placement of the result: the map from client coordinates to destination pixel coordinates, the
 * inverse of (x, y) -> rect(x / destWidth, y / destHeight).
 *
 * params  the sampling, destWidth and destHeight at least 1.
 * oneRow  nonzero: the rectangle's whole height is one unit of y, as in a projection.
 * xform   receives the map.
 * Returns 0; #kmath_statusSingular for a rectangle whose sides are parallel or of no length; another status of the
 * math library for one that is not finite or whose map would not be. xform is then untouched. Sides (a, b) and (c, d)
 * are parallel, for every operation and whatever the sizes, where |a d - b c| is at most 2^-50 of |a d| + |b c|: so
 * much may be left of it where their coordinates were rounded.
 */
KIP_API int32_t kip_affineSampleParams_getDestImageFromClientXform(const kip_affineSampleParams *params, int32_t oneRow,
                                                                   kmath_xformLinear *xform);

/**
 * Gives the rectangle of source pixels that the sampling may read at most: the corner pixels' centres and
 * six pixels round them, for every mode, not cut to the source.
 *
 * params  the sampling.
 * source  the source image, of which only the client map counts.
 * rect    receives the rectangle, in pixel coordinates.
 * Returns 0, or a status of the image, math or container library, rect then untouched.
 */
KIP_API int32_t kip_affineSampleParams_getMaxSrcRect(const kip_affineSampleParams *params,
                                                     const kimg_imageConst *source, kstd_rect32 *rect);

/**
 * The same for a window.
 *
 * params         the sampling.
 * source         the source window; it does not affect the result.
 * srcFromClient  the map from client coordinates to the source's pixel coordinates.
 * rect           receives the rectangle, in pixel coordinates.
 * Returns 0, or a status of the math or container library, rect then untouched.
 */
KIP_API int32_t kip_affineSampleParams_getMaxSrcRectWindow(const kip_affineSampleParams *params,
                                                           const kimg_windowConst *source,
                                                           const kmath_xformLinear *srcFromClient, kstd_rect32 *rect);

/**
 * Tells whether the sampling would read outside its source.
 *
 * params    the sampling.
 * source    the source image.
 * willClip  receives 1 when it would, 0 when every sample and its neighbours lie inside.
 * Returns 0; #kip_statusSizeBelowOne, #kip_statusUnknownMode, or #kip_statusSourceTooLarge (table-driven modes
 * and a source with a pitch or height above 32767), willClip then untouched; or a status of another library,
 * willClip then 1.
 */
KIP_API int32_t kip_affineSampleParams_getWillClip(const kip_affineSampleParams *params, const kimg_imageConst *source,
                                                   int32_t *willClip);

/**
 * The same for a window.
 *
 * params         the sampling.
 * source         the source window.
 * srcFromClient  the map from client coordinates to the source's pixel coordinates.
 * willClip       as for the image form.
 * Returns as the image form does.
 */
KIP_API int32_t kip_affineSampleParams_getWillClipWindow(const kip_affineSampleParams *params,
                                                         const kimg_windowConst *source,
                                                         const kmath_xformLinear *srcFromClient, int32_t *willClip);

/** @} */

/** @name Alignment
 * @{ */

/**
 * Tells whether a sampling moves whole pixels: a translation by whole pixels at unit scale, possibly with
 * quarter turns and mirrors, each within 1e-12.
 *
 * params         the sampling.
 * srcFromClient  the map from client coordinates to the source's pixel coordinates.
 * alignCode      receives the code; #kip_affine_alignNone is no failure.
 * srcRect        receives the source pixels that the sampling covers, if the code is not
 *                #kip_affine_alignNone; may be null.
 * Returns 0, also where the translation is beyond all pixels or not finite; or a status of the math library, for
 * example for sides that are not finite. alignCode is then #kip_affine_alignNone unless the failure concerned srcRect
 * alone.
 */
KIP_API int32_t kip_affine_imageAlignment_compute(const kip_affineSampleParams *params,
                                                  const kmath_xformLinear *srcFromClient,
                                                  kip_affine_imageAlignment *alignCode, kstd_rect32 *srcRect);

/** @} */

/** @name Sample cache
 * @{ */

/**
 * Makes a cache.
 *
 * cache  receives the handle, null on failure; free it with kip_affineSampleCache_destruct.
 * Returns 0, or the status of the failed allocation.
 */
KIP_API int32_t kip_affineSampleCache_construct(kip_affineSampleCache **cache);

/**
 * Frees a cache and sets the handle to null; a null handle is no failure.
 *
 * cache  the address of the handle.
 * Returns 0, or the memory library's status.
 */
KIP_API int32_t kip_affineSampleCache_destruct(kip_affineSampleCache **cache);

/** @} */

/** @name Affine transform
 * @{ */

/**
 * Builds the process-wide table of cubic weights ahead of its first use, so that no later call pays for it. Both
 * table-driven modes, 2 and 3, build it if nobody has, unless the map is one of whole pixels, and fail if it cannot be
 * built. It is freed at shutdown.
 *
 * Returns 0; otherwise the status of the lock, the allocation or the registration that failed. The next call, or
 * the first use, tries again. May be called from several threads at once.
 */
KIP_API int32_t kip_affineTransform_setup(void);

/**
 * Resamples an affine rectangle of an 8-bit image onto an 8-bit image.
 *
 * A bound destination of at least destWidth x destHeight pixels at place (0, 0) is written in place: its
 * top-left destWidth x destHeight pixels receive the result, the others stay. A bound destination of another
 * size or place receives the pixels that it shares with the result. An unbound one becomes a destWidth x
 * destHeight image. On success its map from client coordinates becomes the placement of the result. Maps of
 * whole pixels are copied, whatever the mode.
 *
 * Large nearest and bilinear work is spread over the job threads: from 2^18 destination pixels (nearest) or 2^16
 * (bilinear), in more rows than one band and a half, which are 72 to 336 by the source's pitch. A destination of 2^31
 * pixels or more may stay on the calling thread all the same, and so does a strong reduction of a source whose pitch
 * or height is above 32767. The table-driven modes keep to the calling thread unless #ksys_jobThreadGroup_setSplitAll
 * lets them leave it: from 2^16 destination pixels, in more rows than one and a half of a tile's, which are at most 96.
 *
 * source       bound 8-bit image; its memory must not overlap a bound destination's.
 * destination  8-bit image.
 * params       the sampling.
 * cache        address of a constructed handle, or null. With a cache, a call with the geometry of the last
 *              one repeats no geometry work.
 * Returns 0, or a negative status:
 *   #kip_pelStatusOverlap, #kip_statusTransformSourceUnbound, #kip_statusSizeBelowOne, #kip_statusUnknownMode,
 *   #kip_statusSourceTooLarge (modes 2 and 3, also for whole pixels, and a source with a pitch or height above 32767),
 *   #kip_statusPixelDepth, #kip_statusTransformWouldClip (the rectangle reaches outside the source),
 *   #kip_statusCacheNotConstructed, #kmath_statusSingular (parallel sides): the destination is untouched;
 *   another library's status, for example of a failed allocation; part of a bound destination may then be
 *   written if a job failed.
 */
KIP_API int32_t kip_affineTransform(const kimg_imageConst *source, kimg_image *destination,
                                    const kip_affineSampleParams *params, kip_affineSampleCache **cache);

/**
 * Resamples an affine rectangle of a 16-bit image onto a 16-bit image, otherwise as #kip_affineTransform.
 *
 * A source with a row pitch or height above 32767 gives #kip_statusSourceTooLarge in every mode, but for maps of
 * whole pixels in modes 0 and 1; a source or destination at an odd address gives #kip_statusMisaligned, nothing then
 * being written.
 */
KIP_API int32_t kip_affineTransform16(const kimg_imageConst *source, kimg_image *destination,
                                      const kip_affineSampleParams *params, kip_affineSampleCache **cache);

/** #kip_affineTransform without a cache, the parameters first. Returns as that does. */
KIP_API int32_t kip_affine8(const kip_affineSampleParams *params, const kimg_imageConst *source,
                            kimg_image *destination);

/**
 * Resamples an affine rectangle of an 8-bit image that may reach outside the image, and tells where it did.
 *
 * What lies outside the source counts as black: a destination pixel whose neighbourhood lies inside is as
 * #kip_affineTransform makes it, one whose neighbourhood lies outside is 0, one at the border mixes the source's
 * pixels with zeros. The mask is 255, 0, and the same mixture of 255 and 0 in the same places.
 *
 * A rectangle that stays inside is transformed as by #kip_affineTransform; the mask then stays as it is. Otherwise
 * a bound destination of exactly destWidth x destHeight pixels at place (0, 0) is written in place, and its map
 * from client coordinates becomes the placement of the result. A bound destination of another size or place
 * receives the pixels that it shares with the result and keeps its map. An unbound one becomes a destWidth x
 * destHeight image with that map. The mask is written in the same way. Such a call takes memory for a copy of the
 * rectangle's surroundings (see #kip_affineSampleParams_getMaxSrcRect), whatever the caller provides.
 *
 * source       bound 8-bit image; unless the rectangle reaches outside, its memory must not overlap a bound
 *              destination's.
 * destination  8-bit image.
 * mask         8-bit image; null: no mask is made.
 * params       the sampling.
 * cache        address of a constructed handle, or null. One cache serves image and mask.
 * willClip     receives nonzero when the sampling reaches outside the source, 0 when it does not. Untouched after
 *              #kip_statusTransformSourceUnbound, else as #kip_affineSampleParams_getWillClip leaves it.
 * Returns 0, or a negative status:
 *   #kip_statusTransformSourceUnbound, #kip_statusSizeBelowOne, #kip_statusUnknownMode, #kip_statusSourceTooLarge
 *   (modes 2 and 3: the source, or the rectangle's surroundings), #kip_statusPixelDepth (any of the images, also a
 *   mask that is not needed), #kip_statusCacheNotConstructed, #kmath_statusSingular (parallel sides),
 *   #kmath_statusOutOfRange and #kstd_statusTooLarge (a rectangle whose pixels 32 bits cannot count): nothing is
 *   written;
 *   #kip_statusTransformOutsideSource (the rectangle and its surroundings share no pixel with the source): the
 *   destination is written, all 0, the mask is untouched;
 *   the calling thread's attention handler's, if that is negative: nothing is written;
 *   another library's, for example of a failed allocation: the mask is untouched unless its own transform failed
 *   in a job.
 */
KIP_API int32_t kip_affineTransformClipped(const kimg_imageConst *source, kimg_image *destination, kimg_image *mask,
                                           const kip_affineSampleParams *params, kip_affineSampleCache **cache,
                                           int32_t *willClip);

/**
 * Resamples an affine rectangle of a 16-bit image that may reach outside the image, otherwise as
 * #kip_affineTransformClipped. The mask is an 8-bit image.
 *
 * A rectangle inside the source is refused as #kip_affineTransform16 refuses it. In modes 0 and 1, one that reaches
 * outside is sampled from the copy of its surroundings: #kip_statusSourceTooLarge then is about those, and the source
 * may have any size. #kip_statusMisaligned is as for #kip_affineTransform16.
 */
KIP_API int32_t kip_affineTransformClipped16(const kimg_imageConst *source, kimg_image *destination, kimg_image *mask,
                                             const kip_affineSampleParams *params, kip_affineSampleCache **cache,
                                             int32_t *willClip);

/**
 * Copies, turns or mirrors an 8-bit window by an alignment code.
 *
 * source       8-bit window.
 * destination  8-bit window, at least as large as the turned source for codes without an axis swap (0, 91,
 *              180, 271) and at most so for codes with one (1, 90, 181, 270). The two share either no memory or
 *              pixels and pitch both (the pitch of a single row does not count); an axis swap within one window
 *              needs a square.
 *              The result fills the destination's top left; the rest of a larger destination stays.
 * alignCode    what to do; any value without a meaning of its own copies, as #kip_affine_alignIdentity does.
 * Returns 0; #kip_statusWindowMismatch, #kip_statusPixelDepth, or #kip_statusMisaligned, with nothing written.
 */
KIP_API int32_t kip_affineTransformAligned(const kimg_windowConst *source, kimg_window *destination,
                                           kip_affine_imageAlignment alignCode);

/** Copies, turns or mirrors a 16-bit window by an alignment code, otherwise as #kip_affineTransformAligned. */
KIP_API int32_t kip_affineTransformAligned16(const kimg_windowConst *source, kimg_window *destination,
                                             kip_affine_imageAlignment alignCode);

/** @} */

/** @name Window projection
 *
 * The rows or the columns of an 8-bit window, each summed up: one unsigned 32-bit value a row, the top one first, or
 * one a column, the leftmost first. A sum is exact up to 16,843,009 pixels, beyond that modulo 2^32. A window without
 * rows has columns that sum up to 0, and the other way round. A negative pitch walks a bottom-up image; the window's
 * own first row comes first. Neither pixels nor sums need be aligned, and they must not share memory.
 *
 * depth receives the number of pixels in each sum: the width for row sums, the height for column sums. It may be null,
 * and is written only on success.
 *
 * Besides what each function names, they return #kip_statusPixelDepth for a source that is not of 8 bits or sums that
 * are not of 32, #kip_statusWindowMismatch for a window with a size below 0, #kimg_statusNoPixels for one whose pixels
 * are missing, and another library's status. Where a function fails, no sum is written.
 *
 * Threads: calls may run side by side while their results differ.
 * @{ */

/**
 * Sums every row of an 8-bit image into an image.
 *
 * source       bound 8-bit image.
 * destination  an image that is not bound gets new pixels, one row of 4 bytes each and as wide as the source is high,
 *              and keeps them if the sums then fail. A bound one has 4-byte pixels and is at least as wide; its first
 *              row receives the sums, the rest stays.
 * depth        receives the source's width; may be null.
 * Returns 0; #kip_statusProjectionSourceUnbound; #kip_statusWindowMismatch for a bound destination that is too small;
 * or a status named above.
 */
KIP_API int32_t kip_projectHorizontal8(const kimg_imageConst *source, kimg_image *destination, int32_t *depth);

/**
 * Sums every column of an 8-bit image into an image.
 *
 * source       bound 8-bit image.
 * destination  as for #kip_projectHorizontal8, as wide as the source.
 * depth        receives the source's height; may be null.
 * Returns as #kip_projectHorizontal8 does.
 */
KIP_API int32_t kip_projectVertical8(const kimg_imageConst *source, kimg_image *destination, int32_t *depth);

/**
 * Sums every row of an 8-bit image into a vector.
 *
 * source  bound 8-bit image.
 * result  constructed vector; resized to the source's height, also where the sums then fail.
 * depth   receives the source's width; may be null.
 * Returns 0; #kip_statusProjectionSourceUnbound or a status named above, the vector untouched if that concerns the
 * source or the vector's memory.
 */
KIP_API int32_t kip_projectHorizontalVector8(const kimg_imageConst *source, kstd_vector32 *result, int32_t *depth);

/**
 * Sums every column of an 8-bit image into a vector.
 *
 * source  bound 8-bit image.
 * result  constructed vector; resized to the source's width, also where the sums then fail.
 * depth   receives the source's height; may be null.
 * Returns as #kip_projectHorizontalVector8 does.
 */
KIP_API int32_t kip_projectVerticalVector8(const kimg_imageConst *source, kstd_vector32 *result, int32_t *depth);

/**
 * Sums every row of an 8-bit window into a vector.
 *
 * source  8-bit window, any size from 0 x 0.
 * result  constructed vector; resized to the window's height, also where the sums then fail.
 * depth   receives the window's width; may be null.
 * Returns 0, or a status named above, the vector untouched if that concerns the source or the vector's memory.
 */
KIP_API int32_t kip_projectHorizontalVectorWindow8(const kimg_windowConst *source, kstd_vector32 *result,
                                                   int32_t *depth);

/**
 * Sums every column of an 8-bit window into a vector.
 *
 * source  8-bit window, any size from 0 x 0.
 * result  constructed vector; resized to the window's width, also where the sums then fail.
 * depth   receives the window's height; may be null.
 * Returns as #kip_projectHorizontalVectorWindow8 does.
 */
KIP_API int32_t kip_projectVerticalVectorWindow8(const kimg_windowConst *source, kstd_vector32 *result, int32_t *depth);

/**
 * Sums every row of an 8-bit window into a window.
 *
 * source       8-bit window, any size from 0 x 0.
 * destination  window with 4-byte pixels, at least as wide as the source is high; its first row receives the sums, the
 *              rest stays.
 * depth        receives the source's width; may be null.
 * Returns 0; #kip_statusWindowMismatch for a destination that is too small; or a status named above.
 */
KIP_API int32_t kip_projectHorizontalWindow8(const kimg_windowConst *source, kimg_window *destination, int32_t *depth);

/**
 * Sums every column of an 8-bit window into a window.
 *
 * source       8-bit window, any size from 0 x 0.
 * destination  window with 4-byte pixels, at least as wide as the source; its first row receives the sums, the rest
 *              stays.
 * depth        receives the source's height; may be null.
 * Returns as #kip_projectHorizontalWindow8 does.
 */
KIP_API int32_t kip_projectVerticalWindow8(const kimg_windowConst *source, kimg_window *destination, int32_t *depth);

/** @} */

/** @name Affine projection
 * Sums of the columns of a rectangle's samples: its profile along its x side. Sum i is the sum, modulo 2^32, of the
 * destHeight samples of column i that the transform of the same sampling gives; maps of whole pixels are summed
 * exactly, whatever the mode. No picture of the rectangle is made. No job threads are used unless
 * #ksys_jobThreadGroup_setSplitAll lets them: from 2^18 samples (nearest) or 2^16, but not for maps of whole pixels.
 *
 * Sums are 32-bit pixels. They belong at columns 0 to destWidth - 1 of row 0 of their image; a result that covers only
 * part of that row receives that part. Apart from those pixels, images and windows stay as they are.
 *
 * 8-bit forms take sources of 8 bits, those whose names end in 16 sources of 16 bits; they offer the modes
 * #kip_affineModeNearest and #kip_affineModeBilinear alone.
 * @{ */

/**
 * Projects an affine rectangle of an 8-bit image that lies inside it.
 *
 * source  bound 8-bit image.
 * result  32-bit image; its memory must not overlap the source's. An unbound one becomes a destWidth x 1 image, and
 *         keeps its new pixels if a later step fails. On success its map from client coordinates becomes the placement:
 *         the rectangle covers [0, destWidth) x [0, 1).
 * params  the sampling.
 * cache   address of a constructed handle, or null. With a cache, a call with the geometry of the last one repeats
 *         no geometry work.
 * depth   receives destHeight, the number of samples in each sum; may be null.
 * Returns 0, or a negative status: #kip_statusProjectionSourceUnbound, #kip_statusSizeBelowOne,
 * #kip_statusUnknownMode, #kip_statusSourceTooLarge, #kip_statusProjectionWouldClip (the rectangle reaches outside the
 * source), #kip_statusCacheNotConstructed, #kip_statusPixelDepth, #kip_statusMisaligned,
 * #kip_statusProjectionModeUnsupported, #kmath_statusSingular (parallel sides), all with no sum written; or another
 * library's status, for example of a failed allocation. depth is written on success only.
 */
KIP_API int32_t kip_affineProject(const kimg_imageConst *source, kimg_image *result,
                                  const kip_affineSampleParams *params, kip_affineSampleCache **cache, uint32_t *depth);

/** Projects an affine rectangle of a 16-bit image, otherwise as #kip_affineProject. */
KIP_API int32_t kip_affineProject16(const kimg_imageConst *source, kimg_image *result,
                                    const kip_affineSampleParams *params, kip_affineSampleCache **cache,
                                    uint32_t *depth);

/**
 * Projects an affine rectangle of an 8-bit window that lies inside it.
 *
 * source         8-bit window; an empty one has no rectangle inside it.
 * srcFromClient  the map from client coordinates to the source's pixel coordinates.
 * result         32-bit window, of any place and size; its memory must not overlap the source's.
 * params         the sampling.
 * cache          as for #kip_affineProject.
 * placement      receives the map from client coordinates to the row of sums.
 * depth          receives destHeight; may be null.
 * Returns as #kip_affineProject does; kimg_statusNoPixels for a source without memory. placement and depth are written
 * on success only.
 */
KIP_API int32_t kip_affineProjectWindow(const kimg_windowConst *source, const kmath_xformLinear *srcFromClient,
                                        kimg_window *result, const kip_affineSampleParams *params,
                                        kip_affineSampleCache **cache, kmath_xformLinear *placement, uint32_t *depth);

/** Projects an affine rectangle of a 16-bit window, otherwise as #kip_affineProjectWindow. */
KIP_API int32_t kip_affineProjectWindow16(const kimg_windowConst *source, const kmath_xformLinear *srcFromClient,
                                          kimg_window *result, const kip_affineSampleParams *params,
                                          kip_affineSampleCache **cache, kmath_xformLinear *placement, uint32_t *depth);

/**
 * Projects an affine rectangle of an 8-bit image that may reach outside it. Pixels outside count as 0.
 *
 * A rectangle inside is projected as #kip_affineProject does, and coverage stays as it is. Else coverage tells how
 * much of each sum came from the source: coverageValue times the number of the column's samples inside it, those at
 * its border counted by their interpolated share. Takes memory for the source pixels that the sampling may read.
 *
 * source         bound 8-bit image.
 * result         as for #kip_affineProject.
 * coverage       32-bit image of its own, treated as result is, placement included.
 * params, cache  as for #kip_affineProject.
 * coverageValue  what a sample wholly inside counts.
 * depth          receives destHeight, or the greatest coverage if the rectangle reaches outside.
 * willClip       receives 1 if it does, else 0.
 * Returns as #kip_affineProject does, but for rectangles that reach outside: #kip_statusProjectionOutsideSource for
 * one that shares no pixel with the source, nor do the six pixels round it, result then holding 0 if it has room for
 * all columns; the status of ksys_attention_check if that is negative, result and coverage then partly written. An
 * unbound result receives its pixels before params are looked at: a destWidth below 1 then gives #kimg_statusBadSize.
 * depth is written on success only.
 */
KIP_API int32_t kip_affineProjectClipped(const kimg_imageConst *source, kimg_image *result, kimg_image *coverage,
                                         const kip_affineSampleParams *params, kip_affineSampleCache **cache,
                                         uint8_t coverageValue, uint32_t *depth, uint32_t *willClip);

/** Projects an affine rectangle of a 16-bit image, otherwise as #kip_affineProjectClipped. */
KIP_API int32_t kip_affineProjectClipped16(const kimg_imageConst *source, kimg_image *result, kimg_image *coverage,
                                           const kip_affineSampleParams *params, kip_affineSampleCache **cache,
                                           uint8_t coverageValue, uint32_t *depth, uint32_t *willClip);

/**
 * Projects an affine rectangle of an 8-bit window that may reach outside it, as #kip_affineProjectClipped does.
 *
 * source, srcFromClient  as for #kip_affineProjectWindow.
 * result, coverage       32-bit windows, as for #kip_affineProjectWindow.
 * params, cache          as for #kip_affineProject.
 * placement              receives the map from client coordinates to the rows of sums and coverage; written with the
 *                        sums, so possibly also where a later step fails.
 * coverageValue, depth   as for #kip_affineProjectClipped.
 * willClip               as for #kip_affineProjectClipped; written as soon as it is known.
 * Returns as #kip_affineProjectClipped does.
 */
KIP_API int32_t kip_affineProjectClippedWindow(const kimg_windowConst *source, const kmath_xformLinear *srcFromClient,
                                               kimg_window *result, kimg_window *coverage,
                                               const kip_affineSampleParams *params, kip_affineSampleCache **cache,
                                               kmath_xformLinear *placement, uint8_t coverageValue, uint32_t *depth,
                                               uint32_t *willClip);

/** Projects an affine rectangle of a 16-bit window, otherwise as #kip_affineProjectClippedWindow. */
KIP_API int32_t kip_affineProjectClippedWindow16(const kimg_windowConst *source, const kmath_xformLinear *srcFromClient,
                                                 kimg_window *result, kimg_window *coverage,
                                                 const kip_affineSampleParams *params, kip_affineSampleCache **cache,
                                                 kmath_xformLinear *placement, uint8_t coverageValue, uint32_t *depth,
                                                 uint32_t *willClip);

/**
 * Projects an affine rectangle of an 8-bit image and, if asked to, clips it and divides: a rectangle that reaches
 * outside the source then gives means over the samples of each column that lie inside, rounded to nearest; one that
 * does not gives sums all the same. depth tells which.
 *
 * source  bound 8-bit image.
 * result  as for #kip_affineProject.
 * params  the sampling.
 * clip    0: as #kip_affineProject, the rectangle has to lie inside. Else it may reach outside.
 * cache   as for #kip_affineProject.
 * depth   receives destHeight for sums and 1 for means; stays as it is if no column has coverage. May be null.
 * first   receives the first column that result holds and, of means, whose coverage rounds to a sample or more; may be
 *         null. Columns between first and end without coverage hold 0.
 * end     receives the column after the last such one; may be null. It is at most first if there is none.
 * Returns as #kip_affineProject does (clip 0) or as #kip_affineProjectClipped does. first, end and depth are written
 * on success only.
 */
KIP_API int32_t kip_affineProjectNorm(const kimg_imageConst *source, kimg_image *result,
                                      const kip_affineSampleParams *params, uint32_t clip,
                                      kip_affineSampleCache **cache, uint32_t *depth, int32_t *first, int32_t *end);

/** Projects an affine rectangle of a 16-bit image, otherwise as #kip_affineProjectNorm. */
KIP_API int32_t kip_affineProjectNorm16(const kimg_imageConst *source, kimg_image *result,
                                        const kip_affineSampleParams *params, uint32_t clip,
                                        kip_affineSampleCache **cache, uint32_t *depth, int32_t *first, int32_t *end);

/** @} */

#ifdef __cplusplus
}
#endif

#endif
