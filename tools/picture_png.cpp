// libpng leaves a failed call by a long jump to the last setjmp, which must not pass over a C++ object with a
// destructor. Each function here that calls setjmp therefore works on a plain record, which the caller owns,
// and neither it nor a callback under it holds anything but plain values.

#include "failure.h"
#include "picture_io.h"

#include <algorithm>
#include <bit>
#include <csetjmp>
#include <cstring>
#include <new>
#include <png.h>
#include <string>

namespace kiptool {
namespace {

constexpr auto kMaxSide = static_cast<png_uint_32>(kMaxPixels); // of a picture one pixel wide or high
constexpr png_alloc_size_t kMaxChunkBytes = 64 << 20;

// A byte of compressed data stands for at most 1032 bytes: a file with a larger claim is refused at once.
constexpr double kMaxExpansion = 1032;

struct Message {
    char text[160] = "";
};

struct Reader {
    png_structp png = nullptr;
    png_infop info = nullptr;
    Input *input = nullptr;
    uint64_t position = 0;
    Message message;
    png_uint_32 width = 0, height = 0;
    int channels = 0, depth = 0, passes = 0;
    bool plausible = false;

    ~Reader() { png_destroy_read_struct(&png, &info, nullptr); }
};

struct Writer {
    png_structp png = nullptr;
    png_infop info = nullptr;
    std::vector<uint8_t> file;
    Message message;

    ~Writer() { png_destroy_write_struct(&png, &info); }
};

[[noreturn]] void onError(png_structp png, png_const_charp text)
{
    auto *message = static_cast<Message *>(png_get_error_ptr(png));
    std::strncpy(message->text, text, sizeof message->text - 1);
    png_longjmp(png, 1);
}

void onWarning(png_structp, png_const_charp) {}

void onRead(png_structp png, png_bytep to, size_t count)
{
    auto *reader = static_cast<Reader *>(png_get_io_ptr(png));
    if (reader->input->read(reader->position, to, count) != count)
        png_error(png, "the file ends early");
    reader->position += count;
}

bool append(std::vector<uint8_t> &file, const uint8_t *from, size_t count) noexcept
{
    try {
        file.insert(file.end(), from, from + count);
        return true;
    } catch (const std::bad_alloc &) {
        return false;
    }
}

void onWrite(png_structp png, png_bytep from, size_t count)
{
    if (!append(static_cast<Writer *>(png_get_io_ptr(png))->file, from, count))
        png_error(png, "not enough memory");
}

void onFlush(png_structp) {}

// Reads up to the pixels and asks libpng for 8- or 16-bit grey or colour in the machine's byte order.
bool readHeader(Reader &reader)
{
    if (setjmp(png_jmpbuf(reader.png)) != 0)
        return false;
    png_set_read_fn(reader.png, &reader, onRead);
    png_set_user_limits(reader.png, kMaxSide, kMaxSide);
    png_set_chunk_malloc_max(reader.png, kMaxChunkBytes);
    png_read_info(reader.png, reader.info);
    reader.width = png_get_image_width(reader.png, reader.info);
    reader.height = png_get_image_height(reader.png, reader.info);
    reader.plausible = static_cast<double>(png_get_bit_depth(reader.png, reader.info)) *
                           png_get_channels(reader.png, reader.info) / 8 * reader.width * reader.height <=
                       kMaxExpansion * static_cast<double>(reader.input->size());
    // From here on libpng takes memory for rows of this width. What is too large gets its message from the caller.
    if (!reader.plausible || static_cast<int64_t>(reader.width) * reader.height > kMaxPixels)
        return true;

    const int colourType = png_get_color_type(reader.png, reader.info);
    if (colourType == PNG_COLOR_TYPE_GRAY)
        png_set_expand_gray_1_2_4_to_8(reader.png);
    if (colourType == PNG_COLOR_TYPE_PALETTE)
        png_set_palette_to_rgb(reader.png);
    png_set_strip_alpha(reader.png);
    if constexpr (std::endian::native == std::endian::little)
        png_set_swap(reader.png);
    reader.passes = png_set_interlace_handling(reader.png);
    png_read_update_info(reader.png, reader.info);
    reader.channels = png_get_channels(reader.png, reader.info);
    reader.depth = png_get_bit_depth(reader.png, reader.info);
    return true;
}

// Reads every row, and to the end of the file, so that a damaged or cut file does not pass.
bool readRows(Reader &reader, uint8_t *rows, size_t rowBytes)
{
    if (setjmp(png_jmpbuf(reader.png)) != 0)
        return false;
    if (png_get_rowbytes(reader.png, reader.info) != rowBytes)
        png_error(reader.png, "unexpected row size");
    for (int pass = 0; pass < reader.passes; ++pass)
        for (png_uint_32 y = 0; y < reader.height; ++y)
            png_read_row(reader.png, rows + y * rowBytes, nullptr);
    png_read_end(reader.png, nullptr);
    return true;
}

bool writeAll(Writer &writer, const Picture &picture, const uint8_t *rows, size_t rowBytes)
{
    if (setjmp(png_jmpbuf(writer.png)) != 0)
        return false;
    png_set_write_fn(writer.png, &writer, onWrite, onFlush);
    png_set_user_limits(writer.png, PNG_UINT_31_MAX, PNG_UINT_31_MAX);
    png_set_IHDR(writer.png, writer.info, static_cast<png_uint_32>(picture.width),
                 static_cast<png_uint_32>(picture.height), depthOf(picture),
                 picture.channels == 3 ? PNG_COLOR_TYPE_RGB : PNG_COLOR_TYPE_GRAY, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_write_info(writer.png, writer.info);
    if constexpr (std::endian::native == std::endian::little)
        png_set_swap(writer.png);
    for (int32_t y = 0; y < picture.height; ++y)
        png_write_row(writer.png, rows + static_cast<size_t>(y) * rowBytes);
    png_write_end(writer.png, nullptr);
    return true;
}

size_t rowBytesOf(const Picture &picture)
{
    return rowSamples(picture) * static_cast<size_t>(depthOf(picture) / 8);
}

} // namespace

Picture decodePng(Input &input)
{
    Reader reader;
    reader.input = &input;
    reader.png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &reader.message, onError, onWarning);
    reader.info = reader.png == nullptr ? nullptr : png_create_info_struct(reader.png);
    if (reader.info == nullptr)
        throw std::bad_alloc();
    if (!readHeader(reader))
        throw Failure(std::string("damaged PNG: ") + reader.message.text);
    checkPictureSize(reader.width, reader.height);
    if (!reader.plausible)
        throw Failure("damaged PNG: the file is too short for its size in pixels");
    if ((reader.channels != 1 && reader.channels != 3) || (reader.depth != 8 && reader.depth != 16))
        throw Failure("a kind of PNG that is not supported");
    Picture picture = makePicture(reader.width, reader.height, reader.channels, reader.depth);
    if (!readRows(reader, bytesOf(picture), rowBytesOf(picture)))
        throw Failure(std::string("damaged PNG: ") + reader.message.text);
    return picture;
}

std::vector<uint8_t> encodePng(const Picture &picture)
{
    Writer writer;
    writer.png = png_create_write_struct(PNG_LIBPNG_VER_STRING, &writer.message, onError, onWarning);
    writer.info = writer.png == nullptr ? nullptr : png_create_info_struct(writer.png);
    if (writer.info == nullptr)
        throw std::bad_alloc();
    if (!writeAll(writer, picture, bytesOf(picture), rowBytesOf(picture)))
        throw Failure(std::string("cannot be made a PNG: ") + writer.message.text);
    return std::move(writer.file);
}

} // namespace kiptool
