#include "ops/key_plan.h"

namespace crv {
namespace {

constexpr uint64_t kPublicExponent = 65537;

}  // namespace

std::optional<KeyType> wholeUse(const KeyManager& keys, KeyType use) {
    for (const StoredKey& key : keys.keys())
        if (shares(key.role, roleOf(use))) return static_cast<KeyType>(static_cast<int>(key.role) - 1);
    return std::nullopt;
}

bool canServe(const KeyPlan& plan) {
    // The successor of a key that does both takes over the signing.
    const bool signs = plan.use == KeyType::Signing || (plan.successor && plan.use == KeyType::Both);
    return signs || isRsa(plan.scheme);
}

KeyManagerResult generateKey(const KeyStoreAccess& access, const KeyPlan& plan, const std::function<bool()>& goOn) {
    if (!canServe(plan)) return kKmAlgorithmNotSupported;
    return generateIntoKeyStore(access, {goOn, {}, plan.forcedPss, plan.successor}, [&](const KeyGenHooks& hooks) {
        KeyManager& keys = access.keys;
        if (plan.scheme == KeyScheme::Dsa) return keys.generateDsaUserKey(plan.bits, hooks);
        if (plan.scheme == KeyScheme::Ecdsa)
            return keys.generateECDsaUserKey(plan.use, plan.curve, plan.explicitDomain, hooks);
        return keys.generateRsaUserKey(plan.use, kPublicExponent, plan.bits, plan.scheme, hooks);
    });
}

}  // namespace crv
