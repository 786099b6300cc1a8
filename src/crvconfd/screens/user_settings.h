// The cryptographic settings of a profile.
#pragma once

namespace crv {

/// Edits the algorithm choices of the configuration record and saves them with the protected configuration.
void OnUserSettings();

}  // namespace crv
