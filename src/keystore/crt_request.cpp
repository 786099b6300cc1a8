#include "keystore/crt_request.h"

#include "asn/known_oids.h"
#include "asn/pkcs/attribute.h"
#include "asn/pkcs/certification_request.h"
#include "asn/x509/ext_key.h"
#include "asn/x509/sign_algo.h"
#include "config/config_oids.h"
#include "crypto/crypto_error.h"
#include "crypto/sign_algo_map.h"
#include "keystore/key_manager.h"
#include "keystore/token_session.h"
#include "misc/base64_file.h"

namespace crv {
namespace {

/// The key's algorithm with the parameters that tie it to RSA-PSS with a hash (RFC 4055 1.2).
AlgorithmIdentifier pssKeyAlgorithm(KcHashAlgo hash) {
    return *signAlgorithm(KeyScheme::RsaPss, hash);
}

uint32_t bitOf(KeyUsage::Bit bit) {
    return 1U << bit;
}

/// keyUsage of a certificate for a key's use.
KeyUsage usageOf(KeyType use) {
    const uint32_t signing = bitOf(KeyUsage::kDigitalSignature) | bitOf(KeyUsage::kNonRepudiation);
    const uint32_t encryption = bitOf(KeyUsage::kKeyEncipherment) | bitOf(KeyUsage::kDataEncipherment);
    const KeyRole role = roleOf(use);
    KeyUsage usage;
    usage.setNamedBits((shares(role, KeyRole::Signing) ? signing : 0) |
                       (shares(role, KeyRole::Encryption) ? encryption : 0));
    return usage;
}

/// Lines of a request end in CR LF.
Bytes requestPem(ByteView der) {
    Bytes text;
    for (const char character : toPem("NEW CERTIFICATE REQUEST", der)) {
        if (character == '\n') text.push_back('\r');
        text.push_back(static_cast<uint8_t>(character));
    }
    return text;
}

/// The hash that a key is tied to; None for a free one.
KcHashAlgo markedPss(const KeyManager& keys, const Signer& key) {
    Attributes held;
    AlgorithmIdentifier only;
    for (const StoredKey& stored : keys.keys()) {
        if (stored.key.get() != &key || !held.readExactly(stored.bagAttributes)) continue;
        const auto how = held.get(OID_CRV_BAG_PSS_ONLY, only) ? readSignAlgorithm(only) : std::nullopt;
        return how && how->scheme == KeyScheme::RsaPss ? how->hash : KcHashAlgo::None;
    }
    return KcHashAlgo::None;
}

}  // namespace

Bytes pssMark(KcHashAlgo hash) {
    const auto only = hash == KcHashAlgo::None ? std::nullopt : signAlgorithm(KeyScheme::RsaPss, hash);
    Attributes held;
    if (only) held.set(OID_CRV_BAG_PSS_ONLY, *only);
    return only ? held.encoded() : Bytes();
}

KeyManagerResult prepareCrtRequest(KeyManager& keys, KeyType use, const CrtRequestParams& asked, Bytes& out) {
    const Signer* key = use == KeyType::Encryption ? keys.encryptionKey() : keys.signingKey();
    if (!key) return kKmKeyNotFound;
    CrtRequestParams params = asked;
    if (const KcHashAlgo only = markedPss(keys, *key); only != KcHashAlgo::None) params.hash = params.forcedPss = only;
    // A key that is tied to RSA-PSS makes no other signature, its own request's included (RFC 4055 1.2).
    if (params.forcedPss != KcHashAlgo::None && params.scheme != KeyScheme::RsaPss) return kKmHashNotSupported;
    if (!isHashSupported(params.scheme, params.hash) ||
        !isSignAlgoValidForKeyLength(params.scheme, params.hash, key->publicKey().bits()))
        return kKmHashNotSupported;
    CertificationRequest request;
    request.info.subject = params.subject ? *params.subject : keys.requestSubject();
    request.info.subjectPublicKeyInfo = SubjectPublicKeyInfo(key->publicKey());
    if (params.forcedPss != KcHashAlgo::None)
        request.info.subjectPublicKeyInfo.algorithm = pssKeyAlgorithm(params.forcedPss);
    Extensions extensions;
    extensions.set(OID_CE_KEY_USAGE, usageOf(use), true);
    request.setRequestedExtensions(extensions);
    try {
        request.sign(*key, params.scheme, params.hash, keys.random());
    } catch (const TokenFailure& failure) {
        return failure.result();
    } catch (const CryptoError& error) {
        const KeyManagerResult result = keyResultOf(error.failure(), isRsa(params.scheme));
        return result == kKmAlgorithmNotSupported ? kKmHashNotSupported : result;
    }
    Bytes der;
    if (!request.writeToVector(der)) return kKmNoMemory;
    out = params.format == RequestFormat::Pem ? requestPem(der) : der;
    return kKmOk;
}

}  // namespace crv
