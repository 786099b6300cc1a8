// Passwords of servers and proxies in a list: AES-128-CBC under a key that is part of the program, in Base64. This
// hides them from a glance over the file and no more; whoever can read the list can read them.
#pragma once

#include <string>

#include "misc/secret.h"

namespace crv {

/// Base64 of a random initial vector of 16 octets and the ciphertext; empty for an empty password.
std::string hidePassword(const SecretText& password);

/// The password again. Throws CrvApiException (ECRV_INV_REG) for a text that hidePassword cannot have made.
SecretText revealPassword(const std::string& hidden);

}  // namespace crv
