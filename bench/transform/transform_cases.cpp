#include "transform/transform_cases.h"

#include <algorithm>
#include <iterator>
#include <sstream>
#include <utility>

#include <kip/kip.h>

namespace kip_bench {

namespace {

struct Mode {
    uint32_t value;
    const char *name;
};

constexpr Mode kModes[] = {
    {kip_affineModeNearest, "nearest"},
    {kip_affineModeBilinear, "bilinear"},
    {kip_affineModeBilinearSeparable, "separable"},
    {kip_affineModeBicubic, "cubic"},
};

constexpr int32_t kDepths[] = {1, 2};
constexpr int32_t kSizes[] = {256, 1024, 4096};
constexpr double kAngles[] = {0.3, 10.0, 37.0, 45.0, 61.0, 80.0, 97.0, 135.0, 262.0};
constexpr double kSweepAngles[] = {0.3, 10.0, 45.0, 80.0};
constexpr double kSteps[] = {0.5, 1.0, 2.0};
constexpr double kReductions[] = {1.5, 1.93, 2.0, 2.6, 3.0, 4.0, 8.0};
constexpr int32_t kWidths[] = {7, 16, 20, 63, 64};
constexpr int32_t kThreadSizes[] = {1024, 2048, 4096};

// 64 lines of the cache, so that a column of the source shares one set of its first level, and one line more.
constexpr int32_t kPitches[] = {4096, 4160};

// A line-scan camera's picture: more rows, or bytes in a row, than 16.16 positions reach.
constexpr int32_t kBeyondFixedPoint = 40000;

const char *nameOfMode(uint32_t value)
{
    const auto *const found =
        std::find_if(std::begin(kModes), std::end(kModes), [value](const Mode &mode) { return mode.value == value; });
    return found != std::end(kModes) ? found->name : "unknown";
}

void addForEveryMode(const TransformCase &prototype, std::vector<TransformCase> *cases)
{
    for (const int32_t depth : kDepths)
        for (const Mode &mode : kModes) {
            cases->push_back(prototype);
            cases->back().mode = mode.value;
            cases->back().bytesPerPixel = depth;
        }
}

void addForEveryMode(const Geometry &geometry, std::vector<TransformCase> *cases)
{
    addForEveryMode(TransformCase{0, 1, geometry}, cases);
}

void addReductions(std::vector<TransformCase> *cases)
{
    for (const double reduction : kReductions)
        for (const double degrees : {10.0, 45.0})
            addForEveryMode(turnedSquare(1024, degrees, reduction), cases);
    for (const auto &[xStep, yStep] : {std::pair{3.0, 1.0}, std::pair{1.0, 3.0}})
        addForEveryMode(Geometry{1024, 1024, 10.0, xStep, yStep}, cases);
    addForEveryMode(Geometry{1024, 1024, 10.0, 1.0, 1.0, 2.0}, cases);
}

void addSelection(std::vector<TransformCase> *cases)
{
    for (const double degrees : kAngles)
        addForEveryMode(turnedSquare(1024, degrees), cases);
    addForEveryMode(turnedSquare(256, 10.0), cases);
    for (const double degrees : {10.0, 80.0})
        addForEveryMode(turnedSquare(4096, degrees), cases);
    addForEveryMode(turnedSquare(1024, 10.0, 0.5), cases);
    addReductions(cases);
    for (const int32_t width : kWidths)
        addForEveryMode(Geometry{width, 1024, 10.0}, cases);
}

void addEveryCombination(std::vector<TransformCase> *cases)
{
    for (const int32_t size : kSizes)
        for (const double step : kSteps)
            for (const double degrees : kSweepAngles)
                addForEveryMode(turnedSquare(size, degrees, step), cases);
}

// Sources whose rows fall into one set of the cache, and sources beyond 16.16.
void addSourceShapes(std::vector<TransformCase> *cases)
{
    for (const double degrees : {10.0, 80.0})
        for (const int32_t pitch : kPitches) {
            TransformCase aliasing = {0, 1, turnedSquare(1024, degrees)};
            aliasing.sourcePitchBytes = pitch;
            addForEveryMode(aliasing, cases);
        }
    for (const uint32_t mode : {kip_affineModeNearest, kip_affineModeBilinear}) {
        cases->push_back({mode, 1, turnedSquare(1024, 10.0)});
        cases->back().sourceRows = kBeyondFixedPoint;
        cases->push_back({mode, 1, turnedSquare(1024, 10.0)});
        cases->back().sourcePitchBytes = kBeyondFixedPoint;
    }
}

} // namespace

std::vector<TransformCase> transformCases(bool sweep)
{
    std::vector<TransformCase> cases;
    addForEveryMode(turnedSquare(64, 10.0), &cases);
    if (sweep)
        addEveryCombination(&cases);
    else
        addSelection(&cases);
    addSourceShapes(&cases);

    for (const int32_t size : kThreadSizes)
        for (const int32_t threads : {1, 2}) {
            TransformCase threaded = {0, 1, turnedSquare(size, 10.0)};
            threaded.threads = threads;
            addForEveryMode(threaded, &cases);
        }
    return cases;
}

Geometry turnedSquare(int32_t side, double degrees, double step)
{
    return {side, side, degrees, step, step};
}

std::string nameOf(const TransformCase &transform)
{
    const Geometry &geometry = transform.geometry;
    std::ostringstream name;
    name << "transform/" << nameOfMode(transform.mode) << "/u" << 8 * transform.bytesPerPixel << '/' << geometry.width;
    if (geometry.height != geometry.width)
        name << 'x' << geometry.height;
    name << "/rotate" << geometry.degrees;
    if (geometry.xStep != geometry.yStep)
        name << "/reduce" << geometry.xStep << 'x' << geometry.yStep;
    else if (geometry.xStep > 1.0)
        name << "/reduce" << geometry.xStep;
    else
        name << "/scale" << 1.0 / geometry.xStep;
    if (geometry.shear != 0.0)
        name << "/shear" << geometry.shear;
    if (transform.sourcePitchBytes != 0)
        name << "/pitch" << transform.sourcePitchBytes;
    if (transform.sourceRows != 0)
        name << "/rows" << transform.sourceRows;
    if (transform.threads != 0)
        name << "/threads" << transform.threads;
    return name.str();
}

} // namespace kip_bench
