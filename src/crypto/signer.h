// What signs and decrypts for a user: a private key here, or one that never leaves its token.
#pragma once

#include <memory>

#include "crypto/public_key.h"
#include "crypto/random_bridge.h"

namespace crv {

class Signer {
  public:
    virtual ~Signer() = default;

    [[nodiscard]] virtual const PublicKey& publicKey() const noexcept = 0;
    [[nodiscard]] KeyScheme scheme() const noexcept { return publicKey().scheme(); }
    [[nodiscard]] unsigned bits() const noexcept { return publicKey().bits(); }
    [[nodiscard]] KeyId keyId() const { return publicKey().keyId(); }

    /// Signs a digest; nonces and salts that are made here come from the source. CryptoError (badParameter) when key,
    /// scheme, hash and digest do not go together, (unsupported) when the key's token cannot do it. What else keeps a
    /// token from signing has an exception of its own.
    [[nodiscard]] virtual Bytes sign(KeyScheme scheme, KcHashAlgo hash, ByteView digest, RandomBridge& random,
                                     const PssParams& pss = {}) const = 0;
    /// The same over a message: some tokens sign only what they hash themselves.
    [[nodiscard]] virtual Bytes signMessage(KeyScheme scheme, KcHashAlgo hash, ByteView message,
                                            RandomBridge& random) const {
        return sign(scheme, hash, hashOf(hash, message), random);
    }

    /// RSA decryption. A ciphertext that does not decrypt is CryptoError (badData), whatever the reason: the caller
    /// must not let others tell the cases apart. A key that does not decrypt is CryptoError: badParameter by its
    /// kind, unsupported where its token forbids it.
    [[nodiscard]] virtual SecretBytes decrypt(RsaPadding padding, ByteView ciphertext,
                                              const OaepParams& oaep = {}) const = 0;

    /// Diffie-Hellman with a public key on the same curve: the x coordinate of the common point (SEC 1 3.3.1).
    /// CryptoError (badParameter) for keys that do not go together, (unsupported) for a key that cannot do it.
    [[nodiscard]] virtual SecretBytes agree(const PublicKey& other) const;

  protected:
    Signer() = default;
    Signer(const Signer&) = default;
    Signer(Signer&&) = default;
    Signer& operator=(const Signer&) = default;
    Signer& operator=(Signer&&) = default;
};

using SignerPtr = std::shared_ptr<const Signer>;

}  // namespace crv
