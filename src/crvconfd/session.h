// The session: from the selection of a profile to the end of its main menu, and back.
#pragma once

#include "crvconfd/command_line.h"
#include "profiles/crv_profile.h"

namespace crv {

/// Runs sessions until the user leaves the selection screen, or just one for a profile that the command line named.
void runSessions(const CommandLine& line, std::unique_ptr<CrvProfile> named);

}  // namespace crv
