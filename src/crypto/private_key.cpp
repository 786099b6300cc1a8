#include "crypto/private_key.h"

#include <array>

#include "crypto/der.h"
#include "crypto/key_state.h"

namespace crv {

namespace {

enum RsaIndex { kN, kE, kD, kP, kQ, kDp, kDq, kQInv };
using RsaNumbers = std::array<ossl::Num, kRsaNumberNames.size()>;

struct Halves {
    ossl::Pkey pkey;
    SecretBytes keyBits;  // of the public half
};

bool isInverse(const BIGNUM* a, const BIGNUM* b, const BIGNUM* modulus, BN_CTX* ctx) {
    const ossl::Num product = ossl::newNum();
    ossl::mustCompute(BN_mod_mul(product.get(), a, b, modulus, ctx));
    return BN_is_one(product.get());
}

// Everything by which the eight numbers hang together (RFC 8017 3.2).
void checkRsaNumbers(const RsaNumbers& k) {
    const ossl::NumCtx ctx = ossl::numContext();
    const auto tooSmall = [](const ossl::Num& prime) {
        return BN_num_bits(prime.get()) < 2 || !BN_is_odd(prime.get());
    };
    if (tooSmall(k[kP]) || tooSmall(k[kQ]) || BN_cmp(k[kP].get(), k[kQ].get()) == 0) failKey("impossible RSA primes");
    const ossl::Num product = ossl::newNum();
    ossl::mustCompute(BN_mul(product.get(), k[kP].get(), k[kQ].get(), ctx.get()));
    const ossl::Num pLess(ossl::made(BN_dup(k[kP].get()), CryptoFailure::Internal, "no memory"));
    const ossl::Num qLess(ossl::made(BN_dup(k[kQ].get()), CryptoFailure::Internal, "no memory"));
    ossl::mustCompute(BN_sub_word(pLess.get(), 1));
    ossl::mustCompute(BN_sub_word(qLess.get(), 1));
    const auto inverse = [&](int a, int b, const ossl::Num& modulus) {
        return isInverse(k[static_cast<size_t>(a)].get(), k[static_cast<size_t>(b)].get(), modulus.get(), ctx.get());
    };
    const bool ranges = BN_cmp(k[kD].get(), k[kN].get()) < 0 && BN_cmp(k[kDp].get(), k[kP].get()) < 0 &&
                        BN_cmp(k[kDq].get(), k[kQ].get()) < 0 && BN_cmp(k[kQInv].get(), k[kP].get()) < 0;
    if (!ranges || BN_cmp(product.get(), k[kN].get()) != 0 || !inverse(kD, kE, pLess) || !inverse(kD, kE, qLess) ||
        !inverse(kDp, kE, pLess) || !inverse(kDq, kE, qLess) || !inverse(kQInv, kQ, k[kP])) {
        failKey("the numbers of the RSA key do not belong together");
    }
}

void takeVersion(der::Reader& reader, uint8_t wanted) {
    const ByteView version = reader.take(der::kInteger);
    if (version.size() != 1 || version[0] != wanted) {
        throw CryptoError(CryptoFailure::Unsupported, "private key of another version");
    }
}

Halves readRsa(der::Reader, ByteView inner) {
    der::Reader outer(inner);
    der::Reader reader(outer.take(der::kSequence));
    outer.end();
    takeVersion(reader, 0);  // 1: more than two primes
    ossl::KeyParts parts;
    RsaNumbers numbers;
    for (size_t i = 0; i < numbers.size(); ++i) {
        const ByteView octets = reader.takeNumber();
        if (octets.size() > PublicKey::kMaxRsaBits / 8) failKey("RSA number too long");
        numbers[i] = ossl::toNum(octets);
        parts.number(kRsaNumberNames[i], octets);
    }
    reader.end();
    if (BN_num_bits(numbers[kN].get()) < static_cast<int>(PublicKey::kMinRsaBits)) failKey("RSA modulus too short");
    checkRsaNumbers(numbers);
    const auto element = [&](RsaIndex i) { return der::number(ossl::fromNum(numbers[i].get())); };
    return {parts.build(ossl::kRsaType, true), der::element(der::kSequence, {element(kN), element(kE)})};
}

// The public number is y = g^x mod p, with 1 <= x < q (FIPS 186-4 4.1); the domain is checked with it.
Halves readDsa(der::Reader parameters, ByteView inner) {
    der::Reader domain(parameters.take(der::kSequence));
    der::Reader key(inner);
    constexpr std::array kNames = {OSSL_PKEY_PARAM_FFC_P, OSSL_PKEY_PARAM_FFC_Q, OSSL_PKEY_PARAM_FFC_G,
                                   OSSL_PKEY_PARAM_PRIV_KEY};
    std::array<ossl::Num, 4> n;
    ossl::KeyParts parts;
    for (size_t i = 0; i < n.size(); ++i) {
        const ByteView octets = (i < 3 ? domain : key).takeNumber();
        if (octets.size() > 512) failKey("DSA number too long");
        parts.number(kNames[i], octets);
        n[i] = ossl::toNum(octets);
    }
    domain.end();
    key.end();
    const auto& [p, q, g, x] = n;
    if (!BN_is_odd(p.get()) || BN_is_one(p.get()) || BN_cmp(q.get(), p.get()) >= 0 || BN_is_zero(x.get()) ||
        BN_cmp(x.get(), q.get()) >= 0) {
        failKey("DSA numbers out of range");
    }
    const ossl::NumCtx ctx = ossl::numContext();
    const ossl::Num y = ossl::newNum();
    ossl::mustCompute(BN_mod_exp_mont_consttime(y.get(), g.get(), x.get(), p.get(), ctx.get(), nullptr));
    const SecretBytes octets = ossl::fromNum(y.get());
    parts.number(OSSL_PKEY_PARAM_PUB_KEY, octets);
    return {parts.build(ossl::kDsaType, true), der::number(octets)};
}

// ECPrivateKey (RFC 5915 3). A domain and a public point in it must say the same as the rest.
Halves readEc(der::Reader parameters, ByteView inner) {
    const ByteView domain = parameters.takeElement();
    const EcDomain wanted = decodeEcDomain(domain);
    der::Reader outer(inner);
    der::Reader reader(outer.take(der::kSequence));
    outer.end();
    takeVersion(reader, 1);
    const ByteView secret = reader.take(der::kOctetString);
    if (secret.size() > 128) failKey("EC number too long");
    if (reader.at(der::kContext0) && decodeEcDomain(reader.take(der::kContext0)).id != wanted.id) {
        failKey("the EC key names two curves");
    }
    const SecretBytes point = ecPublicPoint(wanted.id, secret);
    SecretBytes keyBits = point;
    if (reader.at(der::kContext1)) {
        der::Reader stored(reader.take(der::kContext1));
        keyBits = toSecret(stored.takeBits());
        stored.end();
    }
    reader.end();
    ossl::KeyParts parts;
    parts.text(OSSL_PKEY_PARAM_GROUP_NAME, findCurve(wanted.id)->name);
    parts.number(OSSL_PKEY_PARAM_PRIV_KEY, secret);
    parts.octets(OSSL_PKEY_PARAM_PUB_KEY, point);
    return {parts.build(ossl::kEcType, true), keyBits};
}

}  // namespace

PrivateKey PrivateKey::fromParts(ByteView algorithm, ByteView inner) {
    der::Reader outer(algorithm);
    der::Reader reader(outer.take(der::kSequence));
    outer.end();
    const KeyScheme scheme = schemeOfKeyAlgorithm(reader.take(der::kOid));
    const auto read = isRsa(scheme) ? readRsa : scheme == KeyScheme::Dsa ? readDsa : readEc;
    Halves halves = read(reader, inner);
    PublicKey publicKey(PublicKey::State::make(algorithm, halves.keyBits));
    if (EVP_PKEY_eq(halves.pkey.get(), publicKey.state_->pkey.get()) != 1) failKey("the public half is another key's");
    return PrivateKey(std::make_shared<const State>(std::move(halves.pkey), std::move(publicKey), toSecret(inner)));
}

PrivateKey PrivateKey::fromPkcs8(ByteView der) {
    der::Reader outer(der);
    der::Reader reader(outer.take(der::kSequence));
    outer.end();
    const ByteView version = reader.take(der::kInteger);
    if (version.size() != 1 || version[0] > 1) throw CryptoError(CryptoFailure::Unsupported, "key of another version");
    const ByteView algorithm = reader.takeElement();
    const ByteView inner = reader.take(der::kOctetString);
    while (!reader.empty()) (void)reader.takeElement();  // attributes and, in version 1, the public key
    return fromParts(algorithm, inner);
}

SecretBytes PrivateKey::toPkcs8() const {
    return der::element(der::kSequence,
                        {der::number({}), publicKey().algorithm(), der::element(der::kOctetString, {state_->inner})});
}

const PublicKey& PrivateKey::publicKey() const noexcept {
    return state_->publicKey;
}

}  // namespace crv
