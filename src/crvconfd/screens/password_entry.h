// Entering passwords on the message row.
#pragma once

#include <array>

#include "crvconfd/session/prot_cfg.h"

namespace crv {

/// Size of the entry of a security file's password, a terminating zero included.
inline constexpr int kMostPassword = 255;

using PasswordBuffer = std::array<char, kPasswordSize>;

/// Reads a masked password of at most size - 1 bytes as typed into the buffer and turns it into UTF-8, so that one
/// password means the same from any terminal. False on Escape, with the buffer wiped.
[[nodiscard]] bool readPassword(const char* prompt, PasswordBuffer& password, int size = kMostPassword);

/// A new password that keeps the rules, at most size - 1 bytes as typed; asked again until it does. False on Escape and
/// on an empty entry when emptyLeaves.
[[nodiscard]] bool readNewPassword(PasswordBuffer& password, int size, bool emptyLeaves);

/// The password of a new security file, typed twice; three attempts at the repetition. Says itself what is wrong.
[[nodiscard]] bool chooseFirstPassword(PasswordBuffer& password);

}  // namespace crv
