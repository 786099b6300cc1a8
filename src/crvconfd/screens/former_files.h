// The former security files of the profile.
#pragma once

namespace crv {

/// Lists them, the newest first, and puts one back in place; throws SessionOver then.
void OnFormerFiles();

}  // namespace crv
