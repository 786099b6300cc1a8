// What stands on a token.
#include <algorithm>

#include "asn/x509/signed_certificate.h"
#include "keystore/token_matching.h"

namespace crv {
namespace {

constexpr CK_ATTRIBUTE_TYPE kKeyUses[] = {CKA_SIGN, CKA_DECRYPT, CKA_VERIFY, CKA_ENCRYPT, CKA_ALWAYS_AUTHENTICATE};

struct RawKey {
    P11Attributes attributes;
    std::optional<PublicKey> publicKey;
};

/// Reads each object; one that vanished meanwhile is left out.
template <class Take>
P11Result readEach(PKCS11Device& device, P11Result found, const PKCS11Device::Handles& handles,
                   std::span<const CK_ATTRIBUTE_TYPE> types, Take take) {
    if (found != kP11Ok) return found;
    for (const CK_OBJECT_HANDLE handle : handles) {
        P11Attributes attributes;
        const P11Result read = device.getObjectAttributeTab(handle, types, attributes);
        if (read != kP11Ok && device.lastRv() != CKR_OBJECT_HANDLE_INVALID) return read;
        if (read == kP11Ok) take(std::move(attributes));
    }
    return kP11Ok;
}

P11Result readKeys(PKCS11Device& device, bool privateOnes, std::vector<RawKey>& keys) {
    std::vector<CK_ATTRIBUTE_TYPE> types(std::begin(kPublicKeyAttributes), std::end(kPublicKeyAttributes));
    types.insert(types.end(), std::begin(kKeyUses), std::end(kKeyUses));
    PKCS11Device::Handles handles;
    const P11Result found =
        privateOnes ? device.getAllPrivateKeyHandles(handles) : device.getAllPublicKeyHandles(handles);
    return readEach(device, found, handles, types, [&](P11Attributes attributes) {
        const auto publicKey = publicKeyOf(attributes);
        keys.push_back({std::move(attributes), publicKey});
    });
}

struct RawCert {
    CertPtr certificate;
    Bytes id;
};

P11Result readCertificates(PKCS11Device& device, std::vector<RawCert>& certificates) {
    constexpr CK_ATTRIBUTE_TYPE kTypes[] = {CKA_VALUE, CKA_ID};
    PKCS11Device::Handles handles;
    const P11Result found = device.getAllKeyCertHandles(handles);
    return readEach(device, found, handles, kTypes, [&](const P11Attributes& attributes) {
        if (const CertPtr one = makeCert(attributes.octets(CKA_VALUE)))
            certificates.push_back({one, toBytes(attributes.octets(CKA_ID))});
    });
}

/// The public object of the same identifier, else what the private key says itself, else its certificate.
std::optional<PublicKey> publicHalf(const RawKey& key, const std::vector<RawKey>& publicKeys,
                                    const std::vector<RawCert>& certificates) {
    const ByteView id = key.attributes.octets(CKA_ID);
    for (const RawKey& other : publicKeys) {
        if (!id.empty() && other.publicKey && std::ranges::equal(other.attributes.octets(CKA_ID), id))
            return other.publicKey;
    }
    if (key.publicKey) return key.publicKey;
    for (const RawCert& other : certificates) {
        if (id.empty() || !std::ranges::equal(other.id, id)) continue;
        if (auto half = other.certificate->keyInfo().usableKey()) return half;
    }
    return std::nullopt;
}

TokenKeyFacts factsOf(const RawKey& key, const PublicKey& publicKey, bool loggedIn) {
    const P11Attributes& attributes = key.attributes;
    return {publicKey, toBytes(attributes.octets(CKA_ID)), attributes.flag(loggedIn ? CKA_SIGN : CKA_VERIFY),
            attributes.flag(loggedIn ? CKA_DECRYPT : CKA_ENCRYPT), attributes.flag(CKA_ALWAYS_AUTHENTICATE)};
}

}  // namespace

P11Result readTokenObjects(PKCS11Device& device, bool loggedIn, TokenObjects& objects) {
    std::vector<RawKey> privateKeys, publicKeys;
    std::vector<RawCert> certificates;
    P11Result read = readCertificates(device, certificates);
    if (read == kP11Ok) read = readKeys(device, false, publicKeys);
    if (read == kP11Ok && loggedIn) read = readKeys(device, true, privateKeys);
    if (read != kP11Ok) return read;
    objects = {};
    for (const RawCert& one : certificates) objects.certificates.push_back(one.certificate);
    for (const RawKey& key : loggedIn ? privateKeys : publicKeys) {
        if (const auto half = publicHalf(key, publicKeys, certificates))
            objects.keys.push_back(factsOf(key, *half, loggedIn));
    }
    return kP11Ok;
}

}  // namespace crv
