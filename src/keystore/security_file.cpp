#include "keystore/security_file.h"

#include <algorithm>
#include <new>

#include "asn/known_oids.h"
#include "asn/pkcs/pfx.h"
#include "asn/pkcs/secret_encoding.h"
#include "asn/x509/signed_certificate.h"
#include "config/config_oids.h"
#include "config/crv_cfg_file.h"
#include "crypto/crypto_error.h"
#include "misc/memory_file.h"

namespace crv {
namespace {

struct ResultRow {
    PfxResult from;
    KeyManagerResult to;
};

KeyManagerResult pfxResult(PfxResult result) {
    static constexpr ResultRow kRows[] = {
        {PfxResult::Ok, kKmOk},
        {PfxResult::MacMismatch, kKmWrongPassword},
        {PfxResult::Malformed, kKmBadFormat},
        {PfxResult::NoMemory, kKmNoMemory},
    };
    for (const ResultRow& row : kRows)
        if (row.from == result) return row.to;
    return kKmBadFormat;
}

/// The password in the forms that PFX files take, nothing when it is no UTF-8 and so cannot be right.
std::optional<PbePassword> pbePassword(const SecretText& password) {
    try {
        return PbePassword(password.view());
    } catch (const CryptoError&) {
        return std::nullopt;
    }
}

/// Checks what the authentication code does not cover, too.
bool readPfx(ByteView octets, Pfx& pfx) {
    constexpr long kVersion = 3;
    if (!pfx.readExactly(octets, ASN_FLAG_CONST) || pfx.version.value() != kVersion || !pfx.macData) return false;
    const auto& parameters = pfx.macData->mac.digestAlgorithm.parameters;
    ASNnull null;
    return !parameters || parameters->decode(null);
}

KeyManagerResult takeKey(PfxContents::Key& bag, LoadedSecurityFile& out) {
    const ASNobjectId& algorithm = bag.key.privateKeyAlgorithm.algorithm;
    if (algorithm == OID_RSA) bag.key.privateKeyAlgorithm = AlgorithmIdentifier(OID_RSA_ENC, ASNnull());
    if (!(algorithm == OID_RSA_ENC) && !(algorithm == OID_DSA) && !(algorithm == OID_EC_PUBLIC_KEY))
        return kKmUnknownKeyAlgorithm;
    try {
        const PrivateKey key = PrivateKey::fromPkcs8(encodedSecret(bag.key));
        const auto same = [&](const LoadedSecurityFile::Key& other) { return other.key.keyId() == key.keyId(); };
        if (std::ranges::none_of(out.keys, same))
            out.keys.push_back({key, bag.key.keyUsage(), bag.key.otherAttributes(), bag.attributes});
        return kKmOk;
    } catch (const CryptoError& error) {
        return error.failure() == CryptoFailure::Unsupported ? kKmUnknownKeyAlgorithm : kKmBadFormat;
    }
}

/// The plain record is a SEQUENCE of SEQUENCEs; a signed one is a ContentInfo, which begins with an identifier.
bool takeConfiguration(const ASNany& value, LoadedSecurityFile& out) {
    ContentInfo signedRecord;
    if (value.decode(signedRecord, ASN_FLAG_CONST) && signedRecord.is(OID_PKCS7_SIGNED_DATA)) {
        out.signedConfiguration = toSecret(value.getMemory());
        return true;
    }
    out.configuration = CRVCfgFile::decodeRecord(value.getMemory());
    return out.configuration != nullptr;
}

bool takeSecrets(const PfxContents& contents, LoadedSecurityFile& out) {
    const ASNany* configuration = contents.secret(OID_CRV_SAFE_BAG_CONFIG);
    if (configuration && !takeConfiguration(*configuration, out)) return false;
    const ASNany* seed = contents.secret(OID_CRV_SAFE_BAG_SEED);
    if (!seed) return true;
    ASNoctstr octets;
    if (!seed->decode(octets, ASN_FLAG_CONST) || octets.value().size() != RbgSeed().size()) return false;
    std::ranges::copy(octets.value(), out.seed.emplace().begin());
    return true;
}

/// Secrets of other programs get the layout that those know.
void keepOthers(PfxContents& contents, LoadedSecurityFile& out) {
    out.others = std::move(contents.others);
    for (const PfxContents::Secret& secret : contents.secrets) {
        if (secret.type == OID_CRV_SAFE_BAG_CONFIG || secret.type == OID_CRV_SAFE_BAG_SEED) continue;
        SecretBag value;
        value.secretTypeId = secret.type;
        value.secretValue.value = secret.value;
        SafeBag bag(OID_PKCS12_SECRET_BAG, value);
        bag.addAttributes(secret.attributes);
        out.others.push_back(encodedSecret(bag));
    }
}

KeyManagerResult sortContents(PfxContents& contents, bool withSecrets, LoadedSecurityFile& out) {
    for (PfxContents::Key& key : contents.keys)
        if (const KeyManagerResult result = takeKey(key, out); result != kKmOk) return result;
    for (const PfxContents::Certificate& bag : contents.certificates) {
        CertPtr certificate = makeCert(bag.certificate);
        if (!certificate) return kKmBadFormat;
        if (!bag.attributes.empty()) out.certAttributes.emplace(bag.certificate, bag.attributes);
        if (!contains(out.certificates, *certificate)) out.certificates.push_back(std::move(certificate));
    }
    keepOthers(contents, out);
    return !withSecrets || takeSecrets(contents, out) ? kKmOk : kKmBadFormat;
}

/// What a key of the role may do, as its keyUsage attribute says; none marks a further key.
uint32_t useOf(KeyRole role) {
    return (shares(role, KeyRole::Signing) ? kDigitalSignature | kNonRepudiation : 0u) |
           (shares(role, KeyRole::Encryption) ? kKeyEncipherment | kDataEncipherment : 0u);
}

void addKeys(const KeyStoreContents& contents, Pfx& pfx) {
    for (const StoredKey& stored : contents.keys) {
        PrivateKeyInfo info;
        if (!info.readExactly(stored.key.toPkcs8())) throw CryptoError(CryptoFailure::Internal, "PKCS#8");
        info.addAttributes(stored.attributes);
        info.setKeyUsage(useOf(stored.role));
        pfx.update(info, stored.key.keyId(), stored.bagAttributes);
    }
}

void addCertificates(const KeyStoreContents& contents, Pfx& pfx) {
    for (const CertList* list : {&contents.userCerts, &contents.trustedCerts}) {
        for (const CertPtr& certificate : *list) {
            const auto kept = contents.certAttributes.find(toBytes(encodingOf(*certificate)));
            const bool has = kept != contents.certAttributes.end();
            pfx.update(*certificate, certificate->computeKeyIdentifierSha1Hash(),
                       has ? ByteView(kept->second) : ByteView());
        }
    }
}

void addOthers(const KeyStoreContents& contents, Pfx& pfx) {
    for (const SecretBytes& encoding : contents.others) {
        SafeBag bag;
        if (!bag.readExactly(encoding)) throw CryptoError(CryptoFailure::Internal, "SafeBag");
        pfx.update(std::move(bag));
    }
}

}  // namespace

KeyManagerResult readSecurityFile(ByteView octets, const SecretText& password, bool withSecrets,
                                  LoadedSecurityFile& out) {
    try {
        Pfx pfx;
        if (!readPfx(octets, pfx)) return kKmBadFormat;
        const auto pbe = pbePassword(password);
        if (!pbe) return kKmWrongPassword;
        PfxContents contents;
        if (const PfxResult result = pfx.getContents(*pbe, contents); result != PfxResult::Ok) return pfxResult(result);
        LoadedSecurityFile loaded;
        const KeyManagerResult result = sortContents(contents, withSecrets, loaded);
        if (result == kKmOk) out = std::move(loaded);
        return result;
    } catch (const std::bad_alloc&) {
        return kKmNoMemory;
    }
}

KeyManagerResult buildSecurityFile(const KeyStoreContents& contents, const SecretText& password, SaltOrigin salt,
                                   Bytes& octets) {
    try {
        Pfx pfx;
        addKeys(contents, pfx);
        addCertificates(contents, pfx);
        addOthers(contents, pfx);
        if (contents.configuration) pfx.update(OID_CRV_SAFE_BAG_CONFIG, *contents.configuration);
        if (contents.configuration && contents.seed) pfx.update(OID_CRV_SAFE_BAG_SEED, ASNoctstr(*contents.seed));
        const SecretBytes unicode = Pfx::convertToUTF16BE(password.view());
        const PfxResult sealed = pfx.final(PbeAlgo::Sha1TripleDesCbc, true, unicode, salt.data(), salt.size());
        return sealed == PfxResult::Ok && pfx.writeToVector(octets) ? kKmOk : kKmNoMemory;
    } catch (const CryptoError&) {
        return kKmNoMemory;
    } catch (const std::bad_alloc&) {
        return kKmNoMemory;
    }
}

KeyManagerResult checkPasswdGF(GenericFile& file, const SecretText& password) {
    try {
        SecretBytes octets;
        if (!readAll(file, octets, kMaxSecurityFile)) return kKmReadFailed;
        Pfx pfx;
        if (!readPfx(octets, pfx)) return kKmBadFormat;
        const auto pbe = pbePassword(password);
        return pbe ? pfxResult(pfx.verifyPassword(*pbe)) : kKmWrongPassword;
    } catch (const std::bad_alloc&) {
        return kKmNoMemory;
    }
}

}  // namespace crv
