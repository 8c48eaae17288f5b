// libjpeg leaves a failed call by whatever its error handler does, and goes on as if nothing were when that returns. As
// in picture_png.cpp it is a long jump, within functions that hold nothing but plain values.

#include "failure.h"
#include "picture_io.h"

#include <csetjmp>
#include <cstdio> // which jpeglib.h needs
#include <cstring>
#include <jpeglib.h>
#include <memory>
#include <string>

namespace kiptool {
namespace {

// A block of 8 x 8 samples takes at least one bit, as Huffman codes go, and the finest component may share its blocks'
// side with a coarser one: a file with a larger claim is refused at once.
constexpr double kMostPixelsOfByte = 4096;

// Files made to take long repeat the picture in thousands of scans; real ones have about ten.
constexpr int kMostScans = 500;

struct Reader {
    jpeg_decompress_struct jpeg{};
    jpeg_error_mgr errors{};
    jpeg_source_mgr source{};
    jpeg_progress_mgr progress{};
    std::jmp_buf failed{};
    Input *input = nullptr;
    uint64_t position = 0;
    char message[JMSG_LENGTH_MAX] = "";
    JOCTET buffer[1 << 16] = {};

    Reader() = default;
    Reader(const Reader &) = delete;
    Reader &operator=(const Reader &) = delete;
    ~Reader() { jpeg_destroy_decompress(&jpeg); }
};

Reader &readerOf(j_common_ptr jpeg)
{
    return *static_cast<Reader *>(jpeg->client_data);
}

[[noreturn]] void fail(Reader &reader, const char *message)
{
    std::strncpy(reader.message, message, sizeof reader.message - 1);
    std::longjmp(reader.failed, 1);
}

[[noreturn]] void onError(j_common_ptr jpeg)
{
    char message[JMSG_LENGTH_MAX] = "";
    jpeg->err->format_message(jpeg, message);
    fail(readerOf(jpeg), message);
}

// A warning, level -1, is of data that are damaged: libjpeg would make pixels up.
void onMessage(j_common_ptr jpeg, int level)
{
    if (level < 0)
        onError(jpeg);
}

void onProgress(j_common_ptr jpeg)
{
    if (reinterpret_cast<j_decompress_ptr>(jpeg)->input_scan_number > kMostScans)
        fail(readerOf(jpeg), "it has too many scans");
}

void onSource(j_decompress_ptr) {}

boolean onFill(j_decompress_ptr jpeg)
{
    Reader &reader = *static_cast<Reader *>(jpeg->client_data);
    const size_t count = reader.input->read(reader.position, reader.buffer, sizeof reader.buffer);
    if (count == 0)
        fail(reader, "the file ends early");
    reader.position += count;
    reader.source.next_input_byte = reader.buffer;
    reader.source.bytes_in_buffer = count;
    return TRUE;
}

void onSkip(j_decompress_ptr jpeg, long count)
{
    Reader &reader = *static_cast<Reader *>(jpeg->client_data);
    const auto left = static_cast<long>(reader.source.bytes_in_buffer);
    if (count <= 0)
        return;
    if (count > left) {
        reader.position += static_cast<uint64_t>(count - left);
        count = left;
    }
    reader.source.next_input_byte += count;
    reader.source.bytes_in_buffer -= static_cast<size_t>(count);
}

bool readHeader(Reader &reader)
{
    if (setjmp(reader.failed) != 0)
        return false;
    reader.jpeg.err = jpeg_std_error(&reader.errors);
    reader.errors.error_exit = onError;
    reader.errors.emit_message = onMessage;
    reader.jpeg.client_data = &reader;
    jpeg_create_decompress(&reader.jpeg); // which keeps these two
    reader.source = {nullptr, 0, onSource, onFill, onSkip, jpeg_resync_to_restart, onSource};
    reader.jpeg.src = &reader.source;
    reader.progress.progress_monitor = onProgress;
    reader.jpeg.progress = &reader.progress;
    jpeg_read_header(&reader.jpeg, TRUE);
    reader.jpeg.dct_method = JDCT_ISLOW; // the same pixels on every machine
    reader.jpeg.out_color_space = reader.jpeg.jpeg_color_space == JCS_GRAYSCALE ? JCS_GRAYSCALE : JCS_RGB;
    return true;
}

// Reads every row, and to the end of the picture, so that a damaged or cut file does not pass.
bool readRows(Reader &reader, uint8_t *rows, size_t rowBytes)
{
    if (setjmp(reader.failed) != 0)
        return false;
    jpeg_start_decompress(&reader.jpeg);
    if (size_t{reader.jpeg.output_width} * static_cast<size_t>(reader.jpeg.output_components) != rowBytes)
        fail(reader, "unexpected row size");
    while (reader.jpeg.output_scanline < reader.jpeg.output_height) {
        JSAMPROW row = rows + reader.jpeg.output_scanline * rowBytes;
        jpeg_read_scanlines(&reader.jpeg, &row, 1);
    }
    jpeg_finish_decompress(&reader.jpeg);
    return true;
}

} // namespace

Picture decodeJpeg(Input &input)
{
    const auto reader = std::make_unique<Reader>();
    reader->input = &input;
    if (!readHeader(*reader))
        throw Failure(std::string("damaged JPEG: ") + reader->message);
    const jpeg_decompress_struct &jpeg = reader->jpeg;
    checkPictureSize(jpeg.image_width, jpeg.image_height);
    const bool grey = jpeg.jpeg_color_space == JCS_GRAYSCALE;
    if (!grey && jpeg.jpeg_color_space != JCS_YCbCr && jpeg.jpeg_color_space != JCS_RGB)
        throw Failure("a JPEG of this colour model, such as CMYK, is not supported");
    if (jpeg.arith_code == FALSE && static_cast<double>(jpeg.image_width) * jpeg.image_height >
                                        kMostPixelsOfByte * static_cast<double>(input.size()))
        throw Failure("damaged JPEG: the file is too short for its size in pixels");
    Picture picture = makePicture(jpeg.image_width, jpeg.image_height, grey ? 1 : 3, 8);
    if (!readRows(*reader, bytesOf(picture), rowSamples(picture)))
        throw Failure(std::string("damaged JPEG: ") + reader->message);
    return picture;
}

} // namespace kiptool
