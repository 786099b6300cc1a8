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
#include "misc/exceptions.h"
#include "misc/memory_file.h"
#include "misc/utf8.h"

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
        {PfxResult::Unsupported, kKmProtectionNotSupported},
        {PfxResult::Cancelled, kKmStopped},
        {PfxResult::NoMemory, kKmNoMemory},
    };
    for (const ResultRow& row : kRows)
        if (row.from == result) return row.to;
    return kKmBadFormat;
}

/// The password in the forms that PFX files take, nothing when it is no UTF-8 and so cannot be right.
std::optional<PbePassword> pbePassword(const SecretText& password, const std::function<bool()>& progress = {}) {
    try {
        return PbePassword(password.view(), progress);
    } catch (const CryptoError&) {
        return std::nullopt;
    }
}

/// Checks what the authentication code does not cover, too. The parameters of PBMAC1 take part in it.
bool readPfx(ByteView octets, Pfx& pfx) {
    constexpr long kVersion = 3;
    if (!pfx.readExactly(octets, ASN_FLAG_CONST) || pfx.version.value() != kVersion || !pfx.macData) return false;
    const AlgorithmIdentifier& mac = pfx.macData->mac.digestAlgorithm;
    ASNnull null;
    return mac.algorithm == OID_PBMAC1 || !mac.parameters || mac.parameters->decode(null);
}

bool isKnownAlgorithm(const ASNobjectId& algorithm) {
    return algorithm == OID_RSA_ENC || algorithm == OID_DSA || algorithm == OID_EC_PUBLIC_KEY;
}

