// Which certificate belongs to which key, and which key signs and which decrypts. Paired are a key and a certificate
// with the same public key, told by its identifier.
#pragma once

#include "asn/x509/algorithm_identifier.h"
#include "keystore/key_manager_result.h"
#include "keystore/key_store_contents.h"

namespace crv {

class CRVCfgFile;
struct LoadedSecurityFile;

/// The roles that a certificate's keyUsage gives its key; nothing when it does not say.
[[nodiscard]] std::optional<KeyRole> roleOfCertificate(const SignedCertificate& certificate);

/// Sorts the certificates of a file, pairs them with its keys and decides which key signs and which decrypts: as the
/// file says; else as the keyUsage of the paired certificate says; else the first key signs and the second, when it is
/// RSA, decrypts. A certificate that no key is paired with is trusted when it is the self-issued one of an authority
/// and does not carry the mark of an ordinary one; in another program's file all of them get that mark, and the
/// keyUsage of a paired certificate comes before what the file says of the key. kKmKeyHasTwoNames: a key is certified
/// under two names and `recertification` does not allow that.
[[nodiscard]] KeyManagerResult analyzeKeysAndCerts(const LoadedSecurityFile& file, bool recertification,
                                                   KeyStoreContents& out);

/// The mark that keeps an authority's certificate from being a trust point: an attribute of its bag.
[[nodiscard]] bool isOrdinary(const CertAttributes& attributes, const SignedCertificate& certificate);
void markOrdinary(CertAttributes& attributes, const SignedCertificate& certificate, bool ordinary);

/// Attributes of the bag of a key that will take another one's place, besides those that are there already.
[[nodiscard]] Bytes successorMark(const KeyId& inUse, const std::optional<AlgorithmIdentifier>& signsWith,
                                  ByteView others);
/// Whose place a key waits for; nothing for one that waits for none.
[[nodiscard]] std::optional<KeyId> successorTo(const StoredKey& key);
/// What such a key will sign with; nothing when it does not say.
[[nodiscard]] std::optional<AlgorithmIdentifier> successorAlgorithm(const StoredKey& key);

/// Takes the mark away, of a key that came to its place.
void dropSuccessorMark(StoredKey& key);

/// The certificate of the deleted key whose place a key took before it was certified; null for any other.
[[nodiscard]] CertPtr predecessorCertificate(const StoredKey& key);

/// Takes out what the record names as deleted, keys with their certificates; the key that waits for the place of such a
/// one takes it, and keeps the certificate until it has one of its own (predecessorCertificate).
void dropDeleted(KeyStoreContents& contents, const CRVCfgFile& record);

/// Whether a key is certified under two names.
[[nodiscard]] bool hasTwoNames(const KeyStoreContents& contents);

/// Installs a certificate for the key that it belongs to; one that waits for another key's place takes over its roles
/// and no others, as far as the certificate allows them, and the other becomes or stays a further key. Where the
/// certificate allows none of them, the key goes on waiting and nothing changes hands. Results as
/// KeyManager::installUserCrt, a failure changes nothing.
[[nodiscard]] KeyManagerResult pairCertificate(KeyStoreContents& contents, const CertPtr& certificate,
                                               bool recertification);

}  // namespace crv
