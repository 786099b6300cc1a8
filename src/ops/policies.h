// The user policies of a configuration record.
#pragma once

#include <string>

namespace crv {

class Session;

inline constexpr const char* kAnyPolicy = "2.5.29.32.0";

/// Whether the profile has what its policies are about: a signing key with its certificate, or option 19 (decrypts
/// only).
[[nodiscard]] bool mayChangePolicies(Session& session);

/// Both change the record of a session open for a change; the caller saves. Throw OpError: NoSigningCertificate,
/// BadValue for the identifier of any policy, ObjectExists for an identifier or a name that is there, ObjectMissing.
void addPolicyTo(Session& session, const std::string& oid, const std::string& name);
void removePolicyFrom(Session& session, const std::string& oid);

}  // namespace crv
