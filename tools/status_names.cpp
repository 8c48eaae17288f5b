#include "status_names.h"

#include "failure.h"

#include <cstdio>
#include <kip/kip.h>

namespace kiptool {
namespace {

#define KIP_TOOL_STATUS(name, meaning)                                                                                 \
    {                                                                                                                  \
        name, #name, meaning                                                                                           \
    }

constexpr StatusName kNames[] = {
    KIP_TOOL_STATUS(kip_statusOptimizationDeclined, "an optimised path declined"),
    KIP_TOOL_STATUS(kip_statusProjectionSourceUnbound, "the source has no pixels"),
    KIP_TOOL_STATUS(kip_statusProjectionWouldClip, "the rectangle reaches outside the picture"),
    KIP_TOOL_STATUS(kip_statusProjectionOutsideSource, "the rectangle lies outside the picture"),
    KIP_TOOL_STATUS(kip_statusTransformSourceUnbound, "the source has no pixels"),
    KIP_TOOL_STATUS(kip_statusTransformWouldClip, "the rectangle, with the neighbours that its samples need, reaches "
                                                  "outside the picture"),
    KIP_TOOL_STATUS(kip_statusTransformOutsideSource, "the rectangle lies outside the picture"),
    KIP_TOOL_STATUS(kip_statusSizeBelowOne, "the result would have less than one column or row"),
    KIP_TOOL_STATUS(kip_statusSourceTooLarge, "the picture has more than 32767 columns or rows"),
    KIP_TOOL_STATUS(kip_statusProjectionModeUnsupported, "16-bit projections have no table-driven modes"),
    KIP_TOOL_STATUS(kip_statusUnknownMode, "there is no such interpolation mode"),
    KIP_TOOL_STATUS(kip_statusWindowMismatch, "the windows do not fit each other"),
    KIP_TOOL_STATUS(kip_statusPixelDepth, "the pixels have another depth than the operation"),
    KIP_TOOL_STATUS(kip_statusCacheNotConstructed, "the cache has not been constructed"),
    KIP_TOOL_STATUS(kip_statusMisaligned, "16-bit pixels at an odd address"),
    KIP_TOOL_STATUS(ksys_statusOutOfMemory, "not enough memory"),
    KIP_TOOL_STATUS(ksys_statusSizeTooLarge, "a block of memory that cannot be"),
    KIP_TOOL_STATUS(ksys_statusBadArgument, "an argument that cannot serve"),
    KIP_TOOL_STATUS(ksys_statusNoData, "a job without data"),
    KIP_TOOL_STATUS(ksys_statusLockFailed, "a lock could not be taken or released"),
    KIP_TOOL_STATUS(ksys_statusJobAborted, "a job threw an exception"),
    KIP_TOOL_STATUS(kimg_statusBadPixelSize, "pixels are 1, 2 or 4 bytes"),
    KIP_TOOL_STATUS(kimg_statusBadSize, "a width or height below 1"),
    KIP_TOOL_STATUS(kimg_statusTooLarge, "more pixels than memory can hold"),
    KIP_TOOL_STATUS(kimg_statusBadPitch, "rows that overlap"),
    KIP_TOOL_STATUS(kimg_statusNoPixels, "an image without pixels"),
    KIP_TOOL_STATUS(kmath_statusNotFinite, "the numbers are too large for this geometry"),
    KIP_TOOL_STATUS(kmath_statusSingular, "the rectangle's sides are parallel or have no length"),
    KIP_TOOL_STATUS(kmath_statusOutOfRange, "a coordinate that 32 bits cannot hold"),
    KIP_TOOL_STATUS(kstd_statusNegativeSize, "a size below 0"),
    KIP_TOOL_STATUS(kstd_statusTooLarge, "an extent that 32 bits cannot hold"),
    KIP_TOOL_STATUS(kip_pelStatusOverlap, "source and result share memory"),
    KIP_TOOL_STATUS(kip_pelStatusPixelSize, "the pixels have another depth than the operation"),
    KIP_TOOL_STATUS(kip_pelStatusEmpty, "there is no pixel where one is needed"),
};

#undef KIP_TOOL_STATUS

} // namespace

std::span<const StatusName> statusNames()
{
    return kNames;
}

std::string describeStatus(int32_t status)
{
    char code[16];
    (void)std::snprintf(code, sizeof code, "0x%08x", static_cast<unsigned>(status));
    for (const StatusName &known : kNames)
        if (known.status == status)
            return std::string(known.name) + " (" + code + "): " + known.meaning;
    return std::string("status ") + code;
}

void requireSuccess(int32_t status, const std::string &what)
{
    if (status < 0)
        throw Failure(what + ": " + describeStatus(status));
}

} // namespace kiptool
