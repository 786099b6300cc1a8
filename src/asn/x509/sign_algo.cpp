#include "asn/x509/sign_algo.h"

#include "asn/known_oids.h"
#include "asn/x509/algorithm_params.h"
#include "crypto/crypto_error.h"
#include "crypto/sign_algo_map.h"

namespace crv {

namespace {

/// Other identifiers that are in use for rows of the table.
struct Alias {
    const KnownOid& oid;
    KeyScheme scheme;
    KcHashAlgo hash;
};

constexpr Alias kAliases[] = {
    {OID_SHA1_WITH_RSA_OIW, KeyScheme::Rsa, KcHashAlgo::Sha1},
    {OID_RIPEMD128_WITH_RSA, KeyScheme::Rsa, KcHashAlgo::Ripemd128},
    {OID_SHA224_WITH_DSA, KeyScheme::Dsa, KcHashAlgo::Sha224},
    {OID_SHA256_WITH_DSA, KeyScheme::Dsa, KcHashAlgo::Sha256},
    {OID_SHA384_WITH_DSA, KeyScheme::Dsa, KcHashAlgo::Sha384},
    {OID_SHA512_WITH_DSA, KeyScheme::Dsa, KcHashAlgo::Sha512},
    {OID_SHA3_224_WITH_DSA, KeyScheme::Dsa, KcHashAlgo::Sha3224},
    {OID_SHA3_256_WITH_DSA, KeyScheme::Dsa, KcHashAlgo::Sha3256},
    {OID_SHA3_384_WITH_DSA, KeyScheme::Dsa, KcHashAlgo::Sha3384},
    {OID_SHA3_512_WITH_DSA, KeyScheme::Dsa, KcHashAlgo::Sha3512},
    {OID_RIPEMD160_WITH_ECDSA, KeyScheme::Ecdsa, KcHashAlgo::Ripemd160},
};

std::optional<SignatureAlgorithm> readPss(const AlgorithmIdentifier& algorithm) {
    RsaPssParams params;
    if (!algorithm.parameters || !(params << *algorithm.parameters)) return std::nullopt;
    const auto salt = params.saltLength.value();
    const KcHashAlgo hash = params.hash();
    const KcHashAlgo mgf = params.mgfHash();
    if (!isHash(hash) || !isHash(mgf) || !salt || *salt < 0 || *salt > 0xFFFF || params.trailerField.value() != 1)
        return std::nullopt;
    return SignatureAlgorithm{KeyScheme::RsaPss, hash, {mgf, static_cast<int>(*salt)}};
}

}  // namespace

std::optional<AlgorithmIdentifier> signAlgorithm(KeyScheme scheme, KcHashAlgo hash) {
    const SignAlgo* row = findSignAlgo(scheme, hash);
    AlgorithmIdentifier identifier;
    if (!row || !isHash(hash) || scheme == KeyScheme::None || !identifier.algorithm.setText(row->oid))
        return std::nullopt;
    if (scheme == KeyScheme::RsaPss) {
        identifier.parameters.emplace(RsaPssParams(hash, hash, static_cast<long>(hashLength(hash))));
    } else if (scheme == KeyScheme::Rsa) {
        identifier.parameters.emplace(ASNnull());
    }
    return identifier;
}

std::optional<SignatureAlgorithm> readSignAlgorithm(const AlgorithmIdentifier& algorithm) {
    if (algorithm.algorithm == OID_RSA_PSS) return readPss(algorithm);
    for (const Alias& alias : kAliases)
        if (algorithm.algorithm == alias.oid) return SignatureAlgorithm{alias.scheme, alias.hash, {}};
    const SignAlgo* row = findSignAlgo(algorithm.algorithm.text());
    if (!row || row->scheme == KeyScheme::None || !isHash(row->hash)) return std::nullopt;
    return SignatureAlgorithm{row->scheme, row->hash, {}};
}

bool verifySignature(const PublicKey& key, const AlgorithmIdentifier& algorithm, ByteView data, ByteView signature) {
    const auto how = readSignAlgorithm(algorithm);
    if (!how) throw CryptoError(CryptoFailure::Unsupported, "unknown signature algorithm");
    try {
        return key.verify(how->scheme, how->hash, hashOf(how->hash, data), signature, how->pss);
    } catch (const CryptoError& error) {
        if (error.failure() == CryptoFailure::BadParameter) return false;
        throw;
    }
}

std::string signAlgorithmName(const AlgorithmIdentifier& algorithm) {
    const auto how = readSignAlgorithm(algorithm);
    const char* name = how ? signAlgoName(how->scheme, how->hash) : nullptr;
    return name ? name : algorithm.algorithm.name();
}

}  // namespace crv
