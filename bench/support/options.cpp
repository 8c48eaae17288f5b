#include "support/options.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <iterator>
#include <string_view>

#include <ksys/ksys.h>

namespace kip_bench {

namespace {

struct Level {
    const char *name;
    uint32_t features;
};

constexpr uint32_t kAvx2 = ksys_featurePackedInteger | ksys_featureAvx2;
constexpr uint32_t kAvx512 = kAvx2 | ksys_featureAvx512;
constexpr uint32_t kVbmi = kAvx512 | ksys_featureAvx512Vbmi;

// Each has the features of those before it.
constexpr Level kLevels[] = {{"portable", 0}, {"avx2", kAvx2}, {"avx512", kAvx512}, {"vbmi", kVbmi}};

// The value of an argument of the form name=value.
bool takeValue(std::string_view argument, std::string_view name, std::string_view *value)
{
    if (!argument.starts_with(name) || argument.substr(name.size(), 1) != "=")
        return false;
    *value = argument.substr(name.size() + 1);
    return true;
}

bool parseRounds(std::string_view text, int *rounds)
{
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), *rounds);
    return error == std::errc() && end == text.data() + text.size() && *rounds >= 1 && *rounds <= 1000;
}

} // namespace

const char *const kHelp = R"(kip_bench: speed of kip's operations, beside OpenCV's where that was found.

  --rounds=N     measure every case N times, kip and its peer in turn (default 5)
  --level=NAME   use no instructions beyond portable, avx2, avx512 or vbmi
  --sweep        every combination of mode, depth, size, angle and scale (takes long)
  --plain        Google Benchmark's own output, without rounds and tables

Progress goes to the standard error, the tables to the standard output. All flags of Google Benchmark work
too, for example --benchmark_filter=transform/bilinear/u8/1024 and --benchmark_list_tests.
)";

std::string takeOptions(std::vector<std::string> *arguments, Options *options)
{
    std::vector<std::string> others;
    for (const std::string &argument : *arguments) {
        std::string_view value;
        if (argument == "--sweep")
            options->sweep = true;
        else if (argument == "--plain")
            options->plain = true;
        else if (argument == "--help" || argument == "-h")
            options->help = true;
        else if (takeValue(argument, "--level", &value))
            options->level = value;
        else if (!takeValue(argument, "--rounds", &value))
            others.push_back(argument);
        else if (!parseRounds(value, &options->rounds))
            return "--rounds needs a number from 1 to 1000";
    }
    *arguments = others;
    return "";
}

std::string applyLevel(const std::string &level)
{
    const auto *const found = std::find_if(std::begin(kLevels), std::end(kLevels),
                                           [&level](const Level &known) { return level == known.name; });
    if (found == std::end(kLevels))
        return "unknown level '" + level + "'; known: portable avx2 avx512 vbmi";
    ksys_cpuinfo processor;
    ksys_cpuinfo_init(&processor);
    if ((processor.features & found->features) != found->features)
        return "this processor has no " + level;
    processor.features = found->features;
    ksys_cpuinfo_setOverride(&processor);
    return "";
}

std::string currentLevel()
{
    ksys_cpuinfo processor;
    ksys_cpuinfo_init(&processor);
    std::string name;
    for (const Level &level : kLevels)
        if ((processor.features & level.features) == level.features)
            name = level.name;
    return name;
}

} // namespace kip_bench
