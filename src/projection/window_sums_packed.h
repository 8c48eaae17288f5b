#ifndef KIP_PROJECTION_WINDOW_SUMS_PACKED_H
#define KIP_PROJECTION_WINDOW_SUMS_PACKED_H

#include <cstdint>

namespace kip {

// The optimised routines of the cores, for 8-bit pixels.
//   first, width, height  pixels, sizes of at least 0
//   pitch                 bytes from one row to the next
//   sums                  4-byte sums, at any address
//   reverse               nonzero for the last column or row first
// Return 0; kip_statusOptimizationDeclined on another processor; or the status of the processor information or of a
// failed allocation. Only on success is anything written.
int32_t sumColumnsPacked8(const uint8_t *first, int32_t width, int32_t height, int32_t pitch, void *sums,
                          int32_t reverse);
int32_t sumRowsPacked8(const uint8_t *first, int32_t width, int32_t height, int32_t pitch, void *sums, int32_t reverse);

} // namespace kip

#endif
