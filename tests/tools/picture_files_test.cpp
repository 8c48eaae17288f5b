#include "failure.h"
#include "picture_io.h"
#include "sample_values.h"

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <png.h>
#include <tiffio.h>

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

// Kinds of PNG that the tool does not write itself. Transparency must be dropped, not mixed in.
struct PngKind {
    const char *name;
    int colourType, bits;
    uint32_t width;
    std::vector<Bytes> rows;
    Values grey;
};

Bytes writePng(PngKind kind, int interlace)
{
    Bytes file;
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    const auto append = [](png_structp at, png_bytep from, size_t count) {
        auto *to = static_cast<Bytes *>(png_get_io_ptr(at));
        to->insert(to->end(), from, from + count);
    };
    png_set_write_fn(png, &file, append, nullptr);
    png_set_IHDR(png, info, kind.width, static_cast<uint32_t>(kind.rows.size()), kind.bits, kind.colourType, interlace,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    if (kind.colourType == PNG_COLOR_TYPE_PALETTE) {
        const png_color palette[] = {{200, 200, 200}, {10, 20, 30}, {0, 0, 255}};
        const png_byte half = 128;
        png_set_PLTE(png, info, palette, 3);
        png_set_tRNS(png, info, &half, 1, nullptr);
    }
    std::vector<png_bytep> rows;
    for (Bytes &row : kind.rows)
        rows.push_back(row.data());
    png_set_rows(png, info, rows.data());
    png_write_png(png, info, PNG_TRANSFORM_IDENTITY, nullptr);
    png_destroy_write_struct(&png, &info);
    return file;
}

TEST(PictureFiles, OtherKindsOfPng)
{
    const PngKind kinds[] = {
        {"1 bit", PNG_COLOR_TYPE_GRAY, 1, 3, {{0xa0}, {0x40}}, {255, 0, 255, 0, 255, 0}},
        {"2 bits", PNG_COLOR_TYPE_GRAY, 2, 4, {{0x1b}}, {0, 85, 170, 255}},
        {"4 bits", PNG_COLOR_TYPE_GRAY, 4, 3, {{0x1f, 0x50}}, {17, 255, 85}},
        {"palette", PNG_COLOR_TYPE_PALETTE, 2, 3, {{0x18}}, {200, 18, 29}},
        {"grey, alpha", PNG_COLOR_TYPE_GRAY_ALPHA, 8, 2, {{9, 0, 8, 255}}, {9, 8}},
        {"colour, alpha", PNG_COLOR_TYPE_RGB_ALPHA, 8, 1, {{10, 20, 30, 0}}, {18}},
        {"16 bits, alpha", PNG_COLOR_TYPE_GRAY_ALPHA, 16, 1, {{1, 2, 3, 4}}, {0x0102}},
    };
    for (const PngKind &kind : kinds)
        for (const int interlace : {PNG_INTERLACE_NONE, PNG_INTERLACE_ADAM7})
            EXPECT_EQ(valuesOf(toGrey(decodePng(writePng(kind, interlace)))), kind.grey) << kind.name;
}

constexpr uint32_t kTiffWidth = 37, kTiffHeight = 41;

// Kinds of TIFF that the tool does not write itself. Strips are as wide as the picture, tiles narrower.
struct TiffKind {
    const char *name, *mode; // "wb": big-endian, "w8": 64-bit offsets
    uint32_t bits, samplesPerPixel;
    int photometric, planar, compression;
    uint32_t blockWidth, blockHeight;
};

constexpr int kContig = PLANARCONFIG_CONTIG, kSeparate = PLANARCONFIG_SEPARATE;
const TiffKind kTiffKinds[] = {
    {"1 bit", "w", 1, 1, PHOTOMETRIC_MINISWHITE, kContig, COMPRESSION_CCITTFAX4, kTiffWidth, 7},
    {"4 bits, tiles", "w", 4, 1, PHOTOMETRIC_MINISBLACK, kContig, COMPRESSION_PACKBITS, 16, 32},
    {"8 bits, tiles", "w8", 8, 1, PHOTOMETRIC_MINISBLACK, kContig, COMPRESSION_LZW, 16, 32},
    {"16 bits, white is 0", "wb", 16, 1, PHOTOMETRIC_MINISWHITE, kContig, COMPRESSION_LZW, 16, 32},
    {"alpha, planes", "w", 16, 2, PHOTOMETRIC_MINISBLACK, kSeparate, COMPRESSION_NONE, kTiffWidth, 5},
    {"colour, alpha", "w", 8, 4, PHOTOMETRIC_RGB, kContig, COMPRESSION_LZW, kTiffWidth, 3},
    {"colour, planes, tiles", "wb", 16, 3, PHOTOMETRIC_RGB, kSeparate, COMPRESSION_ADOBE_DEFLATE, 16, 32},
    {"palette, tiles", "w", 8, 1, PHOTOMETRIC_PALETTE, kContig, COMPRESSION_LZW, 16, 32},
};

// A file of random strips or tiles, and what its samples mean.
struct TiffFile {
    explicit TiffFile(const TiffKind &itsKind) : kind(itsKind) {}

    const TiffKind &kind;
    std::vector<Bytes> blocks{};
    std::vector<uint16_t> palette[3]{};

    void write(const std::string &path)
    {
        std::mt19937 random(7);
        TIFF *tiff = TIFFOpen(path.c_str(), kind.mode);
        ASSERT_NE(tiff, nullptr);
        const bool isTiled = kind.blockWidth < kTiffWidth;
        TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, kTiffWidth);
        TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, kTiffHeight);
        TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, kind.bits);
        TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, kind.samplesPerPixel);
        TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, kind.photometric);
        TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, kind.planar);
        TIFFSetField(tiff, TIFFTAG_COMPRESSION, kind.compression);
        const uint16_t extra = EXTRASAMPLE_UNASSALPHA;
        if (kind.samplesPerPixel % 2 == 0)
            TIFFSetField(tiff, TIFFTAG_EXTRASAMPLES, 1, &extra);
        for (auto &channel : palette)
            for (uint32_t i = 0; i < 1u << kind.bits; ++i)
                channel.push_back(static_cast<uint16_t>(random()));
        if (kind.photometric == PHOTOMETRIC_PALETTE)
            TIFFSetField(tiff, TIFFTAG_COLORMAP, palette[0].data(), palette[1].data(), palette[2].data());
        if (isTiled)
            TIFFSetField(tiff, TIFFTAG_TILEWIDTH, kind.blockWidth);
        TIFFSetField(tiff, isTiled ? TIFFTAG_TILELENGTH : TIFFTAG_ROWSPERSTRIP, kind.blockHeight);
        blocks.resize(isTiled ? TIFFNumberOfTiles(tiff) : TIFFNumberOfStrips(tiff));
        for (uint32_t i = 0; i < blocks.size(); ++i) {
            const uint32_t y = i * kind.blockHeight % (down() * kind.blockHeight); // of a strip
            const tmsize_t size =
                isTiled ? TIFFTileSize(tiff) : TIFFVStripSize(tiff, std::min(kind.blockHeight, kTiffHeight - y));
            for (tmsize_t byte = 0; byte < size; ++byte)
                blocks[i].push_back(static_cast<uint8_t>(random() >> 7));
            Bytes copy = blocks[i]; // some encoders work in place
            const auto put = isTiled ? TIFFWriteEncodedTile : TIFFWriteEncodedStrip;
            EXPECT_EQ(put(tiff, i, copy.data(), size), size);
        }
        TIFFClose(tiff);
    }

    uint32_t down() const { return (kTiffHeight + kind.blockHeight - 1) / kind.blockHeight; }

    uint32_t stored(uint32_t x, uint32_t y, uint32_t sample) const
    {
        const bool isSeparate = kind.planar == kSeparate;
        const uint32_t across = (kTiffWidth + kind.blockWidth - 1) / kind.blockWidth;
        const uint32_t step = isSeparate ? 1 : kind.samplesPerPixel, first = isSeparate ? 0 : sample;
        const uint32_t plane = isSeparate ? sample : 0;
        const Bytes &block = blocks[(plane * down() + y / kind.blockHeight) * across + x / kind.blockWidth];
        const uint32_t rowBytes = (kind.blockWidth * step * kind.bits + 7) / 8;
        const uint32_t bit = (x % kind.blockWidth * step + first) * kind.bits;
        const uint8_t *at = &block[y % kind.blockHeight * rowBytes + bit / 8];
        uint16_t wide = 0;
        if (kind.bits == 16)
            std::memcpy(&wide, at, sizeof wide);
        return kind.bits == 16 ? wide : *at >> (8 - kind.bits - bit % 8) & ((1u << kind.bits) - 1);
    }

    uint32_t meant(uint32_t x, uint32_t y, uint32_t channel) const
    {
        const uint32_t greatest = (1u << kind.bits) - 1;
        if (kind.photometric == PHOTOMETRIC_PALETTE)
            return palette[channel][stored(x, y, 0)] >> 8;
        const uint32_t value = stored(x, y, channel);
        const uint32_t white = kind.photometric == PHOTOMETRIC_MINISWHITE ? greatest - value : value;
        return kind.bits < 8 ? white * 255 / greatest : white;
    }
};

