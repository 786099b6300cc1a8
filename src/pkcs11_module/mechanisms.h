// The mechanisms that the tokens offer, as one table.
#pragma once

#include <span>

#include "crypto/public_key.h"
#include "pkcs11_module/refusal.h"

namespace crv::p11 {

struct MechanismRow {
    CK_MECHANISM_TYPE type;
    KeyScheme scheme;  ///< none: a bare hash
    KcHashAlgo hash;   ///< none: the caller hashes, or nothing is hashed
    CK_FLAGS flags;
};

[[nodiscard]] std::span<const MechanismRow> mechanisms();
/// The row of a mechanism that may be used so (CKF_SIGN and so on); CKR_MECHANISM_INVALID.
[[nodiscard]] const MechanismRow& findMechanism(CK_MECHANISM_TYPE type, CK_FLAGS use);
[[nodiscard]] CK_MECHANISM_INFO infoOf(const MechanismRow& row);

/// The parameters of a PSS signature: the hash and what else differs from ours. CKR_MECHANISM_PARAM_INVALID for what
/// is none, and for another hash than the mechanism's own.
struct PssChoice {
    KcHashAlgo hash;
    PssParams params;
};
[[nodiscard]] PssChoice pssChoice(const MechanismRow& row, const CK_MECHANISM& mechanism);
[[nodiscard]] OaepParams oaepParams(const CK_MECHANISM& mechanism);
/// For the mechanisms that have none.
void demandNoParameter(const CK_MECHANISM& mechanism);

}  // namespace crv::p11
