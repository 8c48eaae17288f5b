#include "picture_io.h"

#include "failure.h"
#include "output_file.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <fstream>
#include <new>
#include <string_view>

namespace kiptool {
namespace {

constexpr uintmax_t kMaxFileBytes = uintmax_t{1} << 32;

std::vector<uint8_t> readFile(const std::filesystem::path &path)
{
    std::error_code error;
    if (!std::filesystem::exists(path, error))
        throw Failure("no such file");
    if (!std::filesystem::is_regular_file(path, error))
        throw Failure("not a file");
    const uintmax_t size = std::filesystem::file_size(path, error);
    if (error)
        throw Failure(error.message());
    if (size > kMaxFileBytes)
        throw Failure("the file is too large");
    std::ifstream stream(path, std::ios::binary);
    std::vector<uint8_t> bytes(static_cast<size_t>(size));
    if (!stream || !stream.read(reinterpret_cast<char *>(bytes.data()), static_cast<std::streamsize>(size)))
        throw Failure("cannot be read");
    return bytes;
}

bool startsWith(std::span<const uint8_t> file, std::string_view signature)
{
    return file.size() >= signature.size() &&
           std::equal(signature.begin(), signature.end(), file.begin(),
                      [](char a, uint8_t b) { return static_cast<uint8_t>(a) == b; });
}

} // namespace

const char *formatName(Format format)
{
    switch (format) {
    case Format::png:
        return "PNG";
    case Format::tiff:
        return "TIFF";
    case Format::pgm:
        break;
    }
    return "PGM";
}

Picture decodePicture(std::span<const uint8_t> file, Format *format)
{
    using namespace std::string_view_literals;
    if (startsWith(file, "\x89PNG\r\n\x1a\n"sv)) {
        *format = Format::png;
        return decodePng(file);
    }
    // The second pair marks the variant with 64-bit offsets.
    if (startsWith(file, "II*\0"sv) || startsWith(file, "MM\0*"sv) || startsWith(file, "II+\0"sv) ||
        startsWith(file, "MM\0+"sv)) {
        *format = Format::tiff;
        return decodeTiff(file);
    }
    if (startsWith(file, "P5"sv)) {
        *format = Format::pgm;
        return decodePgm(file);
    }
    throw Failure("not a PNG, TIFF or binary PGM picture");
}

PictureFile readPicture(const std::filesystem::path &path)
{
    try {
        PictureFile result;
        result.picture = decodePicture(readFile(path), &result.format);
        return result;
    } catch (const Failure &failure) {
        throw Failure(path.string() + ": " + failure.what());
    } catch (const std::bad_alloc &) {
        throw Failure(path.string() + ": not enough memory for this picture");
    }
}

Format formatOfName(const std::filesystem::path &path)
{
    std::string extension = path.extension().string();
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](char c) { return static_cast<char>(std::tolower(static_cast<unsigned char>(c))); });
    if (extension == ".png")
        return Format::png;
    if (extension == ".tif" || extension == ".tiff")
        return Format::tiff;
    if (extension == ".pgm")
        return Format::pgm;
    throw Failure(path.string() + ": cannot tell the format from this name: use .png, .tif, .tiff or .pgm");
}

void writePicture(const std::filesystem::path &path, const Picture &picture)
{
    const Format format = formatOfName(path);
    try {
        const std::vector<uint8_t> file = format == Format::png    ? encodePng(picture)
                                          : format == Format::tiff ? encodeTiff(picture)
                                                                   : encodePgm(picture);
        writeFileWhole(path, file);
    } catch (const Failure &failure) {
        throw Failure(path.string() + ": " + failure.what());
    } catch (const std::bad_alloc &) {
        throw Failure(path.string() + ": not enough memory for this picture");
    }
}

} // namespace kiptool
