#ifndef KIP_TOOLS_FAILURE_H
#define KIP_TOOLS_FAILURE_H

#include <cstdint>
#include <stdexcept>
#include <string>

namespace kiptool {

/** What ends a command with exit code 1. Its text is one line for the user. */
struct Failure : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/** Prints "kip: message" in one line on the standard error, whatever the message is made of. */
void tellUser(std::string message);

/** Ends with a Failure "what: name (0xcode): meaning" when a status of the libraries is negative. */
void requireSuccess(int32_t status, const std::string &what);

} // namespace kiptool

#endif
