// The session: from the selection of a profile to the end of its main menu, and back.
#pragma once

#include "crvconfd/session/command_line.h"
#include "profiles/crv_profile.h"

namespace crv {

/// The profile that the command line named, and which list it stands in; null when it named none.
struct NamedProfile {
    std::unique_ptr<CrvProfile> profile;
    ProfileMedia media = ProfileMedia::User;
};

/// Runs sessions until the user leaves the selection screen, or just one for a named profile.
void runSessions(const CommandLine& line, NamedProfile named);

}  // namespace crv
