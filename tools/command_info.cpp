#include "commands.h"
#include "failure.h"
#include "json_text.h"
#include "picture_io.h"

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <memory>
#include <numeric>
#include <string>
#include <utility>
#include <vector>

namespace kiptool {
namespace {

struct InfoOptions {
    std::vector<std::string> files;
    bool json = false;
};

// What is told of a page.
struct PageInfo {
    std::string file;
    const char *format;
    int32_t page, pages, width, height;
    int depth;
    bool colour;
    uint32_t least, greatest;
    double mean;
};

PageInfo infoOf(const std::string &name, PictureFile file)
{
    const bool colour = file.picture.channels == 3;
    const Picture picture = toGrey(std::move(file.picture));
    return std::visit(
        [&](const auto &samples) -> PageInfo {
            const auto [least, greatest] = std::minmax_element(samples.begin(), samples.end());
            const auto sum = std::accumulate(samples.begin(), samples.end(), uint64_t{0});
            const double mean = static_cast<double>(sum) / static_cast<double>(samples.size());
            return {name,
                    formatName(file.format),
                    file.page,
                    file.pages,
                    picture.width,
                    picture.height,
                    depthOf(picture),
                    colour,
                    *least,
                    *greatest,
                    mean};
        },
        picture.samples);
}

std::string asText(const PageInfo &info, bool withName)
{
    char values[100];
    (void)std::snprintf(values, sizeof values, "values: %u to %u, mean %.2f\n", info.least, info.greatest, info.mean);
    std::string text;
    if (withName)
        text += "file: " + info.file + '\n';
    if (info.pages > 1)
        text += "page: " + std::to_string(info.page) + " of " + std::to_string(info.pages) + '\n';
    text += std::string("format: ") + info.format + (info.colour ? ", colour (read as grey)" : ", grey") + '\n';
    text += "size: " + std::to_string(info.width) + " x " + std::to_string(info.height) + '\n';
    return text + "depth: " + std::to_string(info.depth) + " bits\n" + values;
}

std::string asJson(const PageInfo &info)
{
    char rest[300];
    (void)std::snprintf(rest, sizeof rest,
                        R"(, "page": %d, "pages": %d, "format": "%s", "colour": %s, "width": %d, "height": %d, )"
                        R"("depth": %d, "least": %u, "greatest": %u, "mean": %.10g})",
                        info.page, info.pages, info.format, info.colour ? "true" : "false", info.width, info.height,
                        info.depth, info.least, info.greatest, info.mean);
    return R"({"file": )" + jsonString(info.file) + rest;
}

void runInfo(const InfoOptions &options)
{
    const size_t count = options.files.size();
    size_t failed = 0;
    std::string text;
    for (const std::string &name : options.files) {
        try {
            readPages(name, [&](PictureFile file) {
                const PageInfo info = infoOf(name, std::move(file));
                if (options.json)
                    text += (text.empty() ? "[" : ",\n ") + asJson(info);
                else
                    text += (text.empty() ? "" : "\n") + asText(info, count > 1);
            });
        } catch (const Failure &failure) { // the other files are told none the less
            if (count == 1)
                throw;
            tellUser(failure.what());
            ++failed;
        }
    }
    std::cout << text;
    if (options.json)
        std::cout << (text.empty() ? "[]\n" : "]\n");
    if (failed > 0)
        throw Failure(std::to_string(failed) + " of " + std::to_string(count) + " files cannot be read");
}

} // namespace

Command addInfoCommand(CLI::App &tool)
{
    CLI::App *app = tool.add_subcommand("info", "Tell the format, size, depth and range of values of each page of "
                                                "pictures");
    const auto options = std::make_shared<InfoOptions>();
    app->add_option("IN", options->files, "Pictures; - for the standard input")->required();
    app->add_flag("--json", options->json, "Print an array with an object for each page");
    return {app, [options] { runInfo(*options); }};
}

} // namespace kiptool
