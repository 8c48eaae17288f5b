#include "commands.h"
#include "picture_io.h"

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <memory>
#include <numeric>

namespace kiptool {
namespace {

void printInfo(const std::string &name)
{
    PictureFile file = readPicture(name);
    const bool colour = file.picture.channels == 3;
    const Picture picture = toGrey(std::move(file.picture));
    std::cout << "format: " << formatName(file.format) << (colour ? ", colour (read as grey)" : ", grey") << '\n'
              << "size: " << picture.width << " x " << picture.height << '\n'
              << "depth: " << depthOf(picture) << " bits\n";
    std::visit(
        [](const auto &samples) {
            const auto [least, greatest] = std::minmax_element(samples.begin(), samples.end());
            const auto sum = std::accumulate(samples.begin(), samples.end(), uint64_t{0});
            char mean[32];
            (void)std::snprintf(mean, sizeof mean, "%.2f",
                                static_cast<double>(sum) / static_cast<double>(samples.size()));
            std::cout << "values: " << +*least << " to " << +*greatest << ", mean " << mean << '\n';
        },
        picture.samples);
}

} // namespace

Command addInfoCommand(CLI::App &tool)
{
    CLI::App *app = tool.add_subcommand("info", "Tell a picture's format, size, depth and range of values");
    const auto name = std::make_shared<std::string>();
    app->add_option("IN", *name, "Picture")->required();
    return {app, [name] { printInfo(*name); }};
}

} // namespace kiptool
