// Calls on the keys of the profile: looking at them, generating one, requests for certificates, random octets.
#include "api/handles.h"
#include "api/key_store_call.h"
#include "asn/x509/signed_certificate.h"
#include "context/context_options.h"
#include "crypto/crypto_error.h"
#include "keystore/crt_request.h"
#include "ops/key_plan.h"

namespace crv {
namespace {

constexpr struct {
    KeyScheme scheme;
    long number;
} kKeyKinds[] = {{KeyScheme::Rsa, CRVKEY_RSA},
                 {KeyScheme::RsaPss, CRVKEY_RSA},
                 {KeyScheme::Dsa, CRVKEY_DSA},
                 {KeyScheme::Ecdsa, CRVKEY_EC}};

constexpr struct {
    long use;
    KeyType type;
} kNewUses[] = {
    {CRVKEY_USE_SIGN, KeyType::Signing}, {CRVKEY_USE_DECRYPT, KeyType::Encryption}, {CRVKEY_USE_BOTH, KeyType::Both}};

KeyType typeOf(long use) {
    const auto* row = std::ranges::find_if(kNewUses, [&](const auto& one) { return one.use == use; });
    demand(row != std::end(kNewUses));
    return row->type;
}

CrvKeyIterator::Row rowOf(const KeyManager& keys, const StoredKey& stored) {
    CrvKeyIterator::Row row{{}, {keys.certificateOf(stored)}};
    CrvKeyInfo& info = row.info;
    info.use = static_cast<long>(stored.role);
    info.kind = keyKindNumber(stored.key->publicKey());
    info.scheme = optionOfScheme(keys.schemeOf(stored));
    info.bits = static_cast<long>(stored.key->publicKey().bits());
    std::ranges::copy(stored.key->keyId(), std::begin(info.id));
    return row;
}

int crvGetKeyIteratorInt(CRVctx& ctx, long* count, CrvKeyIterator** iterator) {
    demand(iterator);
    *iterator = nullptr;
    demandLogIn(ctx);
    auto made = std::make_unique<CrvKeyIterator>();
    for (const StoredKey& stored : ctx.keyManager.keys()) made->keys.push_back(rowOf(ctx.keyManager, stored));
    for (CrvKeyIterator::Row& row : made->keys)
        if (row.certificate.certificate) row.info.cert = &row.certificate;
    if (count) *count = static_cast<long>(made->keys.size());
    give(std::move(made), iterator);
    return CRV_OK;
}

StdECId curveOf(const char* name) {
    if (!name) return kDefaultCurve;
    const auto curves = ecCurves();
    const auto found =
        std::ranges::find(curves, std::string_view(name), [](const EcCurve& c) { return std::string_view(c.name); });
    if (found == curves.end()) throw CrvApiException(ECRV_API_INV_PAR, name);
    return found->id;
}

KeyPlan planOf(const CrvKeyPlan& given) {
    KeyPlan plan;
    plan.use = typeOf(given.use);
    plan.scheme = given.scheme == CRVSCHEME_NONE ? KeyScheme::Rsa : schemeOfOption(given.scheme);
    const bool onlySigns = plan.scheme == KeyScheme::Dsa || plan.scheme == KeyScheme::Ecdsa;
    demand(!onlySigns || plan.use == KeyType::Signing);
    const bool ec = plan.scheme == KeyScheme::Ecdsa;
    demand(given.bits >= 0 && given.bits <= UINT16_MAX && (!ec || given.bits == 0) && (ec || !given.curve));
    constexpr unsigned kDsaBits = 1024, kRsaBits = 2048;
    plan.bits = static_cast<unsigned>(given.bits);
    if (plan.bits == 0) plan.bits = plan.scheme == KeyScheme::Dsa ? kDsaBits : kRsaBits;
    plan.curve = curveOf(given.curve);
    demand(given.pss_digest == 0 || plan.scheme == KeyScheme::RsaPss);
    if (given.pss_digest != 0) plan.forcedPss = hashOfOption(given.pss_digest);
    return plan;
}

int crvGenerateKeyInt(CRVctx& ctx, const CrvKeyPlan* params) {
    const CrvKeyPlan given = takeIn(params);
    const KeyPlan plan = planOf(given);
    demandLogIn(ctx);
    if (ctx.keyManager.hasKey(plan.use)) return ECRV_KEY_WITH_SUCH_USAGE_EXISTS;
    fetchPins(ctx);
    const auto goOn = [&] { return !given.progress || given.progress(given.user) == 0; };
    const KeyManagerResult result = generateKey(accessOf(ctx), plan, goOn);
    // A program has no later moment for a key that could not be saved: it was told that there is none.
    if (result != kKmOk) ctx.keyManager.dropUnsavedKey();
    return codeOfKeys(ctx, result);
}

const StoredKey* keyOfUse(const KeyManager& keys, KeyType use) {
    for (const StoredKey& stored : keys.keys())
        if ((stored.role & roleOf(use)) == roleOf(use)) return &stored;
    return nullptr;
}

int crvPrepareCrtRequestInt(CRVctx& ctx, const CrvRequestParams* params, unsigned char** request, long* len) {
    demand(request && len);
    *request = nullptr;
    CrvRequestParams given{};
    given.use = CRVKEY_USE_SIGN;
    if (params) given = takeIn(params);
    const KeyType use = typeOf(given.use);
    demandLogIn(ctx);
    const StoredKey* key = keyOfUse(ctx.keyManager, use);
    if (!key) return ECRV_KEY_NOT_FOUND;
    CrtRequestParams plan;
    plan.format = given.der != 0 ? RequestFormat::Der : RequestFormat::Pem;
    plan.scheme = given.scheme == CRVSCHEME_NONE ? ctx.keyManager.schemeOf(*key) : schemeOfOption(given.scheme);
    plan.hash = plan.scheme == KeyScheme::Dsa ? KcHashAlgo::Sha1 : KcHashAlgo::Sha256;
    if (given.digest != 0) plan.hash = hashOfOption(given.digest);
    std::optional<DistinguishedName> subject;
    if (given.subject) {
        subject = DistinguishedName::fromText(std::string(textIn(given.subject)));
        if (!subject) throw CrvApiException(ECRV_API_INV_PAR, given.subject);
        subject = subject->reversed();
        plan.subject = &*subject;
    }
    Bytes made;
    const int code = codeOfKeys(ctx, prepareCrtRequest(ctx.keyManager, use, plan, made));
    if (code == CRV_OK) giveOctets(made, request, len);
    return code;
}

int crvGetRandomInt(CRVctx& ctx, char* buf, long len) {
    demand(buf && len >= 0);
    const std::span<uint8_t> out(reinterpret_cast<uint8_t*>(buf), static_cast<size_t>(len));
    std::ranges::fill(out, uint8_t{0});
    demandLogIn(ctx);
    try {
        ctx.keyManager.random().draw(out);
    } catch (const CryptoError&) {
        // It refuses where the medium would answer success and leave the buffer as it is.
        return ECRV_NOT_IMPL;
    }
    return CRV_OK;
}

}  // namespace

long keyKindNumber(const PublicKey& key) {
    const auto* row = std::ranges::find_if(kKeyKinds, [&](const auto& one) { return one.scheme == key.scheme(); });
    return row == std::end(kKeyKinds) ? 0 : row->number;
}

}  // namespace crv

