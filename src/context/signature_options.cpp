// The options of the signature algorithm: digest, scheme, both.
#include <algorithm>

#include "asn/x509/sign_algo.h"
#include "context/context_options.h"
#include "crypto/private_key.h"
#include "crypto/sign_algo_map.h"
#include "misc/c_string.h"

namespace crv {
namespace {

constexpr struct {
    long option;
    KcHashAlgo hash;
} kDigests[] = {
    {1, KcHashAlgo::Sha1},     {3, KcHashAlgo::Sha224},    {4, KcHashAlgo::Sha256},  {5, KcHashAlgo::Sha384},
    {6, KcHashAlgo::Sha512},   {8, KcHashAlgo::Ripemd160}, {9, KcHashAlgo::Sha3224}, {10, KcHashAlgo::Sha3256},
    {11, KcHashAlgo::Sha3384}, {12, KcHashAlgo::Sha3512},
};

constexpr struct {
    long option;
    KeyScheme scheme;
} kSchemes[] = {
    {2, KeyScheme::Rsa},
    {4, KeyScheme::Dsa},
    {5, KeyScheme::Ecdsa},
    {6, KeyScheme::RsaPss},
};

constexpr long kSchemeUnit = 256;

KcHashAlgo hashOf(long option) {
    const auto* row = std::ranges::find_if(kDigests, [option](const auto& digest) { return digest.option == option; });
    demand(row != std::end(kDigests));
    return row->hash;
}

KeyScheme schemeOf(long option) {
    const auto* row = std::ranges::find_if(kSchemes, [option](const auto& scheme) { return scheme.option == option; });
    demand(row != std::end(kSchemes));
    return row->scheme;
}

/// Option of a hash; 0 for one that has none.
long optionOf(KcHashAlgo hash) {
    const auto* row = std::ranges::find_if(kDigests, [hash](const auto& digest) { return digest.hash == hash; });
    return row == std::end(kDigests) ? 0 : row->option;
}

long optionOf(KeyScheme scheme) {
    const auto* row = std::ranges::find_if(kSchemes, [scheme](const auto& known) { return known.scheme == scheme; });
    return row == std::end(kSchemes) ? 0 : row->option;
}

/// The current signing key, as far as there is one.
struct SigningKey {
    KeyScheme scheme = KeyScheme::None;
    unsigned bits = 0;
};

SigningKey signingKey(const CRVctx* ctx) {
    const Signer* key = ctx->keyManager.signingKey();
    return key ? SigningKey{key->scheme(), key->bits()} : SigningKey{};
}

std::string nameOf(KeyScheme scheme, KcHashAlgo hash) {
    return orEmpty(signAlgoName(scheme, hash));
}

/// Scheme and digest that signatures are made with now; the scheme is `none` without a choice and without a key.
SignatureAlgorithm currentAlgorithm(const CRVctx* ctx) {
    const CRVCfgFile& record = ctx->configurationManager.record();
    const auto chosen = record.getSignatureAlgorithmIdentifier();
    const auto known = chosen ? readSignAlgorithm(*chosen) : std::nullopt;
    SignatureAlgorithm algorithm;
    algorithm.scheme = known ? known->scheme : ctx->keyManager.signingKeyType();
    algorithm.hash = record.getHashAlgo(algorithm.scheme);
    return algorithm;
}

int unsupported(CRVctx* ctx, const std::string& reason) {
    ctx->state.report(reason);
    return ECRV_SIG_WITH_DIG_NOT_SUPPORTED;
}

/// Whether the key, when there is one, can make such signatures; reports why not.
int checkScheme(CRVctx* ctx, KeyScheme scheme) {
    const SigningKey key = signingKey(ctx);
    if (key.scheme == KeyScheme::None || key.scheme == scheme || (isRsa(key.scheme) && isRsa(scheme))) return CRV_OK;
    return unsupported(ctx, "Podany schemat podpisu " + nameOf(scheme, KcHashAlgo::None) +
                                " nie może być użyty z aktualnym kluczem do podpisywania (który jest typu " +
                                nameOf(key.scheme, KcHashAlgo::None) + ")");
}

int checkDigest(CRVctx* ctx, KeyScheme scheme, KcHashAlgo hash) {
    if (scheme == KeyScheme::None) return CRV_OK;
    const std::string digest = nameOf(KeyScheme::None, hash);
    if (!isHashSupported(scheme, hash)) {
        return unsupported(
            ctx, "Funkcja skrótu " + digest + " nie jest wspierana z aktualnym schematem klucza do podpisywania");
    }
    if (!isSignAlgoValidForKeyLength(scheme, hash, signingKey(ctx).bits))
        return unsupported(ctx, "Skróty " + digest + " są zbyt długie dla aktualnego klucza do podpisywania");
    return CRV_OK;
}

enum Chosen { kDigest = 1, kScheme = 2 };

/// Checks scheme and digest and stores what was chosen of them.
int store(CRVctx* ctx, KeyScheme scheme, KcHashAlgo hash, int chosen) {
    const bool withScheme = (chosen & kScheme) != 0;
    const int schemeCode = withScheme ? checkScheme(ctx, scheme) : CRV_OK;
    if (schemeCode) return schemeCode;
    if (const int code = checkDigest(ctx, scheme, hash)) return code;
    CRVCfgFile& record = ctx->configurationManager.editRecord();
    if (chosen & kDigest) record.setHashAlgo(hash);
    if (withScheme || record.getSignatureAlgorithmIdentifier())
        record.setSignaturaAlgorithmIdentifier(signAlgorithm(scheme, hash).value());
    return CRV_OK;
}

}  // namespace

KcHashAlgo hashOfOption(long value) {
    return hashOf(value);
}

KeyScheme schemeOfOption(long value) {
    return schemeOf(value);
}

long optionOfScheme(KeyScheme scheme) {
    return optionOf(scheme);
}

long optionOfHash(KcHashAlgo hash) {
    return optionOf(hash);
}

int setDigestOption(CRVctx* ctx, long value) {
    return store(ctx, currentAlgorithm(ctx).scheme, hashOf(value), kDigest);
}

int getDigestOption(CRVctx* ctx, long* value) {
    *value = optionOf(currentAlgorithm(ctx).hash);
    return CRV_OK;
}

int setSchemeOption(CRVctx* ctx, long value) {
    const KeyScheme scheme = schemeOf(value);
    return store(ctx, scheme, ctx->configurationManager.record().getHashAlgo(scheme), kScheme);
}

int getSchemeOption(CRVctx* ctx, long* value) {
    *value = optionOf(currentAlgorithm(ctx).scheme);
    return CRV_OK;
}

int setSignatureOption(CRVctx* ctx, long value) {
    demand(value > 0);
    return store(ctx, schemeOf(value / kSchemeUnit), hashOf(value % kSchemeUnit), kDigest | kScheme);
}

int getSignatureOption(CRVctx* ctx, long* value) {
    const SignatureAlgorithm algorithm = currentAlgorithm(ctx);
    *value = optionOf(algorithm.scheme) * kSchemeUnit + optionOf(algorithm.hash);
    return CRV_OK;
}

}  // namespace crv
