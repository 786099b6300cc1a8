// Private keys: RSA, DSA and ECDSA.
#pragma once

#include <functional>

#include "crypto/signer.h"

namespace crv {

/// Called now and then during a generation; false stops it.
using KeyGenProgress = std::function<bool()>;

/// An immutable private key; copies share it, and its memory is wiped when the last one ends.
class PrivateKey final : public Signer {
  public:
    static constexpr unsigned kDsaBits = 1024;

    /// Reads a DER PrivateKeyInfo (RFC 5958 version 0 or 1, RFC 8017 A.1.2, RFC 5915, DSA as in RFC 5912), ignoring its
    /// attributes, and checks it: everything that PublicKey::fromSpki checks, and that its numbers belong to each
    /// other. Else CryptoError (badKey); unknown algorithms, curves and RSA keys of more than two primes are
    /// CryptoError (unsupported).
    [[nodiscard]] static PrivateKey fromPkcs8(ByteView der);

    /// The DER PrivateKeyInfo without attributes.
    [[nodiscard]] SecretBytes toPkcs8() const;

    /// Generates an RSA key of `bits` (512 to 16384) with an odd public exponent above 1. Everything random comes from
    /// the source. CryptoError (badParameter, noRandom, cancelled); what the source or the progress function throws
    /// passes through.
    [[nodiscard]] static PrivateKey generateRsa(unsigned bits, uint64_t publicExponent, RandomBridge& random,
                                                const KeyGenProgress& progress = {});
    /// A DSA key of 1024 bits with a 160-bit q, and its own domain.
    [[nodiscard]] static PrivateKey generateDsa(unsigned bits, RandomBridge& random,
                                                const KeyGenProgress& progress = {});
    /// An EC key. The domain is written explicitly when asked for or when the curve has no identifier.
    [[nodiscard]] static PrivateKey generateEc(StdECId curve, bool explicitDomain, RandomBridge& random);

    [[nodiscard]] const PublicKey& publicKey() const noexcept override;
    /// Every pair of the signature table goes, given a key that is long enough.
    [[nodiscard]] Bytes sign(KeyScheme scheme, KcHashAlgo hash, ByteView digest, RandomBridge& random,
                             const PssParams& pss = {}) const override;
    /// Signs what the caller made ready: with an RSA key the octets that go into the block of RSASSA-PKCS1-v1_5 behind
    /// the padding (RFC 8017 9.2, a DigestInfo as a rule), with others a digest of any length, whose leftmost bits
    /// count. CryptoError (badParameter) for octets that are too many, and for a key that signs with PSS alone.
    [[nodiscard]] Bytes signPrepared(ByteView input, RandomBridge& random) const;
    [[nodiscard]] SecretBytes decrypt(RsaPadding padding, ByteView ciphertext,
                                      const OaepParams& oaep = {}) const override;
    [[nodiscard]] SecretBytes agree(const PublicKey& other) const override;

  private:
    struct State;
    explicit PrivateKey(std::shared_ptr<const State> state) noexcept : state_(std::move(state)) {}
    [[nodiscard]] static PrivateKey fromParts(ByteView algorithm, ByteView inner);

    std::shared_ptr<const State> state_;
};

}  // namespace crv