using namespace crv;

int crvGetKeyIteratorAPI(CRVctx* ctx, long* count, CrvKeyIterator** iterator) {
    return apiFrame(ctx, [&] { return crvGetKeyIteratorInt(*ctx, count, iterator); });
}

int crvGetNextKeyAPI(CRVctx* ctx, CrvKeyIterator* iterator, CrvKeyInfo* info) {
    return apiFrame(ctx, [&]() -> int {
        demand(iterator && info);
        if (iterator->at == iterator->keys.size()) return ECRV_KEY_NOT_FOUND;
        handOut(iterator->keys[iterator->at].info, info);
        ++iterator->at;
        return CRV_OK;
    });
}

int crvFreeKeyIteratorAPI(CRVctx* ctx, CrvKeyIterator* iterator) {
    return freeHandle(ctx, iterator);
}

int crvGenerateKeyAPI(CRVctx* ctx, const CrvKeyPlan* plan) {
    return apiFrame(ctx, [&] { return crvGenerateKeyInt(*ctx, plan); });
}

int crvPrepareCrtRequestAPI(CRVctx* ctx, const CrvRequestParams* params, unsigned char** request, long* len) {
    return apiFrame(ctx, [&] { return crvPrepareCrtRequestInt(*ctx, params, request, len); });
}

int crvGetRandomAPI(CRVctx* ctx, char* buf, long len) {
    return apiFrame(ctx, [&] { return crvGetRandomInt(*ctx, buf, len); });
}
