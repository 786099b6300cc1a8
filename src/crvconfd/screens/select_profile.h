// The profile selection screen.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include "profiles/crv_profile.h"

namespace crv {

/// Shows the details of a profile on the whole screen; returns when the user leaves them.
using ProfileDetails = std::function<void(const CrvProfile&)>;

/// Shows the selection screen and loads the profile chosen. lastName is highlighted when it is in the list, preferably
/// where source says when the user's and the common list both have it; source receives where the chosen profile comes
/// from. Null when the user leaves the screen, when there is nothing to choose from, or when the profile cannot be
/// loaded (which has been said). What is wrong in the lists and not among `told` is told and goes there. Throws as
/// readProfileList does.
[[nodiscard]] std::unique_ptr<CrvProfile> selectProfile(AvailableProfiles kind, const std::string& lastName,
                                                        const char* file, std::optional<ProfileMedia>& source,
                                                        const ProfileDetails& details, std::set<std::string>& told);

}  // namespace crv
