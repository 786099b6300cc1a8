// What the program calls itself: version line, header bar of the screens, title of the terminal's window.
#pragma once

#include <string>

#include "corvane/crvtypes.h"

namespace crv {

/// The package's version and the console's own number behind it.
inline constexpr const char* kProgramVersion = CRV_VERSION_TEXT ".18";

/// The version line, without line end; names the signing program when bSignerProfiles is on.
void getProgramInfo(std::string& text);

/// Draws the program header: the version line and the name of the current profile, shortened to fit the row.
void displayProgramInfo(int row);

/// Sets the window's title on terminals whose TERM begins with "xterm". A null title is an empty one; control
/// characters are replaced.
void setTitle(const char* title);

/// The title of a session: program, version and the current profile.
[[nodiscard]] std::string sessionTitle();

}  // namespace crv
