#include "robustness/sampling_call.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <iterator>
#include <sstream>

#include "support/turns.h"

namespace kip::test {

namespace {

constexpr size_t kNoiseBytes = size_t{1} << 17;
constexpr kmath_xformLinear kMapBefore = {7, -3, 2, 0.5, 0.25, 4};
constexpr uint8_t kBefore = 0x5A; // what results hold before a call
constexpr ptrdiff_t kReach = 256; // how far round an image stray writes are looked for

constexpr int32_t kStatuses[] = {
    kip_statusProjectionSourceUnbound,
    kip_statusProjectionWouldClip,
    kip_statusProjectionOutsideSource,
    kip_statusTransformSourceUnbound,
    kip_statusTransformWouldClip,
    kip_statusTransformOutsideSource,
    kip_statusSizeBelowOne,
    kip_statusSourceTooLarge,
    kip_statusProjectionModeUnsupported,
    kip_statusUnknownMode,
    kip_statusWindowMismatch,
    kip_statusPixelDepth,
    kip_statusCacheNotConstructed,
    kip_statusMisaligned,
    kip_pelStatusOverlap,
    kimg_statusNoPixels,
    kimg_statusBadSize,
    kimg_statusTooLarge,
    kmath_statusNotFinite,
    kmath_statusSingular,
    kmath_statusOutOfRange,
    kstd_statusNegativeSize,
    kstd_statusTooLarge,
    ksys_statusOutOfMemory,
    ksys_statusSizeTooLarge,
};

bool isProjection(Operation operation)
{
    return operation >= Operation::project && operation <= Operation::projectNorm;
}

bool isSum(Operation operation)
{
    return operation >= Operation::sumImage;
}

bool hasSecond(const SamplingCall &call)
{
    return (call.operation == Operation::transformClipped && call.hasMask) ||
           call.operation == Operation::projectClipped || call.operation == Operation::projectClippedWindow;
}

int32_t resultPixelBytes(const SamplingCall &call)
{
    return isProjection(call.operation) || isSum(call.operation) ? 4 : call.bytesPerPixel;
}

// ---- Images -------------------------------------------------------------------------------------------------------

// An image in guarded memory, or an unbound one.
class PlacedImage {
public:
    PlacedImage(const GuardedMemory &guarded, Guard guard, const Target &target, int32_t pixelBytes)
        : memory(guarded), place(target), bytesPerPixel(pixelBytes)
    {
        if (!place.isBound) {
            status = kimg_image_constructUnbound(&image);
            return;
        }
        pitchBytes = size_t(std::abs(int64_t{place.pitch})) * size_t(bytesPerPixel);
        rowBytes = size_t(place.width) * size_t(bytesPerPixel);
        bytes = pitchBytes * size_t(place.height - 1) + rowBytes;
        const auto shift = static_cast<size_t>(place.misalignment);
        lowest = memory.place(bytes + shift, guard) + (guard == Guard::before ? shift : 0);
        uint8_t *const first = place.pitch < 0 ? lowest + pitchBytes * size_t(place.height - 1) : lowest;
        status = kimg_image_constructExternal(&image, bytesPerPixel, place.width, place.height, place.pitch, first);
        if (status >= 0)
            status = kimg_image_setLinearImageFromClientXform(&image, &kMapBefore);
        image.x = place.x;
        image.y = place.y;
    }
    ~PlacedImage() { kimg_image_destruct(&image); }
    PlacedImage(const PlacedImage &) = delete;
    PlacedImage &operator=(const PlacedImage &) = delete;

    uint8_t *row(int32_t y) const { return lowest + pitchBytes * size_t(place.pitch < 0 ? place.height - 1 - y : y); }

    void fillRows(const std::vector<uint8_t> &noise, uint64_t seed) const
    {
        for (int32_t y = 0; y < place.height; ++y) {
            size_t at = (seed + 977 * uint64_t(y)) % noise.size();
            for (size_t done = 0; done < rowBytes; at = 0) {
                const size_t count = std::min(rowBytes - done, noise.size() - at);
                std::memcpy(row(y) + done, noise.data() + at, count);
                done += count;
            }
        }
    }

