// What messages take from a profile that is logged in: its keys, certificates and configured algorithms.
#pragma once

#include "messages/message_decryptor.h"
#include "messages/message_encryptor.h"
#include "messages/message_signer.h"

namespace crv {

class CertificateManager;
class ConfigurationManager;
class KeyManager;
struct StoredKey;

/// The signing key with its certificate, scheme and hash as configured. Throws CrvApiException (ECRV_SKEYS_NOT_PRES).
[[nodiscard]] MessageSignerKey signerOf(const KeyManager& keys, const ConfigurationManager& configuration);
/// Another key of the profile's, and the key of a certificate, which then is the signer's. Throws CrvApiException
/// (ECRV_UNP_KEY_CRT) for a key without certificate and a certificate without key.
[[nodiscard]] MessageSignerKey signerOf(const KeyManager& keys, const ConfigurationManager& configuration,
                                        const StoredKey& key);
[[nodiscard]] MessageSignerKey signerOf(const KeyManager& keys, const ConfigurationManager& configuration,
                                        const CertPtr& certificate);
/// Every key that may decrypt, the encryption key first, then the further (old) ones, each with its certificates:
/// the user's and those of the database, because senders go on using one that was renewed on the same key. Throws
/// CrvApiException (ECRV_EKEYS_NOT_PRES) when there is none.
[[nodiscard]] std::vector<DecryptionKey> decryptionKeysOf(const KeyManager& keys, CertificateManager& certificates);
/// The configured symmetric algorithm for these recipients; `self`: for a certificate of the profile's that can be
/// encrypted for, too, that of the encryption key first (CrvApiException, ECRV_EKEYS_NOT_PRES, when there is none).
[[nodiscard]] EncryptParams encryptParamsOf(const KeyManager& keys, const ConfigurationManager& configuration,
                                            CertList recipients, bool self);

}  // namespace crv
