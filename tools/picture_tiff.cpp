#include "failure.h"
#include "picture_io.h"

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <tiffio.h>
#include <utility>

namespace kiptool {
namespace {

// The most that libtiff may take at once, and the largest strip or tile: twice the largest 16-bit grey picture.
constexpr tmsize_t kMaxBlockBytes = 4 * static_cast<tmsize_t>(kMaxPixels);

// A file, seen through libtiff's callbacks, and the first error that libtiff told of it.
struct Stream {
    Input *input = nullptr;      // when reading
    std::vector<uint8_t> output; // when writing
    uint64_t position = 0;
    bool endedEarly = false; // something was read that is not there
    std::string error;

    uint64_t size() const { return input != nullptr ? input->size() : output.size(); }
};

tmsize_t onRead(thandle_t handle, void *to, tmsize_t count)
{
    auto *stream = static_cast<Stream *>(handle);
    if (stream->input == nullptr || count <= 0)
        return 0;
    const size_t taken = stream->input->read(stream->position, to, static_cast<size_t>(count));
    stream->endedEarly |= taken != static_cast<size_t>(count);
    stream->position += taken;
    return static_cast<tmsize_t>(taken);
}

tmsize_t onWrite(thandle_t handle, void *from, tmsize_t count)
{
    auto *stream = static_cast<Stream *>(handle);
    if (count <= 0)
        return 0;
    const uint64_t end = stream->position + static_cast<uint64_t>(count);
    try { // libtiff is C: nothing may be thrown through it
        if (end > stream->output.size())
            stream->output.resize(static_cast<size_t>(end));
    } catch (const std::exception &) {
        return 0;
    }
    std::memcpy(stream->output.data() + stream->position, from, static_cast<size_t>(count));
    stream->position = end;
    return count;
}

toff_t onSeek(thandle_t handle, toff_t offset, int whence)
{
    auto *stream = static_cast<Stream *>(handle);
    const uint64_t base = whence == SEEK_CUR ? stream->position : whence == SEEK_END ? stream->size() : 0;
    stream->position = base + offset; // modulo 2^64, so that a negative step works too
    return stream->position;
}

int onClose(thandle_t)
{
    return 0;
}

toff_t onSize(thandle_t handle)
{
    return static_cast<const Stream *>(handle)->size();
}

#if defined(__GNUC__)
__attribute__((format(printf, 3, 0)))
#endif
int keepFirst(void *handle, bool isError, const char *format, va_list arguments)
{
    auto &error = static_cast<Stream *>(handle)->error;
    if (!isError || !error.empty())
        return 1; // dealt with: nothing is printed
    char text[200];
    (void)std::vsnprintf(text, sizeof text, format, arguments);
    try { // libtiff is C
        error = text;
    } catch (const std::bad_alloc &) {
        error.clear();
    }
    return 1;
}

int onError(TIFF *, void *stream, const char *, const char *format, va_list arguments)
{
    return keepFirst(stream, true, format, arguments);
}

// What libjpeg warns of is a strip that is damaged, for which it has made pixels up.
int onWarning(TIFF *, void *stream, const char *module, const char *format, va_list arguments)
{
    return keepFirst(stream, module != nullptr && std::string_view(module) == "JPEGLib", format, arguments);
}

using Tiff = std::unique_ptr<TIFF, decltype(&TIFFClose)>;

// One line, whatever the file made libtiff say.
std::string printable(std::string reason)
{
    std::replace_if(
        reason.begin(), reason.end(), [](char c) { return c < ' ' || c > '~'; }, '?');
    return reason;
}

[[noreturn]] void failDamaged(const Stream &stream)
{
    throw Failure("damaged TIFF: " + (stream.error.empty() ? "it cannot be read" : printable(stream.error)));
}

Tiff open(Stream &stream, const char *mode)
{
    const std::unique_ptr<TIFFOpenOptions, decltype(&TIFFOpenOptionsFree)> options(TIFFOpenOptionsAlloc(),
                                                                                   TIFFOpenOptionsFree);
    if (options == nullptr)
        throw std::bad_alloc();
    TIFFOpenOptionsSetMaxSingleMemAlloc(options.get(), kMaxBlockBytes);
    TIFFOpenOptionsSetErrorHandlerExtR(options.get(), onError, &stream);
    TIFFOpenOptionsSetWarningHandlerExtR(options.get(), onWarning, &stream);
    return {TIFFClientOpenExt("picture", mode, &stream, onRead, onWrite, onSeek, onClose, onSize, nullptr, nullptr,
                              options.get()),
            TIFFClose};
}

// How the samples of a page lie in its file. A block is a strip or a tile.
struct Layout {
    uint32_t width = 0, height = 0;
    uint16_t bits = 1, samplesPerPixel = 1, photometric = 0, compression = COMPRESSION_NONE;
    bool separate = false, tiled = false;
    uint32_t blockWidth = 0, blockHeight = 0;

