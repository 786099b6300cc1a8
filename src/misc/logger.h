// The diagnostic log. Off unless the environment variable CRV_LOG names a file; CRV_LOG_LEVEL (trace, debug, info,
// warning, error, off; "info" when unset) says how much goes there. Secrets never do.
#pragma once

#include <string_view>

namespace crv {

enum class LogLevel { Trace, Debug, Info, Warning, Error };

/// Adds a line with time, process and level. Control characters are written as "\xHH". Never throws.
void logLine(LogLevel level, std::string_view text) noexcept;
/// The same with a detail behind the text, for places where joining the two may not fail.
void logLine(LogLevel level, std::string_view text, std::string_view detail) noexcept;

/// Whether such a line would be written, for texts that are costly to build.
bool logEnabled(LogLevel level) noexcept;

}  // namespace crv
