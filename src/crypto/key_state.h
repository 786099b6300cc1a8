// What public and private keys share inside src/crypto.
#pragma once

#include <deque>
#include <mutex>

#include "crypto/libcrypto.h"
#include "crypto/private_key.h"

namespace crv {

/// What the parameters of an id-RSASSA-PSS key allow its signatures (RFC 4055 3.1).
struct PssRestriction {
    KcHashAlgo hash, mgfHash;
    int leastSalt;
};

/// What parsing a public key gives.
struct ParsedKey {
    ossl::Pkey pkey;
    KeyScheme scheme = KeyScheme::None;
    unsigned bits = 0;
    EcDomain domain = {StdECId::None, false};
    std::optional<PssRestriction> pss;
};

struct PublicKey::State : ParsedKey {
    Bytes algorithm;
    Bytes keyBits;

    /// Parses and checks the two halves of a SubjectPublicKeyInfo.
    static std::shared_ptr<const State> make(ByteView algorithm, ByteView keyBits);
};

namespace ossl {

/// A private key as libcrypto has it. With an RSA key goes a pair of numbers that blinds its operations and changes
/// with each. An operation that fails, as memory ran out, may leave half of the pair changed, and those that follow
/// succeed with wrong results: so libcrypto's object is made anew behind it. May be used from several threads.
class PrivatePkey {
  public:
    explicit PrivatePkey(Pkey pkey) noexcept : pkey_(std::move(pkey)) {}

    /// For one operation; it holds the key.
    [[nodiscard]] PkeyCtx context() const;
    /// An operation failed or gave what is wrong: the next context is one of a new object.
    void distrust() const noexcept;

  private:
    mutable std::mutex mutex_;
    mutable Pkey pkey_;
    mutable bool trusted_ = true;
};

}  // namespace ossl

struct PrivateKey::State {
    State(ossl::Pkey key, PublicKey itsPublicKey, SecretBytes octets)
        : pkey(std::move(key)), publicKey(std::move(itsPublicKey)), inner(std::move(octets)) {}

    ossl::PrivatePkey pkey;
    PublicKey publicKey;
    SecretBytes inner;  // the octets inside PrivateKeyInfo's privateKey
};

/// The octets are no usable key: throws CryptoError(BadKey).
[[noreturn]] inline void failKey(const char* text) {
    ossl::fail(CryptoFailure::BadKey, text);
}

namespace ossl {

/// libcrypto's names for types of keys. By the names that it has from of old it would ask the engines of the program
/// first, which know nothing of our context: one that lends keys of tokens (ours, too) would be asked for its own.
inline constexpr const char* kRsaType = "1.2.840.113549.1.1.1";
inline constexpr const char* kDsaType = "1.2.840.10040.4.1";
inline constexpr const char* kEcType = "1.2.840.10045.2.1";

/// Numbers, octets and names from which libcrypto builds a key; all wiped with the set.
class KeyParts {
  public:
    void number(const char* name, ByteView bigEndian);
    void octets(const char* name, ByteView value);
    void text(const char* name, const char* value);

    /// The key, with its private part or not; CryptoError (badKey) when libcrypto does not take the numbers.
    [[nodiscard]] Pkey build(const char* type, bool withPrivate);

  private:
    std::deque<SecretBytes> values_;
    std::vector<OSSL_PARAM> params_;
};

[[nodiscard]] Num toNum(ByteView bigEndian);
/// Big-endian octets, at least `length` of them.
[[nodiscard]] SecretBytes fromNum(const BIGNUM* number, size_t length = 0);

[[nodiscard]] Num newNum();
[[nodiscard]] NumCtx numContext();
void mustCompute(int answer);

[[nodiscard]] PkeyCtx keyContext(EVP_PKEY* key);

/// Ends an operation that drew from a source: throws what the source threw or its failure, else the given failure when
/// libcrypto did not answer 1.
void finish(RandomBridge::Scope& scope, int answer, CryptoFailure failure, const char* text);

}  // namespace ossl

/// libcrypto's names for the numbers of RSAPrivateKey after its version, in order (RFC 8017 A.1.2).
inline constexpr std::array kRsaNumberNames = {
    OSSL_PKEY_PARAM_RSA_N,         OSSL_PKEY_PARAM_RSA_E,
    OSSL_PKEY_PARAM_RSA_D,         OSSL_PKEY_PARAM_RSA_FACTOR1,
    OSSL_PKEY_PARAM_RSA_FACTOR2,   OSSL_PKEY_PARAM_RSA_EXPONENT1,
    OSSL_PKEY_PARAM_RSA_EXPONENT2, OSSL_PKEY_PARAM_RSA_COEFFICIENT1,
};

/// The public point of a private number, uncompressed; CryptoError (badKey) for a number outside 1 .. order - 1.
[[nodiscard]] SecretBytes ecPublicPoint(StdECId curve, ByteView secret);

/// The scheme of keys with this algorithm (contents of the OBJECT IDENTIFIER), else CryptoError (unsupported).
[[nodiscard]] KeyScheme schemeOfKeyAlgorithm(ByteView oid);
/// The DER AlgorithmIdentifier of keys of a scheme; `parameters` is NULL for RSA, the domain for others.
[[nodiscard]] Bytes keyAlgorithm(KeyScheme scheme, ByteView parameters);

}  // namespace crv
