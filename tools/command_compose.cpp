#include "bitmap_font.h"
#include "commands.h"
#include "drawing.h"
#include "failure.h"
#include "parse.h"
#include "picture_io.h"

#include <algorithm>
#include <memory>
#include <numeric>

namespace kiptool {
namespace {

constexpr int64_t kGap = 14;
constexpr int64_t kTextFactor = 2;
constexpr int64_t kLabelHeight = kGlyphHeight * kTextFactor + 8;
constexpr int64_t kMostEnlarged = 8;
constexpr Colour kPaper = {250, 250, 248};
constexpr Colour kInk = {30, 34, 48};

struct ComposeOptions {
    std::string out;
    std::vector<std::string> entries; // LABEL=FILE, FILE or "-"
    int32_t width = 1200;
    int32_t columns = 1;
};

// A picture of the overview with its label, already reduced if it was too wide. Empty for a free place.
struct Panel {
    std::string label;
    Picture picture;
    int64_t factor = 1;

    int64_t width() const { return std::max(picture.width * factor, textWidth(label, kTextFactor)); }
    int64_t height() const { return picture.height == 0 ? 0 : kLabelHeight + picture.height * factor + kGap; }
};

Panel readPanel(const std::string &entry, int32_t width)
{
    if (entry == "-")
        return {};
    const size_t equals = entry.find('=');
    const std::string name = equals == std::string::npos ? entry : entry.substr(equals + 1);
    Panel panel;
    panel.picture = toColour8(readPicture(name).picture);
    panel.label = equals == std::string::npos ? name : entry.substr(0, equals);
    panel.label += " (" + std::to_string(panel.picture.width) + " x " + std::to_string(panel.picture.height);
    if (panel.picture.width > width) {
        const int32_t divisor = (panel.picture.width - 1) / width + 1;
        panel.picture = reduced(panel.picture, divisor);
        panel.label += ", reduced by " + std::to_string(divisor);
    }
    panel.factor = std::clamp<int64_t>(width / panel.picture.width, 1, kMostEnlarged);
    if (panel.factor > 1)
        panel.label += ", enlarged by " + std::to_string(panel.factor);
    panel.label += ")";
    return panel;
}

void runCompose(const ComposeOptions &options)
{
    formatOfName(options.out);
    std::vector<Panel> panels;
    for (const std::string &entry : options.entries)
        panels.push_back(readPanel(entry, options.width));

    // Each column is a stack of its own, as wide as its widest panel.
    const auto columns = std::min(static_cast<size_t>(options.columns), panels.size());
    std::vector<int64_t> widths(columns), heights(columns, kGap);
    for (size_t i = 0; i < panels.size(); ++i) {
        widths[i % columns] = std::max(widths[i % columns], panels[i].width());
        heights[i % columns] += panels[i].height();
    }
    const int64_t width = std::accumulate(widths.begin(), widths.end(), kGap * static_cast<int64_t>(columns + 1));
    const int64_t height = *std::max_element(heights.begin(), heights.end());

    Picture overview = makePicture(width, height, 3, 8);
    fillArea(overview, 0, 0, width, height, kPaper);
    int64_t x = kGap;
    for (size_t column = 0; column < columns; ++column) {
        int64_t y = kGap;
        for (size_t i = column; i < panels.size(); i += columns) {
            drawText(overview, x, y, panels[i].label, kTextFactor, kInk);
            drawEnlarged(overview, x, y + kLabelHeight, panels[i].picture, panels[i].factor);
            y += panels[i].height();
        }
        x += widths[column] + kGap;
    }
    writePicture(options.out, overview);
}

} // namespace

Command addComposeCommand(CLI::App &tool)
{
    CLI::App *app = tool.add_subcommand("compose", "Put labelled pictures together into one overview, small ones "
                                                   "enlarged by a whole factor so that their pixels show");
    const auto options = std::make_shared<ComposeOptions>();
    app->add_option("OUT", options->out, "Overview: .png or .tif")->required();
    app->add_option("LABEL=FILE", options->entries, "Pictures with their labels, row by row; - leaves a place free")
        ->required();
    addParsedOption(*app, "--columns", "N", "Pictures side by side (default 1)",
                    [options](const std::string &text) { options->columns = parseInteger(text, 1); });
    addParsedOption(*app, "--width", "PIXELS", "Width that a picture is enlarged or reduced to at most (default 1200)",
                    [options](const std::string &text) { options->width = parseInteger(text, 1); });
    return {app, [options] { runCompose(*options); }};
}

} // namespace kiptool
