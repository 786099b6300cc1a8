#include "pkcs11/p11_objects.h"

#include "asn/known_oids.h"
#include "asn/x509/subject_public_key_info.h"
#include "crypto/crypto_error.h"
#include "misc/utf8.h"

namespace crv {
namespace {

ByteView viewOf(const void* value, size_t length) {
    return {static_cast<const uint8_t*>(value), length};
}

PublicKey ecKey(ByteView parameters, ByteView point) {
    SubjectPublicKeyInfo info;
    info.algorithm = AlgorithmIdentifier(OID_EC_PUBLIC_KEY);
    if (!info.algorithm.parameters.emplace().readExactly(parameters))
        throw CryptoError(CryptoFailure::BadKey, "CKA_EC_PARAMS");
    info.subjectPublicKey.build(point);
    return info.publicKey();
}

/// PKCS#11 2.40 2.3.3 wants the point in an OCTET STRING, but many tokens give it raw. Both begin with 4, so the curve
/// decides.
PublicKey ecKeyOfPoint(ByteView parameters, ByteView point) {
    ASNoctstr wrapped;
    if (wrapped.readExactly(point, ASN_FLAG_CONST)) {
        try {
            return ecKey(parameters, wrapped.value());
        } catch (const CryptoError& error) {
            if (!error.isOfInput()) throw;
        }
    }
    return ecKey(parameters, point);
}

}  // namespace

P11Template& P11Template::octets(CK_ATTRIBUTE_TYPE type, ByteView value) {
    Bytes& kept = values_.emplace_back(value.begin(), value.end());
    attributes_.push_back({type, kept.data(), kept.size()});
    return *this;
}

P11Template& P11Template::flag(CK_ATTRIBUTE_TYPE type, bool value) {
    const CK_BBOOL octet = value ? CK_TRUE : CK_FALSE;
    return octets(type, viewOf(&octet, sizeof octet));
}

P11Template& P11Template::number(CK_ATTRIBUTE_TYPE type, CK_ULONG value) {
    return octets(type, viewOf(&value, sizeof value));
}

P11Template objectsOf(CK_OBJECT_CLASS objectClass) {
    P11Template objects;
    objects.number(CKA_CLASS, objectClass).flag(CKA_TOKEN, true);
    return objects;
}

P11Template keysOf(CK_OBJECT_CLASS objectClass, CK_KEY_TYPE type, ByteView id) {
    P11Template keys = objectsOf(objectClass);
    keys.number(CKA_KEY_TYPE, type).octets(CKA_ID, id);
    return keys;
}

ByteView P11Attributes::octets(CK_ATTRIBUTE_TYPE type) const {
    const auto found = find(type);
    return found == end() ? ByteView() : ByteView(found->second);
}

bool P11Attributes::flag(CK_ATTRIBUTE_TYPE type) const {
    const ByteView value = octets(type);
    return value.size() == sizeof(CK_BBOOL) && value[0] != CK_FALSE;
}

std::optional<PublicKey> publicKeyOf(const P11Attributes& key) {
    const auto all = [&](CK_ATTRIBUTE_TYPE a, CK_ATTRIBUTE_TYPE b) {
        return !key.octets(a).empty() && !key.octets(b).empty();
    };
    try {
        if (all(CKA_MODULUS, CKA_PUBLIC_EXPONENT))
            return PublicKey::fromRsa(key.octets(CKA_MODULUS), key.octets(CKA_PUBLIC_EXPONENT));
        if (all(CKA_EC_PARAMS, CKA_EC_POINT)) return ecKeyOfPoint(key.octets(CKA_EC_PARAMS), key.octets(CKA_EC_POINT));
        // It may be there with length 0.
        if (const ByteView info = key.octets(CKA_PUBLIC_KEY_INFO); !info.empty()) return PublicKey::fromSpki(info);
    } catch (const CryptoError& error) {
        if (!error.isOfInput()) throw;
    }
    return std::nullopt;
}

std::string p11Text(const unsigned char* text, size_t length) {
    std::string_view rest = asText({text, length});
    while (!rest.empty() && (rest.back() == ' ' || rest.back() == '\0')) rest.remove_suffix(1);
    std::string shown;
    while (!rest.empty()) {
        const auto character = takeCharacter(rest);
        appendUtf8(shown, character && !isHarmful(*character) ? *character : U'?');
    }
    return shown;
}

}  // namespace crv
