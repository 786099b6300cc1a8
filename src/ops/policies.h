// The user policies of a configuration record.
#pragma once

#include <string>

#include "config/crv_cfg_file.h"
#include "keystore/key_store_door.h"

namespace crv {

inline constexpr const char* kAnyPolicy = "2.5.29.32.0";

/// Whether the profile has what its policies are about: a signing key with its certificate, or option 19 (decrypts
/// only).
[[nodiscard]] bool mayChangePolicies(const KeyStoreAccess& access);

/// Why a policy is not added; without a name only the identifier is looked at.
enum class PolicyFault { None, AnyPolicy, SameIdentifier, SameName };
[[nodiscard]] PolicyFault faultOfPolicy(const CRVCfgFile::Policies& list, const ASNobjectId& oid,
                                        const std::string& name = {});

/// Both change the record of a key store open for a change; the caller saves. Throw OpError: NoSigningCertificate,
/// BadValue for the identifier of any policy, ObjectExists for an identifier or a name that is there, ObjectMissing.
void addPolicyTo(const KeyStoreAccess& access, const std::string& oid, const std::string& name);
void removePolicyFrom(const KeyStoreAccess& access, const std::string& oid);

}  // namespace crv
