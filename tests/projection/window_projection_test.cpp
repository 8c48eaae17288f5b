// Sums of rows and columns against a model, at every level of the processor; what the eight forms refuse.

#include <algorithm>
#include <cstring>
#include <numeric>
#include <string>
#include <variant>
#include <vector>

#include <gtest/gtest.h>
#include <kip/kip.h>

#include "projection/sum_kernels.h"
#include "projection/window_sums.h"
#include "projection/window_sums_packed.h"
#include "support/crash_note.h"
#include "support/guarded_memory.h"
#include "support/levels.h"
#include "support/random.h"
#include "support/target_region.h"

namespace kip::test {

namespace {

using Sums = std::vector<uint32_t>;

constexpr uint32_t kUntouched = 0xC3C3C3C3;

// ---- The model -------------------------------------------------------------------------------------------------

constexpr struct Orientation {
    kip_affine_imageAlignment code;
    bool ofColumns, isReversed;
} kOrientations[] = {
    {kip_affine_alignIdentity, true, false},
    {kip_affine_alignRotate90, false, false},
    {kip_affine_alignRotate180, true, true},
    {kip_affine_alignRotate270, false, true},
    {kip_affine_alignTranspose, false, false},
    {kip_affine_alignRotate90Transpose, true, true},
    {kip_affine_alignRotate180Transpose, false, true},
    {kip_affine_alignRotate270Transpose, true, false},
    {kip_affine_alignNone, false, false},
    {2, false, false},
    {INT32_MIN, false, false},
};

uint64_t pixelOf(const kimg_windowConst &window, int64_t x, int64_t y)
{
    const uint8_t *const at =
        static_cast<const uint8_t *>(window.pixels) + (y * window.pitch + x) * int64_t{window.bytesPerPixel};
    if (window.bytesPerPixel == 1)
        return *at;
    uint16_t pixel;
    std::memcpy(&pixel, at, sizeof pixel);
    return pixel;
}

Sums modelSums(const kimg_windowConst &window, bool ofColumns)
{
    std::vector<uint64_t> sums(static_cast<size_t>(ofColumns ? window.width : window.height));
    for (int32_t y = 0; y < window.height; ++y)
        for (int32_t x = 0; x < window.width; ++x)
            sums[static_cast<size_t>(ofColumns ? x : y)] += pixelOf(window, x, y);
    return {sums.begin(), sums.end()};
}

// ---- Both depths, all codes, all levels -----------------------------------------------------------------------------

std::vector<Level> allLevels()
{
    std::vector<Level> levels = {{"portable", 0}, {"packed", ksys_featurePackedInteger}};
    const std::vector<Level> wider = availableLevels();
    levels.insert(levels.end(), wider.begin(), wider.end());
    return levels;
}

// Memory for the cases of a test: pixels and sums end at unreadable pages.
struct SumMemory {
    GuardedMemory source{4 << 20};
    GuardedMemory sums{1 << 16};
};

template <typename Pixel>
kimg_windowConst drawWindow(Random &random, const SumMemory &memory, int32_t width, int32_t height)
{
    const int32_t pitch = (width + random.between32(0, random.oneIn(3) ? 70 : 3)) * random.sign();
    const void *first = memory.source.end(); // where there is nothing to read
    if (width > 0 && height > 0) {
        auto rows = placeRows<uint8_t>(memory.source, random.pick(kGuards), width * static_cast<int32_t>(sizeof(Pixel)),
                                       height, pitch * static_cast<int32_t>(sizeof(Pixel)));
        const bool isFull = random.oneIn(3);
        for (int32_t y = 0; y < height; ++y)
            for (int32_t x = 0; x < rows.width; ++x)
                rows.row(y)[x] = isFull ? 0xFF : static_cast<uint8_t>(random.next() >> 32);
        first = rows.first;
    }
    return {width, height, 5, -3, 0, 0, width, height, pitch, first, sizeof(Pixel)};
}

using Oriented = int32_t (*)(const kimg_windowConst &source, const kimg_window &destination,
                             kip_affine_imageAlignment alignCode);

// The sums by a function that writes them between canaries and an unreadable page, at odd addresses too.
Sums sumsBy(Oriented function, const kimg_windowConst &source, const Orientation &orientation, const SumMemory &memory,
            Random &random)
{
    const int32_t count = orientation.ofColumns ? source.width : source.height;
    const size_t bytes = static_cast<size_t>(count) * sizeof(uint32_t);
    uint8_t *at = memory.sums.place(bytes, Guard::behind) - (random.oneIn(2) ? random.between(0, 7) : 0);
    if (random.oneIn(2))
        at = memory.sums.place(bytes, Guard::before);
    std::fill(memory.sums.begin(), memory.sums.end(), kCanary);
    const kimg_window destination = {count, 1, 0, 0, 0, 0, count, 1, count, at, sizeof(uint32_t)};
    EXPECT_EQ(function(source, destination, orientation.code), 0);
    Sums sums(static_cast<size_t>(count));
    if (count > 0)
        std::memcpy(sums.data(), at, bytes);
    const auto isDead = [](uint8_t byte) { return byte != kCanary; };
    EXPECT_EQ(std::count_if(memory.sums.begin(), at, isDead), 0) << "stray writes before";
    EXPECT_EQ(std::count_if(at + bytes, memory.sums.end(), isDead), 0) << "stray writes behind";
    return sums;
}

template <typename Pixel>
void compareWithModel(Oriented function, const std::vector<Level> &levels)
{
    const SumMemory memory{};
    Random random(4711);
    std::vector<int32_t> widths = {191, 256, 300, 1009, 2048};
    for (int32_t width = 0; width <= 131; ++width)
        widths.push_back(width);
    for (const Level &level : levels) {
        const ProcessorLevel set(level.features);
        for (const int32_t width : widths) {
            // Few rows, some bands and the ends of them, about the 256 rows that partial sums hold.
            static constexpr int32_t kHeights[][2] = {{0, 9}, {10, 40}, {0, 9}, {254, 514}};
            const auto &heights = kHeights[random.next() % 4];
            const int32_t height = random.between32(heights[0], heights[1]);
            const kimg_windowConst window = drawWindow<Pixel>(random, memory, width, height);
            const Sums models[] = {modelSums(window, false), modelSums(window, true)};
            for (const Orientation &orientation : kOrientations) {
                Sums model = models[orientation.ofColumns ? 1 : 0];
                if (orientation.isReversed)
                    std::reverse(model.begin(), model.end());
                const std::string text = std::string(level.name) + ", " + std::to_string(width) + " x " +
                                         std::to_string(height) + ", pitch " + std::to_string(window.pitch) +
                                         ", code " + std::to_string(orientation.code);
                noteForCrash(text);
                ASSERT_EQ(sumsBy(function, window, orientation, memory, random), model) << text;
            }
        }
    }
}

TEST(WindowSums, AreTheModelsIn8Bits)
{
    compareWithModel<uint8_t>(projectWindowOriented8, allLevels());
}

TEST(WindowSums, AreTheModelsIn16Bits)
{
    compareWithModel<uint16_t>(projectWindowOriented16, {{"portable", 0}});
}

#if defined(KIP_HAS_X86_VARIANTS)
TEST(WindowSums, EveryLevelHasKernelsOfItsOwn)
{
    const std::vector<Level> levels = allLevels();
    for (size_t i = 0; i + 1 < levels.size(); ++i) {
        const SumKernels8 kernels = sumKernels8(levels[i].features);
        const SumKernels8 wider = sumKernels8(levels[i + 1].features);
        const bool isVbmi = (levels[i + 1].features & ksys_featureAvx512Vbmi) != 0;
        EXPECT_EQ(kernels.addRows == wider.addRows, isVbmi) << levels[i + 1].name;
        EXPECT_EQ(kernels.sumRows == wider.sumRows, isVbmi) << levels[i + 1].name;
    }
}
#endif

// One line read over and over: 255 times 2^32 / 255 and a little more.
TEST(WindowSums, WrapBeyond32Bits)
{
    constexpr int32_t kPixels = 16843009 + 3;
    const std::vector<uint8_t> white(kPixels, 255);
    const kimg_windowConst tall = {1, kPixels, 0, 0, 0, 0, 1, kPixels, 0, white.data(), 1};
    const kimg_windowConst wide = {kPixels, 1, 0, 0, 0, 0, kPixels, 1, kPixels, white.data(), 1};
    for (const Level &level : allLevels()) {
        const ProcessorLevel set(level.features);
        uint32_t sum = 0;
        kimg_window destination = {1, 1, 0, 0, 0, 0, 1, 1, 1, &sum, 4};
        EXPECT_EQ(kip_projectVerticalWindow8(&tall, &destination, nullptr), 0);
        EXPECT_EQ(sum, 3u * 255 - 1) << level.name;
        EXPECT_EQ(kip_projectHorizontalWindow8(&wide, &destination, nullptr), 0);
        EXPECT_EQ(sum, 3u * 255 - 1) << level.name;
    }
}

TEST(WindowSums, OptimisedRoutinesRunOnSuitableProcessorsOnly)
{
    const uint8_t pixels[] = {1, 2};
    uint32_t sums[2];
    for (const uint32_t kind : {0u, 1u, 2u, 4u, 5u, 6u}) {
        for (const uint32_t features : {0u, 1u, 2u}) {
            const ksys_cpuinfo processor = {kind, 0, 0, 0, features};
            ksys_cpuinfo_setOverride(&processor);
            const bool isSuitable = (kind == 1 || kind == 5) && (features & 1) != 0;
            const int32_t status = isSuitable ? 0 : kip_statusOptimizationDeclined;
            EXPECT_EQ(sumColumnsPacked8(pixels, 2, 1, 2, sums, 0), status) << kind << ", " << features;
            EXPECT_EQ(sumRowsPacked8(pixels, 2, 1, 2, sums, 0), status) << kind << ", " << features;
        }
    }
    ksys_cpuinfo_setOverride(nullptr);
}

// ---- The eight forms -------------------------------------------------------------------------------------------

using IntoImage = int32_t (*)(const kimg_imageConst *, kimg_image *, int32_t *);
using IntoVector = int32_t (*)(const kimg_imageConst *, kstd_vector32 *, int32_t *);
using WindowIntoVector = int32_t (*)(const kimg_windowConst *, kstd_vector32 *, int32_t *);
using WindowIntoWindow = int32_t (*)(const kimg_windowConst *, kimg_window *, int32_t *);

struct Form {
    const char *name;
    bool ofColumns;
    std::variant<IntoImage, IntoVector, WindowIntoVector, WindowIntoWindow> function;