    void putCanariesRound(uint8_t inside) const
    {
        if (!place.isBound)
            return;
        std::memset(from(), kCanary, static_cast<size_t>(to() - from()));
        for (int32_t y = 0; y < place.height; ++y)
            std::memset(row(y), inside, rowBytes);
    }

    std::string strayWrite() const
    {
        if (!place.isBound)
            return "";
        bool intact = isAll(from(), lowest, kCanary) && isAll(lowest + bytes, to(), kCanary);
        for (int32_t r = 0; intact && r + 1 < place.height; ++r)
            intact = isAll(lowest + pitchBytes * size_t(r) + rowBytes, lowest + pitchBytes * size_t(r + 1), kCanary);
        return intact ? "" : "stray write round an image; ";
    }

    // Whether only pixels at columns below width and rows below height, as the image is placed, were written.
    std::string writtenBeyond(int64_t width, int64_t height) const
    {
        for (int32_t y = 0; place.isBound && y < place.height; ++y) {
            const bool isReached = int64_t{place.y} + y >= 0 && int64_t{place.y} + y < height;
            const int64_t left = isReached ? std::clamp<int64_t>(-int64_t{place.x}, 0, place.width) : place.width;
            const int64_t right = isReached ? std::clamp<int64_t>(width - place.x, left, place.width) : place.width;
            if (!isAll(row(y), row(y) + left * bytesPerPixel, kBefore) ||
                !isAll(row(y) + right * bytesPerPixel, row(y) + rowBytes, kBefore))
                return "write where no result belongs; ";
        }
        return "";
    }

    bool isMapChanged() const
    {
        kmath_xformLinear map;
        kimg_imageConst_getLinearImageFromClientXform(&image, &map);
        return place.isBound && std::memcmp(&map, &kMapBefore, sizeof map) != 0;
    }

    kimg_image image{};
    int32_t status = 0;

private:
    static bool isAll(const uint8_t *from, const uint8_t *to, uint8_t value)
    {
        return to <= from || (*from == value && std::memcmp(from, from + 1, static_cast<size_t>(to - from - 1)) == 0);
    }
    uint8_t *from() const { return lowest - std::min<ptrdiff_t>(kReach, lowest - memory.begin()); }
    uint8_t *to() const
    {
        return lowest + bytes + std::min<ptrdiff_t>(kReach, memory.end() - lowest - ptrdiff_t(bytes));
    }

    const GuardedMemory &memory;
    Target place;
    int32_t bytesPerPixel;
    uint8_t *lowest = nullptr;
    size_t pitchBytes = 0, rowBytes = 0, bytes = 0;
};

// ---- Outcomes -----------------------------------------------------------------------------------------------------

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
    void addImage(const kimg_image &image)
    {
        kimg_windowConst window;
        kmath_xformLinear map;
        kimg_windowConst_init(&window, &image);
        kimg_imageConst_getLinearImageFromClientXform(&image, &map);
        add(map);
        add(window.width);
        const auto *row = static_cast<const uint8_t *>(window.pixels);
        for (int32_t y = 0; y < window.height; ++y, row += int64_t{window.pitch} * window.bytesPerPixel)
            addBytes(row, size_t(window.width) * size_t(window.bytesPerPixel));
    }
    uint64_t value() const { return sum; }

private:
    uint64_t sum = 0;
};

constexpr int32_t kUnset = 0x5A5A5A5A;

struct Scalars {
    uint32_t depth = kUnset;
    int32_t sumDepth = kUnset;
    int32_t first = kUnset, end = kUnset;
    kmath_xformLinear placement = {7, 7, 7, 7, 7, 7};

