// The steps that open the current profile. Each answers whether it succeeded, after showing its own message.
#pragma once

#include "keystore/key_manager.h"

namespace crv {

/// Checks that the databases exist and creates them when the user agrees.
[[nodiscard]] bool createDB();

/// Creates a missing security file: password, seed from keystrokes, default configuration.
[[nodiscard]] bool createPfx();

/// Starts the device of a profile that lives on one.
[[nodiscard]] bool deviceInit();

/// Log-in: asks for the passwords, opens the key store, asks again after a wrong password as often as the user tries.
[[nodiscard]] bool OnProfileZaloguj();

/// Opens the key store of the current profile with the stored PINs, under the lock of the security file, and shows the
/// text of a failure after the lock is free again.
[[nodiscard]] KeyManagerResult initProfile(OpenMode mode = OpenMode::LogIn);

}  // namespace crv
