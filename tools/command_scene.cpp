#include "commands.h"
#include "failure.h"
#include "parse.h"
#include "picture_options.h"
#include "sampling_options.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <iostream>
#include <memory>

namespace kiptool {
namespace {

struct SceneOptions {
    std::string out;
    std::optional<Format> format;
    Size size = {640, 480};
    int32_t depth = 8, seed = 1;
    double angle = 11.5;
};

// Light that comes back, from 0 to 1.
constexpr double kTable = 0.22, kPaper = 0.88, kInk = 0.1;
constexpr double kNoise = 0.012;
constexpr int kGrid = 4; // samples along each side of a pixel

// Dots of the label: lines of signs in words, as print has, and under them bars, a line high.
constexpr int kSignWidth = 5, kSignHeight = 7, kSignPitch = kSignWidth + 1, kLinePitch = kSignHeight + 4;
constexpr int kLines = 4, kSignsInLine = 13;
constexpr int kLabelColumns = 15 * kSignPitch, kLabelRows = (kLines + 1) * kLinePitch + 6;
constexpr int kMargin = 4;

uint64_t mixed(uint64_t value)
{
    value += 0x9e3779b97f4a7c15u;
    value = (value ^ (value >> 30)) * 0xbf58476d1ce4e5b9u;
    value = (value ^ (value >> 27)) * 0x94d049bb133111ebu;
    return value ^ (value >> 31);
}

// Four uniform numbers make a good enough bell: mean 0, deviation 1. The same on every machine.
double noiseAt(uint64_t seed, int32_t x, int32_t y)
{
    const uint64_t bits = mixed(mixed(seed) ^ mixed(static_cast<uint64_t>(x) << 32 | static_cast<uint32_t>(y)));
    double sum = 0;
    for (int i = 0; i < 4; ++i)
        sum += static_cast<double>(bits >> (16 * i) & 0xffff) / 65536 - 0.5;
    return sum * std::sqrt(3.0);
}

// Whether there is ink at a dot of the label.
bool isInk(uint64_t seed, int column, int row)
{
    if (column == 0 || row == 0 || column == kLabelColumns - 1 || row == kLabelRows - 1)
        return true; // the frame
    const int line = (row - kMargin) / kLinePitch, inLine = (row - kMargin) % kLinePitch;
    const int sign = (column - kMargin) / kSignPitch, inSign = (column - kMargin) % kSignPitch;
    if (row < kMargin || column < kMargin || inLine >= kSignHeight || column >= kLabelColumns - kMargin ||
        line > kLines)
        return false;
    const auto isSet = [seed](int number) { return (mixed(seed ^ mixed(static_cast<uint64_t>(number))) & 1) != 0; };
    if (line == kLines)
        return isSet(column);
    const bool betweenWords = (sign + 2 * line) % 6 == 5;
    return sign < kSignsInLine && inSign < kSignWidth && !betweenWords && isSet(row * kLabelColumns + column);
}

kmath_shapeAffineRect labelOf(const SceneOptions &options)
{
    // The largest label that lies inside at every angle, with some room round it.
    const double diagonal = std::hypot(kLabelColumns, kLabelRows);
    const double dot = 0.92 * std::min(options.size.width / diagonal, options.size.height / diagonal);
    const double width = dot * kLabelColumns, height = dot * kLabelRows;
    return {(options.size.width - width) / 2, (options.size.height - height) / 2, width, 0, 0, height};
}

// The light that comes back from one pixel, as the mean of a grid of samples.
double reflectance(uint64_t seed, const kmath_xformLinear &labelFromPicture, int32_t x, int32_t y)
{
    double sum = 0;
    for (int i = 0; i < kGrid * kGrid; ++i) {
        const int column = i % kGrid, row = i / kGrid;
        const kmath_vect at = {x + (column + 0.5) / kGrid, y + (row + 0.5) / kGrid};
        kmath_vect label;
        kmath_xformLinear_mapPoint(&labelFromPicture, &at, &label);
        const bool onLabel = label.x >= 0 && label.x < 1 && label.y >= 0 && label.y < 1;
        if (!onLabel)
            sum += kTable;
        else if (isInk(seed, static_cast<int>(label.x * kLabelColumns), static_cast<int>(label.y * kLabelRows)))
            sum += kInk;
        else
            sum += kPaper;
    }
    return sum / (kGrid * kGrid);
}

void runScene(const SceneOptions &options)
{
    formatOfOutput(options.out, options.format);
    Picture picture = makePicture(options.size.width, options.size.height, 1, options.depth);
    const kmath_shapeAffineRect upright = labelOf(options);
    const kmath_shapeAffineRect label = turnedRectangle(upright, options.angle);
    kmath_xformLinear labelFromPicture;
    requireSuccess(kmath_xformLinear_initInverse(&labelFromPicture, &label), "label");
    const auto seed = static_cast<uint64_t>(options.seed);
    std::visit(
        [&](auto &samples) {
            using Sample = typename std::decay_t<decltype(samples)>::value_type;
            constexpr double kWhite = sizeof(Sample) == 2 ? 65535 : 255;
            auto to = samples.begin();
            for (int32_t y = 0; y < picture.height; ++y) {
                for (int32_t x = 0; x < picture.width; ++x) {
                    // A lamp at the upper left: bright there, dim in the opposite corner.
                    const double u = (x + 0.5) / picture.width - 0.3, v = (y + 0.5) / picture.height - 0.25;
                    const double light = 1.08 / (1 + 1.8 * (u * u + v * v));
                    const double value =
                        light * reflectance(seed, labelFromPicture, x, y) + kNoise * noiseAt(seed, x, y);
                    *to++ = static_cast<Sample>(std::lround(std::clamp(value, 0.0, 1.0) * kWhite));
                }
            }
        },
        picture.samples);
    writePicture(options.out, picture, options.format);

    char line[160];
    (void)std::snprintf(line, sizeof line, "--rect %.2f,%.2f,%.2f,%.2f --angle %.12g\n", upright.tx, upright.ty,
                        upright.e0, upright.e3, options.angle);
    (options.out == "-" ? std::cerr : std::cout) << line; // beside the picture
}

} // namespace

Command addSceneCommand(CLI::App &tool)
{
    CLI::App *app =
        tool.add_subcommand("scene", "Render a slanted label with rows of signs and bars, uneven light and noise, "
                                     "and print the options that straighten it");
    const auto options = std::make_shared<SceneOptions>();
    app->add_option("OUT", options->out,
                    "Picture to write: .png, .tif, .tiff or .pgm; - for the standard output, with --format")
        ->required();
    addFormatOption(*app, options->format);
    addParsedOption(*app, "--size", "WxH", "Size (default 640x480)",
                    [options](const std::string &text) { options->size = parseSize(text); });
    addParsedOption(*app, "--depth", "8|16", "Bits a sample (default 8)", [options](const std::string &text) {
        options->depth = parseInteger(text, 8);
        if (options->depth != 8 && options->depth != 16)
            throw CLI::ValidationError("'" + text + "' is neither 8 nor 16");
    });
    addParsedOption(*app, "--seed", "N", "Another number gives other noise, signs and bars (default 1)",
                    [options](const std::string &text) { options->seed = parseInteger(text, 0); });
    addParsedOption(*app, "--angle", "DEGREES", "How the label lies (default 11.5)",
                    [options](const std::string &text) { options->angle = parseNumber(text); });
    return {app, [options] { runScene(*options); }};
}

} // namespace kiptool
