// Public keys: RSA, DSA and ECDSA.
#pragma once

#include <array>
#include <memory>
#include <optional>

#include "crypto/ec_curves.h"
#include "crypto/kc_hash.h"
#include "crypto/key_scheme.h"
#include "misc/secret.h"

struct evp_pkey_st;

namespace crv {

using KeyId = std::array<uint8_t, 20>;

/// PSS parameters that differ from our own signatures' (RFC 8017 A.2.3).
struct PssParams {
    KcHashAlgo mgfHash = KcHashAlgo::None;  ///< none: the signature's hash
    int saltLength = -1;                    ///< octets; -1: as long as the hash
};

enum class RsaPadding : uint8_t { Pkcs1, Oaep };

/// OAEP parameters (RFC 8017 7.1); MGF1 uses `mgfHash`, none meaning `hash`.
struct OaepParams {
    KcHashAlgo hash = KcHashAlgo::Sha1;
    KcHashAlgo mgfHash = KcHashAlgo::None;
    Bytes label;
};

/// An immutable public key; copies share it. What it was read from is kept octet for octet.
class PublicKey {
  public:
    static constexpr unsigned kMinRsaBits = 512;
    static constexpr unsigned kMaxRsaBits = 16384;

    /// Reads a DER SubjectPublicKeyInfo (RFC 5280 4.1, RFC 3279 2.3, RFC 5480) and checks it: moduli odd and of 512 to
    /// 16384 bits, exponents odd and above 1, DSA numbers in their ranges, points on their curve and not at infinity.
    /// Else CryptoError (badKey); an algorithm, curve or PSS hash that is unknown here is CryptoError (unsupported).
    [[nodiscard]] static PublicKey fromSpki(ByteView der);
    /// An RSA key from its numbers, big-endian, as tokens hold them; checked likewise.
    [[nodiscard]] static PublicKey fromRsa(ByteView modulus, ByteView exponent);

    [[nodiscard]] Bytes toSpki() const;
    /// A key with this key's domain and other key bits; checked likewise.
    [[nodiscard]] PublicKey withBits(ByteView keyBits) const;

    /// `rsaPss` only for a key whose algorithm is id-RSASSA-PSS, which signs with PSS alone; `rsa` keys do both.
    [[nodiscard]] KeyScheme scheme() const noexcept;
    /// Of the modulus, of DSA's p, of the curve's field.
    [[nodiscard]] unsigned bits() const noexcept;
    /// `none` unless the key is an EC key.
    [[nodiscard]] StdECId curve() const noexcept;
    [[nodiscard]] bool explicitDomain() const noexcept;
    /// The DER AlgorithmIdentifier of the key (with the restrictions of an id-RSASSA-PSS key) and the octets of
    /// its subjectPublicKey.
    [[nodiscard]] const Bytes& algorithm() const noexcept;
    [[nodiscard]] const Bytes& keyBits() const noexcept;
    /// SHA-1 of the subjectPublicKey octets (RFC 5280 4.2.1.2 (1)).
    [[nodiscard]] KeyId keyId() const;
    /// Big-endian numbers of an RSA key without leading zeros; empty for other keys.
    [[nodiscard]] Bytes rsaModulus() const;
    [[nodiscard]] Bytes rsaExponent() const;

    /// Whether the signature over the digest is right. A wrong or malformed signature answers false; where memory ran
    /// out std::bad_alloc is thrown, and nothing is said of the signature. CryptoError (badParameter) when key (with
    /// the restrictions of its PSS parameters), scheme, hash and digest do not go together. DSA and ECDSA signatures
    /// are DER Ecdsa-Sig-Value.
    [[nodiscard]] bool verify(KeyScheme scheme, KcHashAlgo hash, ByteView digest, ByteView signature,
                              const PssParams& pss = {}) const;

    /// The counterpart of PrivateKey::signPrepared; a wrong signature answers false.
    [[nodiscard]] bool verifyPrepared(ByteView input, ByteView signature) const;
    /// Octets of each of the two numbers of a DSA or ECDSA signature: those of the group's order. 0 for RSA keys.
    [[nodiscard]] size_t orderSize() const;

    /// RSA encryption, the counterpart of PrivateKey::decrypt; padding draws from the system. CryptoError
    /// (badParameter) for a key that is not RSA or data that is too long.
    [[nodiscard]] Bytes encrypt(RsaPadding padding, ByteView plain, const OaepParams& oaep = {}) const;

    /// Equal numbers and domain; how the domain is written does not matter.
    [[nodiscard]] bool operator==(const PublicKey& other) const;

  private:
    friend class PrivateKey;
    struct State;
    explicit PublicKey(std::shared_ptr<const State> state) noexcept : state_(std::move(state)) {}

    std::shared_ptr<const State> state_;
};

}  // namespace crv
