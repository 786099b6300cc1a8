// When something of a profile ends, as the console saw it last: a security file tells only who knows its password.
#pragma once

#include <map>
#include <string>

namespace crv {

/// How long before its end a certificate is marked.
inline constexpr int64_t kSoonEnds = 30 * int64_t{86400};

/// The earliest end (seconds since 1970 UTC) among the certificates of keys in use and the trust points, by the path of
/// the security file. Kept in "$XDG_STATE_HOME/corvane/ends" (else "~/.local/state/corvane/ends"), a line each.
using EndsRecord = std::map<std::string, int64_t>;

/// How the record names a security file; as given where the system has no absolute path for it.
[[nodiscard]] std::string endsName(const std::string& path);

/// Empty, with a note in the log, when it cannot be read.
[[nodiscard]] EndsRecord readEnds();

/// Notes those of the profile that is open, when they are others than noted. Only marks depend on it: what cannot be
/// written, or is lost to a second console that writes at the same moment, is noted at the next log-in.
void rememberEnds();

}  // namespace crv
