// Process-wide settings, fixed by the environment and the command line before anything else runs, then only read.
#pragma once

namespace crv {

/// Attributes that the terminal is trusted with.
enum class TerminalMode { Dumb = 0, Simple = 1, Rich = 2 };

/// Work on the profile lists of the companion signing program.
inline bool bSignerProfiles = false;
/// Distinguished names from certificates are shown as UTF-8 (the name is spelled so everywhere).
inline bool displDnInUft8 = true;
/// Characters outside ASCII in distinguished names are shown as "\xx".
inline bool displDnEscaped = false;

}  // namespace crv
