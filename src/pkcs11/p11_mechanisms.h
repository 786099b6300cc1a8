// Which mechanism of a module makes which signature and opens which ciphertext.
#pragma once

#include <vector>

#include <p11-kit/pkcs11.h>

#include "crypto/kc_hash.h"
#include "crypto/key_scheme.h"
#include "crypto/public_key.h"

namespace crv {

/// What a mechanism is given to sign.
enum class P11Input : uint8_t {
    DigestInfo,  ///< the digest with its hash (RFC 8017 9.2)
    Digest,      ///< the bare digest; for ECDSA cut to the length of the curve's order by the module
    Message,     ///< what is to be hashed
    EncodedPss   ///< the finished EMSA-PSS block (RFC 8017 9.1.1)
};

struct P11SignRow {
    KeyScheme scheme;
    KcHashAlgo hash;  ///< none: any
    CK_MECHANISM_TYPE mechanism;
    P11Input input;
};

/// The mechanisms for signatures of a scheme and hash, best first.
[[nodiscard]] std::vector<P11SignRow> signMechanisms(KeyScheme scheme, KcHashAlgo hash);

struct P11DecryptRow {
    RsaPadding padding;
    CK_MECHANISM_TYPE mechanism;
    bool raw;  ///< leaves the padding to us
};

/// The mechanisms that open a padding, best first.
[[nodiscard]] std::vector<P11DecryptRow> decryptMechanisms(RsaPadding padding);

/// What PKCS#11 calls a hash and its mask generation function; CK_UNAVAILABLE_INFORMATION for one that it does not
/// know.
struct P11HashNames {
    CK_MECHANISM_TYPE hash;
    CK_RSA_PKCS_MGF_TYPE mgf;
};
[[nodiscard]] P11HashNames p11HashNames(KcHashAlgo hash);

}  // namespace crv
