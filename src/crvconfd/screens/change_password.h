// The password change.
#pragma once

namespace crv {

/// Asks for a new password twice and enciphers the key store under it.
void OnChangePassword();

}  // namespace crv
