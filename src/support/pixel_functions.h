#ifndef KIP_SUPPORT_PIXEL_FUNCTIONS_H
#define KIP_SUPPORT_PIXEL_FUNCTIONS_H

#include <cstdint>

#include <kip/kip.h>

namespace kip {

// The pixel operations by the type of the pixels, so that the two forms of an operation are one template.
template <typename Pixel>
struct PixelFunctions;

template <>
struct PixelFunctions<uint8_t> {
    static constexpr auto copy = kip_pelCopy8;
    static constexpr auto copyWindow = kip_pelCopyWindow8;
    static constexpr auto setWindow = kip_pelSetWindow8;
};

template <>
struct PixelFunctions<uint16_t> {
    static constexpr auto copy = kip_pelCopy16;
    static constexpr auto copyWindow = kip_pelCopyWindow16;
    static constexpr auto setWindow = kip_pelSetWindow16;
};

} // namespace kip

#endif