    bool operator==(const Scalars &other) const
    {
        return depth == other.depth && sumDepth == other.sumDepth && first == other.first && end == other.end &&
               std::memcmp(&placement, &other.placement, sizeof placement) == 0;
    }
};

// ---- The call itself ----------------------------------------------------------------------------------------------

struct Invocation {
    const SamplingCall &call;
    const PlacedImage &source;
    PlacedImage &result, &second;
    kip_affineSampleCache **cache;
    Scalars scalars{};
    int32_t clips = kUnset; // the will-clip flag
    kstd_vector32 vector{};
};

int32_t invokeSum(Invocation &in, const kimg_windowConst &from, kimg_window *to)
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
        return (columns ? kip_projectVerticalVectorWindow8 : kip_projectHorizontalVectorWindow8)(&from, &in.vector,
                                                                                                 depth);
    default:
        return (columns ? kip_projectVerticalWindow8 : kip_projectHorizontalWindow8)(&from, to, depth);
    }
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

    kimg_windowConst from;
    kimg_window to, toSecond;
    kimg_windowConst_init(&from, source);
    kimg_window_init(&to, result);
    kimg_window_init(&toSecond, second);
    if (call.hasOtherWindow) {
        from.width = call.windowWidth;
        from.height = call.windowHeight;
    }
    uint32_t clips = kUnset;
    int32_t status;
    switch (call.operation) {
    case Operation::transform:
        return (wide ? kip_affineTransform16 : kip_affineTransform)(source, result, params, in.cache);
    case Operation::transformShort:
        return kip_affine8(params, source, result);
    case Operation::transformClipped:
        return (wide ? kip_affineTransformClipped16 : kip_affineTransformClipped)(
            source, result, call.hasMask ? second : nullptr, params, in.cache, &in.clips);
    case Operation::transformAligned:
        if (call.isInPlace) {
            from.pixels = to.pixels;
            from.pitch = to.pitch;
        }
        return (wide ? kip_affineTransformAligned16 : kip_affineTransformAligned)(&from, &to, call.alignCode);
    case Operation::project:
        return (wide ? kip_affineProject16 : kip_affineProject)(source, result, params, in.cache, depth);
    case Operation::projectWindow:
        return (wide ? kip_affineProjectWindow16 : kip_affineProjectWindow)(&from, &call.srcFromClient, &to, params,
                                                                            in.cache, placement, depth);
    case Operation::projectClipped:
        status = (wide ? kip_affineProjectClipped16 : kip_affineProjectClipped)(
            source, result, second, params, in.cache, call.coverageValue, &in.scalars.depth, &clips);
        break;
    case Operation::projectClippedWindow:
        status = (wide ? kip_affineProjectClippedWindow16
                       : kip_affineProjectClippedWindow)(&from, &call.srcFromClient, &to, &toSecond, params, in.cache,
                                                         placement, call.coverageValue, &in.scalars.depth, &clips);
        break;
    case Operation::projectNorm:
        return (wide ? kip_affineProjectNorm16 : kip_affineProjectNorm)(
            source, result, params, call.clip, in.cache, depth, first, call.asksAll ? &in.scalars.end : nullptr);
    default:
        return invokeSum(in, from, &to);
    }
    in.clips = static_cast<int32_t>(clips);
    return status;
}

struct Written {
    bool result, second;
};

// What a call that failed may have written all the same.
Written writtenInFailure(const SamplingCall &call, int32_t status)
{
    const bool isOutside = status == kip_statusTransformOutsideSource || status == kip_statusProjectionOutsideSource;
    const bool isRefusal = std::find(std::begin(kStatuses), std::end(kStatuses), status) != std::end(kStatuses) &&
                           status != ksys_statusOutOfMemory && status != ksys_statusSizeTooLarge && !isOutside;
    switch (call.operation) {
    case Operation::transformClipped: // stopped by attention, it has not begun
        return {isOutside || status == ksys_statusOutOfMemory || status == ksys_statusSizeTooLarge, false};
    case Operation::projectClipped:
    case Operation::projectClippedWindow:
        return {!isRefusal, !isRefusal && !isOutside};
    case Operation::projectNorm:
        return {!isRefusal && call.clip != 0, false};
    default:
        return {false, false};
    }
}

struct Extent {
    int64_t width, height;
};

// How far from its own place (0, 0) a result reaches at most.
Extent resultExtent(const SamplingCall &call)
{
    if (isSum(call.operation))
        return {call.sumsColumns ? call.width : call.height, 1};
    if (call.operation != Operation::transformAligned)
        return {call.params.destWidth, isProjection(call.operation) ? 1 : call.params.destHeight};
    const bool swapsAxes = std::any_of(std::begin(kTurns), std::end(kTurns), [&](const Turn &turn) {
        return turn.code == call.alignCode && turn.swapsAxes();
    });
    return swapsAxes ? Extent{call.height, call.width} : Extent{call.width, call.height};
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
        if ((!written.result && in.result.isMapChanged()) || (!written.second && in.second.isMapChanged()))
            fault += "a map was written in failure; ";
    }
    const Extent extent = resultExtent(call);
    fault += in.result.writtenBeyond(written.result ? extent.width : 0, written.result ? extent.height : 0);
    fault += in.second.writtenBeyond(written.second ? extent.width : 0, written.second ? extent.height : 0);
    return fault;
}

} // namespace

