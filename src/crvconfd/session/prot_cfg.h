// Saving the protected configuration, and the passwords that it is saved with.
#pragma once

#include <array>

namespace crv {

inline constexpr int kPasswordSize = 256;

/// Password of the security file or PIN of the card, and password of the additional trust-point store, each with a
/// terminating zero, in UTF-8. They are kept for later saves and wiped with every change of the profile and at the end.
inline std::array<char, kPasswordSize> userPassword{};
inline std::array<char, kPasswordSize> rootsPassword{};

/// Wipes both at the end of a session, however it ends.
struct PasswordWiper {
    PasswordWiper() = default;
    ~PasswordWiper();
    PasswordWiper(const PasswordWiper&) = delete;
    PasswordWiper& operator=(const PasswordWiper&) = delete;
};

/// Hands a password to the library as a PIN. A refusal is shown with the library's text; false then.
[[nodiscard]] bool storePin(long id, const char* pin);

/// Saves keys and configuration under the lock of the security file, with userPassword. Says itself what went wrong;
/// false then.
[[nodiscard]] bool writeProtCfg();

}  // namespace crv
