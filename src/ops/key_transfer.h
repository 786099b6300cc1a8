// Keys that leave a profile for other programs, and keys that come from them.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "asn/x509/cert_ptr.h"
#include "crypto/private_key.h"
#include "keystore/key_manager_result.h"
#include "keystore/key_store_contents.h"
#include "misc/secret.h"

namespace crv {

class CertificateManager;
class KeyManager;
class Session;

enum class KeyFileFormat {
    Pkcs12,  ///< one PKCS#12 file of the key and its chain, with the strong protection
    Pem      ///< the key as "ENCRYPTED PRIVATE KEY" (PBES2), the certificates behind it
};

/// The key whose identifier the text begins, in hexadecimal. Throws OpError (ObjectMissing, Ambiguous).
[[nodiscard]] const StoredKey& keyNamed(Session& session, const std::string& text);

/// The certificate of the key and those of the authorities above it, as far as they are at hand; empty without one.
[[nodiscard]] CertList chainOf(CertificateManager& certificates, const KeyManager& keys, const StoredKey& key);

/// The key with its chain under a password. WeakPassword; KeyStoreFailed for a key that never leaves its token.
[[nodiscard]] SecretBytes exportedKey(const StoredKey& key, const CertList& chain, KeyFileFormat format,
                                      const SecretText& password);

struct KeysOfFile {
    std::vector<PrivateKey> keys;
    CertList certificates;
};
/// What a PKCS#12 file, or PEM blocks of keys (plain or enciphered) and certificates hold. Throws OpError:
/// KeyStoreFailed (a wrong password, a protection that is unknown here or has too many rounds), BadFile for what holds
/// no key. `goOn` is asked while the password is turned into keys, which files of others may make long; false stops
/// that (KeyStoreFailed).
[[nodiscard]] KeysOfFile keysOfFile(ByteView octets, const SecretText& password, const std::function<bool()>& goOn);
/// The certificates of authorities among them.
[[nodiscard]] CertList authoritiesOf(const KeysOfFile& found);

/// Takes the key and its certificates into a store that is open for a change, and saves (KeyManager::importKey);
/// without `write` it is only looked whether it can be taken. Without a role the keyUsage of its certificate says, else
/// it signs.
[[nodiscard]] KeyManagerResult importKeyInto(KeyManager& keys, const PrivateKey& key, const CertList& certificates,
                                             std::optional<KeyRole> role, bool write = true);

}  // namespace crv
