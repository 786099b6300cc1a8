// Which certificate belongs to which key, and which key signs and which decrypts. Paired are a key and a certificate
// with the same public key, told by its identifier.
#pragma once

#include "keystore/key_manager_result.h"
#include "keystore/key_store_contents.h"

namespace crv {

struct LoadedSecurityFile;

/// The roles that a certificate's keyUsage gives its key; nothing when it does not say.
[[nodiscard]] std::optional<KeyRole> roleOfCertificate(const SignedCertificate& certificate);

/// Sorts the certificates of a file, pairs them with its keys and decides which key signs and which decrypts: as the
/// file says; else as the keyUsage of the paired certificate says; else the first key signs and the second, when it is
/// RSA, decrypts. A certificate that no key is paired with is trusted when it is the self-issued one of an authority.
/// kKmKeyHasTwoNames: a key is certified under two names and `recertification` does not allow that.
[[nodiscard]] KeyManagerResult analyzeKeysAndCerts(const LoadedSecurityFile& file, bool recertification,
                                                   KeyStoreContents& out);

/// Whether a key is certified under two names.
[[nodiscard]] bool hasTwoNames(const KeyStoreContents& contents);

/// Installs a certificate for the key that it belongs to; results as KeyManager::installUserCrt, a failure changes
/// nothing.
[[nodiscard]] KeyManagerResult pairCertificate(KeyStoreContents& contents, const CertPtr& certificate,
                                               bool recertification);

}  // namespace crv
