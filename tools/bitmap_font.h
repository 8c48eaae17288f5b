#ifndef KIP_TOOLS_BITMAP_FONT_H
#define KIP_TOOLS_BITMAP_FONT_H

namespace kiptool {

constexpr int kGlyphWidth = 5;
constexpr int kGlyphHeight = 7;
constexpr int kGlyphPitch = kGlyphWidth + 1; /**< from one character to the next */

/** Tells whether a character's dot is set; characters outside ASCII look like '?'. */
bool glyphDot(char character, int column, int row);

} // namespace kiptool

#endif
