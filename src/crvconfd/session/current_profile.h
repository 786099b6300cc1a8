// Where the current profile's record comes from, and changing it there.
#pragma once

#include <functional>

#include "ops/profile_change.h"

namespace crv {

/// Set by the session with each profile.
inline ProfileSource currentProfileSource;

/// Changes the record of the current profile and saves it in its list. What goes wrong is shown on the message row and
/// leaves the record as it was; false then.
bool changeCurrentProfile(const std::function<void(CrvProfile&)>& change);

}  // namespace crv
