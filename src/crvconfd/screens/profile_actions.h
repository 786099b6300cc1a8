// What the selection screen does to the lists themselves: new, copied, renamed and deleted profiles.
#pragma once

#include <optional>
#include <span>
#include <string>

#include "ops/profiles.h"

namespace crv {

struct ProfileAction {
    char key;
    const char* label;     ///< "N: nowy profil"
    const char* question;  ///< asked first, "%s" is the profile
    bool needsProfile;
    /// Works on the profile of a list; answers the name that the cursor goes to, nothing when the user gave up. Throws
    /// OpError.
    std::optional<std::string> (*run)(const ListPlace& place, const std::string& name);
};

/// The first makes a new profile.
std::span<const ProfileAction> profileActions();

/// Asks and does; says what went wrong. The name that the cursor goes to; nothing when nothing was done.
std::optional<std::string> runProfileAction(const ProfileAction& action, const ListPlace& place,
                                            const std::string& name);

}  // namespace crv
