#include "failure.h"
#include "picture_io.h"
#include "sample_values.h"

#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <tuple>
#include <utility>

namespace {

using namespace kiptool;
using Bytes = std::vector<uint8_t>;

// Of all that a picture is.
uint64_t digestOf(const Picture &picture)
{
    Values values = valuesOf(picture);
    values.insert(values.begin(), {uint32_t(picture.width), uint32_t(picture.channels), uint32_t(depthOf(picture))});
    uint64_t digest = 0;
    for (const uint32_t value : values)
        digest = (digest ^ value) * 1099511628211u;
    return digest;
}

// The one page of a file.
PictureFile decode(const Bytes &bytes)
{
    PictureFile file{};
    Input input(bytes);
    decodePages(input, kEveryPage, [&file](PictureFile page) { file = std::move(page); });
    EXPECT_EQ(file.pages, 1);
    return file;
}

TEST(PictureFiles, RoundTrips)
{
    for (const auto &[format, encode, mostChannels] :
         {std::tuple{Format::png, &encodePng, 3}, {Format::tiff, &encodeTiff, 3}, {Format::pgm, &encodePgm, 1}})
        for (int32_t channels = 1; channels <= mostChannels; channels += 2)
            for (const int depth : {8, 16})
                for (const auto &[width, height] : {std::pair{1, 1}, {211, 97}, {1000001, 1}, {1, 1000001}}) {
                    if (width * height > 1000000 && channels * depth > 8)
                        continue;
                    const Picture picture = randomPicture(width, height, channels, depth);
                    const PictureFile got = decode(encode(picture));
                    EXPECT_EQ(digestOf(got.picture), digestOf(picture))
                        << formatName(format) << " " << channels << " x " << depth << " bits, width " << width;
                    EXPECT_EQ(got.format, format);
                }
}

TEST(PictureFiles, PgmHeaders)
{
    const auto decodeText = [](const std::string &text) { return decode(Bytes(text.begin(), text.end())).picture; };
    // Values stay as they are stored, whatever the greatest one.
    EXPECT_EQ(valuesOf(decodeText("P5 # comment\n2\t#another\n1\r\n7\nab")), (Values{'a', 'b'}));
    EXPECT_EQ(valuesOf(decodeText("P5 1 1 256 \x01\x02")), (Values{0x0102}));
    EXPECT_EQ(valuesOf(decodeText("P5 1 1 255\n\n")), (Values{'\n'})); // only one separator before the samples
    for (const char *wrong : {"P51 1 255 a", "P5 0 1 255 a", "P5 1 -1 255 a", "P5 1 1 0 a", "P5 1 1 65536 aa",
                              "P5 1 1 255a", "P5 99999999999999999999 1 255 a", "P5 65536 65536 255 a", "P5 1 x 255 a"})
        EXPECT_THROW(decodeText(wrong), Failure) << wrong;
}

TEST(PictureFiles, ColourBecomesGreyByTheStatedFormula)
{
    // 76.245, 149.685, 29.07, 77, 0.886, 28.5
    const Values colours = {255, 0, 0, 0, 255, 0, 0, 0, 255, 77, 77, 77, 1, 1, 0, 0, 0, 250};
    EXPECT_EQ(valuesOf(toGrey(pictureOf(3, 3, 8, colours))), (Values{76, 150, 29, 77, 1, 29}));
    EXPECT_EQ(valuesOf(toGrey(pictureOf(1, 3, 16, {65535, 65535, 65535, 0, 60000, 1}))), (Values{65535, 35220}));
}

// Kinds of files most of which the tool does not write itself; transparency is dropped, not mixed in. Cut anywhere,
// they are refused; nothing is read past the end (the sanitizers watch).
TEST(PictureFiles, OfManyKindsAreReadAndRefusedWhenCut)
{
    const struct {
        const char *name;
        uint64_t digest; // 0: refused
    } rows[] = {{"alpha8.png", 0xa18f73a3ec54d528},
                {"colour16-interlaced.png", 0xa54d493b23cf29e4},
                {"grey1.png", 0x76d570eab910834c},
                {"grey8.png", 0xa9940b02f26b0d2c},
                {"palette4-transparent.png", 0x9537e5b5573299cd},
                {"cmyk.jpg", 0},
                {"colour420.jpg", 0x2502757151701df},
                {"grey.jpg", 0x7ebfa674b4aa6db6},
                {"progressive.jpg", 0x9403a70aab4535d2},
                {"jpeg.tif", 0x2502757151701df},
                {"cmyk.tif", 0xc37b7a2d7f20d192},
                {"colour16-separate.tif", 0x839e03f4c4b30cd8},
                {"deflate-predictor.tif", 0xf70fdd1de822303},
                {"floats.tif", 0},
                {"grey8-strips.tif", 0xb7f1e04d3d72f7e4},
                {"packbits.tif", 0x93106a81d5f07312},
                {"palette4.tif", 0xa8bcf71e890959b2},
                {"tiles.tif", 0xe4216bdcc5a5b95d},
                {"white0-1bit.tif", 0xa86dde46d95b5680},
                {"ycbcr.tif", 0xbb84732bd19bd3e2},
                {"grey8.pgm", 0x6bb2f51bd0e555e1},
                {"grey16.pgm", 0x55f8c05be44560c0}};
    for (const auto &row : rows) {
        std::ifstream file(std::string(KIP_SOURCE_DIR "/fuzz/corpus/pictures/") + row.name, std::ios::binary);
        const Bytes whole{std::istreambuf_iterator<char>(file), {}};
        for (size_t length = 0; length < whole.size() + (row.digest == 0 ? 1 : 0); ++length)
            EXPECT_THROW(decode({whole.begin(), whole.begin() + static_cast<ptrdiff_t>(length)}), Failure)
                << row.name << " " << length;
        if (row.digest != 0) {
            EXPECT_EQ(digestOf(decode(whole).picture), row.digest) << row.name;
        }
    }
}

} // namespace
