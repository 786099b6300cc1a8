// Generation of the user's keys and requests for their certificates.
#include "asn/pkcs/certification_request.h"
#include "asn/x509/ext_key.h"
#include "asn/x509/sign_algo.h"
#include "asn/x509/signed_certificate.h"
#include "config/configuration_manager.h"
#include "crypto/crypto_error.h"
#include "crypto/sign_algo_map.h"
#include "keystore/key_manager.h"
#include "keystore/key_store_media.h"
#include "misc/base64_file.h"
#include "misc/exceptions.h"

namespace crv {

namespace {

constexpr unsigned kFewestRsaBits = 2048;

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

KeyManagerResult resultOf(CryptoFailure failure, bool rsa) {
    switch (failure) {
        case CryptoFailure::Cancelled:
            return kKmCancelled;
        case CryptoFailure::NoRandom:
        case CryptoFailure::NotSeeded:
            return kKmNoSeed;
        case CryptoFailure::Unsupported:
        case CryptoFailure::BadParameter:
            return kKmAlgorithmNotSupported;
        default:
            return rsa ? kKmRsaFailed : kKmGenerationFailed;
    }
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

}  // namespace

KeyManagerResult KeyManager::keepGenerated(KeyType use, KeyScheme scheme, const KeyGenHooks& hooks,
                                           const std::function<PrivateKey()>& generate) {
    VTEST(!hasKey(use), kKeyManagerPlace);
    if (!media().hasSecurityFile()) return kKmNotOnThisMedium;
    if (!generators_.refresh()) return kKmNoSeed;
    try {
        unsaved_ = NewKey{use, scheme, hooks.forcedHash, generate()};
    } catch (const CryptoError& error) {
        return resultOf(error.failure(), isRsa(scheme));
    }
    const KeyManagerResult ready = hooks.beforeSave ? hooks.beforeSave() : kKmOk;
    return ready == kKmOk ? saveUnsavedKey() : ready;
}

std::optional<KeyType> KeyManager::unsavedKey() const {
    return unsaved_ ? std::optional(unsaved_->use) : std::nullopt;
}

KeyManagerResult KeyManager::saveUnsavedKey() {
    VTEST(unsaved_, kKeyManagerPlace);
    const KeyManagerResult result = saveNewKey(*unsaved_);
    if (result == kKmOk) unsaved_.reset();
    return result;
}

KeyManagerResult KeyManager::saveNewKey(const NewKey& generated) {
    const auto record = configuration().sharedRecord();
    const bool changed = configuration().isRecordChanged();
    const KcHashAlgo hash = generated.hash == KcHashAlgo::None ? record->getHashAlgo(generated.scheme) : generated.hash;
    const auto algorithm = signAlgorithm(generated.scheme, hash);
    if (generated.use != KeyType::Encryption && algorithm) {
        CRVCfgFile& edited = configuration().editRecord();
        if (generated.hash != KcHashAlgo::None) edited.setHashAlgo(hash);
        edited.setSignaturaAlgorithmIdentifier(*algorithm);
    }
    const auto undo = [&] {
        configuration().setRecord(record);
        configuration().setRecordChanged(changed);
    };
    try {
        const KeyManagerResult result = addNewKey(generated.use, generated.key);
        if (result != kKmOk) undo();
        return result;
    } catch (...) {
        undo();
        throw;
    }
}

KeyManagerResult KeyManager::generateRsaUserKey(KeyType use, uint64_t publicExponent, unsigned bits, KeyScheme scheme,
                                                const KeyGenHooks& hooks) {
    VTEST(isRsa(scheme), kKeyManagerPlace);
    if (bits < kFewestRsaBits) return kKmKeyTooShort;
    return keepGenerated(use, scheme, hooks,
                         [&] { return PrivateKey::generateRsa(bits, publicExponent, random_, hooks.progress); });
}

KeyManagerResult KeyManager::generateDsaUserKey(unsigned bits, const KeyGenHooks& hooks) {
    return keepGenerated(KeyType::Signing, KeyScheme::Dsa, hooks,
                         [&] { return PrivateKey::generateDsa(bits, random_, hooks.progress); });
}

KeyManagerResult KeyManager::generateECDsaUserKey(KeyType use, StdECId curve, bool explicitDomain,
                                                  const KeyGenHooks& hooks) {
    return keepGenerated(use, KeyScheme::Ecdsa, hooks,
                         [&] { return PrivateKey::generateEc(curve, explicitDomain, random_); });
}

DistinguishedName KeyManager::requestSubject() const {
    for (const CertPtr& certificate : {signingCertificate(), encryptionCertificate()})
        if (certificate) return certificate->subject();
    DistinguishedName name;
    name.add(OID_AT_COMMON_NAME, configuration().profileName());
    return name;
}

KeyManagerResult KeyManager::prepareCrtRequest(KeyType use, const CrtRequestParams& params, Bytes& out) {
    const PrivateKey* key = use == KeyType::Encryption ? encryptionKey() : signingKey();
    if (!key) return kKmKeyNotFound;
    // A key that is tied to RSA-PSS makes no other signature, its own request's included (RFC 4055 1.2).
    if (params.forcedPss != KcHashAlgo::None && params.scheme != KeyScheme::RsaPss) return kKmHashNotSupported;
    if (!isHashSupported(params.scheme, params.hash) ||
        !isSignAlgoValidForKeyLength(params.scheme, params.hash, key->publicKey().bits()))
        return kKmHashNotSupported;
    CertificationRequest request;
    request.info.subject = params.subject ? *params.subject : requestSubject();
    request.info.subjectPublicKeyInfo = SubjectPublicKeyInfo(key->publicKey());
    if (params.forcedPss != KcHashAlgo::None)
        request.info.subjectPublicKeyInfo.algorithm = pssKeyAlgorithm(params.forcedPss);
    Extensions extensions;
    extensions.set(OID_CE_KEY_USAGE, usageOf(use), true);
    request.setRequestedExtensions(extensions);
    try {
        request.sign(*key, params.scheme, params.hash, random_);
    } catch (const CryptoError& error) {
        const KeyManagerResult result = resultOf(error.failure(), isRsa(params.scheme));
        return result == kKmAlgorithmNotSupported ? kKmHashNotSupported : result;
    }
    Bytes der;
    if (!request.writeToVector(der)) return kKmNoMemory;
    out = params.format == RequestFormat::Pem ? requestPem(der) : der;
    return kKmOk;
}

}  // namespace crv
