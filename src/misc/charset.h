// Conversion between character sets, by the names that the system knows.
#pragma once

#include <string>
#include <string_view>

#include "misc/secret.h"

namespace crv {

/// Converts the text; `replacement`, when given, stands for each character that cannot be converted. False when there
/// is no such conversion, or a character cannot be converted and nothing replaces it.
[[nodiscard]] bool convertCharset(const std::string& from, const std::string& to, std::string_view text,
                                  SecretBytes& out, char replacement = 0);

}  // namespace crv
