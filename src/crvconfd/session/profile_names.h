// The names in the profile lists that the program offers, and the printed list of them.
#pragma once

#include <string>
#include <vector>

#include "profiles/profile_media.h"

namespace crv {

/// Reads the names of the lists of a kind, the user's before the common ones, each list in its own order; userCount
/// receives how many are the user's. file names the list of kind File; null there is a programming error
/// (VtestException). Throws StoreError for a list that cannot be read.
void readProfileList(std::vector<std::string>& list, AvailableProfiles kind, int& userCount, const char* file);

/// The lists of a kind that were looked for, for a user who misses something in them: "Szukano w: <path> (nie ma
/// takiego pliku)", one a line.
[[nodiscard]] std::string searchedLists(AvailableProfiles kind, const char* file);

/// The lists of a kind as the -list option prints them, converted for display.
[[nodiscard]] std::string profileListText(AvailableProfiles kind, const char* file);

/// Records of those lists that cannot be opened for their "Type", the reason first.
[[nodiscard]] std::vector<std::string> flawsOfLists(AvailableProfiles kind, const char* file);

}  // namespace crv
