// What a key store holds: keys with their roles, certificates, the configuration record and the generator's seed.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "asn/x509/cert_ptr.h"
#include "crypto/signer.h"
#include "misc/secret.h"

namespace crv {

class CRVCfgFile;
class SignedCertificate;

/// The use that a new key is generated for, as the menu numbers it.
enum class KeyType : int { Signing = 0, Encryption = 1, Both = 2 };

/// What a medium that makes its own keys offers for one use.
struct KeyLimits {
    bool generates = false;
    bool signs = false;
    bool decrypts = false;
    unsigned minBits = 0;
    unsigned maxBits = 0;
};

/// What a stored key does; a set of bits. At most one key of a store signs and at most one decrypts.
enum class KeyRole : uint8_t { Further = 0, Signing = 1, Encryption = 2, Both = 3 };

[[nodiscard]] constexpr KeyRole operator&(KeyRole a, KeyRole b) {
    return static_cast<KeyRole>(static_cast<uint8_t>(a) & static_cast<uint8_t>(b));
}
[[nodiscard]] constexpr KeyRole operator|(KeyRole a, KeyRole b) {
    return static_cast<KeyRole>(static_cast<uint8_t>(a) | static_cast<uint8_t>(b));
}
[[nodiscard]] constexpr KeyRole without(KeyRole a, KeyRole b) {
    return static_cast<KeyRole>(static_cast<uint8_t>(a) & ~static_cast<uint8_t>(b));
}
[[nodiscard]] constexpr bool shares(KeyRole a, KeyRole b) {
    return (a & b) != KeyRole::Further;
}
/// The roles that a key of the type takes.
[[nodiscard]] constexpr KeyRole roleOf(KeyType type) {
    return static_cast<KeyRole>(static_cast<int>(type) + 1);
}

struct StoredKey {
    SignerPtr key;
    KeyRole role = KeyRole::Further;
    Bytes attributes = {};     ///< of its PKCS#8 structure but keyUsage, as the file gave them
    Bytes bagAttributes = {};  ///< of its bag but localKeyId
};

/// The seed from which the next log-in starts.
using RbgSeed = SecretArray<20>;

/// The signing key first, then the encryption key, then the rest as they stand.
void sortByRole(std::vector<StoredKey>& keys);

/// By a certificate's encoding: attributes of its bag but localKeyId.
using CertAttributes = std::map<Bytes, Bytes>;

/// Copies share keys, certificates and the record, which nobody changes once it stands here.
struct KeyStoreContents {
    std::vector<StoredKey> keys;
    CertList userCerts;     ///< of the user's keys, and those that are neither theirs nor trusted
    CertList trustedCerts;  ///< trusted certificates kept with the keys
    std::shared_ptr<const CRVCfgFile> configuration;  ///< null: the store keeps none
    std::optional<RbgSeed> seed;
    CertAttributes certAttributes;
    std::vector<SecretBytes> others;  ///< encodings of bags that nobody here understands, kept as they are
    bool strong = false;              ///< whether its file has the strong protection

    /// The key that has the role (or both), null when none has.
    [[nodiscard]] const StoredKey* keyInRole(KeyRole role) const;
    /// The key with the identifier, or null.
    [[nodiscard]] const StoredKey* findKey(const KeyId& id) const;
    /// The newest of the user's certificates for the key, first of all of those that are valid now; null when it has
    /// none.
    [[nodiscard]] CertPtr certificateOf(const KeyId& id) const;
};

/// Whether nothing but the seed differs.
[[nodiscard]] bool sameButSeed(const KeyStoreContents& a, const KeyStoreContents& b);

/// Brings two descendants of one ancestor together: what `mine` added, changed or deleted since `base` wins, everything
/// else is as in `theirs`. Keys, certificates and the record's fields are compared one by one, in the record's lists of
/// certificates, policies and accepted key usages each entry. Only what can be deleted is ever dropped: keys never, the
/// user's certificates when a newer one takes their place, trust points of the user. Of two keys that claim one role
/// ours gets it, the other becomes a further key. The seed is ours.
[[nodiscard]] KeyStoreContents mergeContents(const KeyStoreContents& base, const KeyStoreContents& mine,
                                             const KeyStoreContents& theirs);

}  // namespace crv
