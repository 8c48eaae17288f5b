#include "transform/transform_cases.h"

#include <algorithm>
#include <iterator>
#include <sstream>

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
constexpr double kAngles[] = {0.3, 10.0, 45.0, 80.0};
constexpr double kScales[] = {0.5, 1.0, 2.0};
constexpr int32_t kThreadSizes[] = {1024, 2048, 4096};

// 64 lines of the cache, so that a column of the source shares one set of its first level, and one line more.
constexpr int32_t kPitches[] = {4096, 4160};

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

TransformCase geometry(int32_t size, double degrees, double scale)
{
    return {0, 1, size, degrees, scale};
}

void addSelection(std::vector<TransformCase> *cases)
{
    for (const double degrees : kAngles)
        addForEveryMode(geometry(1024, degrees, 1.0), cases);
    for (const int32_t size : {256, 4096})
        addForEveryMode(geometry(size, 10.0, 1.0), cases);
    for (const double scale : {0.5, 2.0})
        addForEveryMode(geometry(1024, 10.0, scale), cases);
}

void addEveryCombination(std::vector<TransformCase> *cases)
{
    for (const int32_t size : kSizes)
        for (const double scale : kScales)
            for (const double degrees : kAngles)
                addForEveryMode(geometry(size, degrees, scale), cases);
}

} // namespace

std::vector<TransformCase> transformCases(bool sweep)
{
    std::vector<TransformCase> cases;
    addForEveryMode(geometry(64, 10.0, 1.0), &cases);
    if (sweep)
        addEveryCombination(&cases);
    else
        addSelection(&cases);

    for (const double degrees : {10.0, 80.0})
        for (const int32_t pitch : kPitches) {
            TransformCase aliasing = geometry(1024, degrees, 1.0);
            aliasing.sourcePitchBytes = pitch;
            addForEveryMode(aliasing, &cases);
        }

    for (const int32_t size : kThreadSizes)
        for (const int32_t threads : {1, 2}) {
            TransformCase threaded = geometry(size, 10.0, 1.0);
            threaded.threads = threads;
            addForEveryMode(threaded, &cases);
        }
    return cases;
}

std::string nameOf(const TransformCase &transform)
{
    std::ostringstream name;
    name << "transform/" << nameOfMode(transform.mode) << "/u" << 8 * transform.bytesPerPixel << '/' << transform.size
         << "/rotate" << transform.degrees << "/scale" << transform.scale;
    if (transform.sourcePitchBytes != 0)
        name << "/pitch" << transform.sourcePitchBytes;
    if (transform.threads != 0)
        name << "/threads" << transform.threads;
    return name.str();
}

} // namespace kip_bench
