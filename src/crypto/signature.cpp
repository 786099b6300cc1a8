// Signing, verifying and RSA encryption with the keys.
#include <openssl/rsa.h>

#include <algorithm>
#include <new>

#include "crypto/key_state.h"
#include "crypto/rsa_padding.h"
#include "crypto/sign_algo_map.h"

namespace crv {

namespace {

enum class Use { Sign, Verify };

// Others sign with DSA and ECDSA over hashes that our own table does not pair with them.
bool pairExists(Use use, KeyScheme scheme, KcHashAlgo hash) {
    return isHashSupported(scheme, hash) || (use == Use::Verify && !isRsa(scheme) && isHash(hash));
}

void checkFit(Use use, const PublicKey& key, KeyScheme scheme, KcHashAlgo hash, ByteView digest) {
    const bool keyFits = key.scheme() == scheme || (key.scheme() == KeyScheme::Rsa && scheme == KeyScheme::RsaPss);
    // Others sign with a salt that is shorter than ours, so what fits a key is less strict for their signatures.
    const bool lengthFits = use == Use::Verify || isSignAlgoValidForKeyLength(scheme, hash, key.bits());
    if (!keyFits || !pairExists(use, scheme, hash) || digest.size() != hashLength(hash) || !lengthFits) {
        throw CryptoError(CryptoFailure::BadParameter, "key, signature algorithm and digest do not go together");
    }
}

/// A key with parameters signs with these hashes and no shorter salt (RFC 4055 3.1, 3.3).
void checkRestriction(const std::optional<PssRestriction>& allowed, KcHashAlgo hash, const PssParams& pss) {
    if (!allowed) return;
    const KcHashAlgo mgfHash = pss.mgfHash == KcHashAlgo::None ? hash : pss.mgfHash;
    const int salt = pss.saltLength < 0 ? static_cast<int>(hashLength(hash)) : pss.saltLength;
    if (hash != allowed->hash || mgfHash != allowed->mgfHash || salt < allowed->leastSalt)
        throw CryptoError(CryptoFailure::BadParameter, "the key is restricted to other PSS parameters");
}

constexpr const char* kUnsupported = "signature or encryption parameters are not supported";

void must(int answer) {
    ossl::mustTake(answer, CryptoFailure::BadParameter, kUnsupported);
}

const EVP_MD* method(KcHashAlgo hash, KcHashAlgo otherwise = KcHashAlgo::None) {
    const EVP_MD* found = libcryptoHash(hash != KcHashAlgo::None ? hash : otherwise);
    if (!found) throw CryptoError(CryptoFailure::Unsupported, "libcrypto lacks this hash");
    return found;
}

// DSA and ECDSA take the digest as it is, so that every hash goes.
void setScheme(EVP_PKEY_CTX* ctx, KeyScheme scheme, KcHashAlgo hash, const PssParams& pss) {
    if (!isRsa(scheme)) return;
    must(EVP_PKEY_CTX_set_rsa_padding(ctx, scheme == KeyScheme::Rsa ? RSA_PKCS1_PADDING : RSA_PKCS1_PSS_PADDING));
    must(EVP_PKEY_CTX_set_signature_md(ctx, method(hash)));
    if (scheme == KeyScheme::Rsa) return;
    if (pss.saltLength < -1) throw CryptoError(CryptoFailure::BadParameter, kUnsupported);
    must(EVP_PKEY_CTX_set_rsa_pss_saltlen(ctx, pss.saltLength < 0 ? RSA_PSS_SALTLEN_DIGEST : pss.saltLength));
    must(EVP_PKEY_CTX_set_rsa_mgf1_md(ctx, method(pss.mgfHash, hash)));
}

void setPadding(EVP_PKEY_CTX* ctx, RsaPadding padding, const OaepParams& oaep) {
    must(EVP_PKEY_CTX_set_rsa_padding(ctx, padding == RsaPadding::Pkcs1 ? RSA_PKCS1_PADDING : RSA_PKCS1_OAEP_PADDING));
    if (padding == RsaPadding::Pkcs1) return;
    must(EVP_PKEY_CTX_set_rsa_oaep_md(ctx, method(oaep.hash)));
    must(EVP_PKEY_CTX_set_rsa_mgf1_md(ctx, method(oaep.mgfHash, oaep.hash)));
    if (oaep.label.empty()) return;
    void* label = OPENSSL_memdup(oaep.label.data(), oaep.label.size());
    if (EVP_PKEY_CTX_set0_rsa_oaep_label(ctx, label, static_cast<int>(oaep.label.size())) != 1) {
        OPENSSL_free(label);
        must(0);
    }
}

/// No hash is named, so libcrypto takes the octets as they are.
void setPrepared(EVP_PKEY_CTX* ctx, const PublicKey& key) {
    if (key.scheme() == KeyScheme::RsaPss)
        throw CryptoError(CryptoFailure::BadParameter, "the key signs with PSS alone");
    if (key.scheme() == KeyScheme::Rsa) must(EVP_PKEY_CTX_set_rsa_padding(ctx, RSA_PKCS1_PADDING));
}

/// The answer to a verification. A lack of memory must not pass for a forged signature. What makes one of RSA wrong is
/// noted by libcrypto's RSA itself (only that a prepared input differs is not); where the functions around it alone
/// complain, or nobody, they came to no answer. Of the other schemes, too, a lack is noted and a wrong signature not.
bool isRight(const PublicKey& key, bool prepared, int answer) {
    if (answer == 1) return true;
    const ossl::Complaints noted = ossl::takeComplaints();
    const bool judged = !isRsa(key.scheme()) || noted.ofRsa || (prepared && !noted.any);
    if (noted.ofMemory || !judged) throw std::bad_alloc();
    return false;
}

/// An answer and, when it is not 1, the end of libcrypto's object.
int answered(const ossl::PrivatePkey& key, int answer) {
    if (answer != 1) key.distrust();
    return answer;
}

Bytes signatureOf(const ossl::PrivatePkey& key, EVP_PKEY_CTX* ctx, ByteView input, RandomBridge& random) {
    size_t length = 0;
    must(EVP_PKEY_sign(ctx, nullptr, &length, input.data(), input.size()));
    Bytes signature(length);
    RandomBridge::Scope scope(random);
    const int answer = answered(key, EVP_PKEY_sign(ctx, signature.data(), &length, input.data(), input.size()));
    ossl::finish(scope, answer, CryptoFailure::BadParameter, "the signature failed");
    // What libcrypto calls success where it had no memory to encode what it signed: a length of -1.
    if (length > signature.size()) throw std::bad_alloc();
    signature.resize(length);
    return signature;
}

/// A signature that is right. One of RSA that is wrong can give the key away, so none leaves before the public key has
/// judged it (3 % of the time); the second attempt is with a new object.
template <class Prepare, class IsRight>
Bytes rightSignature(const ossl::PrivatePkey& key, ByteView input, RandomBridge& random, const Prepare& prepare,
                     const IsRight& isRight) {
    for (int attempt = 0; attempt < 2; ++attempt) {
        const ossl::PkeyCtx ctx = key.context();
        must(EVP_PKEY_sign_init(ctx.get()));
        prepare(ctx.get());
        Bytes signature = signatureOf(key, ctx.get(), input, random);
        if (isRight(signature)) return signature;
        key.distrust();
    }
    throw CryptoError(CryptoFailure::Internal, "the signature came out wrong");
}

/// What is under the padding (RFC 8017 5.1.2), judged by the public key as signatures are: another thread's failure may
/// have spoilt the key. So it is not the padding that decides on a second attempt, whose time could be measured.
SecretBytes rightBlock(const ossl::PrivatePkey& key, EVP_PKEY* publicKey, ByteView ciphertext, unsigned bits) {
    const size_t length = (bits + 7) / 8;
    const auto run = [&](EVP_PKEY_CTX* ctx, auto init, auto step, ByteView in) {
        must(init(ctx));
        must(EVP_PKEY_CTX_set_rsa_padding(ctx, RSA_NO_PADDING));
        SecretBytes out(length);
        size_t written = length;
        const int answer = step(ctx, out.data(), &written, in.data(), in.size());
        if (answered(key, answer) == 1) return out;
        ossl::throwIfNoMemory();
        throw CryptoError(CryptoFailure::BadData, "the ciphertext does not decrypt");
    };
    for (int attempt = 0; attempt < 2; ++attempt) {
        SecretBytes block = run(key.context().get(), EVP_PKEY_decrypt_init, EVP_PKEY_decrypt, ciphertext);
        const SecretBytes again =
            run(ossl::keyContext(publicKey).get(), EVP_PKEY_encrypt_init, EVP_PKEY_encrypt, block);
        if (std::ranges::equal(ByteView(again).last(ciphertext.size()), ciphertext)) return block;
        key.distrust();
    }
    throw CryptoError(CryptoFailure::Internal, "the decryption came out wrong");
}

void mustBeRsa(const PublicKey& key) {
    if (key.scheme() != KeyScheme::Rsa) throw CryptoError(CryptoFailure::BadParameter, "the key does not encrypt");
}

}  // namespace

bool PublicKey::verify(KeyScheme scheme, KcHashAlgo hash, ByteView digest, ByteView signature,
                       const PssParams& pss) const {
    checkFit(Use::Verify, *this, scheme, hash, digest);
    checkRestriction(state_->pss, hash, pss);
    const ossl::PkeyCtx ctx = ossl::keyContext(state_->pkey.get());
    must(EVP_PKEY_verify_init(ctx.get()));
    setScheme(ctx.get(), scheme, hash, pss);
    return isRight(*this, false,
                   EVP_PKEY_verify(ctx.get(), signature.data(), signature.size(), digest.data(), digest.size()));
}

size_t PublicKey::orderSize() const {
    if (isRsa(scheme())) return 0;
    const bool dsa = scheme() == KeyScheme::Dsa;
    BIGNUM* order = nullptr;
    must(EVP_PKEY_get_bn_param(state_->pkey.get(), dsa ? OSSL_PKEY_PARAM_FFC_Q : OSSL_PKEY_PARAM_EC_ORDER, &order));
    const ossl::Num owned(order);
    return static_cast<size_t>(BN_num_bytes(order));
}

bool PublicKey::verifyPrepared(ByteView input, ByteView signature) const {
    const ossl::PkeyCtx ctx = ossl::keyContext(state_->pkey.get());
    must(EVP_PKEY_verify_init(ctx.get()));
    setPrepared(ctx.get(), *this);
    return isRight(*this, true,
                   EVP_PKEY_verify(ctx.get(), signature.data(), signature.size(), input.data(), input.size()));
}

Bytes PrivateKey::sign(KeyScheme scheme, KcHashAlgo hash, ByteView digest, RandomBridge& random,
                       const PssParams& pss) const {
    checkFit(Use::Sign, publicKey(), scheme, hash, digest);
    checkRestriction(publicKey().state_->pss, hash, pss);
    return rightSignature(
        state_->pkey, digest, random, [&](EVP_PKEY_CTX* ctx) { setScheme(ctx, scheme, hash, pss); },
        [&](ByteView made) { return !isRsa(scheme) || publicKey().verify(scheme, hash, digest, made, pss); });
}

Bytes PrivateKey::signPrepared(ByteView input, RandomBridge& random) const {
    return rightSignature(
        state_->pkey, input, random, [&](EVP_PKEY_CTX* ctx) { setPrepared(ctx, publicKey()); },
        [&](ByteView made) {
            return publicKey().scheme() != KeyScheme::Rsa || publicKey().verifyPrepared(input, made);
        });
}

Bytes PublicKey::encrypt(RsaPadding padding, ByteView plain, const OaepParams& oaep) const {
    mustBeRsa(*this);
    const ossl::PkeyCtx ctx = ossl::keyContext(state_->pkey.get());
    must(EVP_PKEY_encrypt_init(ctx.get()));
    setPadding(ctx.get(), padding, oaep);
    size_t length = (bits() + 7) / 8;
    Bytes ciphertext(length);
    must(EVP_PKEY_encrypt(ctx.get(), ciphertext.data(), &length, plain.data(), plain.size()));
    return ciphertext;
}

SecretBytes PrivateKey::decrypt(RsaPadding padding, ByteView ciphertext, const OaepParams& oaep) const {
    mustBeRsa(publicKey());
    return removePadding(padding, rightBlock(state_->pkey, publicKey().state_->pkey.get(), ciphertext, bits()), oaep);
}

}  // namespace crv
