#include "crypto/key_state.h"

#include <algorithm>
#include <bit>
#include <new>

namespace crv {

SecretBytes ecPublicPoint(StdECId curve, ByteView secret) {
    const ossl::Group group = ossl::groupOf(static_cast<int>(curve));
    const ossl::Num x = ossl::toNum(secret);
    if (BN_is_zero(x.get()) || BN_cmp(x.get(), EC_GROUP_get0_order(group.get())) >= 0)
        ossl::fail(CryptoFailure::BadKey, "EC number out of range");
    const ossl::Owned<EC_POINT, EC_POINT_free> point(
        ossl::made(EC_POINT_new(group.get()), CryptoFailure::Internal, "no memory for a point"));
    const ossl::NumCtx ctx = ossl::numContext();
    ossl::mustCompute(EC_POINT_mul(group.get(), point.get(), x.get(), nullptr, nullptr, ctx.get()));
    const auto encode = [&](uint8_t* out, size_t length) {
        return EC_POINT_point2oct(group.get(), point.get(), POINT_CONVERSION_UNCOMPRESSED, out, length, ctx.get());
    };
    SecretBytes octets(encode(nullptr, 0));
    if (octets.empty() || encode(octets.data(), octets.size()) != octets.size()) ossl::mustCompute(0);
    return octets;
}

namespace ossl {

void KeyParts::number(const char* name, ByteView bigEndian) {
    SecretBytes& native = values_.emplace_back(bigEndian.begin(), bigEndian.end());
    if (native.empty()) native.push_back(0);
    if constexpr (std::endian::native == std::endian::little) std::reverse(native.begin(), native.end());
    params_.push_back(OSSL_PARAM_construct_BN(name, native.data(), native.size()));
}

void KeyParts::octets(const char* name, ByteView value) {
    SecretBytes& kept = values_.emplace_back(value.begin(), value.end());
    params_.push_back(OSSL_PARAM_construct_octet_string(name, kept.data(), kept.size()));
}

void KeyParts::text(const char* name, const char* value) {
    params_.push_back(OSSL_PARAM_construct_utf8_string(name, const_cast<char*>(value), 0));
}

Pkey KeyParts::build(const char* type, bool withPrivate) {
    const PkeyCtx ctx(
        made(EVP_PKEY_CTX_new_from_name(context(), type, nullptr), CryptoFailure::Internal, "no memory for a key"));
    params_.push_back(OSSL_PARAM_construct_end());
    EVP_PKEY* key = nullptr;
    must(EVP_PKEY_fromdata_init(ctx.get()), CryptoFailure::Internal, "keys of this type cannot be made");
    const int answer =
        EVP_PKEY_fromdata(ctx.get(), &key, withPrivate ? EVP_PKEY_KEYPAIR : EVP_PKEY_PUBLIC_KEY, params_.data());
    Pkey owned(key);
    mustTake(answer, CryptoFailure::BadKey, "the numbers are no key");
    return owned;
}

Num toNum(ByteView bigEndian) {
    return Num(made(BN_bin2bn(bigEndian.data(), static_cast<int>(bigEndian.size()), nullptr), CryptoFailure::Internal,
                    "no memory for a number"));
}

SecretBytes fromNum(const BIGNUM* number, size_t length) {
    SecretBytes octets(std::max(length, static_cast<size_t>(BN_num_bytes(number))));
    BN_bn2binpad(number, octets.data(), static_cast<int>(octets.size()));
    return octets;
}

Num newNum() {
    return Num(made(BN_new(), CryptoFailure::Internal, "no memory for a number"));
}

NumCtx numContext() {
    return NumCtx(made(BN_CTX_secure_new_ex(context()), CryptoFailure::Internal, "no memory for numbers"));
}

void mustCompute(int answer) {
    must(answer, CryptoFailure::Internal, "arithmetic failed");
}

PkeyCtx keyContext(EVP_PKEY* key) {
    return PkeyCtx(
        made(EVP_PKEY_CTX_new_from_pkey(context(), key, nullptr), CryptoFailure::Internal, "no memory for a key"));
}

PkeyCtx PrivatePkey::context() const {
    const std::lock_guard guard(mutex_);
    if (!trusted_) {
        pkey_ = made(Pkey(EVP_PKEY_dup(pkey_.get())), CryptoFailure::Internal, "no memory for a key");
        trusted_ = true;
    }
    return keyContext(pkey_.get());
}

void PrivatePkey::distrust() const noexcept {
    const std::lock_guard guard(mutex_);
    trusted_ = false;
}

void finish(RandomBridge::Scope& scope, int answer, CryptoFailure failure, const char* text) {
    if (answer == 1) return scope.rethrow();
    const Complaints noted = takeComplaints();
    scope.rethrow();
    if (noted.ofMemory || !noted.any) throw std::bad_alloc();
    throw CryptoError(failure, text);
}

}  // namespace ossl

}  // namespace crv
