// The built-in provider through which libcrypto's random generator of our library context becomes ours. Internal.
#pragma once

#include <openssl/types.h>

namespace crv::ossl {

/// Adds the provider and makes its generator the one of the context; must come before anything random is drawn there.
/// Answers false when libcrypto refuses.
[[nodiscard]] bool installRandProvider(OSSL_LIB_CTX* context);

}  // namespace crv::ossl
