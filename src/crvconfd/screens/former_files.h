// The former security files of the profile.
#pragma once

namespace crv {

/// Lists them, the newest first; true when one was put back in place.
[[nodiscard]] bool chooseFormerFile();

/// The same in a session, which ends with it: throws SessionOver then.
void OnFormerFiles();

}  // namespace crv
