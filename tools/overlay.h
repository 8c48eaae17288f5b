#ifndef KIP_TOOLS_OVERLAY_H
#define KIP_TOOLS_OVERLAY_H

#include "picture.h"

#include <CLI/CLI.hpp>
#include <kmath/kmath.h>
#include <string>

namespace kiptool {

/** Adds --overlay, whose file must be a PNG picture; file must outlive the command. */
void addOverlayOption(CLI::App &command, std::string &file);

/** Draws a rectangle over a picture into a file; does nothing without a file. */
void writeOverlay(const std::string &file, const Picture &picture, const kmath_shapeAffineRect &rect);

} // namespace kiptool

#endif
