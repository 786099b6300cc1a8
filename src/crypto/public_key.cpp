#include "crypto/public_key.h"

#include <openssl/err.h>
#include <openssl/objects.h>

#include <algorithm>
#include <new>

#include "crypto/der.h"
#include "crypto/key_state.h"
#include "crypto/sign_algo_map.h"

namespace crv {

namespace {

constexpr uint8_t kRsaEncryption[] = {0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x01, 0x01};
constexpr uint8_t kRsaPss[] = {0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x01, 0x0A};
constexpr uint8_t kMgf1[] = {0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x01, 0x08};
constexpr uint8_t kRsaX509[] = {0x55, 0x08, 0x01, 0x01};  // "rsa" of X.509, in old files
constexpr uint8_t kDsa[] = {0x2A, 0x86, 0x48, 0xCE, 0x38, 0x04, 0x01};
constexpr uint8_t kEc[] = {0x2A, 0x86, 0x48, 0xCE, 0x3D, 0x02, 0x01};

struct AlgorithmRow {
    ByteView oid;
    KeyScheme scheme;
};

// The first row of a scheme is how its keys are written.
constexpr AlgorithmRow kAlgorithms[] = {{kRsaEncryption, KeyScheme::Rsa},
                                        {kRsaX509, KeyScheme::Rsa},
                                        {kRsaPss, KeyScheme::RsaPss},
                                        {kDsa, KeyScheme::Dsa},
                                        {kEc, KeyScheme::Ecdsa}};

constexpr int kMinDsaBits = 512;
constexpr int kMaxDsaBits = 4096;
constexpr int kBitsWithAnyExponent = 3072;  // beyond, a long exponent would make verification slow

void checkRsa(const BIGNUM* n, const BIGNUM* e) {
    const int bits = BN_num_bits(n);
    if (bits < static_cast<int>(PublicKey::kMinRsaBits) || bits > static_cast<int>(PublicKey::kMaxRsaBits)) {
        failKey("RSA modulus of a length that is not supported");
    }
    if (!BN_is_odd(n)) failKey("even RSA modulus");
    if (!BN_is_odd(e) || BN_is_one(e) || BN_cmp(e, n) >= 0) failKey("impossible RSA exponent");
    if (bits > kBitsWithAnyExponent && BN_num_bits(e) > 64) failKey("RSA exponent too long");
}

void checkDsa(const BIGNUM* p, const BIGNUM* q, const BIGNUM* g, const BIGNUM* y) {
    constexpr int kOrders[] = {160, 224, 256};
    const int bits = BN_num_bits(p);
    const bool domain = bits >= kMinDsaBits && bits <= kMaxDsaBits && BN_is_odd(p) && BN_is_odd(q) &&
                        std::find(std::begin(kOrders), std::end(kOrders), BN_num_bits(q)) != std::end(kOrders);
    const auto inside = [p](const BIGNUM* number) {
        return !BN_is_zero(number) && !BN_is_one(number) && BN_cmp(number, p) < 0;
    };
    if (!domain || !inside(g) || !inside(y)) failKey("DSA numbers out of range");
    const ossl::NumCtx ctx = ossl::numContext();
    const ossl::Num rest = ossl::newNum();
    ossl::mustCompute(BN_mod_exp_mont(rest.get(), g, q, p, ctx.get(), nullptr));
    if (!BN_is_one(rest.get())) failKey("the DSA generator has another order");
}

/// The hash of an AlgorithmIdentifier, whose parameters may be NULL or absent.
KcHashAlgo takeHash(der::Reader& reader) {
    der::Reader algorithm(reader.take(der::kSequence));
    const ByteView oid = algorithm.take(der::kOid);
    if (!algorithm.empty() && !algorithm.take(der::kNull).empty()) failKey("parameters of a hash");
    algorithm.end();
    for (const KcHashAlgo hash : kHashAlgos) {
        std::array<uint8_t, 32> known{};
        const int length = a2d_ASN1_OBJECT(known.data(), static_cast<int>(known.size()), hashOid(hash), -1);
        if (length > 0 && std::ranges::equal(ByteView(known).first(static_cast<size_t>(length)), oid)) return hash;
    }
    ossl::fail(CryptoFailure::Unsupported, "a PSS key for an unknown hash");
}

KcHashAlgo takeMaskHash(der::Reader& reader) {
    der::Reader algorithm(reader.take(der::kSequence));
    if (!std::ranges::equal(algorithm.take(der::kOid), ByteView(kMgf1)))
        ossl::fail(CryptoFailure::Unsupported, "a PSS key for an unknown mask");
    const KcHashAlgo hash = takeHash(algorithm);
    algorithm.end();
    return hash;
}

int takeSmall(der::Reader& reader) {
    const ByteView octets = reader.takeNumber();
    if (octets.size() > 2) failKey("a PSS parameter out of range");
    int value = 0;
    for (const uint8_t octet : octets) value = value << 8 | octet;
    return value;
}

/// RSASSA-PSS-params; absent members mean SHA-1, MGF1 with SHA-1, 20 octets of salt and the trailer 1.
PssRestriction takePssParams(der::Reader& parameters) {
    der::Reader members(parameters.take(der::kSequence));
    PssRestriction out{KcHashAlgo::Sha1, KcHashAlgo::Sha1, 20};
    const auto member = [&](uint8_t tag, const auto& read) {
        if (!members.at(tag)) return;
        der::Reader inner(members.take(tag));
        read(inner);
        inner.end();
    };
    member(der::kContext0, [&](der::Reader& inner) { out.hash = takeHash(inner); });
    member(der::kContext1, [&](der::Reader& inner) { out.mgfHash = takeMaskHash(inner); });
    member(der::kContext2, [&](der::Reader& inner) { out.leastSalt = takeSmall(inner); });
    member(der::kContext3, [&](der::Reader& inner) {
        if (takeSmall(inner) != 1) failKey("a PSS trailer that does not exist");
    });
    members.end();
    return out;
}

void readPublicRsa(ParsedKey& state, der::Reader parameters, ByteView keyBits) {
    if (state.scheme == KeyScheme::Rsa && !parameters.empty() && !parameters.take(der::kNull).empty()) {
        failKey("RSA keys have no parameters");
    }
    if (state.scheme == KeyScheme::RsaPss && !parameters.empty()) state.pss = takePssParams(parameters);
    der::Reader outer(keyBits);
    der::Reader numbers(outer.take(der::kSequence));
    outer.end();
    ossl::KeyParts parts;
    const ByteView n = numbers.takeNumber();
    const ByteView e = numbers.takeNumber();
    numbers.end();
    const ossl::Num modulus = ossl::toNum(n);
    checkRsa(modulus.get(), ossl::toNum(e).get());
    parts.number(OSSL_PKEY_PARAM_RSA_N, n);
    parts.number(OSSL_PKEY_PARAM_RSA_E, e);
    state.pkey = parts.build(ossl::kRsaType, false);
    state.bits = static_cast<unsigned>(BN_num_bits(modulus.get()));
}

void readPublicDsa(ParsedKey& state, der::Reader parameters, ByteView keyBits) {
    der::Reader domain(parameters.take(der::kSequence));
    ossl::KeyParts parts;
    ossl::Num numbers[4];
    constexpr const char* kNames[] = {OSSL_PKEY_PARAM_FFC_P, OSSL_PKEY_PARAM_FFC_Q, OSSL_PKEY_PARAM_FFC_G,
                                      OSSL_PKEY_PARAM_PUB_KEY};
    der::Reader key(keyBits);
    for (size_t i = 0; i < std::size(numbers); ++i) {
        const ByteView number = (i < 3 ? domain : key).takeNumber();
        parts.number(kNames[i], number);
        numbers[i] = ossl::toNum(number);
    }
    domain.end();
    key.end();
    checkDsa(numbers[0].get(), numbers[1].get(), numbers[2].get(), numbers[3].get());
    state.pkey = parts.build(ossl::kDsaType, false);
    state.bits = static_cast<unsigned>(BN_num_bits(numbers[0].get()));
}

/// Whether the octets are a point of the group. Asked of the curve and not of the key: where an engine of the program
/// stands in front of all keys, libcrypto does not check them. Only where the curve has more points than the group a
/// point may have another order.
bool isInGroup(StdECId curve, ByteView octets) {
    const ossl::Group group = ossl::groupOf(static_cast<int>(curve));
    const ossl::Owned<EC_POINT, EC_POINT_free> point(
        ossl::made(EC_POINT_new(group.get()), CryptoFailure::Internal, "no memory for a point"));
    const ossl::NumCtx ctx = ossl::numContext();
    if (EC_POINT_oct2point(group.get(), point.get(), octets.data(), octets.size(), ctx.get()) != 1) return false;
    if (EC_POINT_is_at_infinity(group.get(), point.get()) != 0) return false;
    if (BN_is_one(EC_GROUP_get0_cofactor(group.get()))) return true;
    ossl::mustCompute(
        EC_POINT_mul(group.get(), point.get(), nullptr, point.get(), EC_GROUP_get0_order(group.get()), ctx.get()));
    return EC_POINT_is_at_infinity(group.get(), point.get()) != 0;
}

void readPublicEc(ParsedKey& state, der::Reader parameters, ByteView keyBits) {
    state.domain = decodeEcDomain(parameters.takeElement());
    if (keyBits.empty() || keyBits[0] == 0) failKey("the point at infinity is no public key");
    ossl::KeyParts parts;
    parts.text(OSSL_PKEY_PARAM_GROUP_NAME, OBJ_nid2sn(static_cast<int>(state.domain.id)));
    parts.octets(OSSL_PKEY_PARAM_PUB_KEY, keyBits);
    state.pkey = parts.build(ossl::kEcType, false);
    if (!isInGroup(state.domain.id, keyBits))
        ossl::fail(CryptoFailure::BadKey, "the point is not in the group of its curve");
    state.bits = findCurve(state.domain.id)->bits;
}

Bytes plainBytes(const SecretBytes& octets) {
    return {octets.begin(), octets.end()};
}

Bytes rsaNumber(EVP_PKEY* key, const char* name) {
    BIGNUM* number = nullptr;
    if (EVP_PKEY_get_bn_param(key, name, &number) != 1)
        ossl::fail(CryptoFailure::Internal, "no such number in the key");
    return plainBytes(ossl::fromNum(ossl::Num(number).get()));
}

}  // namespace

KeyScheme schemeOfKeyAlgorithm(ByteView oid) {
    const auto* row = std::find_if(std::begin(kAlgorithms), std::end(kAlgorithms),
                                   [&](const AlgorithmRow& r) { return std::ranges::equal(r.oid, oid); });
    if (row == std::end(kAlgorithms)) throw CryptoError(CryptoFailure::Unsupported, "unknown key algorithm");
    return row->scheme;
}

Bytes keyAlgorithm(KeyScheme scheme, ByteView parameters) {
    const auto* row =
        std::find_if(std::begin(kAlgorithms), std::end(kAlgorithms), [&](const auto& r) { return r.scheme == scheme; });
    return plainBytes(der::element(der::kSequence, {der::element(der::kOid, {row->oid}), parameters}));
}

std::shared_ptr<const PublicKey::State> PublicKey::State::make(ByteView algorithm, ByteView keyBits) {
    auto state = std::make_shared<State>();
    der::Reader outer(algorithm);
    der::Reader inner(outer.take(der::kSequence));
    outer.end();
    state->scheme = schemeOfKeyAlgorithm(inner.take(der::kOid));
    const ByteView parameters = inner.empty() ? ByteView() : inner.takeElement();
    inner.end();
    state->algorithm = toBytes(algorithm);
    state->keyBits = toBytes(keyBits);
    const auto read = isRsa(state->scheme)              ? readPublicRsa
                      : state->scheme == KeyScheme::Dsa ? readPublicDsa
                                                        : readPublicEc;
    read(*state, der::Reader(parameters), keyBits);
    return state;
}

PublicKey PublicKey::fromSpki(ByteView der) {
    der::Reader outer(der);
    der::Reader inner(outer.take(der::kSequence));
    outer.end();
    const ByteView algorithm = inner.takeElement();
    const ByteView keyBits = inner.takeBits();
    inner.end();
    return PublicKey(State::make(algorithm, keyBits));
}

PublicKey PublicKey::fromRsa(ByteView modulus, ByteView exponent) {
    const SecretBytes null = der::element(der::kNull, {});
    return PublicKey(State::make(keyAlgorithm(KeyScheme::Rsa, null),
                                 der::element(der::kSequence, {der::number(modulus), der::number(exponent)})));
}

Bytes PublicKey::toSpki() const {
    return plainBytes(der::element(der::kSequence, {state_->algorithm, der::bits(state_->keyBits)}));
}

PublicKey PublicKey::withBits(ByteView keyBits) const {
    return PublicKey(State::make(state_->algorithm, keyBits));
}

KeyScheme PublicKey::scheme() const noexcept {
    return state_->scheme;
}

unsigned PublicKey::bits() const noexcept {
    return state_->bits;
}

StdECId PublicKey::curve() const noexcept {
    return state_->domain.id;
}

bool PublicKey::explicitDomain() const noexcept {
    return state_->domain.explicitDomain;
}

const Bytes& PublicKey::algorithm() const noexcept {
    return state_->algorithm;
}

const Bytes& PublicKey::keyBits() const noexcept {
    return state_->keyBits;
}

KeyId PublicKey::keyId() const {
    KeyId id;
    hashInto(KcHashAlgo::Sha1, state_->keyBits, id);
    return id;
}

Bytes PublicKey::rsaModulus() const {
    return isRsa(state_->scheme) ? rsaNumber(state_->pkey.get(), OSSL_PKEY_PARAM_RSA_N) : Bytes();
}

Bytes PublicKey::rsaExponent() const {
    return isRsa(state_->scheme) ? rsaNumber(state_->pkey.get(), OSSL_PKEY_PARAM_RSA_E) : Bytes();
}

bool PublicKey::operator==(const PublicKey& other) const {
    if (state_ == other.state_) return true;
    // Of keys of two types libcrypto complains in the error queue, which belongs to the whole program.
    const auto typeOf = [](const State& state) { return isRsa(state.scheme) ? KeyScheme::Rsa : state.scheme; };
    if (typeOf(*state_) != typeOf(*other.state_)) return false;
    // libcrypto leaves DSA's q out of the comparison.
    if (state_->scheme == KeyScheme::Dsa && state_->algorithm != other.state_->algorithm) return false;
    const unsigned long before = ERR_peek_last_error();
    if (EVP_PKEY_eq(state_->pkey.get(), other.state_->pkey.get()) == 1) return true;
    if (ERR_peek_last_error() != before && ossl::takeComplaints().ofMemory) throw std::bad_alloc();
    return false;
}

}  // namespace crv
