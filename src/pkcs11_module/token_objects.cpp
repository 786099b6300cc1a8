#include "pkcs11_module/token_objects.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <ctime>

#include "asn/known_oids.h"
#include "asn/x509/algorithm_params.h"
#include "asn/x509/signed_certificate.h"
#include "keystore/key_pairing.h"
#include "misc/hex.h"

namespace crv::p11 {
namespace {

/// CK_CERTIFICATE_CATEGORY (PKCS#11 2.40, 4.6.2).
enum Category : CK_ULONG { kTokenUser = 1, kAuthority = 2, kOtherEntity = 3 };

/// Handles are never given twice in the life of the process.
CK_OBJECT_HANDLE nextHandle() {
    static std::atomic<CK_OBJECT_HANDLE> last{0};
    return ++last;
}

CK_KEY_TYPE keyTypeOf(const PublicKey& key) {
    if (isRsa(key.scheme())) return CKK_RSA;
    return key.scheme() == KeyScheme::Dsa ? CKK_DSA : CKK_EC;
}

std::string labelOf(const SignedCertificate& certificate) {
    const auto name = certificate.subject().find(OID_AT_COMMON_NAME);
    return name && !name->empty() ? *name : certificate.subject().text();
}

/// CK_DATE: the digits of year, month and day.
Bytes dateOf(const Time& time) {
    const auto seconds = time.seconds();
    if (!seconds) return {};
    const auto when = static_cast<time_t>(*seconds);
    struct tm parts {};
    std::array<char, 16> text{};
    if (!gmtime_r(&when, &parts) || std::strftime(text.data(), text.size(), "%Y%m%d", &parts) != 8) return {};
    return toBytes(asBytes(text.data()));
}

/// What every object of a token says of itself.
void setCommon(TokenObject& object, CK_OBJECT_CLASS kind, bool isPrivate, std::string_view label) {
    object.set(CKA_CLASS, kind);
    object.set(CKA_TOKEN, true);
    object.set(CKA_PRIVATE, isPrivate);
    object.set(CKA_LABEL, asBytes(label));
    for (const CK_ATTRIBUTE_TYPE type : {CKA_MODIFIABLE, CKA_COPYABLE, CKA_DESTROYABLE}) object.set(type, false);
}

Identity identityOf(CK_OBJECT_CLASS kind, ByteView what) {
    KcHash hash(KcHashAlgo::Sha256);
    const auto octet = static_cast<uint8_t>(kind);
    hash.update({&octet, 1});
    hash.update(what);
    Identity identity{};
    std::ranges::copy(hash.final(), identity.begin());
    return identity;
}

// --- Keys

void setDsaNumbers(TokenObject& object, const AlgorithmIdentifier& algorithm) {
    DsaParams domain;
    if (!algorithm.parameters || !algorithm.parameters->decode(domain)) return;
    object.set(CKA_PRIME, domain.p.magnitude());
    object.set(CKA_SUBPRIME, domain.q.magnitude());
    object.set(CKA_BASE, domain.g.magnitude());
}

/// The numbers of a key, of its private half what may be known.
void setNumbers(TokenObject& object, const PublicKey& key, bool isPrivate) {
    AlgorithmIdentifier algorithm;
    const bool readable = algorithm.readExactly(key.algorithm());
    if (isRsa(key.scheme())) {
        object.set(CKA_MODULUS, key.rsaModulus());
        object.set(CKA_PUBLIC_EXPONENT, key.rsaExponent());
        if (!isPrivate) object.set(CKA_MODULUS_BITS, CK_ULONG{key.bits()});
    } else if (key.scheme() == KeyScheme::Dsa) {
        ASNinteger y;
        setDsaNumbers(object, algorithm);
        if (!isPrivate && y.readExactly(key.keyBits())) object.set(CKA_VALUE, y.magnitude());
    } else {
        if (readable && algorithm.parameters) object.set(CKA_EC_PARAMS, algorithm.parameters->getMemory());
        if (!isPrivate) object.set(CKA_EC_POINT, ASNoctstr(key.keyBits()).encoded());
    }
}

void setKey(TokenObject& object, CK_OBJECT_CLASS kind, const PublicKey& key, const SignedCertificate* certificate,
            const std::string& profile) {
    const bool isPrivate = kind == CKO_PRIVATE_KEY;
    const KeyId id = key.keyId();
    setCommon(object, kind, isPrivate, certificate ? labelOf(*certificate) : profile);
    object.identity = identityOf(kind, id);
    object.publicKey = key;
    object.set(CKA_KEY_TYPE, keyTypeOf(key));
    object.set(CKA_ID, id);
    object.set(CKA_SUBJECT, certificate ? certificate->subject().encoded() : Bytes());
    object.set(CKA_START_DATE, ByteView());
    object.set(CKA_END_DATE, ByteView());
    object.set(CKA_DERIVE, false);
    object.set(CKA_LOCAL, false);
    object.set(CKA_KEY_GEN_MECHANISM, CK_UNAVAILABLE_INFORMATION);
    object.set(CKA_PUBLIC_KEY_INFO, key.toSpki());
    setNumbers(object, key, isPrivate);
}

/// A further key does what its certificate says; without one it opens what was once enciphered to it.
KeyRole workOf(const StoredKey& stored, const SignedCertificate* certificate) {
    if (stored.role != KeyRole::Further) return stored.role;
    return certificate ? roleOfCertificate(*certificate).value_or(KeyRole::Both) : KeyRole::Encryption;
}

TokenObject privateObject(const StoredKey& stored, const SignedCertificate* certificate, const std::string& profile) {
    TokenObject object;
    const PublicKey& key = stored.key->publicKey();
    const KeyRole work = workOf(stored, certificate);
    setKey(object, CKO_PRIVATE_KEY, key, certificate, profile);
    object.privateKey = stored.key;
    object.signs = shares(work, KeyRole::Signing);
    object.decrypts = shares(work, KeyRole::Encryption) && key.scheme() == KeyScheme::Rsa;
    object.set(CKA_SIGN, object.signs);
    object.set(CKA_DECRYPT, object.decrypts);
    object.set(CKA_SENSITIVE, true);
    // The file may hold a key that came from elsewhere, and whoever knows its password has the key.
    for (const CK_ATTRIBUTE_TYPE type : {CKA_EXTRACTABLE, CKA_ALWAYS_SENSITIVE, CKA_NEVER_EXTRACTABLE, CKA_UNWRAP,
                                         CKA_SIGN_RECOVER, CKA_WRAP_WITH_TRUSTED, CKA_ALWAYS_AUTHENTICATE}) {
        object.set(type, false);
    }
    return object;
}

TokenObject publicObject(const PublicKey& key, const SignedCertificate* certificate, const std::string& profile) {
    TokenObject object;
    setKey(object, CKO_PUBLIC_KEY, key, certificate, profile);
    object.set(CKA_VERIFY, true);
    for (const CK_ATTRIBUTE_TYPE type : {CKA_ENCRYPT, CKA_VERIFY_RECOVER, CKA_WRAP, CKA_TRUSTED}) {
        object.set(type, false);
    }
    return object;
}

// --- Certificates

TokenObject certificateObject(const SignedCertificate& certificate, bool trusted, bool ofUser) {
    TokenObject object;
    const ByteView der = encodingOf(certificate);
    object.identity = identityOf(CKO_CERTIFICATE, der);
    object.set(CKA_VALUE, der);  // the first: most of the others stand in it
    setCommon(object, CKO_CERTIFICATE, false, labelOf(certificate));
    const bool authority = trusted || certificate.isCaCrt();
    object.set(CKA_CERTIFICATE_TYPE, CK_ULONG{CKC_X_509});
    object.set(CKA_TRUSTED, trusted);
    object.set(CKA_CERTIFICATE_CATEGORY, CK_ULONG{ofUser ? kTokenUser : authority ? kAuthority : kOtherEntity});
    object.set(CKA_ID, certificate.computeKeyIdentifierSha1Hash());
    object.set(CKA_SUBJECT, certificate.subject().encoded());
    object.set(CKA_ISSUER, certificate.issuer().encoded());
    object.set(CKA_SERIAL_NUMBER, certificate.serialNumber().encoded());
    object.set(CKA_URL, ByteView());
    object.set(CKA_CHECK_VALUE, ByteView(certificate.fingerprint(KcHashAlgo::Sha1)).first(3));
    object.set(CKA_START_DATE, dateOf(certificate.tbs.validity.notBefore));
    object.set(CKA_END_DATE, dateOf(certificate.tbs.validity.notAfter));
    object.set(CKA_PUBLIC_KEY_INFO, certificate.keyInfo().encoded());
    object.complete();
    return object;
}

std::map<Identity, const TokenObject*> byIdentity(const TokenObjects* objects) {
    std::map<Identity, const TokenObject*> found;
    if (objects)
        for (const TokenObject& object : *objects) found.emplace(object.identity, &object);
    return found;
}

void keepHandles(TokenObjects& objects, const TokenObjects* before) {
    const auto known = byIdentity(before);
    for (TokenObject& object : objects) {
        const auto same = known.find(object.identity);
        object.handle = same != known.end() ? same->second->handle : nextHandle();
        if (same != known.end()) object.privateKey = same->second->privateKey;
    }
    std::ranges::sort(objects, {}, &TokenObject::handle);
}

}  // namespace

void TokenObject::set(CK_ATTRIBUTE_TYPE type, ByteView value) {
    Bytes& octets = values_->octets;
    const size_t at = std::min(asText(octets).find(asText(value)), octets.size());
    if (at == octets.size()) octets.insert(octets.end(), value.begin(), value.end());
    values_->attributes.push_back({type, static_cast<uint32_t>(at), static_cast<uint32_t>(value.size())});
}

void TokenObject::complete() {
    values_->octets.shrink_to_fit();
    values_->attributes.shrink_to_fit();
}

void TokenObject::set(CK_ATTRIBUTE_TYPE type, CK_ULONG value) {
    set(type, ByteView(reinterpret_cast<const uint8_t*>(&value), sizeof value));
}

void TokenObject::set(CK_ATTRIBUTE_TYPE type, bool value) {
    const CK_BBOOL octet = value ? CK_TRUE : CK_FALSE;
    set(type, ByteView(&octet, 1));
}

std::optional<ByteView> TokenObject::find(CK_ATTRIBUTE_TYPE type) const {
    const auto found = std::ranges::find(values_->attributes, type, &Attribute::type);
    if (found == values_->attributes.end()) return std::nullopt;
    return ByteView(values_->octets).subspan(found->at, found->length);
}

bool TokenObject::keepsSecret(CK_ATTRIBUTE_TYPE type) const {
    constexpr CK_ATTRIBUTE_TYPE kOfRsa[] = {CKA_PRIVATE_EXPONENT, CKA_PRIME_1,    CKA_PRIME_2,
                                            CKA_EXPONENT_1,       CKA_EXPONENT_2, CKA_COEFFICIENT};
    if (!privateKey) return false;
    return isRsa(privateKey->scheme()) ? std::ranges::find(kOfRsa, type) != std::end(kOfRsa) : type == CKA_VALUE;
}

CK_RV TokenObject::answer(CK_ATTRIBUTE& attribute) const {
    const auto value = find(attribute.type);
    const CK_ULONG room = attribute.ulValueLen;
    attribute.ulValueLen = value ? value->size() : CK_UNAVAILABLE_INFORMATION;
    if (!value) return keepsSecret(attribute.type) ? CKR_ATTRIBUTE_SENSITIVE : CKR_ATTRIBUTE_TYPE_INVALID;
    if (!attribute.pValue) return CKR_OK;
    if (room < value->size()) {
        attribute.ulValueLen = CK_UNAVAILABLE_INFORMATION;
        return CKR_BUFFER_TOO_SMALL;
    }
    if (!value->empty()) std::memcpy(attribute.pValue, value->data(), value->size());
    return CKR_OK;
}

bool TokenObject::matches(std::span<const CK_ATTRIBUTE> wanted) const {
    return std::ranges::all_of(wanted, [this](const CK_ATTRIBUTE& attribute) {
        const auto value = find(attribute.type);
        const auto* octets = static_cast<const uint8_t*>(attribute.pValue);
        return value && std::ranges::equal(*value, ByteView(octets, octets ? attribute.ulValueLen : 0));
    });
}

const TokenObject* findObject(const TokenObjects* objects, CK_OBJECT_HANDLE handle) {
    if (!objects) return nullptr;
    const auto found = std::ranges::lower_bound(*objects, handle, {}, &TokenObject::handle);
    return found == objects->end() || found->handle != handle ? nullptr : &*found;
}

ObjectsPtr makeObjects(const ReadStore& store, const std::string& profile, const TokenObjects* before) {
    auto objects = std::make_shared<TokenObjects>();
    for (const StoredKey& stored : store.contents.keys) {
        const CertPtr certificate = store.contents.certificateOf(stored.key->keyId());
        objects->push_back(privateObject(stored, certificate.get(), profile));
        objects->push_back(publicObject(stored.key->publicKey(), certificate.get(), profile));
    }
    for (const CertPtr& one : store.contents.userCerts) {
        const bool ofKey = store.contents.findKey(one->computeKeyIdentifierSha1Hash()) != nullptr;
        objects->push_back(certificateObject(*one, contains(store.trusted, *one), ofKey));
    }
    for (const CertPtr& one : store.trusted) {
        if (!contains(store.contents.userCerts, *one)) objects->push_back(certificateObject(*one, true, false));
    }
    keepHandles(*objects, before);
    return objects;
}

DatabaseObjects::DatabaseObjects(const TokenObjects* before) : known_(byIdentity(before)) {}

void DatabaseObjects::add(ByteView der) {
    const auto same = known_.find(identityOf(CKO_CERTIFICATE, der));
    if (same != known_.end()) {
        objects_.push_back(*same->second);
    } else if (const CertPtr one = makeCert(der)) {
        objects_.push_back(certificateObject(*one, false, false));
        objects_.back().handle = nextHandle();
    }
}

ObjectsPtr DatabaseObjects::take() {
    std::ranges::sort(objects_, {}, &TokenObject::handle);
    objects_.shrink_to_fit();
    return std::make_shared<const TokenObjects>(std::move(objects_));
}

}  // namespace crv::p11