    bool readsImage() const { return function.index() <= 1; }
    bool givesVector() const { return function.index() == 1 || function.index() == 2; }
};

const Form kForms[] = {
    {"Horizontal8", false, IntoImage{kip_projectHorizontal8}},
    {"Vertical8", true, IntoImage{kip_projectVertical8}},
    {"HorizontalVector8", false, IntoVector{kip_projectHorizontalVector8}},
    {"VerticalVector8", true, IntoVector{kip_projectVerticalVector8}},
    {"HorizontalVectorWindow8", false, WindowIntoVector{kip_projectHorizontalVectorWindow8}},
    {"VerticalVectorWindow8", true, WindowIntoVector{kip_projectVerticalVectorWindow8}},
    {"HorizontalWindow8", false, WindowIntoWindow{kip_projectHorizontalWindow8}},
    {"VerticalWindow8", true, WindowIntoWindow{kip_projectVerticalWindow8}},
};

// A result of any kind. The vector has a length before the call, the window and the bound image stand on memory.
struct Target {
    static constexpr int32_t kLengthBefore = 3;

    kimg_image image;
    kstd_vector32 vector;
    kimg_window window;
    int32_t vectorStatus;

    // An unbound image, and a window.
    explicit Target(const kimg_window &over) : window(over)
    {
        kimg_image_constructUnbound(&image);
        kstd_vector32_construct(&vector);
        vectorStatus = kstd_vector32_resize(&vector, kLengthBefore);
    }
    void bindImage()
    {
        kimg_image_constructExternal(&image, window.bytesPerPixel, window.width, window.height, window.pitch,
                                     window.pixels);
    }
    ~Target()
    {
        kimg_image_destruct(&image);
        kstd_vector32_destruct(&vector);
    }
    Target(const Target &) = delete;
    Target &operator=(const Target &) = delete;
};

// Image forms see the window as an image over its pixels.
int32_t run(const Form &form, const kimg_windowConst &source, Target &target, int32_t *depth)
{
    kimg_image image;
    kimg_image_constructUnbound(&image);
    int32_t status = target.vectorStatus;
    if (status >= 0 && form.readsImage() && source.pixels != nullptr)
        status = kimg_image_constructExternal(&image, source.bytesPerPixel, source.width, source.height, source.pitch,
                                              const_cast<void *>(source.pixels));
    if (status >= 0)
        status = std::visit(
            [&](auto function) {
                using Function = decltype(function);
                if constexpr (std::is_same_v<Function, IntoImage>)
                    return function(&image, &target.image, depth);
                else if constexpr (std::is_same_v<Function, IntoVector>)
                    return function(&image, &target.vector, depth);
                else if constexpr (std::is_same_v<Function, WindowIntoVector>)
                    return function(&source, &target.vector, depth);
                else
                    return function(&source, &target.window, depth);
            },
            form.function);
    kimg_image_destruct(&image);
    return status;
}

std::vector<uint8_t> noise(size_t count, uint64_t seed)
{
    Random random(seed);
    std::vector<uint8_t> bytes(count);
    for (uint8_t &byte : bytes)
        byte = static_cast<uint8_t>(random.next() >> 32);
    return bytes;
}

// What the cores asked the hook, and its answer.
std::vector<std::wstring> askedNames;
int32_t hookResult = 0;

int32_t recordName(const wchar_t *name)
{
    askedNames.emplace_back(name);
    return hookResult;
}

TEST(WindowProjection, EveryFormGivesTheSumsAndTheDepth)
{
    const int32_t sizes[][2] = {{1, 1}, {17, 31}, {67, 300}, {300, 67}, {0, 4}, {4, 0}, {0, 0}};
    const std::vector<uint8_t> pixels = noise(300 * 310, 5);
    kprt_isOptimizationInhibitedFP = recordName;
    for (const auto &[width, height] : sizes) {
        const kimg_windowConst source = {
            width, height, 0, 0, 0, 0, width, height, -width - 1, pixels.data() + std::max(0, height - 1) * (width + 1),
            1};
        uint64_t totals[2] = {};
        for (const Form &form : kForms) {
            SCOPED_TRACE(testing::Message() << form.name << ", " << width << " x " << height);
            if (form.readsImage() && (width == 0 || height == 0))
                continue; // there are no such images
            const Sums expected = modelSums(source, form.ofColumns);
            for (hookResult = 0; hookResult <= 1; ++hookResult) {
                Sums written(expected.size() + 2, kUntouched);
                const auto count = static_cast<int32_t>(expected.size());
                const kimg_window bound = {count + 1, 2, 9, 9, 0, 0, count + 1, 2, count + 1, written.data() + 1, 4};
                Target target(bound);
                int32_t depth = -7;
                askedNames.clear();
                ASSERT_EQ(run(form, source, target, &depth), 0);
                EXPECT_EQ(run(form, source, target, nullptr), 0);
                EXPECT_EQ(depth, form.ofColumns ? height : width);
                EXPECT_EQ(askedNames[0],
                          form.ofColumns ? L"kf_projection_horizontal8_core" : L"kf_projection_vertical8_core");

                Sums sums(written.begin() + 1, written.end() - 1);
                if (std::holds_alternative<WindowIntoWindow>(form.function)) {
                    EXPECT_EQ(written.front(), kUntouched);
                    EXPECT_EQ(written.back(), kUntouched);
                } else if (form.givesVector()) {
                    uint32_t *begin = nullptr;
                    int32_t size = -1;
                    kstd_vector32_getBegin(&target.vector, &begin);
                    kstd_vector32_getSize(&target.vector, &size);
                    sums.assign(begin, begin + size);
                } else {
                    kimg_window window;
                    kimg_window_init(&window, &target.image);
                    EXPECT_EQ(window.bytesPerPixel, 4);
                    EXPECT_EQ(window.height, 1);
                    const auto *const begin = static_cast<const uint32_t *>(window.pixels);
                    sums.assign(begin, begin + window.width);
                }
                EXPECT_EQ(sums, expected);
                totals[form.ofColumns ? 1 : 0] = std::accumulate(sums.begin(), sums.end(), uint64_t{0});
            }
        }
        EXPECT_EQ(totals[0], totals[1]);
    }
    kprt_isOptimizationInhibitedFP = nullptr;
}

enum Kinds : uint32_t { kImages = 1, kWindows = 2, kBound = 4 };

// Sources of 9 x 5 pixels; destinations have memory for far more than 9 sums.
TEST(WindowProjection, RefusalsWriteNothing)
{
    std::vector<uint8_t> pixels = noise(400, 6);
    const auto sourceOf = [&](int32_t bytes, int32_t width = 9, int32_t height = 5) {
        return kimg_windowConst{width, height, 0, 0, 0, 0, width, height, 9, pixels.data(), bytes};
    };
    kimg_windowConst noPixels = sourceOf(1);
    noPixels.pixels = nullptr;
    const kimg_windowConst good = sourceOf(1);
    Sums memory(64, kUntouched);
    const auto targetOf = [&](int32_t bytes, int32_t width, int32_t height = 1) {
        return kimg_window{width, height, 0, 0, 0, 0, width, height, 20, memory.data(), bytes};
    };
    kimg_window noSums = targetOf(4, 9);
    noSums.pixels = nullptr;

    const struct {
        const char *name;
        uint32_t kinds;        // of the forms that it concerns
        int32_t columnsStatus; // of the forms that give nine sums
        int32_t rowsStatus;    // and of those that give five
        kimg_windowConst source;
        kimg_window target;
    } rows[] = {
        {"unbound", kImages, kip_statusProjectionSourceUnbound, kip_statusProjectionSourceUnbound, noPixels,
         targetOf(4, 9)},
        {"no pixels", kWindows, kimg_statusNoPixels, kimg_statusNoPixels, noPixels, targetOf(4, 9)},
        {"16-bit source", kImages | kWindows, kip_statusPixelDepth, kip_statusPixelDepth, sourceOf(2), targetOf(4, 9)},
        {"32-bit source", kImages | kWindows, kip_statusPixelDepth, kip_statusPixelDepth, sourceOf(4), targetOf(4, 9)},
        {"width below 0", kWindows, kip_statusWindowMismatch, kip_statusWindowMismatch, sourceOf(1, -1),
         targetOf(4, 9)},
        {"least height", kWindows, kip_statusWindowMismatch, kip_statusWindowMismatch, sourceOf(1, 9, INT32_MIN),
         targetOf(4, 9)},
        {"8-bit sums", kImages | kWindows | kBound, kip_statusPixelDepth, kip_statusPixelDepth, good, targetOf(1, 20)},
        {"16-bit sums", kImages | kWindows | kBound, kip_statusPixelDepth, kip_statusPixelDepth, good, targetOf(2, 20)},
        {"eight wide", kImages | kWindows | kBound, kip_statusWindowMismatch, 0, good, targetOf(4, 8, 3)},
        {"four wide", kImages | kWindows | kBound, kip_statusWindowMismatch, kip_statusWindowMismatch, good,
         targetOf(4, 4, 3)},
        {"no row", kWindows | kBound, kip_statusWindowMismatch, kip_statusWindowMismatch, good, targetOf(4, 9, 0)},
        {"no sums", kWindows | kBound, kimg_statusNoPixels, kimg_statusNoPixels, good, noSums},
    };
    for (const auto &row : rows) {
        for (const Form &form : kForms) {
            if ((row.kinds & (form.readsImage() ? kImages : kWindows)) == 0 ||
                ((row.kinds & kBound) != 0 && form.givesVector()))
                continue;
            const int32_t expected = form.ofColumns ? row.columnsStatus : row.rowsStatus;
            for (const bool isBound : {true, false}) {
                SCOPED_TRACE(testing::Message() << form.name << ", " << row.name);
                if (!isBound && (row.kinds & kBound) != 0)
                    continue;
                Target target(row.target);
                if (isBound)
                    target.bindImage();
                const kimg_image before = target.image;
                int32_t depth = -7;
                std::fill(memory.begin(), memory.end(), kUntouched);
                EXPECT_EQ(run(form, row.source, target, &depth), expected);
                if (expected == 0)
                    continue;
                EXPECT_EQ(depth, -7);
                EXPECT_EQ(memory, Sums(64, kUntouched));
                EXPECT_EQ(std::memcmp(&before, &target.image, sizeof before), 0);
                int32_t size = -1;
                kstd_vector32_getSize(&target.vector, &size);
                EXPECT_EQ(size, Target::kLengthBefore);
            }
        }
    }
}

} // namespace

} // namespace kip::test
