#ifndef KIP_TOOLS_FAILURE_H
#define KIP_TOOLS_FAILURE_H

#include <stdexcept>

namespace kiptool {

/** What ends a command with exit code 1. Its text is one line for the user. */
struct Failure : std::runtime_error {
    using std::runtime_error::runtime_error;
};

} // namespace kiptool

#endif
