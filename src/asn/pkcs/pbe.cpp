#include "asn/pkcs/pbe.h"

#include <algorithm>

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
/// RFC 7292 appendix C.
constexpr OidRow<CipherAlgo> kSchemes[] = {
    {OID_PBE_SHA1_RC4_128, CipherAlgo::Rc4Of128},  {OID_PBE_SHA1_RC4_40, CipherAlgo::Rc4Of40},
    {OID_PBE_SHA1_3DES, CipherAlgo::TripleDesCbc}, {OID_PBE_SHA1_2DES, CipherAlgo::TwoKeyTripleDesCbc},
    {OID_PBE_SHA1_RC2_128, CipherAlgo::Rc2Cbc128}, {OID_PBE_SHA1_RC2_40, CipherAlgo::Rc2Cbc40},
};
constexpr OidRow<PrfAlgo> kPrfs[] = {
    {OID_HMAC_SHA1, PrfAlgo::Sha1},
    {OID_HMAC_SHA224, PrfAlgo::Sha224},
    {OID_HMAC_SHA256, PrfAlgo::Sha256},
    {OID_HMAC_SHA384, PrfAlgo::Sha384},
    {OID_HMAC_SHA512, PrfAlgo::Sha512},
    {OID_HMAC_SHA512_224, PrfAlgo::Sha512Of224},
    {OID_HMAC_SHA512_256, PrfAlgo::Sha512Of256},
    {OID_HMAC_SHA3_224, PrfAlgo::Sha3224},
    {OID_HMAC_SHA3_256, PrfAlgo::Sha3256},
    {OID_HMAC_SHA3_384, PrfAlgo::Sha3384},
    {OID_HMAC_SHA3_512, PrfAlgo::Sha3512},
};
constexpr OidRow<CipherAlgo> kCiphers[] = {
    {OID_AES128_CBC, CipherAlgo::Aes128Cbc},           {OID_AES192_CBC, CipherAlgo::Aes192Cbc},
    {OID_AES256_CBC, CipherAlgo::Aes256Cbc},           {OID_DES_EDE3_CBC, CipherAlgo::TripleDesCbc},
    {OID_CAMELLIA128_CBC, CipherAlgo::Camellia128Cbc}, {OID_CAMELLIA192_CBC, CipherAlgo::Camellia192Cbc},
    {OID_CAMELLIA256_CBC, CipherAlgo::Camellia256Cbc},
};

constexpr long kLeastMacKey = 20;  // RFC 9579 7
constexpr long kLongestMacKey = 1024;

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
        const auto cipher = rc2Cipher(rc2);
        if (!cipher) throw CryptoError(CryptoFailure::Unsupported, "RC2 of another effective key length");
        out.cipher = *cipher;
        return;
    }
    out.cipher = valueOf(kCiphers, scheme.algorithm);
    out.iv = toBytes(parametersOf<ASNoctstr>(scheme, "a cipher").value());
}

/// What derives a key, and the length that it should have where that is said.
struct Derivation {
    KeyDerivation how;
    std::optional<ASNinteger> keyLength;

    void mustGive(size_t length) const {
        if (keyLength && keyLength->value() != static_cast<long>(length)) malformed("a key derivation");
    }
};

Derivation readDerivation(const AlgorithmIdentifier& function) {
    if (function.algorithm == OID_SCRYPT) {
        const auto read = parametersOf<ScryptParameters>(function, "scrypt");
        return {ScryptParams{toBytes(read.salt.value()), countOf(read.costParameter), countOf(read.blockSize),
                             countOf(read.parallelization)},
                read.keyLength};
    }
    if (!(function.algorithm == OID_PBKDF2)) unknown(function.algorithm);
    const auto read = parametersOf<Pbkdf2Parameters>(function, "PBKDF2");
    const PrfAlgo prf = read.prf ? valueOf(kPrfs, read.prf->algorithm) : PrfAlgo::Sha1;
    return {Pbkdf2Params{prf, toBytes(read.salt.value()), countOf(read.iterationCount)}, read.keyLength};
}

Pbes2Params readPbes2(const AlgorithmIdentifier& algorithm) {
    const auto pbes2 = parametersOf<Pbes2Parameters>(algorithm, "PBES2");
    const Derivation derivation = readDerivation(pbes2.keyDerivationFunc);
    Pbes2Params params;
    takeCipher(pbes2.scheme, params);
    derivation.mustGive(cipherKeyLength(params.cipher));
    params.derivation = derivation.how;
    return params;
}

}  // namespace

std::optional<CipherAlgo> rc2Cipher(const Rc2CbcParameters& parameters) {
    for (const Rc2Row& row : kRc2Versions)
        if (parameters.rc2ParameterVersion.value() == row.version) return row.cipher;
    return std::nullopt;
}

PbePassword::PbePassword(std::string_view utf8, PbeProgress progress)
    : utf8_(toSecret(asBytes(utf8))), unicode_(utf16BePassword(utf8)), progress_(std::move(progress)) {}

