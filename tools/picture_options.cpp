#include "picture_options.h"

#include "failure.h"
#include "parse.h"

#include <utility>

namespace kiptool {

void addInputOptions(CLI::App &command, InputOptions &options, const std::string &help)
{
    command.add_option("IN", options.file, help + "; - for the standard input")->required();
    addParsedOption(command, "--page", "N", "Page of a TIFF (default 1)",
                    [&options](const std::string &text) { options.page = parseInteger(text, 1); });
}

std::string noteOn(const PictureFile &file, bool pageIsChosen)
{
    std::string note;
    if (file.pages > 1 && !pageIsChosen)
        note = "has " + std::to_string(file.pages) + " pages, page " + std::to_string(file.page) + " is read";
    if (file.picture.channels == 3)
        note += (note.empty() ? "" : "; ") + std::string("colour read as grey");
    return note;
}

Picture readInput(const InputOptions &options)
{
    PictureFile file = readPicture(options.file, options.page.value_or(1));
    const std::string note = noteOn(file, options.page.has_value());
    if (!note.empty())
        tellUser(shownName(options.file) + ": " + note);
    return std::move(file.picture);
}

void addFormatOption(CLI::App &command, std::optional<Format> &format)
{
    addParsedOption(command, "--format", "png|tiff|pgm", "Format of OUT, where its name does not tell it",
                    [&format](const std::string &text) {
                        for (const Format known : {Format::png, Format::tiff, Format::pgm}) {
                            if (text == optionOf(known)) {
                                format = known;
                                return;
                            }
                        }
                        throw CLI::ValidationError("'" + text + "' is none of png, tiff and pgm");
                    });
}

} // namespace kiptool
