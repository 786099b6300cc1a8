#include "keystore/token_key.h"

#include <algorithm>

#include "asn/pkcs/digest_info.h"
#include "crypto/crypto_error.h"
#include "crypto/plain_signature.h"
#include "crypto/rsa_padding.h"
#include "pkcs11/p11_mechanisms.h"

namespace crv {
namespace {

template <class Parameters>
std::span<uint8_t> octetsOfParameters(Parameters& parameters) {
    return {reinterpret_cast<uint8_t*>(&parameters), sizeof parameters};
}

KcHashAlgo orElse(KcHashAlgo hash, KcHashAlgo otherwise) {
    return hash == KcHashAlgo::None ? otherwise : hash;
}

/// A ciphertext that is none, in the words of different modules (a token that failed was looked for already).
constexpr CK_RV kBadCiphertext[] = {CKR_ENCRYPTED_DATA_INVALID, CKR_ENCRYPTED_DATA_LEN_RANGE,
                                    CKR_DATA_INVALID,           CKR_DATA_LEN_RANGE,
                                    CKR_GENERAL_ERROR,          CKR_FUNCTION_FAILED};

}  // namespace

struct TokenKey::Order {
    KeyScheme scheme;
    KcHashAlgo hash;
    ByteView digest;
    const ByteView* message;  ///< null: only the digest is known
    const PssParams& pss;
};

Bytes TokenKey::sign(KeyScheme scheme, KcHashAlgo hash, ByteView digest, RandomBridge& random,
                     const PssParams& pss) const {
    return signOrder({scheme, hash, digest, nullptr, pss}, random);
}

Bytes TokenKey::signMessage(KeyScheme scheme, KcHashAlgo hash, ByteView message, RandomBridge& random) const {
    const Bytes digest = hashOf(hash, message);
    return signOrder({scheme, hash, digest, &message, {}}, random);
}

Bytes TokenKey::signOrder(const Order& order, RandomBridge& random) const {
    for (const P11SignRow& row : signMechanisms(order.scheme, order.hash)) {
        const bool possible = facts_.signs && (row.input != P11Input::Message || order.message);
        if (!possible || !session_->offers(row.mechanism, CKF_SIGN)) continue;
        switch (row.input) {
            case P11Input::DigestInfo:
                return signWith(order, row.mechanism, DigestInfo(order.hash, order.digest).encoded());
            case P11Input::EncodedPss:
                return signWith(order, row.mechanism, encodePss(order.hash, order.digest, bits(), random, order.pss));
            case P11Input::Message:
                return signWith(order, row.mechanism, *order.message);
            case P11Input::Digest:
                // A digest is cut to the length of the curve's order (X9.62 7.3).
                const size_t most = order.scheme == KeyScheme::Ecdsa ? (bits() + 7) / 8 : order.digest.size();
                return signWith(order, row.mechanism, order.digest.first(std::min(most, order.digest.size())));
        }
    }
    throw CryptoError(CryptoFailure::Unsupported, "the token does not make such signatures");
}

Bytes TokenKey::signWith(const Order& order, CK_MECHANISM_TYPE mechanism, ByteView input) const {
    const KcHashAlgo mgf = orElse(order.pss.mgfHash, order.hash);
    const size_t salt = order.pss.saltLength < 0 ? hashLength(order.hash) : static_cast<size_t>(order.pss.saltLength);
    CK_RSA_PKCS_PSS_PARAMS pss{p11HashNames(order.hash).hash, p11HashNames(mgf).mgf, salt};
    P11Mechanism how{mechanism};
    if (order.scheme == KeyScheme::RsaPss && mechanism != CKM_RSA_X_509) how.parameters = octetsOfParameters(pss);
    Bytes signature;
    const KeyManagerResult result =
        withKey([&](PKCS11Device& device, CK_OBJECT_HANDLE key, const P11BeforeUse& before) {
            return device.signRSAWithMechanism(key, how, input, signature, before);
        });
    if (result != kKmOk) throw TokenFailure(result);
    if (order.scheme == KeyScheme::Ecdsa) signature = toDerSignature(signature);
    if (!publicKey().verify(order.scheme, order.hash, order.digest, signature, order.pss))
        throw TokenFailure(kKmCardError);
    return signature;
}

SecretBytes TokenKey::decrypt(RsaPadding padding, ByteView ciphertext, const OaepParams& oaep) const {
    if (!facts_.decrypts) throw CryptoError(CryptoFailure::Unsupported, "the key does not decrypt");
    const P11HashNames hash = p11HashNames(oaep.hash);
    const P11HashNames mgf = p11HashNames(orElse(oaep.mgfHash, oaep.hash));
    Bytes label = oaep.label;
    CK_RSA_PKCS_OAEP_PARAMS parameters{hash.hash, mgf.mgf, CKZ_DATA_SPECIFIED, label.empty() ? nullptr : label.data(),
                                       label.size()};
    const auto rows = decryptMechanisms(padding);
    const auto row = std::ranges::find_if(
        rows, [&](const P11DecryptRow& one) { return session_->offers(one.mechanism, CKF_DECRYPT); });
    if (row == rows.end()) throw CryptoError(CryptoFailure::Unsupported, "the token does not decrypt so");
    P11Mechanism how{row->mechanism};
    if (row->mechanism == CKM_RSA_PKCS_OAEP) how.parameters = octetsOfParameters(parameters);
    SecretBytes plain;
    const KeyManagerResult result =
        withKey([&](PKCS11Device& device, CK_OBJECT_HANDLE key, const P11BeforeUse& before) {
            return device.decryptRSA(key, how, ciphertext, plain, before);
        });
    const CK_RV rv = session_->device().lastRv();
    if (result == kKmCardError && std::ranges::find(kBadCiphertext, rv) != std::end(kBadCiphertext))
        throw CryptoError(CryptoFailure::BadData, "the ciphertext does not decrypt");
    if (result != kKmOk) throw TokenFailure(result);
    return row->raw ? removePadding(padding, std::move(plain), oaep) : plain;
}

SecretBytes TokenKey::agree(const PublicKey& other) const {
    const PublicKey& own = publicKey();
    if (own.scheme() != KeyScheme::Ecdsa || other.scheme() != KeyScheme::Ecdsa || other.curve() != own.curve())
        throw CryptoError(CryptoFailure::BadParameter, "the keys are not on one curve");
    if (!session_->offers(CKM_ECDH1_DERIVE, CKF_DERIVE))
        throw CryptoError(CryptoFailure::Unsupported, "the token does not agree on secrets");
    SecretBytes secret;
    const size_t length = (own.bits() + 7) / 8;
    const KeyManagerResult result = withKey([&](PKCS11Device& device, CK_OBJECT_HANDLE key, const P11BeforeUse&) {
        return device.generateDHSecret(key, CKM_ECDH1_DERIVE, other.keyBits(), length, secret);
    });
    if (result == kKmCardError && session_->device().lastRv() == CKR_KEY_FUNCTION_NOT_PERMITTED)
        throw CryptoError(CryptoFailure::Unsupported, "the key on the token does not agree on secrets");
    if (result != kKmOk) throw TokenFailure(result);
    return secret;
}

KeyManagerResult TokenKey::withKey(const Use& use) const {
    return session_->run([&](PKCS11Device& device) {
        ContextServices& context = session_->context();
        if (const P11Result found = findKey(device); found != kP11Ok) return tokenResult(context, device, found);
        KeyManagerResult why = kKmOk;
        const P11BeforeUse ask = [&] { return session_->loginForKey(device, why); };
        const P11Result done = use(device, handle_, facts_.alwaysAuthenticate ? ask : P11BeforeUse());
        return why != kKmOk ? why : tokenResult(context, device, done);
    });
}

P11Result TokenKey::findKey(PKCS11Device& device) const {
    if (generation_ == session_->generation()) return kP11Ok;
    const bool rsa = isRsa(publicKey().scheme());
    const P11Result found =
        rsa ? device.getRSAPrivateKeyHandle(facts_.id, handle_) : device.getECPrivateKeyHandle(facts_.id, handle_);
    generation_ = found == kP11Ok ? session_->generation() : 0;
    return found;
}

}  // namespace crv
