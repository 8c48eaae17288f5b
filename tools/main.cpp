// kip: the libraries' operations on picture files.

#include "commands.h"
#include "failure.h"

#include <array>
#include <exception>
#include <iostream>
#include <kstd/kprt.h>
#include <new>
#include <string>

namespace {

enum ExitCode { exitSuccess = 0, exitFailure = 1, exitWrongCommandLine = 2 };

int runTool(int argc, char **argv)
{
    CLI::App tool("Geometric image operations on picture files: PNG, TIFF, JPEG (read only) and binary PGM, grey with "
                  "8 or 16 bits a "
                  "sample. Colour is read as grey, (299 R + 587 G + 114 B + 500) / 1000; an alpha channel is ignored.",
                  "kip");
    tool.set_version_flag("--version", std::string("kip ") + kprt_version());
    tool.require_subcommand(0, 1);
    const std::array commands = {kiptool::addTransformCommand(tool), kiptool::addProjectCommand(tool),
                                 kiptool::addSumsCommand(tool), kiptool::addInfoCommand(tool),
                                 kiptool::addSceneCommand(tool)};
    try {
        tool.parse(argc, argv);
        if (tool.get_subcommands().empty()) // asked here, so that a misspelt command is told as such
            throw CLI::RequiredError("A command");
    } catch (const CLI::Success &help) {
        return tool.exit(help);
    } catch (const CLI::ParseError &error) {
        kiptool::tellUser(std::string(error.what()) + " (kip --help tells more)");
        return exitWrongCommandLine;
    }
    for (const kiptool::Command &command : commands)
        if (command.app->parsed())
            command.run();
    std::cout.flush();
    if (!std::cout)
        throw kiptool::Failure("standard output cannot be written");
    return exitSuccess;
}

} // namespace

int main(int argc, char **argv)
{
    try {
        return runTool(argc, argv);
    } catch (const std::bad_alloc &) {
        kiptool::tellUser("not enough memory");
    } catch (const std::exception &error) {
        kiptool::tellUser(error.what());
    }
    return exitFailure;
}