CallMemory::CallMemory() : noise(kNoiseBytes)
{
    Random random(60001);
    for (uint8_t &byte : noise)
        byte = static_cast<uint8_t>(random.next() >> 32);
}

bool takesCache(Operation operation)
{
    return samples(operation) && operation != Operation::transformShort;
}

bool samples(Operation operation)
{
    return operation != Operation::transformAligned && !isSum(operation);
}

bool isWorthJobs(const SamplingCall &call)
{
    kip_affine_imageAlignment code;
    const bool isLarge = call.params.destHeight > 336 && call.params.destWidth * call.params.destHeight >= 0x10000;
    return call.operation <= Operation::transformClipped && isLarge && call.params.mode == kip_affineModeBilinear &&
           kip_affine_imageAlignment_compute(&call.params, &call.srcFromClient, &code, nullptr) >= 0 &&
           code == kip_affine_alignNone;
}

Outcome runCall(const SamplingCall &call, const CallMemory &memory, kip_affineSampleCache **cache, bool isOtherSide)
{
    const auto side = [isOtherSide](Guard guard) {
        return (guard == Guard::before) != isOtherSide ? Guard::before : Guard::behind;
    };
    const Target sourcePlace = {true, call.width, call.height, call.pitch, call.x, call.y, 0};
    PlacedImage source(memory.source, side(call.sourceGuard), sourcePlace, call.bytesPerPixel);
    PlacedImage result(memory.result, side(call.destinationGuard), call.result, resultPixelBytes(call));
    PlacedImage second(memory.second, side(call.destinationGuard), call.second,
                       call.operation == Operation::transformClipped ? 1 : 4);
    Outcome outcome;
    for (const int32_t status : {source.status, result.status, second.status,
                                 kimg_image_setLinearImageFromClientXform(&source.image, &call.srcFromClient)}) {
        if (status < 0) {
            outcome.status = status;
            return outcome;
        }
    }
    source.putCanariesRound(0);
    source.fillRows(memory.noise, call.seed);
    result.putCanariesRound(kBefore);
    second.putCanariesRound(kBefore);
    if (call.isInPlace)
        result.fillRows(memory.noise, call.seed);

    Invocation in = {call, source, result, second, cache};
    const Scalars before;
    kstd_vector32_construct(&in.vector);
    outcome.status = invoke(in);
    const int32_t *const end = std::end(kStatuses);
    if (outcome.status < 0 && outcome.status != kStopped && std::find(kStatuses, end, outcome.status) == end)
        outcome.fault = "unknown status; ";
    if (call.isInPlace)
        outcome.fault += result.strayWrite();
    else
        outcome.fault += brokenPromises(in, outcome.status, before);

    Digest digest;
    digest.add(outcome.status);
    digest.add(in.scalars);
    if (outcome.status >= 0) {
        digest.add(in.clips);
        digest.addImage(result.image);
        digest.addImage(second.image);
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
        "sumWindow",
    };
    static_assert(std::size(kNames) == std::size(kOperations));
    return kNames[static_cast<size_t>(operation)];
}

std::string describe(const SamplingCall &call)
{
    std::ostringstream text;
    text << nameOf(call.operation) << ", " << describe(static_cast<const TransformCase &>(call));
    for (const Target *target : {&call.result, &call.second})
        text << (target->isBound ? ", bound " : ", unbound ") << target->width << " x " << target->height << " pitch "
             << target->pitch << " at (" << target->x << ", " << target->y << ") + " << target->misalignment;
    text << ", mask " << call.hasMask << ", clip " << call.clip << ", align " << call.alignCode << ", in place "
         << call.isInPlace << ", columns " << call.sumsColumns << ", coverage " << int{call.coverageValue};
    return text.str();
}

// ---- Drawing calls ------------------------------------------------------------------------------------------------

