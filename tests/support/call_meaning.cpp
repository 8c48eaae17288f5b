#include "support/call_meaning.h"

#include <algorithm>

#include "support/images.h"
#include "support/slow_model.h"
#include "support/turns.h"

namespace kip::test {

namespace {

// ---- Transforms ---------------------------------------------------------------------------------------------------

// The block of so many destination columns and rows whose top left source pixel is (left, top).
Picture turned(const kimg_windowConst &source, const Turn &turn, int32_t left, int32_t top, int32_t columns,
               int32_t rows)
{
    const int32_t startX = left + std::max({0, -turn.right.x * (columns - 1), -turn.down.x * (rows - 1)});
    const int32_t startY = top + std::max({0, -turn.right.y * (columns - 1), -turn.down.y * (rows - 1)});
    Picture picture = {columns, rows};
    for (int32_t y = 0; y < rows; ++y)
        for (int32_t x = 0; x < columns; ++x)
            picture.pixels.push_back(valueAt(source, startX + x * turn.right.x + y * turn.down.x,
                                             startY + x * turn.right.y + y * turn.down.y));
    return picture;
}

Picture transformedSlowly(const SamplingCall &call, const kimg_windowConst &source)
{
    kip_affine_imageAlignment code;
    kstd_rect32 block;
    if (kip_affine_imageAlignment_compute(&call.params, &call.srcFromClient, &code, &block) >= 0 &&
        code != kip_affine_alignNone)
        return turned(source, turnOf(code), block.x - source.x, block.y - source.y, call.params.destWidth,
                      call.params.destHeight);
    const bool isFast = kprt_isOptimizationInhibited(L"kip_affineProcess") == 0;
    return {call.params.destWidth, call.params.destHeight,
            resampleSlowly(source, call.srcFromClient, call.params, isFast)};
}

// A transform by the library, onto an image of its own.
int32_t transformed(const kimg_image &source, const kip_affineSampleParams &params, Picture *picture)
{
    Image made;
    const auto transform = constWindowOf(source).bytesPerPixel == 1 ? kip_affineTransform : kip_affineTransform16;
    const int32_t status = transform(&source, made.get(), &params, nullptr);
    if (status >= 0) {
        const kimg_windowConst window = constWindowOf(made.image);
        *picture = turned(window, kTurns[0], 0, 0, window.width, window.height);
    }
    return status;
}

// ---- Round the source ---------------------------------------------------------------------------------------------

// A source in a black frame, as large as a sampling may read.
class FramedSource : public Image {
public:
    // value: of all the source's pixels, below 0 for their own. status tells if there is no such frame.
    FramedSource(const kimg_image &own, const kip_affineSampleParams &params, int32_t bytesPerPixel, int64_t value)
    {
        kstd_rect32 rect{};
        status = kip_affineSampleParams_getMaxSrcRect(&params, &own, &rect);
        if (status < 0)
            return;
        kimg_image_destruct(&image);
        status = kimg_image_construct(&image, bytesPerPixel, rect.width, rect.height);
        if (status < 0)
            return;
        const kimg_windowConst source = constWindowOf(own);
        kimg_window frame;
        kimg_window_init(&frame, &image);
        bytesPerPixel == 1 ? kip_pelSetWindow8(&frame, 0) : kip_pelSetWindow16(&frame, 0);
        const int64_t left = std::max<int64_t>(0, int64_t{own.x} - rect.x);
        const int64_t top = std::max<int64_t>(0, int64_t{own.y} - rect.y);
        const int64_t right = std::min<int64_t>(rect.width, int64_t{own.x} + own.width - rect.x);
        const int64_t bottom = std::min<int64_t>(rect.height, int64_t{own.y} + own.height - rect.y);
        for (int64_t y = top; y < bottom; ++y) {
            for (int64_t x = left; x < right; ++x) {
                const auto pixel =
                    static_cast<uint16_t>(value >= 0 ? value : valueAt(source, rect.x + x - own.x, rect.y + y - own.y));
                const auto narrow = static_cast<uint8_t>(pixel);
                auto *const at = static_cast<uint8_t *>(frame.pixels) + (y * frame.pitch + x) * bytesPerPixel;
                bytesPerPixel == 1 ? std::memcpy(at, &narrow, 1) : std::memcpy(at, &pixel, 2);
            }
        }
        hasSource = left < right && top < bottom;
        kmath_xformLinear map;
        kimg_imageConst_getLinearImageFromClientXform(&own, &map);
        kimg_image_setLinearImageFromClientXform(&image, &map);
        image.x = rect.x;
        image.y = rect.y;
    }

