// A digest hashed over and over again, as key derivations do.
#pragma once

#include <cstdint>
#include <span>

#include "crypto/kc_hash.h"

namespace crv {

/// Replaces a digest by its own digest, `times` over. It must be of the hash's length, else CryptoError (badParameter).
void hashAgain(KcHashAlgo algo, std::span<uint8_t> digest, uint64_t times);

}  // namespace crv
