#ifndef KSTD_KSTD_H
#define KSTD_KSTD_H

/**
 * @file
 * Containers: integer rectangles and growable vectors of unsigned 32-bit values.
 *
 * A status is an int32_t: negative is failure, zero or positive success.
 */

#include <stdint.h>

#include <kstd/kservices_api.h>

KSERVICES_BEGIN_C

/** Statuses of the containers. */
enum {
    kstd_statusNegativeSize = (int32_t)0x80000401u, /**< A size or count below 0. */
    kstd_statusTooLarge = (int32_t)0x80000402u      /**< An extent or a count that 32 bits cannot hold. */
};

/** A rectangle of whole pixels, covering [x, x + width) by [y, y + height). */
typedef struct {
    int32_t x;      /**< left column */
    int32_t y;      /**< top row */
    int32_t width;  /**< columns */
    int32_t height; /**< rows */
} kstd_rect32;

/**
 * Fills a rectangle.
 *
 * rect    receives the four values.
 * x, y    left column and top row.
 * width, height  size in pixels, not below 0.
 * Returns 0; #kstd_statusNegativeSize for a size below 0 and #kstd_statusTooLarge when x + width or
 * y + height leaves 32 bits, the rectangle then untouched.
 */
KSERVICES_API int32_t kstd_rect32_init(kstd_rect32 *rect, int32_t x, int32_t y, int32_t width, int32_t height);

/**
 * Compares two rectangles.
 *
 * a, b    the rectangles.
 * result  receives 0 when all four values are equal, nonzero when they differ.
 * Returns 0.
 */
KSERVICES_API int32_t kstd_rect32_compare(const kstd_rect32 *a, const kstd_rect32 *b, int32_t *result);

/** A growable array of unsigned 32-bit values; its owner constructs and destructs it. */
typedef struct {
    uint32_t *begin;  /**< private: the elements, null while none was ever stored */
    int32_t size;     /**< private: elements in use */
    int32_t capacity; /**< private: elements there is room for */
} kstd_vector32;

/**
 * Makes an empty vector; takes no memory.
 *
 * vector  the record to initialise.
 * Returns 0.
 */
KSERVICES_API int32_t kstd_vector32_construct(kstd_vector32 *vector);

/**
 * Frees a vector's memory and leaves it empty.
 *
 * vector  a constructed vector.
 * Returns 0.
 */
KSERVICES_API int32_t kstd_vector32_destruct(kstd_vector32 *vector);

/**
 * Sets a vector's length. Elements that stay keep their values, new ones are 0. A vector that shrinks keeps its
 * memory for the next time it grows.
 *
 * vector  a constructed vector.
 * count   the new number of elements, not below 0.
 * Returns 0; #kstd_statusNegativeSize, or the status of the failed allocation, the vector then untouched.
 */
KSERVICES_API int32_t kstd_vector32_resize(kstd_vector32 *vector, int32_t count);

/**
 * Tells where a vector's elements are; the address holds until the next resize.
 *
 * vector  a constructed vector.
 * begin   receives the address of the first element, null for a vector that never held one.
 * Returns 0.
 */
KSERVICES_API int32_t kstd_vector32_getBegin(kstd_vector32 *vector, uint32_t **begin);

/**
 * Tells a vector's length.
 *
 * vector  a constructed vector.
 * size    receives the number of elements.
 * Returns 0.
 */
KSERVICES_API int32_t kstd_vector32_getSize(const kstd_vector32 *vector, int32_t *size);

KSERVICES_END_C

#endif
