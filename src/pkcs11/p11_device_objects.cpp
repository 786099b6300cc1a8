// Objects of the token.
#include <algorithm>
#include <array>

#include "misc/logger.h"
#include "pkcs11/p11_device_call.h"

namespace crv {
namespace {

constexpr size_t kBatch = 64;

bool isAttributeRefusal(CK_RV rv) {
    return rv == CKR_ATTRIBUTE_SENSITIVE || rv == CKR_ATTRIBUTE_TYPE_INVALID;
}

bool isThere(const CK_ATTRIBUTE& attribute) {
    return attribute.ulValueLen != CK_UNAVAILABLE_INFORMATION && attribute.ulValueLen <= kMaxP11Attribute;
}

}  // namespace

P11Result PKCS11Device::findObjects(P11Template wanted, Handles& found) {
    found.clear();
    const P11Lock::Hold together(*lock_);
    const CK_RV rv = callSession(&CK_FUNCTION_LIST::C_FindObjectsInit, wanted.data(), wanted.size());
    if (rv != CKR_OK) return check("findObjects", "C_FindObjectsInit", rv);
    const P11Result result = finishSearch(found);
    const CK_RV ended = callSession(&CK_FUNCTION_LIST::C_FindObjectsFinal);
    return result != kP11Ok ? result : check("findObjects", "C_FindObjectsFinal", ended);
}

P11Result PKCS11Device::finishSearch(Handles& found) {
    std::array<Handle, kBatch> batch{};
    for (CK_ULONG count = kBatch; count > 0;) {
        const CK_RV rv = callSession(&CK_FUNCTION_LIST::C_FindObjects, batch.data(), CK_ULONG{kBatch}, &count);
        if (rv != CKR_OK) return check("findObjects", "C_FindObjects", rv);
        if (count > kBatch) return reportError("findObjects", "C_FindObjects", kP11BadData);
        if (found.size() + count > kMaxP11Objects) return reportError("findObjects", "C_FindObjects", kP11TooMany);
        found.insert(found.end(), batch.begin(), batch.begin() + static_cast<long>(count));
    }
    return kP11Ok;
}

P11Result PKCS11Device::getAllPublicKeyHandles(Handles& found) {
    return findObjects(objectsOf(CKO_PUBLIC_KEY), found);
}

P11Result PKCS11Device::getAllPrivateKeyHandles(Handles& found) {
    return findObjects(objectsOf(CKO_PRIVATE_KEY), found);
}

P11Result PKCS11Device::getAllKeyCertHandles(Handles& found) {
    P11Template certificates = objectsOf(CKO_CERTIFICATE);
    certificates.number(CKA_CERTIFICATE_TYPE, CKC_X_509);
    return findObjects(std::move(certificates), found);
}

P11Result PKCS11Device::findFirst(P11Template wanted, Handle& found) {
    Handles all;
    if (const P11Result result = findObjects(std::move(wanted), all); result != kP11Ok) return result;
    if (all.empty()) return kP11NotFound;
    found = all.front();
    return kP11Ok;
}

P11Result PKCS11Device::getRSAPublicKeyHandle(ByteView id, Handle& found) {
    return findFirst(keysOf(CKO_PUBLIC_KEY, CKK_RSA, id), found);
}

P11Result PKCS11Device::getRSAPrivateKeyHandle(ByteView id, Handle& found) {
    return findFirst(keysOf(CKO_PRIVATE_KEY, CKK_RSA, id), found);
}

P11Result PKCS11Device::getECPublicKeyHandle(ByteView id, Handle& found) {
    return findFirst(keysOf(CKO_PUBLIC_KEY, CKK_EC, id), found);
}

P11Result PKCS11Device::getECPrivateKeyHandle(ByteView id, Handle& found) {
    return findFirst(keysOf(CKO_PRIVATE_KEY, CKK_EC, id), found);
}

P11Result PKCS11Device::getKeyCertHandle(ByteView id, Handle& found) {
    P11Template wanted = objectsOf(CKO_CERTIFICATE);
    wanted.octets(CKA_ID, id);
    return findFirst(std::move(wanted), found);
}

P11Result PKCS11Device::getDataObjectHandle(const std::string& application, const std::string& label, Handle& found) {
    P11Template wanted = objectsOf(CKO_DATA);
    wanted.text(CKA_APPLICATION, application).text(CKA_LABEL, label);
    return findFirst(std::move(wanted), found);
}

CK_RV PKCS11Device::readAttributes(Handle object, std::span<CK_ATTRIBUTE> attributes) {
    const CK_RV rv =
        callSession(&CK_FUNCTION_LIST::C_GetAttributeValue, object, attributes.data(), CK_ULONG{attributes.size()});
    return isAttributeRefusal(rv) ? CKR_OK : rv;
}

P11Result PKCS11Device::getObjectAttribute(Handle object, CK_ATTRIBUTE_TYPE type, Bytes& value) {
    P11Attributes values;
    const P11Result result = getObjectAttributeTab(object, {&type, 1}, values);
    if (result != kP11Ok) return result;
    const auto found = values.find(type);
    if (found == values.end()) return kP11NoAttribute;
    value = std::move(found->second);
    return kP11Ok;
}

P11Result PKCS11Device::getObjectAttributeTab(Handle object, std::span<const CK_ATTRIBUTE_TYPE> types,
                                              P11Attributes& values) {
    values.clear();
    std::vector<CK_ATTRIBUTE> attributes;
    for (const CK_ATTRIBUTE_TYPE type : types) attributes.push_back({type, nullptr, 0});
    const P11Lock::Hold together(*lock_);
    if (const CK_RV rv = readAttributes(object, attributes); rv != CKR_OK)
        return check("getObjectAttributeTab", "C_GetAttributeValue", rv);
    std::erase_if(attributes, [](const CK_ATTRIBUTE& attribute) { return !isThere(attribute); });
    std::vector<Bytes> octets;
    octets.reserve(attributes.size());
    for (CK_ATTRIBUTE& attribute : attributes) attribute.pValue = octets.emplace_back(attribute.ulValueLen).data();
    if (attributes.empty()) return kP11Ok;
    if (const CK_RV rv = readAttributes(object, attributes); rv != CKR_OK)
        return check("getObjectAttributeTab", "C_GetAttributeValue", rv);
    for (size_t i = 0; i < attributes.size(); ++i) {
        // What became longer was cut by the module or is a lie.
        if (attributes[i].ulValueLen > octets[i].size()) continue;
        octets[i].resize(attributes[i].ulValueLen);
        values[attributes[i].type] = std::move(octets[i]);
    }
    return kP11Ok;
}

P11Result PKCS11Device::setObjectAttribute(Handle object, CK_ATTRIBUTE_TYPE type, ByteView value) {
    P11Template attributes;
    attributes.octets(type, value);
    return check("setObjectAttribute", "C_SetAttributeValue",
                 callSession(&CK_FUNCTION_LIST::C_SetAttributeValue, object, attributes.data(), attributes.size()));
}

P11Result PKCS11Device::createObject(P11Template attributes, Handle& made) {
    return check("createObject", "C_CreateObject",
                 callSession(&CK_FUNCTION_LIST::C_CreateObject, attributes.data(), attributes.size(), &made));
}

P11Result PKCS11Device::addKeyCertificate(const KeyCertificate& certificate, Handle& made) {
    P11Template attributes = objectsOf(CKO_CERTIFICATE);
    attributes.number(CKA_CERTIFICATE_TYPE, CKC_X_509)
        .flag(CKA_PRIVATE, false)
        .text(CKA_LABEL, certificate.label)
        .octets(CKA_ID, certificate.id)
        .octets(CKA_SUBJECT, certificate.subject)
        .octets(CKA_ISSUER, certificate.issuer)
        .octets(CKA_SERIAL_NUMBER, certificate.serial)
        .octets(CKA_VALUE, certificate.encoding);
    return createObject(std::move(attributes), made);
}

P11Result PKCS11Device::createDataObject(const DataObject& data, Handle& made) {
    P11Template attributes = objectsOf(CKO_DATA);
    attributes.flag(CKA_PRIVATE, true)
        .text(CKA_APPLICATION, data.application)
        .text(CKA_LABEL, data.label)
        .octets(CKA_OBJECT_ID, data.objectId)
        .octets(CKA_VALUE, data.value);
    return createObject(std::move(attributes), made);
}

P11Result PKCS11Device::deleteObject(Handle object) {
    return check("deleteObject", "C_DestroyObject", callSession(&CK_FUNCTION_LIST::C_DestroyObject, object));
}

}  // namespace crv
