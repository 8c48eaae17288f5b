// Names and meanings of the statuses.

#include <kstd/kprt.h>

#include <algorithm>
#include <iterator>

namespace {

struct Status {
    uint32_t code;
    const char *name;
    const char *text;
};

// By their numbers and not by the headers' constants, as those of kip stand above the services. In rising order.
constexpr Status kStatuses[] = {
    {0x80000101u, "ksys_statusOutOfMemory", "not enough memory"},
    {0x80000102u, "ksys_statusSizeTooLarge", "a size that no block of memory can have"},
    {0x80000103u, "ksys_statusBadArgument", "null or a negative count where neither can serve"},
    {0x80000104u, "ksys_statusNoData", "the job's parameters hold no data"},
    {0x80000105u, "ksys_statusLockFailed", "a lock could not be taken or released"},
    {0x80000106u, "ksys_statusJobAborted", "a job threw an exception"},
    {0x80000201u, "kimg_statusBadPixelSize", "pixels have 1, 2 or 4 bytes"},
    {0x80000202u, "kimg_statusBadSize", "a width or height below 1"},
    {0x80000203u, "kimg_statusTooLarge", "more pixels than memory or a 32-bit pitch can address"},
    {0x80000204u, "kimg_statusBadPitch", "rows that overlap: the pitch is below the width"},
    {0x80000205u, "kimg_statusNoPixels", "no pixels where some are needed"},
    {0x80000301u, "kmath_statusNotFinite", "a number is infinite or not a number, or a result would be"},
    {0x80000302u, "kmath_statusSingular",
     "a map without an inverse: the rectangle's sides are parallel or have no length"},
    {0x80000303u, "kmath_statusOutOfRange", "a coordinate that 32 bits cannot hold"},
    {0x80000401u, "kstd_statusNegativeSize", "a size or count below 0"},
    {0x80000402u, "kstd_statusTooLarge", "an extent or count that 32 bits cannot hold"},
    {0x80000501u, "kip_pelStatusOverlap", "source and result share memory"},
    {0x80000502u, "kip_pelStatusPixelSize", "the pixels have another depth than the operation"},
    {0x80000503u, "kip_pelStatusEmpty", "there is no pixel where one is needed"},
    {0x80000601u, "kip_statusOptimizationDeclined", "an optimised path declined"},
    {0x80000782u, "kip_statusProjectionSourceUnbound", "the source image has no pixels"},
    {0x80000783u, "kip_statusProjectionWouldClip", "the rectangle reaches outside the source image"},
    {0x80000784u, "kip_statusProjectionOutsideSource", "the rectangle lies outside the source image"},
    {0x80000786u, "kip_statusTransformSourceUnbound", "the source image has no pixels"},
    {0x80000787u, "kip_statusTransformWouldClip",
     "the rectangle, with the neighbours that its samples need, reaches outside the source image"},
    {0x80000788u, "kip_statusTransformOutsideSource", "the rectangle lies outside the source image"},
    {0x8000078au, "kip_statusSizeBelowOne", "the result would have less than one column or row"},
    {0x8000078bu, "kip_statusSourceTooLarge", "the source image has rows more than 32767 pixels apart, or more rows"},
    {0x8000078cu, "kip_statusProjectionModeUnsupported", "16-bit projections have no table-driven modes"},
    {0x80000790u, "kip_statusUnknownMode", "there is no such interpolation mode"},
    {0x80000791u, "kip_statusWindowMismatch", "the windows do not fit each other"},
    {0x80000792u, "kip_statusPixelDepth", "the pixels have another depth than the operation"},
    {0x80000793u, "kip_statusCacheNotConstructed", "the cache has not been constructed"},
    {0x80000794u, "kip_statusMisaligned", "16-bit pixels at an odd address"},
};

constexpr Status kSuccess = {0, "success", "success"};
constexpr Status kUnknown = {0, "unknown status", "unknown status"};

const Status &describe(int32_t status)
{
    if (status >= 0)
        return kSuccess;
    const auto code = static_cast<uint32_t>(status);
    const auto *const found = std::ranges::lower_bound(kStatuses, code, {}, &Status::code);
    return found != std::end(kStatuses) && found->code == code ? *found : kUnknown;
}

} // namespace

const char *kprt_statusName(int32_t status)
{
    return describe(status).name;
}

const char *kprt_statusText(int32_t status)
{
    return describe(status).text;
}