namespace {

constexpr int32_t kRoundTiles[] = {47, 48, 49, 63, 64, 65, 95, 96, 97, 223, 224, 225};

int32_t drawSize(Random &random)
{
    const int32_t kind = random.between32(0, 15);
    return kind < 4 ? random.between32(1, 2) : kind == 15 ? random.between32(3, 40) : random.between32(3, 12);
}

void drawImages(Random &random, SamplingCall *call)
{
    call->bytesPerPixel =
        call->operation == Operation::transformShort || isSum(call->operation) ? 1 : random.between32(1, 2);
    call->width = drawSize(random);
    call->height = drawSize(random);
    call->params.destWidth = drawSize(random);
    call->params.destHeight = drawSize(random);
    const bool isAcross = random.oneIn(2);
    int32_t &sourceLength = isAcross ? call->width : call->height;
    int32_t &resultLength = isAcross ? call->params.destWidth : call->params.destHeight;
    switch (random.between32(0, 1023)) {
    case 0: // worth a dispatch of jobs
        call->width = call->height = random.between32(200, 300);
        call->params.destWidth = random.between32(190, 230);
        call->params.destHeight = random.between32(340, 460);
        break;
    case 1:
        sourceLength = random.between32(32766, 32769);
        break;
    case 2:
        call->pitch = random.between32(32766, 32769);
        call->height = std::min(call->height, 4);
        break;
    default:
        if (random.oneIn(12))
            resultLength = random.pick(kRoundTiles);
        if (random.oneIn(24))
            sourceLength = random.pick(kRoundTiles);
        if (random.oneIn(64)) { // reductions
            resultLength = random.between32(1, 4);
            sourceLength = resultLength * random.between32(20, 400);
        }
    }
    if (call->pitch < call->width)
        call->pitch = call->width + (random.oneIn(2) ? 0 : random.between32(1, 9));
    if (random.oneIn(4))
        call->pitch = -call->pitch;
    call->x = random.oneIn(2) ? 0 : random.between32(-300, 300);
    call->y = random.oneIn(2) ? 0 : random.between32(-300, 300);
    if (random.oneIn(64))
        (random.oneIn(2) ? call->x : call->y) = random.between32(INT32_MIN / 2, INT32_MAX / 2);
    call->sourceGuard = random.pick(kGuards);
    call->destinationGuard = random.pick(kGuards);
    call->seed = random.next();
    const uint32_t modes = isProjection(call->operation) && call->bytesPerPixel == 2 && !random.oneIn(16) ? 2 : 4;
    call->params.mode = static_cast<uint32_t>(random.next() % modes);
}

// Coordinates of two opposite corners' centres along one axis, at the margin of some mode or a little beside it.
void drawEnds(Random &random, uint32_t mode, int32_t size, double *a, double *b)
{
    static constexpr double kMargins[] = {0.0, 0.5, 1.5, 2.5};
    static constexpr double kUnits[] = {0.0, 0.0, 1.0, -1.0, 0.5, -0.5, 0.25, -0.9375, 1.5, 1e-5, -1e-5, 1e-11, -1e-11};
    const auto inset = [&] {
        const double margin = random.oneIn(4) ? random.pick(kMargins) : kMargins[mode];
        const double beyond = random.oneIn(4) ? random.between(-7.0, 1.0) : 0.0;
        return margin + beyond + random.pick(kUnits) / 65536.0;
    };
    *a = inset();
    *b = size - inset();
    if (random.oneIn(4))
        *b = *a + (*b - *a) * random.unit();
    if (random.oneIn(2))
        std::swap(*a, *b);
}

// A parallelogram in the box of these ends, two opposite corners in the box's.
void drawRectangleAtMargins(Random &random, SamplingCall *call)
{
    double left, right, top, bottom;
    drawEnds(random, call->params.mode, call->width, &left, &right);
    drawEnds(random, call->params.mode, call->height, &top, &bottom);
    double shareX = random.oneIn(2) ? 1.0 : random.unit();
    double shareY = random.oneIn(2) ? 0.0 : random.unit();
    if (random.oneIn(2))
        std::swap(shareX, shareY);
    if (random.oneIn(16)) // the sides all but parallel
        shareY = shareX + random.sign() * std::ldexp(1.0, -random.between32(3, 50));
    CornerCenters corners = {{left, top},
                             {left + (right - left) * shareX, top + (bottom - top) * shareY},
                             {right - (right - left) * shareX, bottom - (bottom - top) * shareY}};
    corners.singleSample = {random.between(-9.0, 9.0), random.between(-9.0, 9.0)};
    placeCorners(corners, call);
}

void drawWholePixels(Random &random, SamplingCall *call)
{
    call->srcFromClient = {0, 0, 1, 0, 0, 1};
    const Turn turn = random.pick(kTurns);
    const auto near = [&](int32_t extent, int32_t size) {
        return random.oneIn(2) ? random.between32(-2, 2) : extent - size + random.between32(-2, 2);
    };
    const int32_t w = call->params.destWidth, h = call->params.destHeight;
    call->params.rect =
        turn.rect(near(call->width, turn.swapsAxes() ? h : w), near(call->height, turn.swapsAxes() ? w : h), w, h);
    call->params.rect.tx += call->x;
    call->params.rect.ty += call->y;
}

void drawTarget(Random &random, int32_t width, int32_t height, bool isSums, Target *target)
{
    const int32_t kind = random.between32(0, 7);
    target->isBound = kind > 0;
    target->width = width;
    target->height = height;
    if (kind == 1 || kind == 2)
        target->width += random.between32(0, 9);
    if (kind == 2)
        target->height += random.between32(0, 3);
    if (kind == 3) { // whatever it has in common with the result
        target->x = random.between32(-3, 3);
        target->y = random.between32(-1, 1);
        target->width = std::max(1, width + random.between32(-3, 5));
        target->height = std::max(1, height + random.between32(-2, 2));
    }
    target->pitch = (target->width + (random.oneIn(2) ? 0 : random.between32(1, 5))) * (random.oneIn(4) ? -1 : 1);
    target->misalignment = isSums && random.oneIn(8) ? random.between32(1, 3) : 0;
}

void drawAligned(Random &random, SamplingCall *call)
{
    static constexpr int32_t kOtherCodes[] = {-1, 2, 180 << 8, INT32_MIN, INT32_MAX};
    call->alignCode = random.oneIn(16) ? random.pick(kOtherCodes) : random.pick(kTurns).code;
    const Extent extent = resultExtent(*call);
    drawTarget(random, static_cast<int32_t>(extent.width), static_cast<int32_t>(extent.height), false, &call->result);
    call->result.isBound = true;
    call->result.x = call->result.y = 0;
    call->isInPlace = random.oneIn(4);
    if (call->isInPlace)
        call->sourceGuard = Guard::behind;
}

} // namespace

