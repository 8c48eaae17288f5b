#include "sampling_options.h"

#include "failure.h"

#include <cmath>
#include <numbers>

namespace kiptool {
namespace {

struct ModeName {
    const char *name;
    uint32_t mode;
};

constexpr ModeName kModes[] = {{"nearest", kip_affineModeNearest},
                               {"bilinear", kip_affineModeBilinear},
                               {"separable", kip_affineModeBilinearSeparable},
                               {"cubic", kip_affineModeBicubic}};

std::string modeList()
{
    std::string list;
    for (const ModeName &known : kModes)
        list += (list.empty() ? "" : ", ") + std::string(known.name);
    return list;
}

uint32_t parseMode(const std::string &text)
{
    for (const ModeName &known : kModes)
        if (text == known.name)
            return known.mode;
    throw CLI::ValidationError("'" + text + "' is not a mode: " + modeList());
}

kmath_shapeAffineRect parseUpright(const std::string &text)
{
    const std::vector<double> n = parseNumbers(text, 4);
    if (n[2] < 0 || n[3] < 0)
        throw CLI::ValidationError("'" + text + "' has a negative width or height");
    return {n[0], n[1], n[2], 0, 0, n[3]};
}

kmath_shapeAffineRectPoints parseCorners(const std::string &text)
{
    const std::vector<double> n = parseNumbers(text, 6);
    return {{n[0], n[1]}, {n[2], n[3]}, {n[4], n[5]}};
}

} // namespace

void addSamplingOptions(CLI::App &command, SamplingOptions &options)
{
    CLI::Option *rect = addParsedOption(
        command, "--rect", "X,Y,W,H",
        "Rectangle before it is turned: its top left corner and its size, in pixels; pixel (p,q) covers p to p+1 and "
        "q to q+1",
        [&options](const std::string &text) { options.upright = parseUpright(text); });
    addParsedOption(command, "--angle", "DEGREES",
                    "Turns the rectangle about its centre, clockwise as seen on screen: text that runs down to the "
                    "right has a positive angle (default 0)",
                    [&options](const std::string &text) { options.angle = parseNumber(text); })
        ->needs(rect);
    CLI::Option *corners = addParsedOption(
        command, "--corners", "X0,Y0,X1,Y1,X2,Y2",
        "Instead of --rect: the corner that becomes the top left one, the end of the side that becomes the top one "
        "and the end of the side that becomes the left one; may be sheared or mirrored",
        [&options](const std::string &text) { options.corners = parseCorners(text); });
    corners->excludes(rect);
    addParsedOption(command, "--size", "WxH",
                    "Size of the result (default: one sample per unit of length along each side)",
                    [&options](const std::string &text) { options.size = parseSize(text); });
    addParsedOption(command, "--mode", "NAME", "Interpolation: " + modeList() + " (default bilinear)",
                    [&options](const std::string &text) { options.mode = parseMode(text); });
    addParsedOption(command, "--threads", "N", "Threads to work with (default 0: one per processor)",
                    [&options](const std::string &text) { options.threads = parseInteger(text, 0); });
    command.final_callback([rect, corners] {
        if (rect->count() == 0 && corners->count() == 0)
            throw CLI::RequiredError("--rect or --corners");
    });
}

kmath_shapeAffineRect turnedRectangle(const kmath_shapeAffineRect &upright, double degrees)
{
    const double reduced = std::remainder(degrees, 360);
    if (reduced == 0) // keeps its corner to the last bit
        return upright;
    kmath_shapeAffineRect turned;
    requireSuccess(kmath_shapeAffineRect_initCenter(&turned, upright.tx + upright.e0 / 2, upright.ty + upright.e3 / 2,
                                                    upright.e0, upright.e3, reduced * std::numbers::pi / 180),
                   "--angle");
    return turned;
}

kip_affineSampleParams makeSampling(const SamplingOptions &options)
{
    requireSuccess(ksys_jobThreadGroup_setThreadCount(options.threads), "--threads");
    kmath_shapeAffineRect rect = turnedRectangle(options.upright, options.angle);
    if (options.corners)
        requireSuccess(kmath_shapeAffineRect_initPoints(&rect, &*options.corners), "--corners");
    kip_affineSampleParams params;
    if (options.size)
        requireSuccess(
            kip_affineSampleParams_init(&params, options.mode, &rect, options.size->width, options.size->height),
            "sampling");
    else
        requireSuccess(kip_affineSampleParams_initRectStandard(&params, &rect, nullptr), "sampling");
    params.mode = options.mode; // standard sampling has set its own
    return params;
}

std::string modeName(uint32_t mode)
{
    for (const ModeName &known : kModes)
        if (known.mode == mode)
            return known.name;
    return std::to_string(mode);
}

} // namespace kiptool
