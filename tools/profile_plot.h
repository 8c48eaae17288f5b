#ifndef KIP_TOOLS_PROFILE_PLOT_H
#define KIP_TOOLS_PROFILE_PLOT_H

#include "profile.h"

#include <string>

namespace kiptool {

/**
 * A plot with axes and labels, the profile as steps, and grey behind the elements that are not wholly inside the
 * picture, the darker the less of them is. The axis of the elements counts pixels of the picture.
 */
std::string plotAsSvg(const Profile &profile);

} // namespace kiptool

#endif
