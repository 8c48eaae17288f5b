#include "support/transform_case.h"

#include <algorithm>
#include <cmath>
#include <sstream>

#include "support/crash_note.h"
#include "support/slow_model.h"
#include "support/twin_harness.h"

namespace kip::test {

namespace {

// An external image that releases itself.
struct ScopedImage {
    kimg_image image;

    ScopedImage(int32_t bytesPerPixel, int32_t width, int32_t height, int32_t pitch, void *pixels)
    {
        if (kimg_image_constructExternal(&image, bytesPerPixel, width, height, pitch, pixels) < 0)
            std::abort();
    }
    ~ScopedImage() { kimg_image_destruct(&image); }
    ScopedImage(const ScopedImage &) = delete;
    ScopedImage &operator=(const ScopedImage &) = delete;
};

// A whole-pixel map is copied, whatever the mode asks for.
uint32_t effectiveMode(const TransformCase &c)
{
    kip_affine_imageAlignment code;
    const int32_t status = kip_affine_imageAlignment_compute(&c.params, &c.srcFromClient, &code, nullptr);
    return status >= 0 && code != kip_affine_alignNone ? uint32_t{kip_affineModeNearest} : c.params.mode;
}

template <typename Pixel>
PixelRows<Pixel> placeSource(const TransformCase &c, const TransformMemory &memory)
{
    return placeRows<Pixel>(memory.source, c.sourceGuard, c.width, c.height, c.pitch);
}

template <typename Pixel>
TransformResult run(const TransformCase &c, const TransformMemory &memory)
{
    const auto source = placeSource<Pixel>(c, memory);
    Random random(c.seed);
    fillPixels(source, Pattern::random, random);
    // Sizes below 1 are for the library to refuse; the image behind them has a pixel all the same.
    const int32_t width = std::max(c.params.destWidth, 1);
    const int32_t pitch = c.destinationPitch == 0 ? width : c.destinationPitch;
    const auto destination =
        placeRows<Pixel>(memory.destination, c.destinationGuard, width, std::max(c.params.destHeight, 1), pitch);
    putCanaries(memory.destination, destination);
    constexpr Pixel before = 77;
    for (int32_t y = 0; y < destination.height; ++y)
        std::fill_n(destination.row(y), destination.width, before);

    ScopedImage from(c.bytesPerPixel, c.width, c.height, c.pitch, source.first);
    ScopedImage to(c.bytesPerPixel, destination.width, destination.height, destination.pitch, destination.first);
    from.image.x = c.x;
    from.image.y = c.y;
    kimg_image_setLinearImageFromClientXform(&from.image, &c.srcFromClient);

    noteForCrash(describe(c));
    TransformResult result;
    result.status = c.bytesPerPixel == 1 ? kip_affineTransform(&from.image, &to.image, &c.params, nullptr)
                                         : kip_affineTransform16(&from.image, &to.image, &c.params, nullptr);
    result.damage = findDeadCanary(memory.destination, destination);
    for (int32_t y = 0; y < destination.height; ++y)
        result.pixels.insert(result.pixels.end(), destination.row(y), destination.row(y) + destination.width);
    if (result.status < 0 && result.damage.empty() &&
        std::count(result.pixels.begin(), result.pixels.end(), before) != std::ssize(result.pixels))
        result.damage = "wrote pixels and failed";
    return result;
}

const void *sourcePixels(const TransformCase &c, const TransformMemory &memory)
{
    return c.bytesPerPixel == 1 ? static_cast<const void *>(placeSource<uint8_t>(c, memory).first)
                                : placeSource<uint16_t>(c, memory).first;
}

std::string compareWithModel(const TransformCase &c, const TransformMemory &memory, const TransformResult &result)
{
    const kimg_windowConst source = transformSource(c, memory);
    kip_affineSampleParams params = c.params;
    params.mode = effectiveMode(c);
    const SlowModel model = makeSlowModel(source, c.srcFromClient, params, modelWalker(source, c.srcFromClient, params),
                                          modelTileSize(source));
    auto actual = result.pixels.begin();
    for (int32_t y = 0; y < params.destHeight; ++y) {
        for (int32_t x = 0; x < params.destWidth; ++x, ++actual) {
            const uint32_t expected = sampleSlowly(model, x, y);
            if (*actual != expected)
                return "at (" + std::to_string(x) + ", " + std::to_string(y) + ") " + std::to_string(*actual) +
                       " instead of " + std::to_string(expected);
        }
    }
    return "";
}

kmath_xformLinear inClient(const TransformCase &c, const kmath_xformLinear &rectInSource)
{
    kmath_xformLinear clientFromSource;
    kmath_xformLinear rect;
    if (kmath_xformLinear_initInverse(&clientFromSource, &c.srcFromClient) < 0 ||
        kmath_xformLinear_initCompose(&rect, &clientFromSource, &rectInSource) < 0)
        std::abort();
    return rect;
}

double marginOf(const TransformCase &c)
{
    static constexpr double kMargins[] = {0.0, 0.5, 1.5, 2.5};
    return kMargins[std::min<uint32_t>(c.params.mode, 3)];
}

// Steps and start of whole and dyadic numbers, along the axes.
bool drawDyadicCorners(Random &random, const TransformCase &c, CornerCenters *corners)
{
    static constexpr double kSteps[] = {0.125, 0.25, 0.5, 1.0, 1.0, 2.0, 1.25, 3.0};
    const double columns = c.params.destWidth - 1;
    const double rows = c.params.destHeight - 1;
    const bool swapped = random.oneIn(2);
    const double across = columns * random.pick(kSteps) * random.sign();
    const double down = rows * random.pick(kSteps) * random.sign();
    const kmath_vect x = swapped ? kmath_vect{0.0, across} : kmath_vect{across, 0.0};
    const kmath_vect y = swapped ? kmath_vect{down, 0.0} : kmath_vect{0.0, down};
    const double width = std::fabs(x.x + y.x);
    const double height = std::fabs(x.y + y.y);
    if (width > c.width - 1 || height > c.height - 1)
        return false;
    const double left = 0.5 + random.between32(0, static_cast<int32_t>((c.width - 1 - width) * 4)) / 4.0;
    const double top = 0.5 + random.between32(0, static_cast<int32_t>((c.height - 1 - height) * 4)) / 4.0;
    corners->first = {left - std::min(0.0, x.x + y.x), top - std::min(0.0, x.y + y.y)};
    corners->endOfRow = {corners->first.x + x.x, corners->first.y + x.y};
    corners->endOfColumn = {corners->first.x + y.x, corners->first.y + y.y};
    return true;
}

CornerCenters drawFreeCorners(Random &random, const TransformCase &c)
{
    const double turn = random.between(0.0, 6.283185307179586);
    const double corner = (1.5707963267948966 + random.between(-1.0, 1.0)) * random.sign(); // mirrored if negative
    const double ratio = std::exp(random.between(-2.5, 2.5));
    const double across = c.params.destWidth > 1 ? ratio : 0.0;
    const double down = c.params.destHeight > 1 ? 1.0 : 0.0;
    kmath_vect x = {across * std::cos(turn), across * std::sin(turn)};
    kmath_vect y = {down * std::cos(turn + corner), down * std::sin(turn + corner)};

    // As large as the source allows, or part of that; shaped as the source, or freely.
    const double margin = marginOf(c);
    const double roomX = std::max(0.0, c.width - 2 * margin - 0.001);
    const double roomY = std::max(0.0, c.height - 2 * margin - 0.001);
    if (random.oneIn(2)) {
        x = {x.x * roomX, x.y * roomY};
        y = {y.x * roomX, y.y * roomY};
    }
    const double spreadX = std::fabs(x.x) + std::fabs(y.x);
    const double spreadY = std::fabs(x.y) + std::fabs(y.y);
    double size = 1.0;
    if (spreadX > 0.0 || spreadY > 0.0)
        size = std::min(roomX / std::max(spreadX, 1e-9), roomY / std::max(spreadY, 1e-9));
    if (!random.oneIn(3))
        size *= random.unit();
    x = {x.x * size, x.y * size};
    y = {y.x * size, y.y * size};

    const auto place = [&](double room, double a, double b) {
        const double slack = std::max(0.0, room - std::fabs(a) - std::fabs(b));
        const double least =
            margin + 0.0005 + (random.oneIn(3) ? (random.oneIn(2) ? 1.0 : 0.0) : random.unit()) * slack;
        return least - std::min(a, 0.0) - std::min(b, 0.0);
    };
    CornerCenters corners;
    corners.first = {place(roomX, x.x, y.x), place(roomY, x.y, y.y)};
    corners.endOfRow = {corners.first.x + x.x, corners.first.y + x.y};
    corners.endOfColumn = {corners.first.x + y.x, corners.first.y + y.y};
    corners.singleSample = {random.between(-30.0, 30.0), random.between(-30.0, 30.0)};
    return corners;
}

int32_t inhibit(const wchar_t *kernelName)
{
    return kernelName[0] != L'\0';
}

} // namespace

std::string describe(const TransformCase &c)
{
    std::ostringstream text;
    text.precision(17);
    const kmath_xformLinear &r = c.params.rect;
    const kmath_xformLinear &m = c.srcFromClient;
    text << 8 * c.bytesPerPixel << " bit, mode " << c.params.mode << ", source " << c.width << " x " << c.height
         << " pitch " << c.pitch << " at (" << c.x << ", " << c.y << "), map {" << m.tx << ", " << m.ty << ", " << m.e0
         << ", " << m.e1 << ", " << m.e2 << ", " << m.e3 << "}, rect {" << r.tx << ", " << r.ty << ", " << r.e0 << ", "
         << r.e1 << ", " << r.e2 << ", " << r.e3 << "} onto " << c.params.destWidth << " x " << c.params.destHeight
         << " pitch " << c.destinationPitch << ", guards " << static_cast<int>(c.sourceGuard) << " "
         << static_cast<int>(c.destinationGuard) << ", seed " << c.seed;
    return text.str();
}

InhibitOptimizedPaths::InhibitOptimizedPaths()
{
    kprt_isOptimizationInhibitedFP = inhibit;
}

InhibitOptimizedPaths::~InhibitOptimizedPaths()
{
    kprt_isOptimizationInhibitedFP = nullptr;
}

TransformResult runTransform(const TransformCase &c, const TransformMemory &memory)
{
    return c.bytesPerPixel == 1 ? run<uint8_t>(c, memory) : run<uint16_t>(c, memory);
}

kimg_windowConst transformSource(const TransformCase &c, const TransformMemory &memory)
{
    return {c.width, c.height, c.x, c.y, 0, 0, c.width, c.height, c.pitch, sourcePixels(c, memory), c.bytesPerPixel};
}

std::string checkAgainstModel(const TransformCase &c, const TransformMemory &memory, int32_t *status)
{
    const TransformResult result = runTransform(c, memory);
    *status = result.status;
    std::string failure = result.damage;
    if (failure.empty() && result.status >= 0)
        failure = compareWithModel(c, memory, result);
    return failure.empty() ? "" : describe(c) + ": " + failure;
}

void placeCorners(const CornerCenters &corners, TransformCase *c)
{
    const double width = c->params.destWidth;
    const double height = c->params.destHeight;
    const auto side = [&](const kmath_vect &end, double samples) {
        if (samples < 2.0)
            return corners.singleSample;
        // Divided first: a whole step then gives a whole side.
        return kmath_vect{(end.x - corners.first.x) / (samples - 1.0) * samples,
                          (end.y - corners.first.y) / (samples - 1.0) * samples};
    };
    const kmath_vect x = side(corners.endOfRow, width);
    const kmath_vect y = side(corners.endOfColumn, height);
    const kmath_xformLinear rect = {corners.first.x - x.x / width * 0.5 - y.x / height * 0.5 + c->x,
                                    corners.first.y - x.y / width * 0.5 - y.y / height * 0.5 + c->y,
                                    x.x,
                                    y.x,
                                    x.y,
                                    y.y};
    c->params.rect = inClient(*c, rect);
}

void drawRectangle(Random &random, TransformCase *c)
{
    CornerCenters corners;
    if (!random.oneIn(4) || !drawDyadicCorners(random, *c, &corners))
        corners = drawFreeCorners(random, *c);
    placeCorners(corners, c);
}

kmath_xformLinear drawClientMap(Random &random)
{
    const double tx = random.between32(-4000, 4000) / 4.0;
    const double ty = random.between32(-4000, 4000) / 4.0;
    static constexpr double kScales[] = {-2.0, 0.25, 0.5, 1.0, 4.0};
    switch (random.between32(0, 3)) {
    case 0:
        return {0.0, 0.0, 1.0, 0.0, 0.0, 1.0};
    case 1:
        return {tx, ty, random.pick(kScales), 0.0, 0.0, random.pick(kScales)};
    default:
        return {tx,
                ty,
                random.between(0.3, 3.0),
                random.between(-0.2, 0.2),
                random.between(-0.2, 0.2),
                random.between(-3.0, -0.3)};
    }
}

} // namespace kip::test
