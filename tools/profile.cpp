#include "profile.h"

#include "failure.h"
#include "output_file.h"
#include "parse.h"
#include "profile_plot.h"

#include <cstdio>
#include <filesystem>
#include <iostream>

namespace kiptool {
namespace {

// Ten digits hold every sum of 32 bits.
std::string numberText(double number)
{
    char text[40];
    (void)std::snprintf(text, sizeof text, "%.10g", number);
    return text;
}

std::string valueText(const Profile &profile, size_t i, const char *none)
{
    return i >= profile.first && i < profile.end ? numberText(profile.values[i]) : none;
}

bool endsWith(const std::string &file, const char *extension)
{
    return std::filesystem::path(file).extension() == extension;
}

void writeText(const std::string &file, const std::string &text)
try {
    writeFileWhole(file, {reinterpret_cast<const uint8_t *>(text.data()), text.size()});
} catch (const Failure &failure) {
    throw Failure(file + ": " + failure.what());
}

} // namespace

std::string profileAsCsv(const Profile &profile)
{
    std::string text = profile.axis + "," + profile.quantity + (profile.coverage.empty() ? "\n" : ",coverage\n");
    for (size_t i = 0; i < profile.values.size(); ++i) {
        text += std::to_string(i) + "," + valueText(profile, i, "");
        if (!profile.coverage.empty())
            text += "," + numberText(profile.coverage[i]);
        text += '\n';
    }
    return text;
}

std::string profileAsJson(const Profile &profile)
{
    std::string text = R"({"axis": ")" + profile.axis + R"(", "quantity": ")" + profile.quantity + R"(", "samples": )" +
                       numberText(profile.samples) + R"(, "first": )" + std::to_string(profile.first) + R"(, "end": )" +
                       std::to_string(profile.end) + ",\n \"values\": [";
    for (size_t i = 0; i < profile.values.size(); ++i)
        text += (i == 0 ? "" : ", ") + valueText(profile, i, "null");
    text += "]";
    if (!profile.coverage.empty()) {
        text += ",\n \"coverage\": [";
        for (size_t i = 0; i < profile.coverage.size(); ++i)
            text += (i == 0 ? "" : ", ") + numberText(profile.coverage[i]);
        text += "]";
    }
    return text + "}\n";
}

void addProfileOptions(CLI::App &command, ProfileOptions &options)
{
    addFileOption(command, "-o,--output", {".csv", ".json"},
                  "Table of the profile (default: CSV on the standard output)", options.out);
    addFileOption(command, "--plot", {".svg"}, "Plot of the profile", options.plot);
}

void writeProfile(const ProfileOptions &options, const Profile &profile)
{
    const std::string table = endsWith(options.out, ".json") ? profileAsJson(profile) : profileAsCsv(profile);
    if (options.out.empty())
        std::cout << table;
    else
        writeText(options.out, table);
    if (!options.plot.empty())
        writeText(options.plot, plotAsSvg(profile));
}

} // namespace kiptool
