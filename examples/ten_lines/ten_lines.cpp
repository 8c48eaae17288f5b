// Straightens a line of text in a picture of 384 x 191 bytes: ten_lines <page.raw >line.raw
#include <iostream>
#include <numbers>
#include <vector>

#include <kip/kip.hpp>

int main()
{
    std::vector<uint8_t> pixels(384 * 191);
    std::cin.read(reinterpret_cast<char *>(pixels.data()), 384 * 191);
    const kip::ImageView<const uint8_t> page(pixels, 384, 191);                                 // no copy
    const auto line = kip::AffineRect::fromCenter({89, 127.5}, 172, 21, std::numbers::pi / 80); // 2.25 degrees
    const kip::Image<uint8_t> straight = kip::transform(page, line); // bilinear, one sample a pixel
    for (int32_t y = 0; y < straight.height(); ++y)
        std::cout.write(reinterpret_cast<const char *>(straight.row(y).data()), straight.width());
}
