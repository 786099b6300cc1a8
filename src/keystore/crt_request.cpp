#include "keystore/crt_request.h"

#include <algorithm>
#include <ctime>

#include "asn/known_oids.h"
#include "asn/pkcs/attribute.h"
#include "asn/pkcs/certification_request.h"
#include "asn/x509/ext_key.h"
#include "asn/x509/sign_algo.h"
#include "asn/x509/signed_certificate.h"
#include "config/config_oids.h"
#include "crypto/crypto_error.h"
#include "crypto/sign_algo_map.h"
#include "keystore/key_manager.h"
#include "keystore/key_pairing.h"
#include "keystore/signed_configuration.h"
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
Bytes requestPem(ByteView der, bool inSignedData) {
    Bytes text;
    for (const char character : toPem(inSignedData ? "CMS" : "NEW CERTIFICATE REQUEST", der)) {
        if (character == '\n') text.push_back('\r');
        text.push_back(static_cast<uint8_t>(character));
    }
    return text;
}

/// The hash that a key is tied to; None for a free one.
KcHashAlgo markedPss(const StoredKey& stored) {
    Attributes held;
    AlgorithmIdentifier only;
    if (!held.readExactly(stored.bagAttributes)) return KcHashAlgo::None;
    const auto how = held.get(OID_CRV_BAG_PSS_ONLY, only) ? readSignAlgorithm(only) : std::nullopt;
    return how && how->scheme == KeyScheme::RsaPss ? how->hash : KcHashAlgo::None;
}

const StoredKey* keyOfUse(const KeyManager& keys, KeyType use) {
    const KeyRole role = use == KeyType::Encryption ? KeyRole::Encryption : KeyRole::Signing;
    const auto found = std::ranges::find_if(keys.keys(), [&](const StoredKey& key) { return shares(key.role, role); });
    return found == keys.keys().end() ? nullptr : &*found;
}

/// What of a certificate its successor is to have, too; the rest belongs to its key or is the authority's to say.
constexpr const KnownOid* kInherited[] = {&OID_CE_KEY_USAGE, &OID_CE_EXT_KEY_USAGE, &OID_CE_SUBJECT_ALT_NAME,
                                          &OID_CE_SUBJECT_DIRECTORY_ATTRIBUTES, &OID_CE_CERTIFICATE_POLICIES};

void inherit(const SignedCertificate& old, const Signer& key, Extensions& wanted) {
    for (const KnownOid* oid : kInherited) {
        // Only RSA keys decrypt, whatever the one before did.
        if (oid == &OID_CE_KEY_USAGE && !isRsa(key.scheme())) continue;
        if (const Extension* extension = old.extensions().find(*oid)) wanted.add(*extension);
    }
}

KeyManagerResult signByKeyInUse(KeyManager& keys, KcHashAlgo hash, Bytes& der) {
    const Signer* key = keys.signingKey();
    if (!key) return kKmKeyNotFound;
    const KeyScheme scheme = keys.signingKeyType();
    if (!isHashSupported(scheme, hash)) hash = scheme == KeyScheme::Dsa ? KcHashAlgo::Sha1 : KcHashAlgo::Sha256;
    const CertPtr certificate = keys.signingCertificate();
    const Bytes request = der;
    return signData(request, {*key, certificate.get(), scheme, hash, std::time(nullptr)}, keys.random(), der);
}

}  // namespace

Bytes pssMark(KcHashAlgo hash) {
    const auto only = hash == KcHashAlgo::None ? std::nullopt : signAlgorithm(KeyScheme::RsaPss, hash);
    Attributes held;
    if (only) held.set(OID_CRV_BAG_PSS_ONLY, *only);
    return only ? held.encoded() : Bytes();
}

KeyManagerResult prepareCrtRequest(KeyManager& keys, KeyType use, const CrtRequestParams& asked, Bytes& out) {
    const StoredKey* inUse = keyOfUse(keys, use);
    const StoredKey* stored = asked.successor ? keys.successorOf(use) : inUse;
    if (!stored) return kKmKeyNotFound;
    const Signer* key = stored->key.get();
    const CertPtr old = asked.successor ? keys.certificateOf(*inUse) : predecessorCertificate(*stored);
    CrtRequestParams params = asked;
    const auto waiting = asked.successor ? successorAlgorithm(*stored) : std::nullopt;
    if (const auto how = waiting ? readSignAlgorithm(*waiting) : std::nullopt) params.scheme = how->scheme;
    if (const KcHashAlgo only = markedPss(*stored); only != KcHashAlgo::None) params.hash = params.forcedPss = only;
    // A key that is tied to RSA-PSS makes no other signature, its own request's included (RFC 4055 1.2).
    if (params.forcedPss != KcHashAlgo::None && params.scheme != KeyScheme::RsaPss) return kKmHashNotSupported;
    if (!isHashSupported(params.scheme, params.hash) ||
        !isSignAlgoValidForKeyLength(params.scheme, params.hash, key->publicKey().bits()))
        return kKmHashNotSupported;
    CertificationRequest request;
    request.info.subject = params.subject ? *params.subject : old ? old->subject() : keys.requestSubject();
    request.info.subjectPublicKeyInfo = SubjectPublicKeyInfo(key->publicKey());
    if (params.forcedPss != KcHashAlgo::None)
        request.info.subjectPublicKeyInfo.algorithm = pssKeyAlgorithm(params.forcedPss);
    Extensions extensions;
    if (old) inherit(*old, *key, extensions);
    if (!extensions.find(OID_CE_KEY_USAGE))
        extensions.set(OID_CE_KEY_USAGE, usageOf(isRsa(key->scheme()) ? use : KeyType::Signing), true);
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
    if (params.signedByKeyInUse) {
        if (const KeyManagerResult made = signByKeyInUse(keys, params.hash, der); made != kKmOk) return made;
    }
    out = params.format == RequestFormat::Pem ? requestPem(der, params.signedByKeyInUse) : der;
    return kKmOk;
}

}  // namespace crv
