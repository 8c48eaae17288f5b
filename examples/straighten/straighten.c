/* Straightens a slanted bar code and prints the picture before and after. */

#include <stddef.h>
#include <stdio.h>

#include <kip/kip.h>

enum { kWidth = 44, kHeight = 25 };

/* Stands for the camera: a bar code at (5, 2), three pixels a module, slanted along (12, 5). */
static void takePicture(uint8_t picture[kHeight][kWidth])
{
    static const char modules[] = "##.#..##.#.##";
    for (int row = 0; row < kHeight; ++row) {
        for (int column = 0; column < kWidth; ++column) {
            const double x = column + 0.5 - 5;
            const double y = row + 0.5 - 2;
            const double along = (12 * x + 5 * y) / 13;
            const double across = (12 * y - 5 * x) / 13;
            const int onCode = along >= 0 && along < 39 && across >= 0 && across < 8;
            picture[row][column] = onCode && modules[(int)along / 3] == '#' ? 20 : 230;
        }
    }
}

static void print(const kimg_image *image)
{
    kimg_windowConst window;
    kimg_windowConst_init(&window, image);
    for (int row = 0; row < window.height; ++row) {
        const uint8_t *pixels = (const uint8_t *)window.pixels + (ptrdiff_t)row * window.pitch;
        for (int column = 0; column < window.width; ++column)
            putchar(pixels[column] < 128 ? '#' : '.');
        putchar('\n');
    }
}

int main(void)
{
    static uint8_t picture[kHeight][kWidth];
    takePicture(picture);

    /* The source is a view of the caller's memory; the transform gives the destination its pixels. */
    kimg_imageConst source;
    kimg_image straight;
    kimg_image_constructUnbound(&straight);
    int32_t status = kimg_imageConst_constructExternal(&source, 1, kWidth, kHeight, kWidth, picture);

    /* The bar code's place: its origin, the end of its x side and the end of its y side. */
    const kmath_shapeAffineRectPoints corners = {{5, 2}, {41, 17}, {2.5, 8}};
    kmath_shapeAffineRect code;
    if (status >= 0)
        status = kmath_shapeAffineRect_initPoints(&code, &corners);

    /* Bilinear, one sample for each pixel along either side: 39 x 7. */
    kip_affineSampleParams params;
    if (status >= 0)
        status = kip_affineSampleParams_initRectStandard(&params, &code, NULL);
    if (status >= 0)
        status = kip_affineTransform(&source, &straight, &params, NULL);

    if (status >= 0) {
        print(&source);
        print(&straight);
    } else {
        fprintf(stderr, "straighten: %s: %s\n", kprt_statusName(status), kprt_statusText(status));
    }
    kimg_image_destruct(&straight);
    kimg_image_destruct(&source);
    return status < 0;
}
