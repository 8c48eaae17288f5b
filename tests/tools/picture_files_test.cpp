#include "failure.h"
#include "picture_io.h"
#include "sample_values.h"

#include <algorithm>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>

namespace {

using namespace kiptool;
using Bytes = std::vector<uint8_t>;

// A file that was cut anywhere is refused; nothing is read past its end (the sanitizers watch).
void expectCutsRefused(const Bytes &whole, size_t step)
{
    for (size_t length = 0; length < whole.size(); length += step) {
        const Bytes cut(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(length));
        Format format{};
        EXPECT_THROW(decodePicture(cut, &format), Failure) << "cut to " << length;
    }
}

TEST(PictureFiles, RoundTripsAndCuts)
{
    const struct {
        Format format;
        Bytes (*encode)(const Picture &);
        int32_t mostChannels;
    } rows[] = {{Format::png, encodePng, 3}, {Format::tiff, encodeTiff, 3}, {Format::pgm, encodePgm, 1}};
    for (const auto &row : rows)
        for (int32_t channels = 1; channels <= row.mostChannels; channels += 2)
            for (const int depth : {8, 16})
                for (const auto &[width, height] : {std::pair{1, 1}, {13, 5}, {211, 97}, {1000001, 1}, {1, 1000001}}) {
                    if (width * height > 1000000 && channels * depth > 8)
                        continue;
                    SCOPED_TRACE(testing::Message() << formatName(row.format) << " " << channels << " x " << depth
                                                    << " bits, width " << width);
                    const Picture picture = randomPicture(width, height, channels, depth);
                    const Bytes file = row.encode(picture);
                    Format format{};
                    const Picture back = decodePicture(file, &format);
                    EXPECT_EQ(format, row.format);
                    EXPECT_EQ(back.width, width);
                    EXPECT_EQ(back.height, height);
                    EXPECT_EQ(back.channels, channels);
                    EXPECT_TRUE(back.samples == picture.samples);
                    if (width == 13)
                        expectCutsRefused(file, 1);
                }
}

TEST(PictureFiles, PgmHeaders)
{
    const auto decode = [](const std::string &text) { return decodePgm(Bytes(text.begin(), text.end())); };
    // Values stay as they are stored, whatever the greatest one.
    EXPECT_EQ(valuesOf(decode("P5 # comment\n2\t#another\n1\r\n7\nab")), (Values{'a', 'b'}));
    EXPECT_EQ(valuesOf(decode("P5 1 1 256 \x01\x02")), (Values{0x0102}));
    EXPECT_EQ(valuesOf(decode("P5 1 1 255\n\n")), (Values{'\n'})); // only one separator before the samples
    for (const char *wrong :
         {"P5", "P51 1 255 a", "P5 0 1 255 a", "P5 1 -1 255 a", "P5 1 1 0 a", "P5 1 1 65536 aa", "P5 1 1 255a",
          "P5 99999999999999999999 1 255 a", "P5 65536 65536 255 a", "P5 1 x 255 a", "P5 2 1 256 aaa", "P5 1 1 255"})
        EXPECT_THROW(decode(wrong), Failure) << wrong;
}

TEST(PictureFiles, ColourBecomesGreyByTheStatedFormula)
{
    // 76.245, 149.685, 29.07, 77, 0.886, 18.15
    const Values colours = {255, 0, 0, 0, 255, 0, 0, 0, 255, 77, 77, 77, 1, 1, 0, 10, 20, 30};
    EXPECT_EQ(valuesOf(toGrey(pictureOf(3, 3, 8, colours))), (Values{76, 150, 29, 77, 1, 18}));
    EXPECT_EQ(valuesOf(toGrey(pictureOf(1, 3, 16, {65535, 65535, 65535, 0, 60000, 1}))), (Values{65535, 35220}));
}

// Kinds of files that the tool does not write itself. Transparency is dropped, not mixed in.
TEST(PictureFiles, OtherKinds)
{
    const struct {
        const char *name;
        int32_t width, channels;
        int depth;
        Values values;
    } rows[] = {
        {"alpha8.png", 3, 3, 8, {36, 39, 158, 81, 213, 129, 4,  19,  111, 19, 193, 102, 69, 42,
                                 67, 65, 95,  10, 18,  201, 12, 213, 51,  92, 124, 164, 183}},
        {"colour16-interlaced.png", 5, 3, 16, {55310, 29152, 64887, 64015, 61462, 40393, 13151, 38717, 43736, 22358,
                                               29702, 26230, 30320, 60308, 3029,  26323, 63670, 54449, 26236, 58052,
                                               18699, 49834, 25812, 27957, 51857, 27491, 60606, 751,   7159,  3859,
                                               24987, 37375, 51473, 11707, 25492, 20520, 22039, 24531, 8652,  34033,
                                               17769, 20745, 5443,  16138, 29845, 33366, 35734, 59556, 32840, 50594,
                                               34665, 12063, 9510,  48874, 39676, 12185, 51125, 58382, 33149, 41253}},
        {"grey1.png", 11, 1, 8, {0,   0,   255, 255, 0, 255, 0, 0, 255, 255, 0,   0,   0,   0,   0,   255, 0,
                                 255, 255, 0,   0,   0, 0,   0, 0, 0,   255, 255, 255, 255, 255, 255, 0}},
        {"grey8.png", 5, 1, 8, {32, 162, 222, 219, 193, 210, 37, 177, 191, 206, 70, 54, 87, 19, 229}},
        {"palette4-transparent.png", 6, 3, 8, {42, 43, 44, 18, 19, 20, 15, 16, 17, 24, 25, 26, 18, 19, 20, 21, 22, 23,
                                               3,  4,  5,  21, 22, 23, 3,  4,  5,  3,  4,  5,  15, 16, 17, 30, 31, 32,
                                               15, 16, 17, 21, 22, 23, 21, 22, 23, 39, 40, 41, 21, 22, 23, 6,  7,  8}},
        {"cmyk.tif", 3, 3, 8, {96, 117, 27, 0, 4, 2, 63, 43, 16, 1, 12, 30, 86, 117, 79, 11, 32, 18}},
        {"colour16-separate.tif",
         3,
         3,
         16,
         {14997, 16558, 36151, 30970, 15041, 6039, 17717, 10098, 1543, 42004, 10632, 11987, 53285, 47767, 14868, 49739,
          15082, 24698}},
        {"deflate-predictor.tif", 4, 3, 8, {4, 194, 249, 43,  144, 210, 63,  68,  188, 66, 165, 85,
                                            2, 61,  154, 163, 205, 108, 116, 106, 83,  14, 173, 54}},
        {"grey8-strips.tif", 5, 1, 8, {109, 136, 49, 194, 176, 248, 120, 33,  20,  43,
                                       68,  86,  85, 109, 137, 170, 130, 188, 173, 174}},
        {"packbits.tif", 6, 1, 8, {7, 7, 7, 7, 7, 7, 1, 2, 3, 4, 5, 6}},
        {"palette4.tif", 5, 3, 8, {52,  200, 101, 85,  151, 93,  244, 162, 45,  52,  200, 101, 193, 204, 184,
                                   82,  20,  240, 123, 163, 106, 150, 32,  41,  52,  200, 101, 123, 163, 106,
                                   150, 32,  41,  59,  13,  182, 193, 204, 184, 129, 32,  143, 52,  200, 101}},
        {"tiles.tif", 17, 1, 8, {124, 205, 37,  137, 36,  38,  11,  5,   148, 183, 252, 240, 78,  51,  167, 39,  125,
                                 88,  91,  76,  72,  163, 156, 54,  150, 64,  105, 72,  16,  161, 105, 91,  153, 70,
                                 221, 80,  24,  126, 129, 32,  228, 220, 128, 224, 232, 5,   202, 173, 87,  132, 95,
                                 248, 12,  213, 9,   31,  181, 70,  64,  70,  132, 141, 203, 205, 88,  45,  119, 253,
                                 248, 3,   90,  162, 224, 115, 122, 160, 253, 245, 115, 211, 172, 140, 112, 24,  40}},
        {"white0-1bit.tif", 9, 1, 8, {0, 255, 0, 255, 0,   255, 0, 0, 255, 255, 255, 0,   255, 0,
                                      0, 0,   0, 255, 255, 0,   0, 0, 255, 255, 255, 255, 255}},
        {"ycbcr.tif", 4, 3, 8, {0, 119, 229, 0, 131, 241, 73, 255, 0, 100, 255, 4,
                                0, 177, 255, 0, 52,  162, 90, 255, 0, 29,  244, 0}},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        std::ifstream file(std::string(KIP_SOURCE_DIR "/fuzz/corpus/pictures/") + row.name, std::ios::binary);
        const Bytes whole{std::istreambuf_iterator<char>(file), {}};
        Format format{};
        const Picture picture = decodePicture(whole, &format);
        EXPECT_EQ(picture.width, row.width);
        EXPECT_EQ(picture.channels, row.channels);
        EXPECT_EQ(depthOf(picture), row.depth);
        EXPECT_EQ(valuesOf(picture), row.values);
        expectCutsRefused(whole, 1);
    }
}

TEST(PictureFiles, TiffOfFloatsIsRefused)
{
    Bytes file = encodeTiff(randomPicture(4, 4, 1, 16));
    // The tag "sample format", type short, one value: unsigned becomes floating point.
    const Bytes tag = {0x53, 0x01, 3, 0, 1, 0, 0, 0, 1, 0};
    const auto at = std::search(file.begin(), file.end(), tag.begin(), tag.end());
    ASSERT_NE(at, file.end());
    at[8] = 3;
    EXPECT_THROW(decodeTiff(file), Failure);
}

} // namespace
