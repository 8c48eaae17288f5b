// Straightens a slanted bar code and prints the picture before and after.

#include <array>
#include <cstdint>
#include <iostream>
#include <string_view>

#include <kip/kip.hpp>

namespace {

constexpr int kWidth = 44;
constexpr int kHeight = 25;
using Picture = std::array<uint8_t, kWidth * kHeight>;

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
            picture[row * kWidth + column] = onCode && modules[static_cast<int>(along) / 3] == '#' ? 20 : 230;
        }
    }
    return picture;
}

void print(const kip::ImageView<const uint8_t> &image)
{
    for (int row = 0; row < image.height(); ++row) {
        for (const uint8_t pixel : image.row(row))
            std::cout << (pixel < 128 ? '#' : '.');
        std::cout << '\n';
    }
}

} // namespace

int main()
{
    const Picture picture = takePicture();
    const kip::ImageView<const uint8_t> source(picture, kWidth, kHeight); // no copy

    // The bar code's place: its origin, the end of its x side and the end of its y side.
    const auto code = kip::AffineRect::fromCorners({5, 2}, {41, 17}, {2.5, 8});
    try {
        print(source);
        print(kip::transform(source, code)); // bilinear, one sample for each pixel along either side: 39 x 7
    } catch (const kip::Error &error) {
        std::cerr << "straighten: " << error.what() << '\n';
        return 1;
    }
}
