// Changing a profile's record where it stands.
#pragma once

#include <exception>
#include <functional>
#include <string>

#include "profiles/crv_profile.h"

namespace crv {

/// The list that a profile comes from.
struct ProfileSource {
    ProfileMedia media = ProfileMedia::User;
    std::string file;  ///< the list, for ProfileMedia::File
};

/// What a change ended with.
struct [[nodiscard]] ProfileChange {
    std::exception_ptr failure;  ///< null for success
    bool saving = false;         ///< the record was changed, but not saved

    explicit operator bool() const { return !failure; }
};

/// Changes the record and saves it in its list; a failure leaves record and list as they were. OpStopped passes
/// through.
ProfileChange changeProfile(CrvProfile& profile, const ProfileSource& source,
                            const std::function<void(CrvProfile&)>& change);

}  // namespace crv
