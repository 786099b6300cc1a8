// The view of a key in use: its certificate, the key itself, its request and its replacement, and the further keys.
#pragma once

#include "keystore/key_store_contents.h"

namespace crv {

/// The key that signs, or decrypts; a message when there is neither a key nor a certificate.
void showCert(KeyType key);

}  // namespace crv
