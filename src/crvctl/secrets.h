// Where passwords and PINs come from: never from the command line.
#pragma once

#include <string>

#include "crvctl/arguments.h"
#include "misc/secret.h"

namespace crv::ctl {

/// Octets of the longest secret.
inline constexpr size_t kLongestSecret = 254;

/// A secret by its kind, as "password": from --password-fd, --password-file, --password-env, the systemd credential
/// "corvane.password", else the terminal. One line in UTF-8, its LF dropped. `twice` asks for it twice on the terminal.
/// Throws OpError (SecretMissing, SecretUnfit, SecretExposed) or OpStopped.
SecretText readSecret(const Call& call, const std::string& kind, bool twice = false);

/// The same; false, and no question, when the call names no source.
bool readGivenSecret(const Call& call, const std::string& kind, SecretText& secret);

/// The systemd credential "corvane.<kind>.<profile>" in any letter case of ASCII; false where there is none.
bool readCredentialOf(const std::string& profile, const std::string& kind, SecretText& secret);

/// Asks on the terminal; the answer as typed. Throws OpError (NotConfirmed) where nobody can be asked, OpStopped.
bool askYesNo(const Call& call, const std::string& question);

}  // namespace crv::ctl
