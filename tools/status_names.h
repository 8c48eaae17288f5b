#ifndef KIP_TOOLS_STATUS_NAMES_H
#define KIP_TOOLS_STATUS_NAMES_H

#include <cstdint>
#include <span>
#include <string>

namespace kiptool {

/** A status of the libraries. */
struct StatusName {
    int32_t status;
    const char *name;    /**< as the headers spell it */
    const char *meaning; /**< for the user, without a full stop */
};

/** Every status that the headers name. */
std::span<const StatusName> statusNames();

/** "name (0xcode): meaning", or "status 0xcode" for one without a name. */
std::string describeStatus(int32_t status);

/** Ends with a Failure "what: description" when status is negative. */
void requireSuccess(int32_t status, const std::string &what);

} // namespace kiptool

#endif
