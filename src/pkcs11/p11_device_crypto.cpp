// Signatures, decryption, generation and random octets.
#include <array>

#include "pkcs11/p11_device_call.h"

namespace crv {
namespace {

/// Longest signature or plaintext that a key in use here can make.
constexpr CK_ULONG kMaxOutput = PublicKey::kMaxRsaBits / 8;

CK_MECHANISM rawMechanism(const P11Mechanism& mechanism) {
    return {mechanism.type, mechanism.parameters.empty() ? nullptr : mechanism.parameters.data(),
            mechanism.parameters.size()};
}

/// Modules only read what they are given.
CK_BYTE* octetsOf(ByteView octets) {
    return const_cast<CK_BYTE*>(octets.data());
}

}  // namespace

P11Result PKCS11Device::signRSA(Handle key, ByteView digestInfo, Bytes& signature, const P11BeforeUse& before) {
    return signRSAWithMechanism(key, {CKM_RSA_PKCS}, digestInfo, signature, before);
}

P11Result PKCS11Device::signECDSA(Handle key, ByteView digest, Bytes& signature, const P11BeforeUse& before) {
    return signRSAWithMechanism(key, {CKM_ECDSA}, digest, signature, before);
}

P11Result PKCS11Device::signRSAWithMechanism(Handle key, const P11Mechanism& mechanism, ByteView data, Bytes& signature,
                                             const P11BeforeUse& before) {
    CK_MECHANISM raw = rawMechanism(mechanism);
    const P11Lock::Hold together(*lock_);
    CK_RV rv = callSession(&CK_FUNCTION_LIST::C_SignInit, &raw, key);
    if (rv != CKR_OK) return check("signRSAWithMechanism", "C_SignInit", rv);
    if (const P11Result result = before ? before() : kP11Ok; result != kP11Ok) return abandon(result);
    CK_ULONG length = kMaxOutput;
    signature.resize(length);
    rv = callSession(&CK_FUNCTION_LIST::C_Sign, octetsOf(data), CK_ULONG{data.size()}, signature.data(), &length);
    if (rv == CKR_OK && length > kMaxOutput) return reportError("signRSAWithMechanism", "C_Sign", kP11BadData);
    signature.resize(rv == CKR_OK ? length : 0);
    return check("signRSAWithMechanism", "C_Sign", rv);
}

P11Result PKCS11Device::abandon(P11Result result) {
    const CK_RV why = lastRv_;
    if (hasSession()) closeSession();
    lastRv_ = why;
    return result;
}

P11Result PKCS11Device::verifyRSA(Handle key, ByteView digestInfo, ByteView signature, bool& right) {
    CK_MECHANISM raw{CKM_RSA_PKCS, nullptr, 0};
    const P11Lock::Hold together(*lock_);
    CK_RV rv = callSession(&CK_FUNCTION_LIST::C_VerifyInit, &raw, key);
    if (rv != CKR_OK) return check("verifyRSA", "C_VerifyInit", rv);
    rv = callSession(&CK_FUNCTION_LIST::C_Verify, octetsOf(digestInfo), CK_ULONG{digestInfo.size()},
                     octetsOf(signature), CK_ULONG{signature.size()});
    right = rv == CKR_OK;
    const bool wrong = rv == CKR_SIGNATURE_INVALID || rv == CKR_SIGNATURE_LEN_RANGE;
    return wrong ? kP11Ok : check("verifyRSA", "C_Verify", rv);
}

P11Result PKCS11Device::decryptRSA(Handle key, const P11Mechanism& mechanism, ByteView ciphertext, SecretBytes& plain,
                                   const P11BeforeUse& before) {
    CK_MECHANISM raw = rawMechanism(mechanism);
    const P11Lock::Hold together(*lock_);
    CK_RV rv = callSession(&CK_FUNCTION_LIST::C_DecryptInit, &raw, key);
    if (rv != CKR_OK) return check("decryptRSA", "C_DecryptInit", rv);
    if (const P11Result result = before ? before() : kP11Ok; result != kP11Ok) return abandon(result);
    CK_ULONG length = kMaxOutput;
    plain.resize(length);
    rv = callSession(&CK_FUNCTION_LIST::C_Decrypt, octetsOf(ciphertext), CK_ULONG{ciphertext.size()}, plain.data(),
                     &length);
    if (rv == CKR_OK && length > kMaxOutput) return reportError("decryptRSA", "C_Decrypt", kP11BadData);
    plain.resize(rv == CKR_OK ? length : 0);
    return check("decryptRSA", "C_Decrypt", rv);
}

P11Result PKCS11Device::generateRSAKeyPair(unsigned bits, uint64_t exponent, P11Template publicKey,
                                           P11Template privateKey, Handle& madePublic, Handle& madePrivate) {
    std::array<uint8_t, sizeof exponent> octets{};
    for (size_t i = 0; i < octets.size(); ++i)
        octets[i] = static_cast<uint8_t>(exponent >> (8 * (octets.size() - 1 - i)));
    size_t zeros = 0;
    while (zeros + 1 < octets.size() && octets[zeros] == 0) ++zeros;
    publicKey.number(CKA_MODULUS_BITS, bits).octets(CKA_PUBLIC_EXPONENT, ByteView(octets).subspan(zeros));
    CK_MECHANISM raw{CKM_RSA_PKCS_KEY_PAIR_GEN, nullptr, 0};
    return check("generateRSAKeyPair", "C_GenerateKeyPair",
                 callSession(&CK_FUNCTION_LIST::C_GenerateKeyPair, &raw, publicKey.data(), publicKey.size(),
                             privateKey.data(), privateKey.size(), &madePublic, &madePrivate));
}

P11Result PKCS11Device::generateDHSecret(Handle key, CK_MECHANISM_TYPE mechanism, Bytes peer, size_t length,
                                         SecretBytes& secret) {
    CK_ECDH1_DERIVE_PARAMS curve{CKD_NULL, 0, nullptr, peer.size(), peer.data()};
    CK_MECHANISM raw = mechanism == CKM_DH_PKCS_DERIVE ? CK_MECHANISM{mechanism, peer.data(), peer.size()}
                                                       : CK_MECHANISM{mechanism, &curve, sizeof curve};
    P11Template wanted;
    wanted.number(CKA_CLASS, CKO_SECRET_KEY)
        .number(CKA_KEY_TYPE, CKK_GENERIC_SECRET)
        .number(CKA_VALUE_LEN, length)
        .flag(CKA_TOKEN, false)
        .flag(CKA_SENSITIVE, false)
        .flag(CKA_EXTRACTABLE, true);
    const P11Lock::Hold together(*lock_);
    Handle derived = 0;
    const CK_RV rv = callSession(&CK_FUNCTION_LIST::C_DeriveKey, &raw, key, wanted.data(), wanted.size(), &derived);
    if (rv != CKR_OK) return check("generateDHSecret", "C_DeriveKey", rv);
    secret.resize(length);
    CK_ATTRIBUTE value{CKA_VALUE, secret.data(), length};
    const CK_RV read = callSession(&CK_FUNCTION_LIST::C_GetAttributeValue, derived, &value, CK_ULONG{1});
    static_cast<void>(deleteObject(derived));
    if (read == CKR_OK && value.ulValueLen != length)
        return reportError("generateDHSecret", "C_DeriveKey", kP11BadData);
    return check("generateDHSecret", "C_GetAttributeValue", read);
}

P11Result PKCS11Device::generateRandom(std::span<uint8_t> out) {
    return check("generateRandom", "C_GenerateRandom",
                 callSession(&CK_FUNCTION_LIST::C_GenerateRandom, out.data(), CK_ULONG{out.size()}));
}

}  // namespace crv
