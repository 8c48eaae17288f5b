// In place of picture_png.cpp, picture_tiff.cpp and picture_jpeg.cpp, where their libraries are not to be had.

#include "failure.h"
#include "picture_io.h"

namespace kiptool {
namespace {

[[noreturn]] void refuse(Format format)
{
    throw Failure(std::string("this build of the tool knows PGM alone, not ") + formatName(format));
}

} // namespace

Picture decodePng(Input &)
{
    refuse(Format::png);
}

Picture decodeJpeg(Input &)
{
    refuse(Format::jpeg);
}

void decodeTiff(Input &, int32_t, const TakePage &)
{
    refuse(Format::tiff);
}

std::vector<uint8_t> encodePng(const Picture &)
{
    refuse(Format::png);
}

std::vector<uint8_t> encodeTiff(const Picture &)
{
    refuse(Format::tiff);
}

} // namespace kiptool