    bool isGrey() const { return photometric == PHOTOMETRIC_MINISBLACK || photometric == PHOTOMETRIC_MINISWHITE; }
};

// The most bytes that a compressed one stands for, where that is known: LZW's longest code gives 2558.
double mostExpansion(uint16_t compression)
{
    switch (compression) {
    case COMPRESSION_NONE:
        return 1;
    case COMPRESSION_LZW:
    case COMPRESSION_DEFLATE:
    case COMPRESSION_ADOBE_DEFLATE:
    case COMPRESSION_PACKBITS:
        return 2560;
    default:
        return HUGE_VAL;
    }
}

Layout readLayout(TIFF *tiff, const Stream &stream)
{
    Layout layout;
    uint16_t sampleFormat = SAMPLEFORMAT_UINT, planar = PLANARCONFIG_CONTIG;
    uint32_t depth = 1;
    if (TIFFGetField(tiff, TIFFTAG_IMAGEWIDTH, &layout.width) == 0 ||
        TIFFGetField(tiff, TIFFTAG_IMAGELENGTH, &layout.height) == 0)
        failDamaged(stream);
    checkPictureSize(layout.width, layout.height);
    if (TIFFGetField(tiff, TIFFTAG_PHOTOMETRIC, &layout.photometric) == 0)
        throw Failure("damaged TIFF: it does not tell what its samples mean");
    TIFFGetFieldDefaulted(tiff, TIFFTAG_BITSPERSAMPLE, &layout.bits);
    TIFFGetFieldDefaulted(tiff, TIFFTAG_SAMPLESPERPIXEL, &layout.samplesPerPixel);
    TIFFGetFieldDefaulted(tiff, TIFFTAG_COMPRESSION, &layout.compression);
    TIFFGetFieldDefaulted(tiff, TIFFTAG_PLANARCONFIG, &planar);
    TIFFGetFieldDefaulted(tiff, TIFFTAG_SAMPLEFORMAT, &sampleFormat);
    TIFFGetFieldDefaulted(tiff, TIFFTAG_IMAGEDEPTH, &depth);
    if (sampleFormat != SAMPLEFORMAT_UINT && sampleFormat != SAMPLEFORMAT_VOID)
        throw Failure("a TIFF whose samples are not unsigned integers is not supported");
    if (depth != 1)
        throw Failure("a TIFF of a volume is not supported");
    if (layout.bits / 8.0 * layout.width * layout.height >
        mostExpansion(layout.compression) * static_cast<double>(stream.size()))
        throw Failure("damaged TIFF: the file is too short for its size in pixels");

    layout.separate = planar == PLANARCONFIG_SEPARATE;
    layout.tiled = TIFFIsTiled(tiff) != 0;
    layout.blockWidth = layout.width;
    if (layout.tiled) {
        TIFFGetField(tiff, TIFFTAG_TILEWIDTH, &layout.blockWidth);
        TIFFGetField(tiff, TIFFTAG_TILELENGTH, &layout.blockHeight);
    } else {
        TIFFGetFieldDefaulted(tiff, TIFFTAG_ROWSPERSTRIP, &layout.blockHeight);
        layout.blockHeight = std::min(layout.blockHeight, layout.height);
    }
    if (layout.blockWidth == 0 || layout.blockHeight == 0)
        failDamaged(stream);
    return layout;
}

// Reads a block, of which the rows that belong to the picture have to be there.
void readBlock(TIFF *tiff, const Stream &stream, const Layout &layout, uint32_t x, uint32_t y, uint16_t plane, void *to,
               size_t size, size_t wanted)
{
    const tmsize_t got =
        layout.tiled ? TIFFReadEncodedTile(tiff, TIFFComputeTile(tiff, x, y, 0, plane), to, static_cast<tmsize_t>(size))
                     : TIFFReadEncodedStrip(tiff, TIFFComputeStrip(tiff, y, plane), to, static_cast<tmsize_t>(size));
    if (got < 0 || static_cast<size_t>(got) < wanted)
        failDamaged(stream);
}

// Samples of 8 or 16 bits, grey or red, green and blue, as they are; further ones, such as alpha, are left out.
template <typename Sample>
void readSamples(TIFF *tiff, const Stream &stream, const Layout &layout, Picture &picture)
{
    auto &samples = std::get<std::vector<Sample>>(picture.samples);
    const auto channels = static_cast<size_t>(picture.channels);
    const size_t step = layout.separate ? 1 : layout.samplesPerPixel; // samples of a pixel in a block
    const size_t planes = layout.separate ? channels : 1, inBlock = layout.separate ? 1 : channels;
    const size_t rowBytes = layout.blockWidth * step * sizeof(Sample);
    const tmsize_t blockBytes = layout.tiled ? TIFFTileSize(tiff) : TIFFStripSize(tiff);
    if (layout.samplesPerPixel < channels || blockBytes <= 0 || // what libtiff reads must be what is going to be used
        rowBytes > static_cast<size_t>(blockBytes) / layout.blockHeight)
        failDamaged(stream);
    if (blockBytes > kMaxBlockBytes)
        throw Failure("a TIFF with such large strips or tiles is not supported");
    const bool inPlace = !layout.tiled && step == channels;
    std::vector<Sample> block(inPlace ? 0 : static_cast<size_t>(blockBytes) / sizeof(Sample));

    for (uint32_t y = 0; y < layout.height; y += std::min(layout.blockHeight, layout.height - y)) {
        const size_t rows = std::min(layout.blockHeight, layout.height - y);
        if (inPlace) {
            readBlock(tiff, stream, layout, 0, y, 0, &samples[y * size_t{layout.width} * channels], rows * rowBytes,
                      rows * rowBytes);
            continue;
        }
        for (uint32_t x = 0; x < layout.width; x += std::min(layout.blockWidth, layout.width - x)) {
            const size_t columns = std::min(layout.blockWidth, layout.width - x);
            for (size_t plane = 0; plane < planes; ++plane) {
                readBlock(tiff, stream, layout, x, y, static_cast<uint16_t>(plane), block.data(),
                          block.size() * sizeof(Sample), rows * rowBytes);
                for (size_t row = 0; row < rows; ++row) {
                    const Sample *from = &block[row * layout.blockWidth * step];
                    Sample *to = &samples[((y + row) * layout.width + x) * channels + plane];
                    for (size_t column = 0; column < columns; ++column, from += step, to += channels)
                        std::copy_n(from, inBlock, to);
                }
            }
        }
    }
    if (layout.photometric == PHOTOMETRIC_MINISWHITE)
        for (Sample &sample : samples)
            sample = static_cast<Sample>(~sample);
}

// Everything else becomes red, green and blue of 8 bits, or grey, by libtiff's own means: a band of blocks at a time.
Picture readConverted(TIFF *tiff, const Stream &stream, const Layout &layout)
{
    char reason[1024] = "";
    TIFFRGBAImage image{};
    if (TIFFRGBAImageBegin(&image, tiff, 1, reason) == 0)
        throw Failure("a kind of TIFF that is not supported: " + printable(reason));
    const std::unique_ptr<TIFFRGBAImage, decltype(&TIFFRGBAImageEnd)> owner(&image, TIFFRGBAImageEnd);
    image.req_orientation = image.orientation; // keeps the rows as they are stored
    const int32_t channels = layout.isGrey() ? 1 : 3;
    Picture picture = makePicture(layout.width, layout.height, channels, 8);
    std::vector<uint32_t> band(size_t{layout.width} * std::min(layout.blockHeight, layout.height));
    auto to = samples8(picture).begin();
    for (uint32_t y = 0, rows = 0; y < layout.height; y += rows) {
        rows = std::min(layout.blockHeight, layout.height - y);
        image.row_offset = static_cast<int>(y);
        if (TIFFRGBAImageGet(&image, band.data(), layout.width, rows) == 0)
            failDamaged(stream);
        for (size_t i = 0; i < size_t{layout.width} * rows; ++i)
            for (int32_t channel = 0; channel < channels; ++channel)
                *to++ = static_cast<uint8_t>(band[i] >> (8 * channel));
    }
    return picture;
}

Picture readPage(TIFF *tiff, const Stream &stream)
{
    const Layout layout = readLayout(tiff, stream);
    const bool exact = layout.isGrey() || layout.photometric == PHOTOMETRIC_RGB;
    if (!exact || (layout.bits != 8 && layout.bits != 16))
        return readConverted(tiff, stream, layout);
    Picture picture = makePicture(layout.width, layout.height, layout.isGrey() ? 1 : 3, layout.bits);
    if (layout.bits == 8)
        readSamples<uint8_t>(tiff, stream, layout, picture);
    else
        readSamples<uint16_t>(tiff, stream, layout, picture);
    return picture;
}

} // namespace

void decodeTiff(Input &input, int32_t page, const TakePage &take)
{
    Stream stream;
    stream.input = &input;
    const Tiff tiff = open(stream, "rm");
    if (tiff == nullptr)
        failDamaged(stream);
    // libtiff goes on without a tag whose value is cut off, and ends a list of pages where it is damaged.
    const auto checkWhole = [&stream] {
        if (stream.endedEarly)
            throw Failure("damaged TIFF: the file ends early");
        if (!stream.error.empty())
            failDamaged(stream);
    };
    const auto pages = static_cast<int32_t>(TIFFNumberOfDirectories(tiff.get()));
    checkWhole();
    if (page > pages)
        throw Failure("it has " + std::to_string(pages) + " pages and no page " + std::to_string(page));
    if (page > 1 && TIFFSetDirectory(tiff.get(), static_cast<tdir_t>(page - 1)) == 0)
        failDamaged(stream);
    for (int32_t current = page == kEveryPage ? 1 : page;; ++current) {
        Picture picture = readPage(tiff.get(), stream);
        checkWhole();
        take({Format::tiff, std::move(picture), current, pages});
        if (page != kEveryPage || current == pages)
            return;
        if (TIFFReadDirectory(tiff.get()) == 0)
            failDamaged(stream);
    }
}

std::vector<uint8_t> encodeTiff(const Picture &picture)
{
    Stream stream;
    {
        const Tiff tiff = open(stream, "w");
        if (tiff == nullptr)
            throw Failure("cannot be made a TIFF: " + stream.error);
        TIFF *const to = tiff.get();
        TIFFSetField(to, TIFFTAG_IMAGEWIDTH, static_cast<uint32_t>(picture.width));
        TIFFSetField(to, TIFFTAG_IMAGELENGTH, static_cast<uint32_t>(picture.height));
        TIFFSetField(to, TIFFTAG_BITSPERSAMPLE, depthOf(picture));
        TIFFSetField(to, TIFFTAG_SAMPLESPERPIXEL, picture.channels);
        TIFFSetField(to, TIFFTAG_SAMPLEFORMAT, SAMPLEFORMAT_UINT);
        TIFFSetField(to, TIFFTAG_PHOTOMETRIC, picture.channels == 3 ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK);
        TIFFSetField(to, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
        TIFFSetField(to, TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT);
        TIFFSetField(to, TIFFTAG_COMPRESSION, COMPRESSION_LZW);
        TIFFSetField(to, TIFFTAG_PREDICTOR, PREDICTOR_HORIZONTAL);
        TIFFSetField(to, TIFFTAG_ROWSPERSTRIP, TIFFDefaultStripSize(to, 0));
        const size_t rowBytes = rowSamples(picture) * static_cast<size_t>(depthOf(picture) / 8);
        std::vector<uint8_t> row(rowBytes); // a copy, since the predictor works in place
        bool written = true;
        for (int32_t y = 0; written && y < picture.height; ++y) {
            std::copy_n(bytesOf(picture) + static_cast<size_t>(y) * rowBytes, rowBytes, row.begin());
            written = TIFFWriteScanline(to, row.data(), static_cast<uint32_t>(y), 0) == 1;
        }
        if (!written || TIFFFlush(to) == 0)
            throw Failure("cannot be made a TIFF: " + stream.error);
    }
    if (!stream.error.empty()) // closing writes too
        throw Failure("cannot be made a TIFF: " + stream.error);
    return std::move(stream.output);
}

} // namespace kiptool
