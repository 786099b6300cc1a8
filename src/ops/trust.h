// Trust points of a profile.
#pragma once

#include <functional>

#include "keystore/key_store_door.h"

namespace crv {

/// Trust points are changed by somebody who can sign.
[[nodiscard]] bool mayAddTrust(const KeyStoreAccess& access);

/// Adds a trust point; the caller saves. `confirm` is asked when the certificate has expired, and false ends it with
/// kKmCancelled.
[[nodiscard]] KeyManagerResult addTrustPoint(const KeyStoreAccess& access, const CertPtr& certificate,
                                             const std::function<bool()>& confirm);

/// Whether it is the user's own.
[[nodiscard]] bool isRemovable(const TrustPoint& point);
/// Removes a trust point; the caller saves. kKmNotOnThisMedium for one that is not the user's own.
[[nodiscard]] KeyManagerResult removeTrustPoint(const KeyStoreAccess& access, const TrustPoint& point);

}  // namespace crv
