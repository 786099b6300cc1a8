// Which profile list a record stands in and which lists a program shows.
#pragma once

namespace crv {

/// The list file that a profile comes from.
enum class ProfileMedia { User = 0, Common = 1, File = 2 };

/// The lists that a program offers; All is the user's list and then the common one.
enum class AvailableProfiles { All = 0, User = 1, Common = 2, File = 3 };

}  // namespace crv
