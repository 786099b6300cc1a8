// Requests for certificates of the user's keys.
#pragma once

#include "asn/x509/distinguished_name.h"
#include "crypto/kc_hash.h"
#include "crypto/key_scheme.h"
#include "keystore/key_manager_result.h"
#include "keystore/key_store_contents.h"

namespace crv {

class KeyManager;

enum class RequestFormat { Pem, Der };

/// What a certification request is to be like.
/// Attributes of the bag of a key that is tied to RSA-PSS with the hash (RFC 4055 1.2), by which further requests know
/// it; none for KcHashAlgo::None.
[[nodiscard]] Bytes pssMark(KcHashAlgo hash);

struct CrtRequestParams {
    RequestFormat format = RequestFormat::Pem;
    const DistinguishedName* subject = nullptr;  ///< null: KeyManager::requestSubject
    KeyScheme scheme = KeyScheme::Rsa;           ///< of the request's signature
    KcHashAlgo hash = KcHashAlgo::Sha256;        ///< of the request's signature
    /// Hash of the parameters of id-RSASSA-PSS that are written into the key's algorithm; none: rsaEncryption.
    KcHashAlgo forcedPss = KcHashAlgo::None;
    /// For the key that waits for the place of the one of that use: subject and extensions are those of that one's
    /// certificate, the scheme is what it was generated for. So are they for a key that took the place of a deleted
    /// one, until it is certified.
    bool successor = false;
    /// The request inside a CMS SignedData by the signing key in use, which tells the authority whose it is.
    bool signedByKeyInUse = false;
};

/// A certification request (PKCS#10, RFC 2986) for the key of a use, signed with that key by scheme and hash, in PEM
/// (lines end in CR LF) or DER; in a SignedData in either form where that is asked for. kKmKeyNotFound,
/// kKmHashNotSupported, kKmRsaFailed.
[[nodiscard]] KeyManagerResult prepareCrtRequest(KeyManager& keys, KeyType use, const CrtRequestParams& params,
                                                 Bytes& out);

}  // namespace crv
