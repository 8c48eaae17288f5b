#include "picture_io.h"

#include "failure.h"
#include "output_file.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <new>
#include <string_view>
#include <utility>

namespace kiptool {
namespace {

// What a work on a file tells gets the file's name.
template <typename Work>
auto naming(const std::filesystem::path &path, Work work)
{
    try {
        return work();
    } catch (const Failure &failure) {
        throw Failure(path.string() + ": " + failure.what());
    } catch (const std::bad_alloc &) {
        throw Failure(path.string() + ": not enough memory for this picture");
    }
}

} // namespace

const char *formatName(Format format)
{
    switch (format) {
    case Format::png:
        return "PNG";
    case Format::tiff:
        return "TIFF";
    case Format::jpeg:
        return "JPEG";
    case Format::pgm:
        break;
    }
    return "PGM";
}

void decodePages(Input &input, int32_t page, const TakePage &take)
{
    using namespace std::string_view_literals;
    std::array<char, 8> first{};
    const std::string_view start(first.data(), input.read(0, first.data(), first.size()));
    // The second pair marks the variant with 64-bit offsets.
    for (const std::string_view signature : {"II*\0"sv, "MM\0*"sv, "II+\0"sv, "MM\0+"sv})
        if (start.starts_with(signature))
            return decodeTiff(input, page, take);
    if (page > 1)
        throw Failure("it has no page " + std::to_string(page));
    if (start == "\x89PNG\r\n\x1a\n"sv)
        return take({Format::png, decodePng(input)});
    if (start.starts_with("P5"))
        return take({Format::pgm, decodePgm(input)});
    if (start.starts_with("\xff\xd8\xff"))
        return take({Format::jpeg, decodeJpeg(input)});
    throw Failure("not a PNG, TIFF, JPEG or binary PGM picture");
}

PictureFile readPicture(const std::filesystem::path &path, int32_t page)
{
    return naming(path, [&] {
        PictureFile file{};
        Input input(path);
        decodePages(input, page, [&file](PictureFile read) { file = std::move(read); });
        return file;
    });
}

void readPages(const std::filesystem::path &path, const TakePage &take)
{
    naming(path, [&] {
        Input input(path);
        decodePages(input, kEveryPage, take);
    });
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
    naming(path, [&] {
        const std::vector<uint8_t> file = format == Format::png    ? encodePng(picture)
                                          : format == Format::tiff ? encodeTiff(picture)
                                                                   : encodePgm(picture);
        writeFileWhole(path, file);
    });
}

} // namespace kiptool
