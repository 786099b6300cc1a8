// Generating key pairs.
#include <openssl/dsa.h>
#include <openssl/rsa.h>

#include "crypto/der.h"
#include "crypto/key_state.h"

namespace crv {

namespace {

struct Progress {
    const KeyGenProgress& ask;
    bool stopped = false;
    std::exception_ptr thrown;
};

// libcrypto's callback: 0 ends the generation.
int onProgress(EVP_PKEY_CTX* ctx) {
    auto& progress = *static_cast<Progress*>(EVP_PKEY_CTX_get_app_data(ctx));
    try {
        progress.stopped = progress.stopped || (progress.ask && !progress.ask());
    } catch (...) {
        progress.thrown = std::current_exception();
        progress.stopped = true;
    }
    return progress.stopped ? 0 : 1;
}

ossl::PkeyCtx generatorFor(const char* type) {
    return ossl::PkeyCtx(ossl::made(EVP_PKEY_CTX_new_from_name(ossl::context(), type, nullptr), CryptoFailure::Internal,
                                    "no memory for a key generation"));
}

// Runs an initialised context; EVP_PKEY_generate makes keys and domains alike.
ossl::Pkey generate(EVP_PKEY_CTX* ctx, RandomBridge& random, const KeyGenProgress& progress) {
    Progress state{progress, false, nullptr};
    EVP_PKEY_CTX_set_app_data(ctx, &state);
    EVP_PKEY_CTX_set_cb(ctx, onProgress);
    EVP_PKEY* key = nullptr;
    RandomBridge::Scope scope(random);
    const int answer = EVP_PKEY_generate(ctx, &key);
    ossl::Pkey owned(key);
    if (state.thrown) std::rethrow_exception(state.thrown);
    if (state.stopped) ossl::fail(CryptoFailure::Cancelled, "key generation was stopped");
    ossl::finish(scope, answer, CryptoFailure::Internal, "key generation failed");
    return owned;
}

ossl::Num numberOf(const EVP_PKEY* key, const char* name) {
    BIGNUM* number = nullptr;
    ossl::must(EVP_PKEY_get_bn_param(key, name, &number), CryptoFailure::Internal, "the key lacks a number");
    return ossl::Num(number);
}

SecretBytes elementOf(const EVP_PKEY* key, const char* name) {
    return der::number(ossl::fromNum(numberOf(key, name).get()));
}

}  // namespace

PrivateKey PrivateKey::generateRsa(unsigned bits, uint64_t publicExponent, RandomBridge& random,
                                   const KeyGenProgress& progress) {
    if (bits < PublicKey::kMinRsaBits || bits > PublicKey::kMaxRsaBits || publicExponent < 3 ||
        publicExponent % 2 == 0) {
        throw CryptoError(CryptoFailure::BadParameter, "RSA keys of this length or exponent cannot be generated");
    }
    const ossl::PkeyCtx ctx = generatorFor(ossl::kRsaType);
    const ossl::Num exponent = ossl::newNum();
    BN_set_word(exponent.get(), publicExponent);
    ossl::must(EVP_PKEY_keygen_init(ctx.get()), CryptoFailure::Internal, "RSA generation does not start");
    ossl::must(EVP_PKEY_CTX_set_rsa_keygen_bits(ctx.get(), static_cast<int>(bits)), CryptoFailure::BadParameter,
               "bits");
    ossl::must(EVP_PKEY_CTX_set1_rsa_keygen_pubexp(ctx.get(), exponent.get()), CryptoFailure::BadParameter, "exponent");
    const ossl::Pkey key = generate(ctx.get(), random, progress);
    SecretBytes numbers = der::number({});
    for (const char* name : kRsaNumberNames) {
        const SecretBytes element = elementOf(key.get(), name);
        numbers.insert(numbers.end(), element.begin(), element.end());
    }
    const SecretBytes null = der::element(der::kNull, {});
    return fromParts(keyAlgorithm(KeyScheme::Rsa, null), der::element(der::kSequence, {numbers}));
}

PrivateKey PrivateKey::generateDsa(unsigned bits, RandomBridge& random, const KeyGenProgress& progress) {
    if (bits != kDsaBits) throw CryptoError(CryptoFailure::BadParameter, "DSA keys have 1024 bits");
    const ossl::PkeyCtx domainCtx = generatorFor(ossl::kDsaType);
    ossl::must(EVP_PKEY_paramgen_init(domainCtx.get()), CryptoFailure::Internal, "DSA generation does not start");
    ossl::must(EVP_PKEY_CTX_set_dsa_paramgen_bits(domainCtx.get(), kDsaBits), CryptoFailure::Internal, "DSA bits");
    ossl::must(EVP_PKEY_CTX_set_dsa_paramgen_q_bits(domainCtx.get(), 160), CryptoFailure::Internal, "DSA q bits");
    const ossl::Pkey domain = generate(domainCtx.get(), random, progress);
    const ossl::PkeyCtx ctx = ossl::keyContext(domain.get());
    ossl::must(EVP_PKEY_keygen_init(ctx.get()), CryptoFailure::Internal, "DSA generation does not start");
    const ossl::Pkey key = generate(ctx.get(), random, progress);
    const SecretBytes parameters = der::element(
        der::kSequence, {elementOf(key.get(), OSSL_PKEY_PARAM_FFC_P), elementOf(key.get(), OSSL_PKEY_PARAM_FFC_Q),
                         elementOf(key.get(), OSSL_PKEY_PARAM_FFC_G)});
    return fromParts(keyAlgorithm(KeyScheme::Dsa, parameters), elementOf(key.get(), OSSL_PKEY_PARAM_PRIV_KEY));
}

PrivateKey PrivateKey::generateEc(StdECId curve, bool explicitDomain, RandomBridge& random) {
    const Bytes domain = encodeEcDomain(curve, explicitDomain);
    const ossl::PkeyCtx ctx = generatorFor(ossl::kEcType);
    ossl::must(EVP_PKEY_keygen_init(ctx.get()), CryptoFailure::Internal, "EC generation does not start");
    ossl::must(EVP_PKEY_CTX_set_group_name(ctx.get(), findCurve(curve)->name), CryptoFailure::Unsupported,
               "unknown elliptic curve");
    const ossl::Pkey key = generate(ctx.get(), random, {});
    const ossl::Group group = ossl::groupOf(static_cast<int>(curve));
    const auto octets = static_cast<size_t>(EC_GROUP_order_bits(group.get()) + 7) / 8;
    const SecretBytes secret = ossl::fromNum(numberOf(key.get(), OSSL_PKEY_PARAM_PRIV_KEY).get(), octets);
    constexpr uint8_t kOne[] = {1};
    const SecretBytes inner =
        der::element(der::kSequence, {der::number(kOne), der::element(der::kOctetString, {secret}),
                                      der::element(der::kContext1, {der::bits(ecPublicPoint(curve, secret))})});
    return fromParts(keyAlgorithm(KeyScheme::Ecdsa, domain), inner);
}

}  // namespace crv
