// HMAC (RFC 2104) over any hash of this library.
#pragma once

#include "crypto/kc_hash.h"
#include "misc/secret.h"

namespace crv {

/// The MAC of the message, as long as the hash's digest. A key longer than the hash's block is hashed first. Compare a
/// MAC that came from outside with `equalConstantTime`.
[[nodiscard]] SecretBytes hmac(KcHashAlgo algo, ByteView key, ByteView message);

}  // namespace crv
