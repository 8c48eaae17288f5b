#include "failure.h"
#include "picture_io.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <png.h>
#include <random>
#include <tiffio.h>

namespace {

using namespace kiptool;
using Bytes = std::vector<uint8_t>;

Picture randomPicture(int32_t width, int32_t height, int32_t channels, int depth, uint32_t seed)
{
    Picture picture = makePicture(width, height, channels, depth);
    std::mt19937 random(seed);
    std::visit(
        [&random](auto &samples) {
            for (auto &sample : samples)
                sample = static_cast<std::decay_t<decltype(sample)>>(random());
        },
        picture.samples);
    return picture;
}

Bytes encode(Format format, const Picture &picture)
{
    return format == Format::png    ? encodePng(picture)
           : format == Format::tiff ? encodeTiff(picture)
                                    : encodePgm(picture);
}

Bytes fileContent(const std::string &path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

struct RoundTrip {
    Format format;
    int32_t channels;
    int depth;
};

const RoundTrip kRoundTrips[] = {
    {Format::png, 1, 8},   {Format::png, 1, 16}, {Format::png, 3, 8},   {Format::png, 3, 16}, {Format::tiff, 1, 8},
    {Format::tiff, 1, 16}, {Format::tiff, 3, 8}, {Format::tiff, 3, 16}, {Format::pgm, 1, 8},  {Format::pgm, 1, 16}};

TEST(PictureFiles, RoundTrip)
{
    for (const RoundTrip &c : kRoundTrips) {
        for (const auto &[width, height] : {std::pair{1, 1}, {7, 3}, {211, 97}}) {
            SCOPED_TRACE(std::string(formatName(c.format)) + " " + std::to_string(c.channels) + " x " +
                         std::to_string(c.depth) + " bits, width " + std::to_string(width));
            const Picture picture = randomPicture(width, height, c.channels, c.depth, 5);
            Format format{};
            const Picture back = decodePicture(encode(c.format, picture), &format);
            EXPECT_EQ(format, c.format);
            EXPECT_EQ(back.width, width);
            EXPECT_EQ(back.height, height);
            EXPECT_EQ(back.channels, c.channels);
            EXPECT_TRUE(back.samples == picture.samples);
        }
    }
}

TEST(PictureFiles, PgmHeaders)
{
    const auto decode = [](const std::string &text) { return decodePgm(Bytes(text.begin(), text.end())); };
    // Values stay as they are stored, whatever the greatest one.
    EXPECT_EQ(samples8(decode("P5 # comment\n2\t#another\n1\r\n7\nab")), (Bytes{'a', 'b'}));
    EXPECT_EQ(std::get<1>(decode("P5 1 1 256 \x01\x02").samples), (std::vector<uint16_t>{0x0102}));
    EXPECT_EQ(samples8(decode("P5 1 1 255\n\n")), (Bytes{'\n'})); // only one separator before the samples
    for (const char *wrong :
         {"P5", "P51 1 255 a", "P5 0 1 255 a", "P5 1 -1 255 a", "P5 1 1 0 a", "P5 1 1 65536 aa", "P5 1 1 255a",
          "P5 99999999999999999999 1 255 a", "P5 65536 65536 255 a", "P5 1 x 255 a", "P5 2 1 256 aaa", "P5 1 1 255"})
        EXPECT_THROW(decode(wrong), Failure) << wrong;
}

TEST(PictureFiles, ColourBecomesGreyByTheStatedFormula)
{
    Picture picture = makePicture(6, 1, 3, 8);
    samples8(picture) = {255, 0, 0, 0, 255, 0, 0, 0, 255, 77, 77, 77, 1, 1, 0, 10, 20, 30};
    // 76.245, 149.685, 29.07, 77, 0.886, 18.15
    EXPECT_EQ(samples8(toGrey(picture)), (Bytes{76, 150, 29, 77, 1, 18}));
    Picture wide = makePicture(2, 1, 3, 16);
    wide.samples = std::vector<uint16_t>{65535, 65535, 65535, 0, 60000, 1};
    EXPECT_EQ(std::get<1>(toGrey(wide).samples), (std::vector<uint16_t>{65535, 35220}));
}

// Kinds of PNG that the tool does not write itself.
struct PngKind {
    const char *name;
    int colourType, bits, interlace;
};

Bytes writePng(const PngKind &kind, uint32_t width, const std::vector<Bytes> &rows,
               const std::vector<png_color> &palette)
{
    Bytes file;
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    png_set_write_fn(
        png, &file,
        [](png_structp at, png_bytep from, size_t count) {
            auto *to = static_cast<Bytes *>(png_get_io_ptr(at));
            to->insert(to->end(), from, from + count);
        },
        nullptr);
    png_set_IHDR(png, info, width, static_cast<uint32_t>(rows.size()), kind.bits, kind.colourType, kind.interlace,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    if (!palette.empty()) {
        png_set_PLTE(png, info, palette.data(), static_cast<int>(palette.size()));
        const png_byte half = 128; // transparency must be dropped, not mixed in
        png_set_tRNS(png, info, &half, 1, nullptr);
    }
    png_write_info(png, info);
    std::vector<const png_byte *> pointers;
    for (const Bytes &row : rows)
        pointers.push_back(row.data());
    png_set_interlace_handling(png);
    png_write_image(png, const_cast<png_bytepp>(pointers.data()));
    png_write_end(png, nullptr);
    png_destroy_write_struct(&png, &info);
    return file;
}

TEST(PictureFiles, OtherKindsOfPng)
{
    const std::vector<png_color> palette = {{200, 200, 200}, {10, 20, 30}, {0, 0, 255}};
    for (const int interlace : {PNG_INTERLACE_NONE, PNG_INTERLACE_ADAM7}) {
        const struct {
            PngKind kind;
            uint32_t width;
            std::vector<Bytes> rows;
            Bytes grey;
        } rows[] = {
            {{"1 bit", PNG_COLOR_TYPE_GRAY, 1, interlace}, 3, {{0xa0}, {0x40}}, {255, 0, 255, 0, 255, 0}},
            {{"2 bits", PNG_COLOR_TYPE_GRAY, 2, interlace}, 4, {{0x1b}}, {0, 85, 170, 255}},
            {{"4 bits", PNG_COLOR_TYPE_GRAY, 4, interlace}, 3, {{0x1f, 0x50}}, {17, 255, 85}},
            {{"palette", PNG_COLOR_TYPE_PALETTE, 2, interlace}, 3, {{0x18}}, {200, 18, 29}},
            {{"grey, alpha", PNG_COLOR_TYPE_GRAY_ALPHA, 8, interlace}, 2, {{9, 0, 8, 255}}, {9, 8}},
            {{"colour, alpha", PNG_COLOR_TYPE_RGB_ALPHA, 8, interlace}, 1, {{10, 20, 30, 0}}, {18}},
        };
        for (const auto &row : rows) {
            const bool hasPalette = row.kind.colourType == PNG_COLOR_TYPE_PALETTE;
            const Bytes file = writePng(row.kind, row.width, row.rows, hasPalette ? palette : std::vector<png_color>{});
            EXPECT_EQ(samples8(toGrey(decodePng(file))), row.grey) << row.kind.name;
        }
        const Picture wide =
            decodePng(writePng({"16 bits, alpha", PNG_COLOR_TYPE_GRAY_ALPHA, 16, interlace}, 1, {{1, 2, 3, 4}}, {}));
        EXPECT_EQ(std::get<1>(wide.samples), (std::vector<uint16_t>{0x0102}));
    }
}

// Kinds of TIFF that the tool does not write itself.
struct TiffKind {
    const char *name;
    uint16_t bits, samplesPerPixel, photometric, planar, compression;
    uint32_t rowsPerStrip; // 0: tiles of 16 x 32
    const char *mode;      // "wb": big-endian, "w8": 64-bit offsets
};

const TiffKind kTiffKinds[] = {
    {"1 bit, white is 0", 1, 1, PHOTOMETRIC_MINISWHITE, PLANARCONFIG_CONTIG, COMPRESSION_CCITTFAX4, 7, "w"},
    {"4 bits, tiles", 4, 1, PHOTOMETRIC_MINISBLACK, PLANARCONFIG_CONTIG, COMPRESSION_PACKBITS, 0, "w"},
    {"8 bits, tiles", 8, 1, PHOTOMETRIC_MINISBLACK, PLANARCONFIG_CONTIG, COMPRESSION_LZW, 0, "w8"},
    {"16 bits, white is 0", 16, 1, PHOTOMETRIC_MINISWHITE, PLANARCONFIG_CONTIG, COMPRESSION_LZW, 0, "wb"},
    {"grey with alpha, planes", 16, 2, PHOTOMETRIC_MINISBLACK, PLANARCONFIG_SEPARATE, COMPRESSION_NONE, 5, "w"},
    {"colour with alpha", 8, 4, PHOTOMETRIC_RGB, PLANARCONFIG_CONTIG, COMPRESSION_LZW, 3, "w"},
    {"colour, planes, tiles", 16, 3, PHOTOMETRIC_RGB, PLANARCONFIG_SEPARATE, COMPRESSION_ADOBE_DEFLATE, 0, "wb"},
    {"palette, tiles", 8, 1, PHOTOMETRIC_PALETTE, PLANARCONFIG_CONTIG, COMPRESSION_LZW, 0, "w"},
};

constexpr uint32_t kTiffWidth = 37, kTiffHeight = 41;

// The stored value of a sample and, for palettes, its colours.
uint32_t storedSample(const TiffKind &kind, uint32_t x, uint32_t y, uint32_t sample)
{
    return ((x * 2654435761u) ^ (y * 40503u + sample * 977u) ^ (y << 7)) >> 5 & ((1u << kind.bits) - 1);
}

uint16_t paletteEntry(uint32_t index, uint32_t channel)
{
    return static_cast<uint16_t>(index * 251 + channel * 9000 + 77);
}

uint32_t expectedSample(const TiffKind &kind, uint32_t x, uint32_t y, uint32_t channel)
{
    const uint32_t greatest = (1u << kind.bits) - 1;
    if (kind.photometric == PHOTOMETRIC_PALETTE)
        return paletteEntry(storedSample(kind, x, y, 0), channel) >> 8;
    const uint32_t stored = storedSample(kind, x, y, channel);
    const uint32_t value = kind.photometric == PHOTOMETRIC_MINISWHITE ? greatest - stored : stored;
    return kind.bits < 8 ? value * 255 / greatest : value;
}

void pack(const TiffKind &kind, Bytes &row, size_t index, uint32_t value)
{
    if (kind.bits == 16) {
        reinterpret_cast<uint16_t *>(row.data())[index] = static_cast<uint16_t>(value);
        return;
    }
    const size_t bit = index * kind.bits;
    row[bit / 8] = static_cast<uint8_t>(row[bit / 8] | value << (8 - kind.bits - bit % 8));
}

// Writes rows x0.. y0.. of a block of some size; what lies outside the picture stays 0.
Bytes blockOf(const TiffKind &kind, size_t rowBytes, uint32_t x0, uint32_t y0, uint32_t width, uint32_t height,
              uint32_t plane)
{
    Bytes block;
    const bool separate = kind.planar == PLANARCONFIG_SEPARATE;
    const uint32_t samples = separate ? 1 : kind.samplesPerPixel;
    for (uint32_t y = y0; y < y0 + height; ++y) {
        Bytes row(rowBytes);
        for (uint32_t x = x0; y < kTiffHeight && x < std::min(kTiffWidth, x0 + width); ++x)
            for (uint32_t s = 0; s < samples; ++s)
                pack(kind, row, (x - x0) * samples + s, storedSample(kind, x, y, separate ? plane : s));
        block.insert(block.end(), row.begin(), row.end());
    }
    return block;
}

void writeTiff(const std::string &path, const TiffKind &kind)
{
    TIFF *tiff = TIFFOpen(path.c_str(), kind.mode);
    ASSERT_NE(tiff, nullptr);
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
    std::vector<uint16_t> maps[3];
    for (uint32_t channel = 0; channel < 3; ++channel)
        for (uint32_t i = 0; i < 1u << kind.bits; ++i)
            maps[channel].push_back(paletteEntry(i, channel));
    if (kind.photometric == PHOTOMETRIC_PALETTE)
        TIFFSetField(tiff, TIFFTAG_COLORMAP, maps[0].data(), maps[1].data(), maps[2].data());
    const uint32_t planes = kind.planar == PLANARCONFIG_SEPARATE ? kind.samplesPerPixel : 1;
    if (kind.rowsPerStrip == 0) {
        TIFFSetField(tiff, TIFFTAG_TILEWIDTH, 16);
        TIFFSetField(tiff, TIFFTAG_TILELENGTH, 32);
        const auto rowBytes = static_cast<size_t>(TIFFTileRowSize(tiff));
        for (uint32_t plane = 0; plane < planes; ++plane)
            for (uint32_t y = 0; y < kTiffHeight; y += 32)
                for (uint32_t x = 0; x < kTiffWidth; x += 16) {
                    Bytes block = blockOf(kind, rowBytes, x, y, 16, 32, plane);
                    ASSERT_GE(TIFFWriteTile(tiff, block.data(), x, y, 0, static_cast<uint16_t>(plane)), 0);
                }
    } else {
        TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, kind.rowsPerStrip);
        const auto rowBytes = static_cast<size_t>(TIFFScanlineSize(tiff));
        for (uint32_t plane = 0; plane < planes; ++plane)
            for (uint32_t y = 0; y < kTiffHeight; ++y) {
                Bytes row = blockOf(kind, rowBytes, 0, y, kTiffWidth, 1, plane);
                ASSERT_EQ(TIFFWriteScanline(tiff, row.data(), y, static_cast<uint16_t>(plane)), 1);
            }
    }
    TIFFClose(tiff);
}

TEST(PictureFiles, OtherKindsOfTiff)
{
    const std::string path = testing::TempDir() + "kip_tiff_kind.tif";
    for (const TiffKind &kind : kTiffKinds) {
        SCOPED_TRACE(kind.name);
        writeTiff(path, kind);
        const Picture picture = readPicture(path).picture;
        ASSERT_EQ(picture.width, static_cast<int32_t>(kTiffWidth));
        ASSERT_EQ(picture.height, static_cast<int32_t>(kTiffHeight));
        ASSERT_EQ(picture.channels, kind.photometric <= PHOTOMETRIC_MINISBLACK ? 1 : 3);
        ASSERT_EQ(depthOf(picture), kind.bits == 16 ? 16 : 8);
        size_t i = 0, wrong = 0;
        const auto channels = static_cast<uint32_t>(picture.channels);
        for (uint32_t y = 0; y < kTiffHeight; ++y)
            for (uint32_t x = 0; x < kTiffWidth; ++x)
                for (uint32_t c = 0; c < channels; ++c, ++i) {
                    const uint32_t got =
                        std::visit([i](const auto &samples) { return uint32_t{samples[i]}; }, picture.samples);
                    if (got != expectedSample(kind, x, y, c) && wrong++ == 0)
                        ADD_FAILURE() << "(" << x << ", " << y << ") channel " << c << ": " << got << ", expected "
                                      << expectedSample(kind, x, y, c);
                }
        EXPECT_EQ(wrong, 0u);
        const Bytes whole = fileContent(path);
        for (size_t length = 0; length < whole.size(); length += 11)
            EXPECT_THROW(decodeTiff(Bytes(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(length))), Failure);
    }
    std::filesystem::remove(path);
}

TEST(PictureFiles, TiffOfFloatsIsRefused)
{
    Bytes file = encodeTiff(randomPicture(4, 4, 1, 16, 9));
    // The tag "sample format", type short, one value: unsigned becomes floating point.
    const Bytes tag = {0x53, 0x01, 3, 0, 1, 0, 0, 0, 1, 0};
    const auto at = std::search(file.begin(), file.end(), tag.begin(), tag.end());
    ASSERT_NE(at, file.end());
    at[8] = 3;
    EXPECT_THROW(decodeTiff(file), Failure);
}

} // namespace
