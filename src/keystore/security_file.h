// The security file: a PKCS#12 PFX (RFC 7292) of keys, certificates, the configuration record and the generator's seed
// under one password. docs/formats.md shows the layout.
#pragma once

#include <functional>
#include <string_view>

#include "crypto/private_key.h"
#include "keystore/key_manager_result.h"
#include "keystore/key_store_contents.h"
#include "misc/bytes.h"
#include "misc/secret.h"

namespace crv {

class GenericFile;

/// Longest security file that is read, in octets.
constexpr size_t kMaxSecurityFile = size_t{32} << 20;

/// What a file holds, before its keys are paired with its certificates.
struct LoadedSecurityFile {
    struct Key {
        PrivateKey key;
        std::optional<uint32_t> use;  ///< keyUsage bits that the file gives the key; 0 marks a further key
        Bytes attributes;             ///< as in StoredKey
        Bytes bagAttributes;
    };
    std::vector<Key> keys;
    CertList certificates;
    std::shared_ptr<const CRVCfgFile> configuration;
    SecretBytes signedConfiguration;  ///< a CMS SignedData in the place of the plain record
    std::optional<RbgSeed> seed;
    CertAttributes certAttributes;
    bool strong = false;   ///< as KeyStoreContents
    bool foreign = false;  ///< another program wrote it: no configuration, and not our way of writing the MAC
    std::vector<SecretBytes> others;
};

/// Reads a PFX, ours or another tool's. `withSecrets` false passes the configuration and the seed over. `progress`,
/// when given, is asked while the password is turned into keys; false stops that. Keys of other algorithms and
/// certificates that cannot be read go to `others`. kKmBadFormat, kKmWrongPassword, kKmProtectionNotSupported,
/// kKmUnknownKeyAlgorithm (no key but such), kKmStopped, kKmNoMemory; a failure leaves `out` as it was.
[[nodiscard]] KeyManagerResult readSecurityFile(ByteView octets, const SecretText& password, bool withSecrets,
                                                LoadedSecurityFile& out, const std::function<bool()>& progress = {});

/// Octets from which the salts of one file are drawn.
using SaltOrigin = std::span<const uint8_t, 20>;

/// Builds the file. kKmNoMemory when that fails.
[[nodiscard]] KeyManagerResult buildSecurityFile(const KeyStoreContents& contents, const SecretText& password,
                                                 SaltOrigin salt, Bytes& octets);

/// Whether the password opens the PFX in the file, without deciphering its contents: kKmOk, kKmWrongPassword,
/// kKmBadFormat, kKmReadFailed, kKmNoMemory.
[[nodiscard]] KeyManagerResult checkPasswdGF(GenericFile& file, const SecretText& password);

}  // namespace crv
