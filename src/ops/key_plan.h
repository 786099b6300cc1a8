// Generating a key of the user.
#pragma once

#include <functional>

#include "keystore/key_store_door.h"

namespace crv {

struct KeyPlan {
    KeyType use = KeyType::Signing;
    KeyScheme scheme = KeyScheme::Rsa;
    unsigned bits = 2048;  ///< of RSA and DSA keys
    StdECId curve = kDefaultCurve;
    bool explicitDomain = false;              ///< write the curve's parameters instead of its name
    KcHashAlgo forcedPss = KcHashAlgo::None;  ///< ties an RSA-PSS key to this hash
};

/// Generates the key and saves it under the lock of the key store; `goOn` is asked while it is generated.
[[nodiscard]] KeyManagerResult generateKey(const KeyStoreAccess& access, const KeyPlan& plan,
                                           const std::function<bool()>& goOn);

}  // namespace crv