    int32_t transform(const kip_affineSampleParams &params, Picture *picture) const
    {
        return status < 0 ? status : transformed(image, params, picture);
    }

    bool hasSource = false;
};

// As a transform where it is not clipped. The frame of a projection's coverage is as deep as its source.
void giveClipped(const SamplingCall &call, const kimg_image &source, int32_t coverBytes, Meaning *meaning)
{
    int32_t clips = 0;
    meaning->status = kip_affineSampleParams_getWillClip(&call.params, &source, &clips);
    if (meaning->status < 0)
        return;
    meaning->clips = clips != 0;
    if (clips == 0) {
        meaning->status = transformed(source, call.params, &meaning->result);
        return;
    }
    const FramedSource framed(source, call.params, call.bytesPerPixel, kUnknown);
    meaning->status = framed.transform(call.params, &meaning->result);
    if (meaning->status == kip_statusSourceTooLarge && isProjection(call.operation)) {
        // A transform asks for the size of its source first, a projection for the place of its result.
        kmath_xformLinear placement;
        const int32_t placed = kip_affineSampleParams_getDestImageFromClientXform(&call.params, 1, &placement);
        if (placed < 0)
            meaning->status = placed;
    }
    if (meaning->status >= 0 && !framed.hasSource) {
        meaning->status = kip_statusTransformOutsideSource;
    } else if (meaning->status >= 0 && (isProjection(call.operation) || call.hasMask)) {
        const FramedSource cover(source, call.params, coverBytes, call.coverageValue);
        meaning->status = cover.transform(call.params, &meaning->second);
    }
}

// ---- Sums ---------------------------------------------------------------------------------------------------------

Picture lineSums(const Picture &picture, bool ofColumns)
{
    Picture sums = {ofColumns ? picture.width : picture.height, picture.pixels.empty() ? 0 : 1};
    sums.pixels.resize(static_cast<size_t>(sums.width));
    for (int64_t y = 0; y < picture.height; ++y) {
        for (int64_t x = 0; x < picture.width; ++x) {
            int64_t &sum = sums.pixels[static_cast<size_t>(ofColumns ? x : y)];
            sum = static_cast<uint32_t>(sum + picture.at(x, y));
        }
    }
    return sums;
}

// What a projection answers where the transform of the same answers so.
int32_t projectionStatus(const SamplingCall &call, int32_t transformStatus, bool isClipped)
{
    if (transformStatus == kip_statusTransformWouldClip)
        return kip_statusProjectionWouldClip;
    const bool isOffered = call.bytesPerPixel == 1 || call.params.mode <= kip_affineModeBilinear;
    const bool isAnswered = isOffered || (transformStatus == kip_statusSourceTooLarge && !isClipped);
    if (!isAnswered)
        return kip_statusProjectionModeUnsupported;
    return transformStatus == kip_statusTransformOutsideSource ? kip_statusProjectionOutsideSource : transformStatus;
}

int64_t rounded(double value)
{
    return static_cast<uint32_t>(static_cast<uint64_t>(value + 0.5));
}

// Means of the columns that the image holds, between the first and the last that have any coverage.
void normalize(const kimg_image &image, Meaning *meaning)
{
    Picture &sums = meaning->result;
    Scalars &scalars = meaning->scalars;
    const int32_t from = image.width == 0 ? 0 : std::max(0, image.x);
    const auto to = static_cast<int32_t>(
        image.width == 0 ? sums.width : std::min<int64_t>(sums.width, int64_t{image.x} + image.width));
    const bool holdsRow = image.width == 0 || (image.y <= 0 && int64_t{image.y} + image.height > 0);
    scalars.first = scalars.end = 0;
    if (!meaning->clips) {
        scalars.first = from;
        scalars.end = to;
        return;
    }
    scalars.depth = kUnset;
    if (from >= to || !holdsRow)
        return;
    scalars.first = scalars.end = to;
    const auto isCovered = [&](int32_t c) { return meaning->second.at(c, 0) != 0; };
    int32_t first = from;
    int32_t end = to;
    while (first < end && !isCovered(first))
        ++first;
    while (first < end && !isCovered(end - 1))
        --end;
    for (int32_t c = first; c < end; ++c) {
        const double share = static_cast<double>(meaning->second.at(c, 0)) * (1.0 / 255);
        int64_t &sum = sums.pixels[static_cast<size_t>(c)];
        const bool counts = rounded(share) != 0;
        sum = counts ? rounded(static_cast<double>(sum) / share) : 0;
        scalars.depth = 1;
        if (counts && scalars.first == to)
            scalars.first = c;
        if (counts)
            scalars.end = c + 1;
    }
}

void giveProjection(const SamplingCall &given, const kimg_image &source, const kimg_image &result, Meaning *meaning)
{
    SamplingCall call = given;
    const bool isNorm = call.operation == Operation::projectNorm;
    if (isNorm)
        call.coverageValue = 255;
    if (call.operation == Operation::project || call.operation == Operation::projectWindow ||
        (isNorm && call.clip == 0))
        meaning->status = transformed(source, call.params, &meaning->result);
    else
        giveClipped(call, source, call.bytesPerPixel, meaning);
    meaning->status = projectionStatus(call, meaning->status, meaning->clips);
    meaning->result = lineSums(meaning->result, true);
    meaning->second = lineSums(meaning->second, true);
    if (meaning->status < 0)
        return;
    const auto &coverage = meaning->second.pixels;
    meaning->scalars.depth = static_cast<uint32_t>(meaning->clips ? *std::max_element(coverage.begin(), coverage.end())
                                                                  : call.params.destHeight);
    if (isNorm) {
        normalize(result, meaning);
        meaning->second = {};
        meaning->clips = false;
    }
    if (call.operation == Operation::projectWindow || call.operation == Operation::projectClippedWindow)
        kip_affineSampleParams_getDestImageFromClientXform(&call.params, 1, &meaning->scalars.placement);
    if (!call.asksAll && !hasSecond(call))
        meaning->scalars.depth = kUnset, meaning->scalars.first = meaning->scalars.end = kUnset;
}

// ---- Windows ------------------------------------------------------------------------------------------------------

void giveSums(const SamplingCall &call, const kimg_image &source, Meaning *meaning)
{
    const kimg_windowConst window = constWindowOf(source);
    meaning->result = lineSums(turned(window, kTurns[0], 0, 0, window.width, window.height), call.sumsColumns);
    if (call.asksAll)
        meaning->scalars.sumDepth = call.sumsColumns ? window.height : window.width;
    const bool isVector =
        call.operation == Operation::sumImageIntoVector || call.operation == Operation::sumWindowIntoVector;
    if (call.operation == Operation::sumWindow && !call.result.isBound)
        meaning->status = kip_statusPixelDepth;
    else if (!isVector && call.result.isBound && call.result.width < meaning->result.width)
        meaning->status = kip_statusWindowMismatch;
}

// In place, the source is the part of the destination's window that has its size.
void giveAligned(const SamplingCall &call, const kimg_image &source, const kimg_image &result, Meaning *meaning)
{
    const Turn &turn = turnOf(call.alignCode);
    kimg_windowConst from = constWindowOf(call.isInPlace ? result : source);
    from.width = call.width;
    from.height = call.height;
    const int32_t columns = turn.swapsAxes() ? from.height : from.width;
    const int32_t rows = turn.swapsAxes() ? from.width : from.height;
    const bool isSquare = call.isInPlace && turn.swapsAxes();
    const bool fits = turn.swapsAxes() ? result.width <= columns && result.height <= rows
                                       : result.width >= columns && result.height >= rows;
    if (!fits || (isSquare && (columns != rows || result.width != result.height || result.width != columns)))
        meaning->status = kip_statusWindowMismatch;
    else
        meaning->result = turned(from, turn, 0, 0, turn.swapsAxes() ? result.width : columns,
                                 turn.swapsAxes() ? result.height : rows);
}

} // namespace

Meaning meaningOf(const SamplingCall &call, const kimg_image &source, const kimg_image &result, int32_t status)
{
    Meaning meaning;
    if (isProjection(call.operation)) {
        giveProjection(call, source, result, &meaning);
    } else if (isSum(call.operation)) {
        giveSums(call, source, &meaning);
    } else if (call.operation == Operation::transformAligned) {
        giveAligned(call, source, result, &meaning);
    } else if (call.operation == Operation::transformClipped) {
        SamplingCall white = call;
        white.coverageValue = 255;
        giveClipped(white, source, 1, &meaning);
    } else {
        meaning.status = status;
        if (status >= 0 && call.operation != Operation::analyse)
            meaning.result = transformedSlowly(call, constWindowOf(source));
    }
    return meaning;
}

} // namespace kip::test
