#ifndef KIP_TOOLS_COMMANDS_H
#define KIP_TOOLS_COMMANDS_H

#include <CLI/CLI.hpp>
#include <functional>

namespace kiptool {

/** A command of the tool. It runs only after the whole command line has been found right. */
struct Command {
    CLI::App *app;
    std::function<void()> run; /**< ends with a Failure when it cannot do its work */
};

Command addTransformCommand(CLI::App &tool);
Command addProjectCommand(CLI::App &tool);
Command addSumsCommand(CLI::App &tool);
Command addInfoCommand(CLI::App &tool);
Command addSceneCommand(CLI::App &tool);

} // namespace kiptool

#endif
