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

struct FormatNames {
    const char *name, *option;
};

constexpr std::array<FormatNames, 4> kFormats = {{{"PNG", "png"}, {"TIFF", "tiff"}, {"PGM", "pgm"}, {"JPEG", "jpeg"}}};

// What a work on a file tells gets the file's name for the user.
template <typename Work>
auto naming(const std::string &name, Work work)
{
    try {
        return work();
    } catch (const Failure &failure) {
        throw Failure(name + ": " + failure.what());
    } catch (const std::bad_alloc &) {
        throw Failure(name + ": not enough memory for this picture");
    }
}

void read(const std::filesystem::path &path, int32_t page, const TakePage &take)
{
    naming(shownName(path), [&] {
        if (path != "-") {
            Input input(path);
            decodePages(input, page, take);
            return;
        }
        const std::vector<uint8_t> bytes = readStandardInput();
        Input input(bytes);
        decodePages(input, page, take);
    });
}

} // namespace

const char *formatName(Format format)
{
    return kFormats[static_cast<size_t>(format)].name;
}

const char *optionOf(Format format)
{
    return kFormats[static_cast<size_t>(format)].option;
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

std::string shownName(const std::filesystem::path &path)
{
    return path == "-" ? "standard input" : path.string();
}

PictureFile readPicture(const std::filesystem::path &path, int32_t page)
{
    PictureFile file{};
    read(path, page, [&file](PictureFile read) { file = std::move(read); });
    return file;
}

void readPages(const std::filesystem::path &path, const TakePage &take)
{
    read(path, kEveryPage, take);
}

Format formatOfOutput(const std::filesystem::path &path, std::optional<Format> asked)
{
    if (asked)
        return *asked;
    if (path == "-")
        throw Failure("standard output: has no name to tell the format: give it by --format");
    std::string extension = path.extension().string();
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](char c) { return static_cast<char>(std::tolower(static_cast<unsigned char>(c))); });
    if (extension == ".png")
        return Format::png;
    if (extension == ".tif" || extension == ".tiff")
        return Format::tiff;
    if (extension == ".pgm")
        return Format::pgm;
    throw Failure(path.string() +
                  ": cannot tell the format from this name: use .png, .tif, .tiff or .pgm, or --format");
}

void writePicture(const std::filesystem::path &path, const Picture &picture, std::optional<Format> asked)
{
    const Format format = formatOfOutput(path, asked);
    naming(path == "-" ? "standard output" : path.string(), [&] {
        const std::vector<uint8_t> file = format == Format::png    ? encodePng(picture)
                                          : format == Format::tiff ? encodeTiff(picture)
                                                                   : encodePgm(picture);
        if (path == "-")
            writeStandardOutput(file);
        else
            writeFileWhole(path, file);
    });
}

} // namespace kiptool
