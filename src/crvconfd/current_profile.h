// Where the current profile's record comes from, and saving it there.
#pragma once

#include <string>

#include "profiles/profile_media.h"

namespace crv {

struct ProfileSource {
    ProfileMedia media = ProfileMedia::User;
    std::string file;  ///< the list, for ProfileMedia::File
};

/// Set by the session with each profile.
inline ProfileSource currentProfileSource;

/// Saves the record of the current profile in its list. A failure is shown on the message row and the record takes the
/// list's values again; false then.
[[nodiscard]] bool saveCurrentProfile();

}  // namespace crv