SamplingCall drawCall(Random &random, Operation operation)
{
    SamplingCall call;
    call.operation = operation;
    call.pitch = 0;
    drawImages(random, &call);
    if (operation == Operation::transformAligned) {
        drawAligned(random, &call);
        return call;
    }
    call.sumsColumns = random.oneIn(2);
    call.asksAll = !random.oneIn(8);
    if (isSum(operation)) {
        drawTarget(random, call.sumsColumns ? call.width : call.height, 1, true, &call.result);
        call.result.x = call.result.y = 0;
        return call;
    }
    if (random.oneIn(2))
        call.srcFromClient = drawClientMap(random);
    const int32_t kind = random.between32(0, 7);
    if (kind == 0)
        drawRectangle(random, &call);
    else if (kind == 1)
        drawWholePixels(random, &call);
    else
        drawRectangleAtMargins(random, &call);
    const bool isSums = isProjection(operation);
    drawTarget(random, call.params.destWidth, isSums ? 1 : call.params.destHeight, isSums, &call.result);
    if (hasSecond(call)) {
        drawTarget(random, call.params.destWidth, isSums ? 1 : call.params.destHeight, isSums, &call.second);
        call.hasMask = !random.oneIn(4);
        if (!call.hasMask)
            call.second = {};
    }
    call.hasMask = call.hasMask && operation == Operation::transformClipped;
    call.clip = random.oneIn(4) ? 0 : static_cast<uint32_t>(random.next());
    call.coverageValue = random.oneIn(2) ? 255 : static_cast<uint8_t>(random.next());
    return call;
}

} // namespace kip::test
