// Generating a key of the user.
#pragma once

#include <functional>
#include <optional>

#include "keystore/key_store_door.h"

namespace crv {

struct KeyPlan {
    KeyType use = KeyType::Signing;
    KeyScheme scheme = KeyScheme::Rsa;
    unsigned bits = 2048;  ///< of RSA and DSA keys
    StdECId curve = kDefaultCurve;
    bool explicitDomain = false;              ///< write the curve's parameters instead of its name
    KcHashAlgo forcedPss = KcHashAlgo::None;  ///< ties an RSA-PSS key to this hash
    bool successor = false;                   ///< takes the place of the key of that use when it is certified
};

/// The use of the key that does what `use` names, as a whole: Both for one that does both. Nothing without one.
[[nodiscard]] std::optional<KeyType> wholeUse(const KeyManager& keys, KeyType use);

/// Whether the key could do what it is for: only RSA keys decrypt.
[[nodiscard]] bool canServe(const KeyPlan& plan);

/// Generates the key and saves it under the lock of the key store; `goOn` is asked while it is generated.
[[nodiscard]] KeyManagerResult generateKey(const KeyStoreAccess& access, const KeyPlan& plan,
                                           const std::function<bool()>& goOn);

}  // namespace crv
