#include "crypto/key_agreement.h"

#include "crypto/key_state.h"

namespace crv {

namespace {

constexpr size_t kWrapBlock = 8, kTripleDesKey = 24;

const char* wrapName(KeyWrap wrap, size_t keyLength) {
    if (wrap == KeyWrap::TripleDes && keyLength == kTripleDesKey) return "DES3-WRAP";
    switch (wrap == KeyWrap::Aes ? keyLength : 0) {
        case 16:
            return "AES-128-WRAP";
        case 24:
            return "AES-192-WRAP";
        case 32:
            return "AES-256-WRAP";
        default:
            throw CryptoError(CryptoFailure::BadParameter, "a wrapping key of that length");
    }
}

template <class Out>
void runWrap(KeyWrap wrap, ByteView under, ByteView in, Out& out, int encrypt, CryptoFailure failure) {
    const ossl::Cipher cipher(EVP_CIPHER_fetch(ossl::context(), wrapName(wrap, under.size()), nullptr));
    if (!cipher) ossl::fail(CryptoFailure::Unsupported, "libcrypto lacks the key wrap");
    const ossl::CipherCtx ctx(ossl::made(EVP_CIPHER_CTX_new(), CryptoFailure::Internal, "no memory for a cipher"));
    EVP_CIPHER_CTX_set_flags(ctx.get(), EVP_CIPHER_CTX_FLAG_WRAP_ALLOW);
    ossl::must(EVP_CipherInit_ex2(ctx.get(), cipher.get(), under.data(), nullptr, encrypt, nullptr),
               CryptoFailure::Internal, "key wrap does not start");
    int length = 0;
    ossl::must(EVP_CipherUpdate(ctx.get(), out.data(), &length, in.data(), static_cast<int>(in.size())), failure,
               "the key does not wrap or unwrap");
    out.resize(static_cast<size_t>(length));
}

}  // namespace

SecretBytes deriveX963(KcHashAlgo hash, ByteView secret, ByteView sharedInfo, size_t length) {
    SecretBytes out;
    for (uint32_t counter = 1; out.size() < length; ++counter) {
        const uint8_t number[] = {static_cast<uint8_t>(counter >> 24), static_cast<uint8_t>(counter >> 16),
                                  static_cast<uint8_t>(counter >> 8), static_cast<uint8_t>(counter)};
        KcHash running(hash);
        running.update(secret);
        running.update(number);
        running.update(sharedInfo);
        SecretBytes block(running.length());
        running.final(block);
        out.insert(out.end(), block.begin(), block.end());
    }
    out.resize(length);
    return out;
}

Bytes wrapKey(ByteView under, ByteView key) {
    if (key.size() < 2 * kWrapBlock || key.size() % kWrapBlock != 0)
        throw CryptoError(CryptoFailure::BadParameter, "a key of that length is not wrapped");
    Bytes out(key.size() + 2 * kWrapBlock);
    runWrap(KeyWrap::Aes, under, key, out, 1, CryptoFailure::Internal);
    return out;
}

SecretBytes unwrapKey(KeyWrap wrap, ByteView under, ByteView wrapped) {
    if (wrapped.size() < 3 * kWrapBlock || wrapped.size() % kWrapBlock != 0 || wrapped.size() > 1024)
        throw CryptoError(CryptoFailure::BadData, "a wrapped key of that length");
    SecretBytes out(wrapped.size());
    runWrap(wrap, under, wrapped, out, 0, CryptoFailure::BadData);
    return out;
}

SecretBytes Signer::agree(const PublicKey&) const {
    throw CryptoError(CryptoFailure::Unsupported, "the key does not agree on secrets where it is");
}

SecretBytes PrivateKey::agree(const PublicKey& other) const {
    if (scheme() != KeyScheme::Ecdsa || other.scheme() != KeyScheme::Ecdsa || other.curve() != publicKey().curve())
        throw CryptoError(CryptoFailure::BadParameter, "the keys are not on one curve");
    const ossl::PkeyCtx ctx = state_->pkey.context();
    ossl::must(EVP_PKEY_derive_init(ctx.get()), CryptoFailure::Internal, "no key agreement");
    ossl::must(EVP_PKEY_derive_set_peer(ctx.get(), other.state_->pkey.get()), CryptoFailure::BadParameter,
               "the keys do not go together");
    size_t length = 0;
    ossl::must(EVP_PKEY_derive(ctx.get(), nullptr, &length), CryptoFailure::Internal, "no key agreement");
    SecretBytes secret(length);
    ossl::must(EVP_PKEY_derive(ctx.get(), secret.data(), &length), CryptoFailure::BadParameter,
               "the keys do not agree");
    secret.resize(length);
    return secret;
}

}  // namespace crv