TEST(PictureFiles, OtherKindsOfTiff)
{
    const std::string path = testing::TempDir() + "kip_tiff_kind.tif";
    for (const TiffKind &kind : kTiffKinds) {
        SCOPED_TRACE(kind.name);
        TiffFile file(kind);
        file.write(path);
        const Picture picture = readPicture(path).picture;
        const uint32_t channels = kind.photometric <= PHOTOMETRIC_MINISBLACK ? 1 : 3;
        ASSERT_EQ(picture.width, static_cast<int32_t>(kTiffWidth));
        ASSERT_EQ(picture.height, static_cast<int32_t>(kTiffHeight));
        ASSERT_EQ(picture.channels, static_cast<int32_t>(channels));
        ASSERT_EQ(depthOf(picture), kind.bits == 16 ? 16 : 8);
        const Values values = valuesOf(picture);
        for (uint32_t i = 0; i < values.size(); ++i) {
            const uint32_t x = i / channels % kTiffWidth, y = i / channels / kTiffWidth;
            ASSERT_EQ(values[i], file.meant(x, y, i % channels)) << x << ", " << y << " channel " << i % channels;
        }
        std::ifstream whole(path, std::ios::binary);
        expectCutsRefused({std::istreambuf_iterator<char>(whole), {}}, 11);
    }
    std::filesystem::remove(path);
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
