// A private key on a token.
#pragma once

#include "crypto/signer.h"
#include "keystore/token_session.h"

namespace crv {

/// What is known of a key without its private half.
struct TokenKeyFacts {
    PublicKey publicKey;
    Bytes id;  ///< CKA_ID
    bool signs = false;
    bool decrypts = false;
    bool alwaysAuthenticate = false;
};

/// Shares the token's session. What keeps the token from its work is a TokenFailure. Every signature is verified before
/// it is given out.
class TokenKey final : public Signer {
  public:
    TokenKey(TokenSessionPtr session, TokenKeyFacts facts) : session_(std::move(session)), facts_(std::move(facts)) {}

    [[nodiscard]] const PublicKey& publicKey() const noexcept override { return facts_.publicKey; }
    [[nodiscard]] const TokenKeyFacts& facts() const { return facts_; }
    [[nodiscard]] Bytes sign(KeyScheme scheme, KcHashAlgo hash, ByteView digest, RandomBridge& random,
                             const PssParams& pss = {}) const override;
    [[nodiscard]] Bytes signMessage(KeyScheme scheme, KcHashAlgo hash, ByteView message,
                                    RandomBridge& random) const override;
    [[nodiscard]] SecretBytes decrypt(RsaPadding padding, ByteView ciphertext,
                                      const OaepParams& oaep = {}) const override;
    /// By CKM_ECDH1_DERIVE; the value leaves the token as that of a session object, which is deleted.
    [[nodiscard]] SecretBytes agree(const PublicKey& other) const override;

  private:
    struct Order;

    [[nodiscard]] Bytes signOrder(const Order& order, RandomBridge& random) const;
    [[nodiscard]] Bytes signWith(const Order& order, CK_MECHANISM_TYPE mechanism, ByteView input) const;
    /// Finds the private key and does the work with it; a key that wants its PIN each time gets it through `before`.
    using Use = std::function<P11Result(PKCS11Device& device, CK_OBJECT_HANDLE key, const P11BeforeUse& before)>;
    [[nodiscard]] KeyManagerResult withKey(const Use& use) const;
    [[nodiscard]] P11Result findKey(PKCS11Device& device) const;

    TokenSessionPtr session_;
    TokenKeyFacts facts_;
    mutable CK_OBJECT_HANDLE handle_ = 0;  // of the session's generation
    mutable unsigned generation_ = 0;
};

}  // namespace crv
