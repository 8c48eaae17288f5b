// Straightens a slanted bar code and prints the picture before and after.

#include <array>
#include <cstddef>
#include <exception>
#include <iostream>
#include <stdexcept>
#include <string>
#include <string_view>

#include <kip/kip.h>

namespace {

constexpr int kWidth = 44;
constexpr int kHeight = 25;
using Picture = std::array<std::array<uint8_t, kWidth>, kHeight>;

// Stands for the camera: a bar code at (5, 2), three pixels a module, slanted along (12, 5).
Picture takePicture()
{
    constexpr std::string_view modules = "##.#..##.#.##";
    Picture picture;
    for (int row = 0; row < kHeight; ++row) {
        for (int column = 0; column < kWidth; ++column) {
            const double x = column + 0.5 - 5;
            const double y = row + 0.5 - 2;
            const double along = (12 * x + 5 * y) / 13;
            const double across = (12 * y - 5 * x) / 13;
            const bool onCode = along >= 0 && along < 39 && across >= 0 && across < 8;
            picture[row][column] = onCode && modules[static_cast<int>(along) / 3] == '#' ? 20 : 230;
        }
    }
    return picture;
}

// Every function returns a status; negative is failure.
void check(int32_t status)
{
    if (status < 0)
        throw std::runtime_error(std::string(kprt_statusName(status)) + ": " + kprt_statusText(status));
}

// An image that lets go of its pixels at the end of its scope.
struct Image : kimg_image {
    Image() { kimg_image_constructUnbound(this); }
    ~Image() { kimg_image_destruct(this); }
    Image(const Image &) = delete;
    Image &operator=(const Image &) = delete;
};

void print(const Image &image)
{
    kimg_windowConst window;
    check(kimg_windowConst_init(&window, &image));
    for (int row = 0; row < window.height; ++row) {
        const auto *pixels = static_cast<const uint8_t *>(window.pixels) + std::ptrdiff_t{row} * window.pitch;
        for (int column = 0; column < window.width; ++column)
            std::cout << (pixels[column] < 128 ? '#' : '.');
        std::cout << '\n';
    }
}

void straighten()
{
    // The source is a view of the caller's memory; the transform gives the destination its pixels.
    const Picture picture = takePicture();
    Image source;
    Image straight;
    check(kimg_imageConst_constructExternal(&source, 1, kWidth, kHeight, kWidth, picture.data()));

    // The bar code's place: its origin, the end of its x side and the end of its y side.
    const kmath_shapeAffineRectPoints corners = {{5, 2}, {41, 17}, {2.5, 8}};
    kmath_shapeAffineRect code;
    check(kmath_shapeAffineRect_initPoints(&code, &corners));

    // Bilinear, one sample for each pixel along either side: 39 x 7.
    kip_affineSampleParams params;
    check(kip_affineSampleParams_initRectStandard(&params, &code, nullptr));
    check(kip_affineTransform(&source, &straight, &params, nullptr));

    print(source);
    print(straight);
}

} // namespace

int main()
{
    try {
        straighten();
    } catch (const std::exception &failure) {
        std::cerr << "straighten: " << failure.what() << '\n';
        return 1;
    }
}
