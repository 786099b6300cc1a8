// Entering passwords on the message row.
#pragma once

#include "misc/secret.h"

namespace crv {

/// Size of the entry of a security file's password, a terminating zero included.
inline constexpr int kMostPassword = 255;

/// Reads a masked password of at most size - 1 bytes as typed and turns it into UTF-8, so that one password means the
/// same from any terminal. False on Escape, with an empty password.
[[nodiscard]] bool readPassword(const char* prompt, SecretText& password, int size = kMostPassword);

/// A new password that keeps the rules, at most size - 1 bytes as typed; asked again until it does. False on Escape and
/// on an empty entry when emptyLeaves.
[[nodiscard]] bool readNewPassword(SecretText& password, int size, bool emptyLeaves,
                                   const char* prompt = "Wprowadź nowe hasło dostępu:");

/// The password of a new file, typed twice; three attempts at the repetition. Says itself what is wrong.
[[nodiscard]] bool chooseFirstPassword(SecretText& password, const char* prompt = "Wprowadź nowe hasło dostępu:");

}  // namespace crv
