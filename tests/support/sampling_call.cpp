#include "support/sampling_call.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <sstream>

#include "support/call_meaning.h"
#include "support/geometry_model.h"
#include "support/placed_image.h"
#include "support/random.h"
#include "support/records.h"
#include "support/turns.h"

namespace kip::test {

namespace {

int32_t resultPixelBytes(const SamplingCall &call)
{
    return isProjection(call.operation) || isSum(call.operation) ? 4 : call.bytesPerPixel;
}

Target sourceOf(const SamplingCall &call)
{
    return {call.isSourceBound,      call.width,           call.height, call.pitch, call.x, call.y,
            call.sourceMisalignment, call.sourcePixelBytes};
}

// ---- The call itself ----------------------------------------------------------------------------------------------

struct Invocation {
    const SamplingCall &call;
    const PlacedImage &source;
    PlacedImage &result, &second;
    kip_affineSampleCache **cache;
    kimg_windowConst from{};
    kimg_window to{}, toSecond{};
    Scalars scalars{};
    int32_t clips = kUnset; // the will-clip flag
    kstd_vector32 vector{};
    std::string fault{}; // of an analysis

    void openWindows()
    {
        kstd_vector32_construct(&vector);
        kimg_windowConst_init(&from, &source.image);
        kimg_window_init(&to, &result.image);
        kimg_window_init(&toSecond, &second.image);
        if (call.hasOtherWindow) {
            from.width = call.windowWidth;
            from.height = call.windowHeight;
        }
        if (call.isInPlace) {
            from.pixels = to.pixels;
            if (from.height > 1 && from.width > 0) // nothing reads the pitch of a single row
                from.pitch = to.pitch;
        }
    }
};

int32_t invokeSum(Invocation &in)
{
    const bool columns = in.call.sumsColumns;
    int32_t *const depth = in.call.asksAll ? &in.scalars.sumDepth : nullptr;
    const kimg_image *const source = &in.source.image;
    switch (in.call.operation) {
    case Operation::sumImage:
        return (columns ? kip_projectVertical8 : kip_projectHorizontal8)(source, &in.result.image, depth);
    case Operation::sumImageIntoVector:
        return (columns ? kip_projectVerticalVector8 : kip_projectHorizontalVector8)(source, &in.vector, depth);
    case Operation::sumWindowIntoVector:
        return (columns ? kip_projectVerticalVectorWindow8 : kip_projectHorizontalVectorWindow8)(&in.from, &in.vector,
                                                                                                 depth);
    default:
        return (columns ? kip_projectVerticalWindow8 : kip_projectHorizontalWindow8)(&in.from, &in.to, depth);
    }
}

// All that can be asked of a sampling without its pixels. Outputs of what fails must stay as they are. The status is
// the first failure's.
int32_t analyse(Invocation &in)
{
    constexpr kmath_xformLinear kNoMap = {1, 2, 3, 4, 5, 6};
    constexpr kstd_rect32 kNoRect = {1, 2, 3, 4};
    const kip_affineSampleParams &params = in.call.params;
    const kimg_image *const image = &in.source.image;
    const kmath_xformLinear &map = in.call.srcFromClient;
    int32_t first = 0;
    const auto check = [&](int32_t status, const auto &output, const auto &before) {
        first = first < 0 ? first : std::min(status, 0);
        if (status < 0 && std::memcmp(&output, &before, sizeof output) != 0)
            in.fault += "an output was written in failure; ";
    };
    kstd_rect32 rects[] = {kNoRect, kNoRect, kNoRect};
    check(kip_affineSampleParams_getMaxSrcRect(&params, image, &rects[0]), rects[0], kNoRect);
    check(kip_affineSampleParams_getMaxSrcRectWindow(&params, &in.from, &map, &rects[1]), rects[1], kNoRect);
    int32_t flags[] = {kUnset, kUnset};
    const int32_t statuses[] = {kip_affineSampleParams_getWillClip(&params, image, &flags[0]),
                                kip_affineSampleParams_getWillClipWindow(&params, &in.from, &map, &flags[1])};
    for (const int i : {0, 1}) { // the flag may say yes before a failure
        const bool isAllowed = flags[i] == 1 || (statuses[i] < 0 ? flags[i] == kUnset : flags[i] == 0);
        check(statuses[i], isAllowed, true);
        in.scalars.depth += static_cast<uint32_t>(flags[i]);
    }
    if (!in.call.hasOtherWindow && (std::memcmp(&rects[0], &rects[1], sizeof rects[0]) != 0 || flags[0] != flags[1]))
        in.fault += "an image and its window differ; ";
    const int32_t aligned = kip_affine_imageAlignment_compute(&params, &map, &in.scalars.first, &rects[2]);
    check(aligned, rects[2], kNoRect);
    in.scalars.placement = kNoMap;
    int32_t placed = 0;
    if (params.destWidth >= 1 && params.destHeight >= 1) // the caller's duty
        placed = kip_affineSampleParams_getDestImageFromClientXform(&params, in.call.clip & 1, &in.scalars.placement);
    check(placed, in.scalars.placement, kNoMap);
    if (params.destWidth >= 1 && params.destHeight >= 1 && params.mode <= kip_affineModeBicubic) {
        const GeometryModel model = modelGeometry(params, map, in.from);
        if (statuses[1] >= 0 && model.clips.value_or(flags[1] != 0) != (flags[1] != 0))
            in.fault += "clips otherwise; ";
        if (model.footprint && *model.footprint != rects[1])
            in.fault += "another footprint; ";
        const bool isSingular = placed == kmath_statusSingular;
        if (placed != kmath_statusNotFinite && model.isParallel.value_or(isSingular) != isSingular)
            in.fault += "placed otherwise; ";
        if (aligned >= 0 && (model.alignment.value_or(in.scalars.first) != in.scalars.first ||
                             model.block.value_or(rects[2]) != rects[2]))
            in.fault += "aligned otherwise; ";
    }
    const kip_affineSampleParams before = {kNoMap, 9, 8, 7};
    kip_affineSampleParams made = before;
    check(kip_affineSampleParams_initRectStandard(&made, &params.rect, in.call.hasMask ? &map : nullptr), made.rect,
          before.rect);
    in.scalars.sumDepth = made.destWidth;
    in.scalars.end = made.destHeight;
    kip_affineSampleParams_init(&made, params.mode, &params.rect, params.destWidth, params.destHeight);
    if (std::memcmp(&made.rect, &params.rect, sizeof made.rect) != 0 || made.mode != params.mode ||
        made.destWidth != params.destWidth || made.destHeight != params.destHeight)
        in.fault += "other parameters than those given; ";
    for (const kstd_rect32 &rect : rects)
        for (const int32_t number : {rect.x, rect.y, rect.width, rect.height})
            in.scalars.depth = in.scalars.depth * 31 + static_cast<uint32_t>(number);
    return first;
}

int32_t invoke(Invocation &in)
{
    const SamplingCall &call = in.call;
    const bool wide = call.bytesPerPixel == 2;
    const kimg_image *const source = &in.source.image;
    kimg_image *const result = &in.result.image;
    kimg_image *const second = &in.second.image;
    const kip_affineSampleParams *const params = &call.params;
    uint32_t *const depth = call.asksAll ? &in.scalars.depth : nullptr;
    int32_t *const first = call.asksAll ? &in.scalars.first : nullptr;
    kmath_xformLinear *const placement = &in.scalars.placement;
    auto *const clips = reinterpret_cast<uint32_t *>(&in.clips);

    switch (call.operation) {
    case Operation::transform:
        return (wide ? kip_affineTransform16 : kip_affineTransform)(source, result, params, in.cache);
    case Operation::transformShort:
        return kip_affine8(params, source, result);
    case Operation::transformClipped:
        return (wide ? kip_affineTransformClipped16 : kip_affineTransformClipped)(
            source, result, call.hasMask ? second : nullptr, params, in.cache, &in.clips);
    case Operation::transformAligned:
        return (wide ? kip_affineTransformAligned16 : kip_affineTransformAligned)(&in.from, &in.to, call.alignCode);
    case Operation::project:
        return (wide ? kip_affineProject16 : kip_affineProject)(source, result, params, in.cache, depth);
    case Operation::projectWindow:
        return (wide ? kip_affineProjectWindow16 : kip_affineProjectWindow)(&in.from, &call.srcFromClient, &in.to,
                                                                            params, in.cache, placement, depth);
    case Operation::projectClipped:
        return (wide ? kip_affineProjectClipped16 : kip_affineProjectClipped)(
            source, result, second, params, in.cache, call.coverageValue, &in.scalars.depth, clips);
    case Operation::projectClippedWindow:
        return (wide ? kip_affineProjectClippedWindow16 : kip_affineProjectClippedWindow)(
            &in.from, &call.srcFromClient, &in.to, &in.toSecond, params, in.cache, placement, call.coverageValue,
            &in.scalars.depth, clips);
    case Operation::projectNorm:
        return (wide ? kip_affineProjectNorm16 : kip_affineProjectNorm)(
            source, result, params, call.clip, in.cache, depth, first, call.asksAll ? &in.scalars.end : nullptr);
    case Operation::analyse:
        return analyse(in);
    default:
        return invokeSum(in);
    }
}

// ---- What came of it ----------------------------------------------------------------------------------------------

class Digest {
public:
    template <typename T>
    void add(const T &value)
    {
        addBytes(&value, sizeof value);
    }
    void addBytes(const void *data, size_t count)
    {
        const auto *at = static_cast<const uint8_t *>(data);
        for (; count > 0; at += sizeof(uint64_t), count -= std::min(count, sizeof(uint64_t))) {
            uint64_t word = count;
            std::memcpy(&word, at, std::min(count, sizeof word));
            sum = (sum ^ word) * 0x9E3779B97F4A7C15;
            sum ^= sum >> 29;
        }
    }
    void addImage(const Image &added)
    {
        const std::vector<uint8_t> bytes = added.bytes();
        add(added.map());
        add(added.image.width);
        addBytes(bytes.data(), bytes.size());
    }
    uint64_t value() const { return sum; }

private:
    uint64_t sum = 0;
};

struct Written {
    bool result, second;
};

// What a call that failed may have written all the same.
Written writtenInFailure(const SamplingCall &call, int32_t status)
{
    const bool isOutside = status == kip_statusTransformOutsideSource || status == kip_statusProjectionOutsideSource;
    const bool isOfMemory = status == ksys_statusOutOfMemory || status == ksys_statusSizeTooLarge;
    const bool isRefusal = status != kStopped && !isOfMemory && !isOutside;
    switch (call.operation) {
    case Operation::transformClipped: // stopped by attention, it has not begun
        return {isOutside || isOfMemory, false};
    case Operation::projectClipped:
    case Operation::projectClippedWindow:
        return {!isRefusal, !isRefusal && !isOutside};
    case Operation::projectNorm:
        return {!isRefusal && call.clip != 0, false};
    default:
        return {false, false};
    }
}

std::string brokenPromises(const Invocation &in, int32_t status, const Scalars &before)
{
    const SamplingCall &call = in.call;
    std::string fault = in.result.strayWrite() + in.second.strayWrite();
    Written written = {true, hasSecond(call) && in.clips != 0};
    if (status < 0) {
        written = writtenInFailure(call, status);
        Scalars expected = before;
        if (call.operation == Operation::projectClippedWindow && written.result)
            expected.placement = in.scalars.placement;
        if (!(in.scalars == expected))
            fault += "a number was written in failure; ";
        const bool isWhole = call.operation <= Operation::transformShort;
        if ((isWhole && !call.result.isBound && in.result.image.width != 0) ||
            (call.operation == Operation::transformClipped && !call.second.isBound && in.second.image.width != 0))
            fault += "pixels made in failure; ";
        if ((!written.result && !in.result.hasMap(kMapBefore)) || (!written.second && !in.second.hasMap(kMapBefore)))
            fault += "a map was written in failure; ";
    }
    const Extent extent = resultExtent(call);
    fault += in.result.writtenBeyond(written.result ? extent.width : 0, written.result ? extent.height : 0);
    fault += in.second.writtenBeyond(written.second ? extent.width : 0, written.second ? extent.height : 0);
    return fault;
}

// Images that sampling makes or fills whole get the result's map, others keep theirs.
std::string wrongMap(const SamplingCall &call, const PlacedImage &image, const Target &target, bool isClipped)
{
    const bool isWindow = call.operation == Operation::projectWindow ||
                          call.operation == Operation::projectClippedWindow || !samples(call.operation);
    const Extent extent = resultExtent(call);
    const bool isWhole = !target.isBound || (target.width == extent.width && target.height == extent.height &&
                                             target.x == 0 && target.y == 0);
    kmath_xformLinear expected = kMapBefore;
    if (!isWindow && (isWhole || !isClipped || isProjection(call.operation)))
        kip_affineSampleParams_getDestImageFromClientXform(&call.params, isProjection(call.operation) ? 1 : 0,
                                                           &expected);
    return image.hasMap(expected) || (isSum(call.operation) && !target.isBound) ? "" : "another map; ";
}

std::string difference(const Invocation &in, const Meaning &meaning, int32_t status)
{
    const SamplingCall &call = in.call;
    const bool isWindow = call.operation == Operation::projectWindow ||
                          call.operation == Operation::projectClippedWindow || !samples(call.operation);
    // The model of a clipped call takes more memory than the call.
    if (meaning.status == ksys_statusOutOfMemory)
        return "";
    if (std::min(status, 0) != std::min(meaning.status, 0))
        return "status " + std::to_string(status) + " instead of " + std::to_string(meaning.status) + "; ";
    const bool isOutside = status == kip_statusTransformOutsideSource || status == kip_statusProjectionOutsideSource;
    if (status < 0) // zeros outside, where there is room for a whole row of them
        return isOutside && in.result.holds(isProjection(call.operation) ? call.params.destWidth : 0)
                   ? in.result.difference(meaning.result)
                   : "";
    std::string fault;
    const bool tells = call.operation == Operation::transformClipped || call.operation == Operation::projectClipped ||
                       call.operation == Operation::projectClippedWindow;
    if (tells && in.clips != (meaning.clips ? 1 : 0))
        fault += "wrong will-clip flag; ";
    if (!(in.scalars == meaning.scalars))
        fault += "another number; ";
    const bool isVector =
        call.operation == Operation::sumImageIntoVector || call.operation == Operation::sumWindowIntoVector;
    if (isVector) {
        const auto &expected = meaning.result.pixels;
        if (!std::equal(expected.begin(), expected.end(), in.vector.begin, in.vector.begin + in.vector.size))
            fault += "another vector; ";
        return fault;
    }
    if (call.result.isBound || !isWindow || call.operation == Operation::sumImage) {
        fault += in.result.difference(meaning.result);
        fault += wrongMap(call, in.result, call.result, meaning.clips);
    }
    if (!meaning.second.pixels.empty() && (call.second.isBound || !isWindow)) {
        fault += in.second.difference(meaning.second);
        fault += wrongMap(call, in.second, call.second, meaning.clips);
    }
    return fault;
}

} // namespace

CallMemory::CallMemory()
{
    Random random(60001);
    std::generate_n(std::back_inserter(noise), kNoiseBytes, [&] { return static_cast<uint8_t>(random.next() >> 32); });
    noise.resize(2 * kNoiseBytes);
    std::copy_n(noise.begin(), kNoiseBytes, noise.begin() + kNoiseBytes);
}

bool isProjection(Operation operation)
{
    return operation >= Operation::project && operation <= Operation::projectNorm;
}

bool isSum(Operation operation)
{
    return operation >= Operation::sumImage && operation <= Operation::sumWindow;
}

bool takesCache(Operation operation)
{
    return samples(operation) && operation != Operation::transformShort;
}

bool samples(Operation operation)
{
    return operation != Operation::transformAligned && operation != Operation::analyse && !isSum(operation);
}

bool hasSecond(const SamplingCall &call)
{
    return (call.operation == Operation::transformClipped && call.hasMask) ||
           call.operation == Operation::projectClipped || call.operation == Operation::projectClippedWindow;
}

bool isWorthJobs(const SamplingCall &call, bool splitsAll)
{
    kip_affine_imageAlignment code;
    const bool isLarge = call.params.destHeight > 336 && call.params.destWidth * call.params.destHeight >= 0x10000;
    const bool isCut = call.operation <= Operation::transformClipped && call.params.mode == kip_affineModeBilinear;
    const bool isSplit = splitsAll && samples(call.operation) && call.params.mode != kip_affineModeNearest;
    return (isCut || isSplit) && isLarge &&
           kip_affine_imageAlignment_compute(&call.params, &call.srcFromClient, &code, nullptr) >= 0 &&
           code == kip_affine_alignNone;
}

Extent resultExtent(const SamplingCall &call)
{
    if (isSum(call.operation))
        return {call.sumsColumns ? call.width : call.height, 1};
    if (call.operation != Operation::transformAligned)
        return {call.params.destWidth, isProjection(call.operation) ? 1 : call.params.destHeight};
    return turnOf(call.alignCode).swapsAxes() ? Extent{call.height, call.width} : Extent{call.width, call.height};
}

Outcome runCall(const SamplingCall &call, const CallMemory &memory, kip_affineSampleCache **cache, Check check,
                bool isOtherSide)
{
    const auto side = [isOtherSide](Guard guard) {
        return (guard == Guard::before) != isOtherSide ? Guard::before : Guard::behind;
    };
    PlacedImage source(memory.source, side(call.sourceGuard), sourceOf(call), call.bytesPerPixel);
    PlacedImage result(memory.result, side(call.destinationGuard), call.result, resultPixelBytes(call));
    PlacedImage second(memory.second, side(call.destinationGuard), call.second,
                       call.operation == Operation::transformClipped ? 1 : 4);
    for (const int32_t status : {source.status, result.status, second.status,
                                 kimg_image_setLinearImageFromClientXform(&source.image, &call.srcFromClient)}) {
        if (status < 0)
            return {status};
    }
    source.fill(0xFF);
    if (!call.isWhite)
        source.fillRows(memory.noise, call.seed);
    result.fill(kBefore);
    second.fill(kBefore);
    Meaning meaning;
    if (call.isInPlace)
        result.fillRows(memory.noise, call.seed);
    const bool isAligned = call.operation == Operation::transformAligned;
    if (check == Check::meaning && isAligned) // the call may write to its source
        meaning = meaningOf(call, source.image, result.image, 0);

    Invocation in = {call, source, result, second, cache};
    const Scalars before;
    Outcome outcome;
    in.openWindows();
    if (aroundInvocation != nullptr)
        aroundInvocation(true);
    outcome.status = invoke(in);
    if (aroundInvocation != nullptr)
        aroundInvocation(false);
    if (outcome.status < 0 && outcome.status != kStopped && static_cast<uint32_t>(outcome.status) >> 12 != 0x80000)
        outcome.fault = "a status of no library; ";
    outcome.fault += in.fault;
    if (call.isInPlace || call.operation == Operation::analyse)
        outcome.fault += result.strayWrite();
    else
        outcome.fault += brokenPromises(in, outcome.status, before);
    if (check == Check::meaning && !isAligned)
        meaning = meaningOf(call, source.image, result.image, outcome.status);
    if (check == Check::meaning && call.operation != Operation::analyse)
        outcome.fault += difference(in, meaning, outcome.status);

    Digest digest;
    digest.add(outcome.status);
    digest.add(in.scalars);
    if (outcome.status >= 0) {
        digest.add(in.clips);
        digest.addImage(result);
        digest.addImage(second);
        digest.addBytes(in.vector.begin, size_t(in.vector.size) * sizeof(uint32_t));
    }
    outcome.digest = digest.value();
    kstd_vector32_destruct(&in.vector);
    return outcome;
}

const char *nameOf(Operation operation)
{
    static constexpr const char *kNames[] = {
        "transform",   "transformShort", "transformClipped",   "transformAligned",
        "project",     "projectWindow",  "projectClipped",     "projectClippedWindow",
        "projectNorm", "sumImage",       "sumImageIntoVector", "sumWindowIntoVector",
        "sumWindow",   "analyse",
    };
    static_assert(std::size(kNames) == std::size(kOperations));
    return kNames[static_cast<size_t>(operation)];
}

std::string describe(const SamplingCall &call)
{
    std::ostringstream text;
    text.precision(17);
    text << nameOf(call.operation) << ", " << 8 * call.bytesPerPixel << " bit, mode " << call.params.mode << ", map ";
    PrintTo(call.srcFromClient, &text);
    text << ", rect ";
    PrintTo(call.params.rect, &text);
    text << " onto " << call.params.destWidth << " x " << call.params.destHeight << ", guards "
         << static_cast<int>(call.sourceGuard) << " " << static_cast<int>(call.destinationGuard) << ", seed "
         << call.seed << (call.isWhite ? ", white" : "");
    for (const Target &image : {sourceOf(call), call.result, call.second})
        text << (image.isBound ? ", bound " : ", unbound ") << image.width << " x " << image.height << " pitch "
             << image.pitch << " at (" << image.x << ", " << image.y << ") + " << image.misalignment;
    text << ", mask " << call.hasMask << ", clip " << call.clip << ", align " << call.alignCode << ", in place "
         << call.isInPlace << ", columns " << call.sumsColumns << ", coverage " << int{call.coverageValue};
    return text.str();
}

} // namespace kip::test
