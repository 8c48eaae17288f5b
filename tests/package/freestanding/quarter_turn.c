/* Links with the two libraries and nothing else, not even a C runtime: turns a picture by a quarter. The status of the
 * program is 42 when the picture is right. Functions and the one variable of both libraries are imported. */

#include <kip/kip.h>

int _fltused; /* compilers for Windows ask a C runtime for it where a file has floating point */

static int isTurned(const kimg_image *image)
{
    static const uint8_t expected[3][2] = {{4, 1}, {5, 2}, {6, 3}};
    kimg_windowConst window;
    if (kimg_windowConst_init(&window, image) < 0 || window.width != 2 || window.height != 3)
        return 0;
    for (int row = 0; row < 3; ++row) {
        for (int column = 0; column < 2; ++column) {
            if (((const uint8_t *)window.pixels)[row * window.pitch + column] != expected[row][column])
                return 0;
        }
    }
    return 1;
}

int mainCRTStartup(void)
{
    static const uint8_t pixels[2][3] = {{1, 2, 3}, {4, 5, 6}};
    const kmath_shapeAffineRectPoints corners = {{0, 2}, {0, 0}, {3, 2}};
    kimg_imageConst source;
    kimg_image turned;
    kmath_shapeAffineRect whole;
    kip_affineSampleParams params;
    if (kprt_isOptimizationInhibitedFP != 0)
        return 1;
    kimg_image_constructUnbound(&turned);
    if (kimg_imageConst_constructExternal(&source, 1, 3, 2, 3, pixels) < 0 ||
        kmath_shapeAffineRect_initPoints(&whole, &corners) < 0 ||
        kip_affineSampleParams_initRectStandard(&params, &whole, NULL) < 0 ||
        kip_affineTransform(&source, &turned, &params, NULL) < 0)
        return 2;
    const int status = isTurned(&turned) ? 42 : 3;
    kimg_image_destruct(&turned);
    kimg_image_destruct(&source);
    return status;
}
