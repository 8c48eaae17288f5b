#include "overlay.h"

#include "drawing.h"
#include "parse.h"
#include "picture_io.h"

namespace kiptool {

void addOverlayOption(CLI::App &command, std::string &file)
{
    addFileOption(command, "--overlay", {".png"},
                  "Draw the rectangle over IN, its top side green with an arrow, into this file; drawn also when the "
                  "operation is refused",
                  file);
}

void writeOverlay(const std::string &file, const Picture &picture, const kmath_shapeAffineRect &rect)
{
    if (file.empty())
        return;
    Picture colour = toColour8(picture);
    drawRectangle(colour, {rect.tx, rect.ty}, {rect.e0, rect.e2}, {rect.e1, rect.e3});
    writePicture(file, colour);
}

} // namespace kiptool
