// What the user types on the message row. An entry that does not fit is shown again after a message:
// nothing is ever cut in silence.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "crvconfd/toolkit/toolkit.h"
#include "misc/secret.h"

namespace crv {

/// A line of at most so many octets, edited from the start text on; without spaces when word is set. `other` sees the
/// keys that edit nothing. Nothing after Escape.
[[nodiscard]] std::optional<std::string> askLine(const char* prompt, size_t longest, bool word = false,
                                                 const std::string& start = {}, const LineKey& other = {});

/// Looks at a password's octets as typed, with a terminating zero; false, after a message, asks again.
using PasswordRule = std::function<bool(const char* typed)>;

/// A masked password of at most so many octets as typed, in UTF-8, so that it means the same from any terminal. Nothing
/// after Escape.
[[nodiscard]] std::optional<SecretText> askPassword(const char* prompt, size_t longest, const PasswordRule& rule = {});

}  // namespace crv