KeyManagerResult takeKey(PfxContents::Key& bag, LoadedSecurityFile& out) {
    AlgorithmIdentifier& algorithm = bag.key.privateKeyAlgorithm;
    if (algorithm.algorithm == OID_RSA) algorithm = AlgorithmIdentifier(OID_RSA_ENC, ASNnull());
    if (!isKnownAlgorithm(algorithm.algorithm)) return kKmUnknownKeyAlgorithm;
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

/// What is not understood stays in the file, inside what is enciphered with the certificates.
template <class Bag>
void keepBag(const KnownOid& kind, const ASNobject& value, const Bag& bag, LoadedSecurityFile& out) {
    SafeBag kept(kind, value);
    kept.addAttributes(bag.attributes);
    kept.setLocalKeyId(bag.localKeyId);
    out.others.push_back(encodedSecret(kept));
}

KeyManagerResult takeKeys(PfxContents& contents, LoadedSecurityFile& out) {
    bool unknown = false;
    for (PfxContents::Key& bag : contents.keys) {
        const KeyManagerResult result = takeKey(bag, out);
        if (result == kKmUnknownKeyAlgorithm) {
            keepBag(OID_PKCS12_KEY_BAG, bag.key, bag, out);
            unknown = true;
        } else if (result != kKmOk) {
            return result;
        }
    }
    return unknown && out.keys.empty() ? kKmUnknownKeyAlgorithm : kKmOk;
}

/// The attributes of two bags of one certificate; a type that both have gets the values of both.
Bytes unitedAttributes(ByteView first, ByteView second) {
    Attributes all, more;
    all.addEncoded(first);
    more.addEncoded(second);
    for (const Attribute& attribute : more) {
        const auto same = std::ranges::find_if(all, [&](const Attribute& one) { return one.type == attribute.type; });
        if (same == all.end()) {
            all.add(attribute);
            continue;
        }
        for (const ASNany& value : attribute.values)
            if (std::ranges::find(same->values, value) == same->values.end()) same->values.add(value);
    }
    return all.encoded();
}

void takeCertificates(const PfxContents& contents, LoadedSecurityFile& out) {
    for (const PfxContents::Certificate& bag : contents.certificates) {
        CertPtr certificate = makeCert(bag.certificate);
        if (!certificate) {
            keepBag(OID_PKCS12_CERT_BAG, certificateBag(bag.certificate), bag, out);
            continue;
        }
        if (!bag.attributes.empty()) {
            Bytes& kept = out.certAttributes[bag.certificate];
            kept = unitedAttributes(kept, bag.attributes);
        }
        if (!contains(out.certificates, *certificate)) out.certificates.push_back(std::move(certificate));
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
    std::ranges::move(contents.others, std::back_inserter(out.others));
    constexpr const KnownOid* kOurs[] = {&OID_CRV_SAFE_BAG_CONFIG, &OID_CRV_SAFE_BAG_SEED, &OID_CRV_SAFE_BAG_STRONG};
    for (const PfxContents::Secret& secret : contents.secrets) {
        if (std::ranges::any_of(kOurs, [&](const KnownOid* oid) { return secret.type == *oid; })) continue;
        SecretBag value;
        value.secretTypeId = secret.type;
        value.secretValue.value = secret.value;
        SafeBag bag(OID_PKCS12_SECRET_BAG, value);
        bag.addAttributes(secret.attributes);
        out.others.push_back(encodedSecret(bag));
    }
}

/// We write the count of the MAC although it is the default, which DER (X.690 11.5) tells everybody else to leave out:
/// that tells our files that hold no configuration from those of others.
bool writesDefaultCount(const MacData& mac) {
    const Bytes encoding = mac.encoded();
    ASNsequenceList<ASNany> members;
    return mac.iterations.value() == Pfx::kMacIterations && members.readExactly(encoding, ASN_FLAG_CONST) &&
           members.size() == 3;
}

KeyManagerResult sortContents(PfxContents& contents, bool withSecrets, LoadedSecurityFile& out) {
    if (const KeyManagerResult result = takeKeys(contents, out); result != kKmOk) return result;
    keepOthers(contents, out);
    takeCertificates(contents, out);
    return !withSecrets || takeSecrets(contents, out) ? kKmOk : kKmBadFormat;
}

/// What a key of the role may do, as its keyUsage attribute says; none marks a further key.
uint32_t useOf(KeyRole role) {
    return (shares(role, KeyRole::Signing) ? kDigitalSignature | kNonRepudiation : 0u) |
           (shares(role, KeyRole::Encryption) ? kKeyEncipherment | kDataEncipherment : 0u);
}

void addKeys(const KeyStoreContents& contents, Pfx& pfx) {
    for (const StoredKey& stored : contents.keys) {
        // Keys of tokens never stand in a file.
        const auto* key = dynamic_cast<const PrivateKey*>(stored.key.get());
        VTEST(key, "src/src/keymgr");
        PrivateKeyInfo info;
        if (!info.readExactly(key->toPkcs8())) throw CryptoError(CryptoFailure::Internal, "PKCS#8");
        info.addAttributes(stored.attributes);
        info.setKeyUsage(useOf(stored.role));
        pfx.update(info, stored.key->keyId(), stored.bagAttributes);
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

PfxResult seal(Pfx& pfx, bool strong, const SecretText& password, SaltOrigin salt) {
    constexpr long kStrongLayout = 1;
    if (strong) {
        pfx.update(OID_CRV_SAFE_BAG_STRONG, ASNinteger(kStrongLayout));
        return pfx.finalStrong(password.view(), salt);
    }
    const SecretBytes unicode = Pfx::convertToUTF16BE(password.view());
    return pfx.final(PbeAlgo::Sha1TripleDesCbc, true, unicode, salt.data(), salt.size());
}

}  // namespace

KeyManagerResult readSecurityFile(ByteView octets, const SecretText& password, bool withSecrets,
                                  LoadedSecurityFile& out, const std::function<bool()>& progress) {
    try {
        Pfx pfx;
        if (!readPfx(octets, pfx)) return kKmBadFormat;
        const auto pbe = pbePassword(password, progress);
        if (!pbe) return kKmWrongPassword;
        PfxContents contents;
        if (const PfxResult result = pfx.getContents(*pbe, contents); result != PfxResult::Ok) return pfxResult(result);
        LoadedSecurityFile loaded;
        loaded.strong = contents.secret(OID_CRV_SAFE_BAG_STRONG) != nullptr;
        loaded.foreign =
            !loaded.strong && !contents.secret(OID_CRV_SAFE_BAG_CONFIG) && !writesDefaultCount(*pfx.macData);
        const KeyManagerResult result = sortContents(contents, withSecrets, loaded);
        if (result == kKmOk) out = std::move(loaded);
        return result;
    } catch (const std::bad_alloc&) {
        return kKmNoMemory;
    }
}

KeyManagerResult buildSecurityFile(const KeyStoreContents& contents, const SecretText& password, SaltOrigin salt,
                                   Bytes& octets) {
    if (!isUtf8(password.view())) return kKmPasswordNotText;
    try {
        Pfx pfx;
        addKeys(contents, pfx);
        addCertificates(contents, pfx);
        addOthers(contents, pfx);
        if (contents.configuration) pfx.update(OID_CRV_SAFE_BAG_CONFIG, *contents.configuration);
        if (contents.configuration && contents.seed) pfx.update(OID_CRV_SAFE_BAG_SEED, ASNoctstr(*contents.seed));
        const PfxResult sealed = seal(pfx, contents.strong, password, salt);
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
