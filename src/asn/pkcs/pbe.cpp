#include "asn/pkcs/pbe.h"

#include "asn/known_oids.h"
#include "asn/pkcs/secret_encoding.h"
#include "crypto/crypto_error.h"

namespace crv {

namespace {

/// A row of a table that identifiers are looked up in.
template <class Value>
struct OidRow {
    const KnownOid& oid;
    Value value;
};
constexpr OidRow<PbeAlgo> kSchemes[] = {
    {OID_PBE_SHA1_3DES, PbeAlgo::Sha1TripleDesCbc},
    {OID_PBE_SHA1_RC2_40, PbeAlgo::Sha1Rc2Cbc40},
};
constexpr OidRow<KcHashAlgo> kPrfs[] = {
    {OID_HMAC_SHA1, KcHashAlgo::Sha1},     {OID_HMAC_SHA224, KcHashAlgo::Sha224}, {OID_HMAC_SHA256, KcHashAlgo::Sha256},
    {OID_HMAC_SHA384, KcHashAlgo::Sha384}, {OID_HMAC_SHA512, KcHashAlgo::Sha512},
};
constexpr OidRow<CipherAlgo> kCiphers[] = {
    {OID_AES128_CBC, CipherAlgo::Aes128Cbc},
    {OID_AES192_CBC, CipherAlgo::Aes192Cbc},
    {OID_AES256_CBC, CipherAlgo::Aes256Cbc},
    {OID_DES_EDE3_CBC, CipherAlgo::TripleDesCbc},
};

/// The version numbers that stand for the effective key lengths of RC2 (RFC 8018 B.2.3).
struct Rc2Row {
    long version;
    CipherAlgo cipher;
};
constexpr Rc2Row kRc2Versions[] = {
    {160, CipherAlgo::Rc2Cbc40},
    {120, CipherAlgo::Rc2Cbc64},
    {58, CipherAlgo::Rc2Cbc128},
};

[[noreturn]] void malformed(const char* what) {
    throw CryptoError(CryptoFailure::BadParameter, std::string("malformed parameters of ") + what);
}

[[noreturn]] void unknown(const ASNobjectId& oid) {
    throw CryptoError(CryptoFailure::Unsupported, "unknown algorithm " + oid.text());
}

template <class Value, size_t N>
Value valueOf(const OidRow<Value> (&rows)[N], const ASNobjectId& oid) {
    for (const auto& row : rows)
        if (oid == row.oid) return row.value;
    unknown(oid);
}

template <class Parameters>
Parameters parametersOf(const AlgorithmIdentifier& algorithm, const char* what) {
    Parameters parameters;
    if (!algorithm.parameters || !algorithm.parameters->decode(parameters)) malformed(what);
    return parameters;
}

uint64_t countOf(const ASNinteger& iterations) {
    const long count = iterations.valueOr(-1);
    if (count <= 0) malformed("a key derivation");
    return static_cast<uint64_t>(count);
}

void takeCipher(const AlgorithmIdentifier& scheme, Pbes2Params& out) {
    if (scheme.algorithm == OID_RC2_CBC) {
        const auto rc2 = parametersOf<Rc2CbcParameters>(scheme, "RC2");
        out.iv = toBytes(rc2.iv.value());
        for (const Rc2Row& row : kRc2Versions) {
            if (rc2.rc2ParameterVersion.value() == row.version) {
                out.cipher = row.cipher;
                return;
            }
        }
        malformed("RC2");
    }
    out.cipher = valueOf(kCiphers, scheme.algorithm);
    out.iv = toBytes(parametersOf<ASNoctstr>(scheme, "a cipher").value());
}

Pbes2Params readPbes2(const AlgorithmIdentifier& algorithm) {
    const auto pbes2 = parametersOf<Pbes2Parameters>(algorithm, "PBES2");
    if (!(pbes2.keyDerivationFunc.algorithm == OID_PBKDF2)) unknown(pbes2.keyDerivationFunc.algorithm);
    const auto derivation = parametersOf<Pbkdf2Parameters>(pbes2.keyDerivationFunc, "PBKDF2");
    Pbes2Params params;
    params.salt = toBytes(derivation.salt.value());
    params.iterations = countOf(derivation.iterationCount);
    if (derivation.prf) params.prfHash = valueOf(kPrfs, derivation.prf->algorithm);
    takeCipher(pbes2.encryptionScheme, params);
    if (derivation.keyLength && derivation.keyLength->value() != static_cast<long>(cipherKeyLength(params.cipher)))
        malformed("PBKDF2");
    return params;
}

}  // namespace

PbePassword::PbePassword(std::string_view utf8) : utf8_(toSecret(asBytes(utf8))), unicode_(utf16BePassword(utf8)) {}

MemberTable PbeParameters::members() const {
    static constexpr Member kMembers[] = {member<&PbeParameters::salt>, member<&PbeParameters::iterations>};
    return kMembers;
}

MemberTable Pbkdf2Parameters::members() const {
    static constexpr Member kMembers[] = {member<&Pbkdf2Parameters::salt>, member<&Pbkdf2Parameters::iterationCount>,
                                          member<&Pbkdf2Parameters::keyLength>, member<&Pbkdf2Parameters::prf>};
    return kMembers;
}

MemberTable Pbes2Parameters::members() const {
    static constexpr Member kMembers[] = {member<&Pbes2Parameters::keyDerivationFunc>,
                                          member<&Pbes2Parameters::encryptionScheme>};
    return kMembers;
}

MemberTable Rc2CbcParameters::members() const {
    static constexpr Member kMembers[] = {member<&Rc2CbcParameters::rc2ParameterVersion>,
                                          member<&Rc2CbcParameters::iv>};
    return kMembers;
}

AlgorithmIdentifier PbeSettings::algorithm() const {
    PbeParameters parameters;
    parameters.salt.build(salt);
    parameters.iterations.setValue(iterations);
    for (const auto& row : kSchemes)
        if (row.value == algo) return AlgorithmIdentifier(row.oid, parameters);
    throw CryptoError(CryptoFailure::BadParameter, "no such password-based encryption");
}

Bytes PbeSettings::encrypt(const ASNobject& plain) const {
    return pbeEncrypt(algo, unicodePassword, salt, static_cast<uint64_t>(iterations), encodedSecret(plain));
}

SecretBytes decryptPbe(const AlgorithmIdentifier& algorithm, const PbePassword& password, ByteView ciphertext) {
    if (algorithm.algorithm == OID_PBES2) return pbes2Decrypt(readPbes2(algorithm), password.utf8(), ciphertext);
    const PbeAlgo algo = valueOf(kSchemes, algorithm.algorithm);
    const auto parameters = parametersOf<PbeParameters>(algorithm, "a PKCS#12 scheme");
    return pbeDecrypt(algo, password.unicode(), parameters.salt.value(), countOf(parameters.iterations), ciphertext);
}

}  // namespace crv