ByteView PbePassword::derived(const KeyDerivation& how, size_t length) const {
    if (!last_ || !(last_->how == how) || last_->key.size() != length)
        last_ = Derived{how, deriveKey(how, utf8_, length, progress_)};
    return last_->key;
}

MemberTable PbeParameters::members() const {
    static constexpr Member kMembers[] = {member<&PbeParameters::salt>, member<&PbeParameters::iterations>};
    return kMembers;
}

MemberTable Pbkdf2Parameters::members() const {
    static constexpr Member kMembers[] = {member<&Pbkdf2Parameters::salt>, member<&Pbkdf2Parameters::iterationCount>,
                                          member<&Pbkdf2Parameters::keyLength>, member<&Pbkdf2Parameters::prf>};
    return kMembers;
}

MemberTable ScryptParameters::members() const {
    static constexpr Member kMembers[] = {
        member<&ScryptParameters::salt>, member<&ScryptParameters::costParameter>, member<&ScryptParameters::blockSize>,
        member<&ScryptParameters::parallelization>, member<&ScryptParameters::keyLength>};
    return kMembers;
}

MemberTable Pbes2Parameters::members() const {
    static constexpr Member kMembers[] = {member<&Pbes2Parameters::keyDerivationFunc>,
                                          member<&Pbes2Parameters::scheme>};
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
        if (row.value == cipherOf(algo)) return AlgorithmIdentifier(row.oid, parameters);
    throw CryptoError(CryptoFailure::BadParameter, "no such password-based encryption");
}

Bytes PbeSettings::encrypt(const ASNobject& plain) const {
    return pbeEncrypt(algo, unicodePassword, salt, static_cast<uint64_t>(iterations), encodedSecret(plain));
}

Pbes2Settings::Pbes2Settings(const PbePassword& password, ByteView salt, long iterations)
    : password_(password), derivation_{PrfAlgo::Sha256, toBytes(salt), static_cast<uint64_t>(iterations)} {}

AlgorithmIdentifier Pbes2Settings::algorithm() const {
    Pbkdf2Parameters pbkdf2;
    pbkdf2.salt.build(derivation_.salt);
    pbkdf2.iterationCount.setValue(static_cast<long>(derivation_.iterations));
    pbkdf2.prf.emplace(OID_HMAC_SHA256, ASNnull());
    Pbes2Parameters pbes2;
    pbes2.keyDerivationFunc = AlgorithmIdentifier(OID_PBKDF2, pbkdf2);
    pbes2.scheme = AlgorithmIdentifier(OID_AES256_CBC, ASNoctstr(iv_));
    return AlgorithmIdentifier(OID_PBES2, pbes2);
}

Bytes Pbes2Settings::encrypt(const ASNobject& plain) const {
    const ByteView key = password_.derived(derivation_, cipherKeyLength(CipherAlgo::Aes256Cbc));
    return encipher(CipherAlgo::Aes256Cbc, key, iv_, encodedSecret(plain));
}

SecretBytes decryptPbe(const AlgorithmIdentifier& algorithm, const PbePassword& password, ByteView ciphertext) {
    if (algorithm.algorithm == OID_PBES2) {
        const Pbes2Params pbes2 = readPbes2(algorithm);
        const ByteView key = password.derived(pbes2.derivation, cipherKeyLength(pbes2.cipher));
        return decipher(pbes2.cipher, key, pbes2.iv, ciphertext);
    }
    const CipherAlgo cipher = valueOf(kSchemes, algorithm.algorithm);
    const auto parameters = parametersOf<PbeParameters>(algorithm, "a PKCS#12 scheme");
    return pbeDecrypt(cipher, password.unicode(), parameters.salt.value(), countOf(parameters.iterations), ciphertext,
                      password.progress());
}

bool hasOwnKey(const AlgorithmIdentifier& algorithm) {
    return std::ranges::any_of(kSchemes, [&](const auto& row) { return algorithm.algorithm == row.oid; });
}

SecretBytes computePbmac1(const AlgorithmIdentifier& algorithm, const PbePassword& password, ByteView message) {
    const auto pbmac1 = parametersOf<Pbes2Parameters>(algorithm, "PBMAC1");
    const Derivation derivation = readDerivation(pbmac1.keyDerivationFunc);
    const PrfAlgo mac = valueOf(kPrfs, pbmac1.scheme.algorithm);
    // RFC 9579 5: the length must be given, since that of an HMAC key follows from nothing.
    const long length = derivation.keyLength ? derivation.keyLength->valueOr(-1) : -1;
    if (length < kLeastMacKey || length > kLongestMacKey) malformed("PBMAC1");
    const SecretBytes key =
        deriveKey(derivation.how, password.utf8(), static_cast<size_t>(length), password.progress());
    return hmac(mac, key, message);
}

}  // namespace crv
