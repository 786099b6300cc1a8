// What may become a password, and the Polish plural forms that say so.
#pragma once

#include "ops/password_rules.h"

namespace crv {

/// 1 for a good password. Otherwise shows the rules on rows 22 and 23 until a key or a time-out, clears both and
/// answers 0.
[[nodiscard]] int goodPassQuality(const char* password);

/// The Polish form of a counted noun: `one` for 1, `few` for 2 to 4, `many` otherwise.
[[nodiscard]] const char* declension(int count, const char* one, const char* few, const char* many);

}  // namespace crv
