#include "failure.h"
#include "picture_io.h"

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <tiffio.h>

namespace kiptool {
namespace {

// The most that libtiff may take at once, and the largest strip or tile: twice the largest grey picture.
constexpr tmsize_t kMaxBlockBytes = 4 * static_cast<tmsize_t>(kMaxPixels);

// A file in memory, seen through libtiff's callbacks, and the first error that libtiff told of it.
struct Stream {
    std::span<const uint8_t> input; // when reading
    std::vector<uint8_t> output;    // when writing
    uint64_t position = 0;
    bool endedEarly = false; // something was read that is not there
    std::string error;

    uint64_t size() const { return input.empty() ? output.size() : input.size(); }
};

tmsize_t onRead(thandle_t handle, void *to, tmsize_t count)
{
    auto *stream = static_cast<Stream *>(handle);
    const uint8_t *from = stream->input.empty() ? stream->output.data() : stream->input.data();
    const uint64_t left = stream->size() - std::min(stream->position, stream->size());
    const uint64_t taken = std::min(static_cast<uint64_t>(std::max<tmsize_t>(count, 0)), left);
    stream->endedEarly |= taken != static_cast<uint64_t>(count);
    if (taken == 0)
        return 0;
    std::memcpy(to, from + stream->position, static_cast<size_t>(taken));
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
__attribute__((format(printf, 4, 0)))
#endif
int onError(TIFF *, void *stream, const char *, const char *format, va_list arguments)
{
    char text[200];
    (void)std::vsnprintf(text, sizeof text, format, arguments);
    auto &error = static_cast<Stream *>(stream)->error;
    try {
        if (error.empty())
            error = text;
    } catch (const std::bad_alloc &) {
        error.clear();
    }
    return 1; // dealt with: nothing is printed
}

int onWarning(TIFF *, void *, const char *, const char *, va_list)
{
    return 1;
}

using Tiff = std::unique_ptr<TIFF, decltype(&TIFFClose)>;

[[noreturn]] void failDamaged(const Stream &stream)
{
    // One line, whatever the file made libtiff say.
    std::string reason = stream.error.empty() ? "it cannot be read" : stream.error;
    std::replace_if(
        reason.begin(), reason.end(), [](char c) { return c < ' ' || c > '~'; }, '?');
    throw Failure("damaged TIFF: " + reason);
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

// How the samples of a picture lie in its file. A block is a strip or a tile.
struct Layout {
    uint32_t width = 0, height = 0;
    uint16_t bits = 1, samplesPerPixel = 1, photometric = 0, planar = PLANARCONFIG_CONTIG;
    bool tiled = false;
    uint32_t blockWidth = 0, blockHeight = 0;
    size_t blockRowBytes = 0, blockBytes = 0;
    std::array<const uint16_t *, 3> palette{};

    int32_t fileChannels() const { return photometric == PHOTOMETRIC_RGB ? 3 : 1; } // alpha and the like not counted
    int32_t channels() const { return photometric == PHOTOMETRIC_PALETTE ? 3 : fileChannels(); }
};

Layout readLayout(TIFF *tiff, const Stream &stream)
{
    Layout layout;
    uint16_t sampleFormat = SAMPLEFORMAT_UINT;
    uint32_t depth = 1;
    if (TIFFGetField(tiff, TIFFTAG_IMAGEWIDTH, &layout.width) == 0 ||
        TIFFGetField(tiff, TIFFTAG_IMAGELENGTH, &layout.height) == 0)
        failDamaged(stream);
    checkPictureSize(layout.width, layout.height);
    if (TIFFGetField(tiff, TIFFTAG_PHOTOMETRIC, &layout.photometric) == 0)
        throw Failure("damaged TIFF: it does not tell what its samples mean");
    TIFFGetFieldDefaulted(tiff, TIFFTAG_BITSPERSAMPLE, &layout.bits);
    TIFFGetFieldDefaulted(tiff, TIFFTAG_SAMPLESPERPIXEL, &layout.samplesPerPixel);
    TIFFGetFieldDefaulted(tiff, TIFFTAG_PLANARCONFIG, &layout.planar);
    TIFFGetFieldDefaulted(tiff, TIFFTAG_SAMPLEFORMAT, &sampleFormat);
    TIFFGetFieldDefaulted(tiff, TIFFTAG_IMAGEDEPTH, &depth);
    if (sampleFormat != SAMPLEFORMAT_UINT && sampleFormat != SAMPLEFORMAT_VOID)
        throw Failure("a TIFF whose samples are not unsigned integers is not supported");
    if (depth != 1)
        throw Failure("a TIFF of a volume is not supported");
    return layout;
}

bool isPlain(const Layout &layout)
{
    switch (layout.photometric) {
    case PHOTOMETRIC_MINISWHITE:
    case PHOTOMETRIC_MINISBLACK:
    case PHOTOMETRIC_RGB:
    case PHOTOMETRIC_PALETTE:
        return true;
    default:
        return false;
    }
}

void readBlockLayout(TIFF *tiff, const Stream &stream, Layout &layout)
{
    const uint16_t bits = layout.bits;
    const bool narrow = bits == 1 || bits == 2 || bits == 4 || bits == 8;
    if (!narrow && (bits != 16 || layout.photometric == PHOTOMETRIC_PALETTE))
        throw Failure("a TIFF with " + std::to_string(bits) + " bits a sample is not supported");
    if (layout.samplesPerPixel < layout.fileChannels())
        failDamaged(stream);
    auto &[reds, greens, blues] = layout.palette;
    if (layout.photometric == PHOTOMETRIC_PALETTE && TIFFGetField(tiff, TIFFTAG_COLORMAP, &reds, &greens, &blues) == 0)
        throw Failure("damaged TIFF: its palette is missing");

    layout.tiled = TIFFIsTiled(tiff) != 0;
    layout.blockWidth = layout.width;
    if (layout.tiled) {
        TIFFGetField(tiff, TIFFTAG_TILEWIDTH, &layout.blockWidth);
        TIFFGetField(tiff, TIFFTAG_TILELENGTH, &layout.blockHeight);
    } else {
        TIFFGetFieldDefaulted(tiff, TIFFTAG_ROWSPERSTRIP, &layout.blockHeight);
        layout.blockHeight = std::min(layout.blockHeight, layout.height);
    }
    const tmsize_t blockBytes = layout.tiled ? TIFFTileSize(tiff) : TIFFStripSize(tiff);
    if (blockBytes > kMaxBlockBytes)
        throw Failure("a TIFF with such large strips or tiles is not supported");

    // libtiff's size must be what unpacking is going to reach.
    const uint64_t samples = layout.planar == PLANARCONFIG_CONTIG ? layout.samplesPerPixel : 1;
    const uint64_t rowBytes = (samples * layout.blockWidth * bits + 7) / 8;
    if (blockBytes <= 0 || layout.blockWidth == 0 || layout.blockHeight == 0 ||
        rowBytes > static_cast<uint64_t>(blockBytes) / layout.blockHeight)
        failDamaged(stream);
    layout.blockRowBytes = static_cast<size_t>(rowBytes);
    layout.blockBytes = static_cast<size_t>(blockBytes);
}

uint32_t unpack(const uint8_t *row, size_t index, uint32_t bits)
{
    if (bits == 8)
        return row[index];
    if (bits == 16) { // already in the machine's byte order
        uint16_t sample;
        std::memcpy(&sample, row + 2 * index, sizeof sample);
        return sample;
    }
    const size_t bit = index * bits;
    return (row[bit / 8] >> (8 - bits - bit % 8)) & ((1u << bits) - 1);
}

// Files of some old writers hold palettes of 8-bit instead of 16-bit values.
uint32_t paletteShift(const Layout &layout)
{
    for (const uint16_t *map : layout.palette)
        if (map != nullptr && std::any_of(map, map + (size_t{1} << layout.bits), [](uint16_t v) { return v > 255; }))
            return 8;
    return 0;
}

// What a stored value becomes.
struct Conversion {
    std::array<const uint16_t *, 3> palette;
    uint32_t paletteShift;
    uint32_t greatest;
    uint32_t scale; // exact: 255, 85 or 17 spread 1, 2 or 4 bits over 8
    bool inverted;
};

Conversion conversionOf(const Layout &layout)
{
    const uint32_t greatest = (1u << layout.bits) - 1;
    return {layout.palette, paletteShift(layout), greatest, layout.bits < 8 ? 255 / greatest : 1,
            layout.photometric == PHOTOMETRIC_MINISWHITE};
}

uint32_t convert(const Conversion &conversion, uint32_t value, size_t channel)
{
    if (conversion.palette[0] != nullptr)
        return conversion.palette[channel][value] >> conversion.paletteShift;
    return (conversion.inverted ? conversion.greatest - value : value) * conversion.scale;
}

// Puts sample number first of every step samples of a block into one channel of the picture.
template <typename Sample>
void unpackChannel(const Layout &layout, const Conversion &conversion, const uint8_t *block, uint32_t x0, uint32_t y0,
                   size_t step, size_t first, size_t channel, std::vector<Sample> &picture)
{
    const uint32_t columns = std::min(layout.blockWidth, layout.width - x0);
    const uint32_t rows = std::min(layout.blockHeight, layout.height - y0);
    const auto channels = static_cast<size_t>(layout.channels());
    for (uint32_t y = 0; y < rows; ++y) {
        const uint8_t *row = block + y * layout.blockRowBytes;
        Sample *to = picture.data() + ((size_t{y0} + y) * layout.width + x0) * channels + channel;
        for (uint32_t x = 0; x < columns; ++x, to += channels)
            *to = static_cast<Sample>(convert(conversion, unpack(row, x * step + first, layout.bits), channel));
    }
}

void readBlock(TIFF *tiff, const Stream &stream, const Layout &layout, uint32_t x, uint32_t y, uint16_t plane,
               std::vector<uint8_t> &block)
{
    const auto size = static_cast<tmsize_t>(block.size());
    const tmsize_t got = layout.tiled
                             ? TIFFReadEncodedTile(tiff, TIFFComputeTile(tiff, x, y, 0, plane), block.data(), size)
                             : TIFFReadEncodedStrip(tiff, TIFFComputeStrip(tiff, y, plane), block.data(), size);
    const uint32_t rows = std::min(layout.blockHeight, layout.height - y);
    if (got < 0 || static_cast<size_t>(got) < rows * layout.blockRowBytes)
        failDamaged(stream);
}

template <typename Sample>
void readBlocks(TIFF *tiff, const Stream &stream, const Layout &layout, std::vector<Sample> &to)
{
    const Conversion conversion = conversionOf(layout);
    std::vector<uint8_t> block(layout.blockBytes);
    const bool separate = layout.planar == PLANARCONFIG_SEPARATE;
    const auto channels = static_cast<size_t>(layout.channels());
    for (uint64_t y = 0; y < layout.height; y += layout.blockHeight) {
        for (uint64_t x = 0; x < layout.width; x += layout.blockWidth) {
            for (size_t channel = 0; channel < channels; ++channel) {
                const auto x0 = static_cast<uint32_t>(x), y0 = static_cast<uint32_t>(y);
                const size_t plane = layout.fileChannels() == 1 ? 0 : channel;
                if (channel == 0 || (separate && plane != 0))
                    readBlock(tiff, stream, layout, x0, y0, static_cast<uint16_t>(separate ? plane : 0), block);
                unpackChannel(layout, conversion, block.data(), x0, y0, separate ? 1 : layout.samplesPerPixel,
                              separate ? 0 : plane, channel, to);
            }
        }
    }
}

// Samples that need no more than unpacking.
Picture readPlain(TIFF *tiff, const Stream &stream, Layout layout)
{
    readBlockLayout(tiff, stream, layout);
    Picture picture = makePicture(layout.width, layout.height, layout.channels(), layout.bits == 16 ? 16 : 8);
    std::visit([&](auto &samples) { readBlocks(tiff, stream, layout, samples); }, picture.samples);
    return picture;
}

// Colour models that libtiff itself turns into red, green and blue, at 8 bits.
Picture readConverted(TIFF *tiff, const Stream &stream, const Layout &layout)
{
    char reason[1024] = "";
    if (layout.bits != 8 || (layout.photometric != PHOTOMETRIC_YCBCR && layout.photometric != PHOTOMETRIC_SEPARATED) ||
        TIFFRGBAImageOK(tiff, reason) == 0)
        throw Failure("a TIFF of this colour model or depth is not supported");
    Picture picture = makePicture(layout.width, layout.height, 3, 8);
    uint16_t orientation = ORIENTATION_TOPLEFT; // asking for the file's own keeps the rows as stored
    TIFFGetFieldDefaulted(tiff, TIFFTAG_ORIENTATION, &orientation);
    std::vector<uint32_t> raster(static_cast<size_t>(layout.width) * layout.height);
    if (TIFFReadRGBAImageOriented(tiff, layout.width, layout.height, raster.data(), orientation, 1) == 0)
        failDamaged(stream);
    auto to = samples8(picture).begin();
    for (const uint32_t pixel : raster)
        for (const uint32_t sample : {TIFFGetR(pixel), TIFFGetG(pixel), TIFFGetB(pixel)})
            *to++ = static_cast<uint8_t>(sample);
    return picture;
}

} // namespace

Picture decodeTiff(std::span<const uint8_t> file)
{
    Stream stream;
    stream.input = file;
    const Tiff tiff = open(stream, "rm");
    if (tiff == nullptr)
        failDamaged(stream);
    const Layout layout = readLayout(tiff.get(), stream);
    Picture picture =
        isPlain(layout) ? readPlain(tiff.get(), stream, layout) : readConverted(tiff.get(), stream, layout);
    if (stream.endedEarly) // libtiff goes on without a tag whose value is cut off, such as a palette
        throw Failure("damaged TIFF: the file ends early");
    return picture;
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
