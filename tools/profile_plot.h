#ifndef KIP_TOOLS_PROFILE_PLOT_H
#define KIP_TOOLS_PROFILE_PLOT_H

#include "picture.h"
#include "profile.h"

#include <string>

namespace kiptool {

// A plot has axes with labels, the profile as steps, and grey behind the elements that are not wholly inside the
// picture, the darker the less of them is. The axis of the elements counts pixels of the picture.

std::string plotAsSvg(const Profile &profile);

Picture plotAsPicture(const Profile &profile);

} // namespace kiptool

#endif
