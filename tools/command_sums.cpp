#include "commands.h"
#include "failure.h"
#include "library_image.h"
#include "parse.h"
#include "picture_options.h"
#include "profile.h"

#include <cmath>
#include <kip/kip.h>
#include <memory>
#include <optional>

namespace kiptool {
namespace {

struct SumsOptions {
    InputOptions in;
    bool rows = false;
    std::optional<kstd_rect32> window;
    ProfileOptions profile;
};

// A vector of the library that is let go at the end.
struct LibraryVector {
    kstd_vector32 vector;

    LibraryVector() { requireSuccess(kstd_vector32_construct(&vector), "vector"); }
    LibraryVector(const LibraryVector &) = delete;
    LibraryVector &operator=(const LibraryVector &) = delete;
    ~LibraryVector() { kstd_vector32_destruct(&vector); }
};

kstd_rect32 parseWindow(const std::string &text)
{
    const std::vector<double> n = parseNumbers(text, 4);
    for (const double number : n)
        if (number != std::floor(number) || number < 0 || number > INT32_MAX)
            throw CLI::ValidationError("'" + text + "' has a number that is not whole or out of range");
    const auto whole = [&n](size_t i) { return static_cast<int32_t>(n[i]); };
    return {whole(0), whole(1), whole(2), whole(3)};
}

void runSums(const SumsOptions &options)
{
    Picture picture = toGrey(readInput(options.in));
    if (depthOf(picture) != 8)
        throw Failure(shownName(options.in.file) + ": sums of windows are for pictures of 8 bits; 'project' takes 16");
    LibraryImage source;
    bindTo(source, picture);
    kimg_windowConst window;
    requireSuccess(kimg_windowConst_init(&window, &source.image), "source image");
    if (const auto &part = options.window) {
        if (int64_t{part->x} + part->width > picture.width || int64_t{part->y} + part->height > picture.height)
            throw Failure(shownName(options.in.file) + ": the window reaches outside the picture");
        requireSuccess(kimg_windowConst_window(&window, part->x, part->y, part->width, part->height, nullptr),
                       "window");
    }

    LibraryVector sums;
    int32_t depth = 0;
    const auto project = options.rows ? kip_projectHorizontalVectorWindow8 : kip_projectVerticalVectorWindow8;
    requireSuccess(project(&window, &sums.vector, &depth), "sums");
    int32_t count = 0;
    uint32_t *first = nullptr;
    requireSuccess(kstd_vector32_getSize(&sums.vector, &count), "sums");
    requireSuccess(kstd_vector32_getBegin(&sums.vector, &first), "sums");

    Profile profile;
    profile.axis = options.rows ? "row" : "column";
    profile.quantity = "sum";
    profile.values.assign(first, first + count);
    profile.samples = depth;
    profile.end = profile.values.size();
    profile.length = count;
    writeProfile(options.profile, profile);
}

} // namespace

Command addSumsCommand(CLI::App &tool)
{
    CLI::App *app = tool.add_subcommand("sums", "Add up the pixels of each row or column of a window of a picture");
    const auto options = std::make_shared<SumsOptions>();
    addInputOptions(*app, options->in, "Picture of 8 bits");
    addParsedOption(*app, "--axis", "rows|columns", "One sum a row, or one a column",
                    [options](const std::string &text) {
                        if (text != "rows" && text != "columns")
                            throw CLI::ValidationError("'" + text + "' is neither rows nor columns");
                        options->rows = text == "rows";
                    })
        ->required();
    addParsedOption(*app, "--window", "X,Y,W,H", "Part of the picture in whole pixels (default: all of it)",
                    [options](const std::string &text) { options->window = parseWindow(text); });
    addProfileOptions(*app, options->profile);
    return {app, [options] { runSums(*options); }};
}

} // namespace kiptool
