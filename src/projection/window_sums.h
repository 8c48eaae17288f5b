#ifndef KIP_PROJECTION_WINDOW_SUMS_H
#define KIP_PROJECTION_WINDOW_SUMS_H

#include <cstdint>

#include <kip/kip.h>

namespace kip {

// Exact sums of a window's columns or rows, modulo 2^32, at the beginning of the destination's first row. The
// alignment code tells which sums and in what order, so that they are the projection of a map of whole pixels:
//
//   column sums  0, 271; 180, 91 in reversed order
//   row sums     90, 1; 270, 181 in reversed order; any other code forward
//
// The destination has 4-byte pixels and holds as many in a row as there are sums. Neither window's pixels need be
// aligned. Returns 0; kip_statusPixelDepth or kip_statusWindowMismatch with nothing written (a destination that is
// too small, sizes below 0); or the status of a failed allocation.

// 8-bit: by kf_projection_horizontal8_core or kf_projection_vertical8_core.
int32_t projectWindowOriented8(const kimg_windowConst &source, const kimg_window &destination,
                               kip_affine_imageAlignment alignCode);

// 16-bit: portable loops only, and no hook is asked.
int32_t projectWindowOriented16(const kimg_windowConst &source, const kimg_window &destination,
                                kip_affine_imageAlignment alignCode);

// What the source has to be for that: kip_statusPixelDepth, kip_statusWindowMismatch and kimg_statusNoPixels. Where
// nothing is read, neither the size of the pixels nor their address matters.
int32_t checkSumSource(const kimg_windowConst &source, int32_t bytesPerPixel);

// Tells whether a code asks for the sums of columns: as many as the window is wide, of as many pixels as it is high.
bool isColumnProjection(kip_affine_imageAlignment alignCode);

// The cores: the optimised routine unless the hook or the processor forbids it, else the portable loop. They write
// width and height sums; reverse is nonzero for the last column or row first. The windows have been checked.
int32_t kf_projection_horizontal8_core(const kimg_windowConst &source, const kimg_window &destination,
                                       uint32_t reverse);
int32_t kf_projection_vertical8_core(const kimg_windowConst &source, const kimg_window &destination, uint32_t reverse);

// The optimised routines of the cores.
//   first, width, height  pixels, sizes of at least 0
//   pitch                 bytes from one row to the next
//   sums                  4-byte sums, at any address
//   reverse               nonzero for the last column or row first
// Return 0; kip_statusOptimizationDeclined on another processor; or the status of the processor information or of a
// failed allocation. Only on success is anything written.
int32_t sumColumnsPacked8(const uint8_t *first, int32_t width, int32_t height, int32_t pitch, void *sums,
                          uint32_t reverse);
int32_t sumRowsPacked8(const uint8_t *first, int32_t width, int32_t height, int32_t pitch, void *sums,
                       uint32_t reverse);

} // namespace kip

#endif
