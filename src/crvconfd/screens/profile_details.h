// The details of a profile: every parameter that its kind has.
#pragma once

namespace crv {

class CrvProfile;

/// Shows the profile on the whole screen, or with null the current one, until the user leaves it.
void OnProfileDetails(const CrvProfile* profile = nullptr);

}  // namespace crv
