// What may become a password of a security file.
#pragma once

#include "misc/secret.h"

namespace crv {

/// Results of passTest: the first rule that the password breaks, upper case before other characters before lower case.
enum PasswordFault : int {
    kPasswordGood = 0,
    kPasswordTooShort = 1,
    kPasswordNoUpper = 2,
    kPasswordNoLower = 3,
    kPasswordNoOther = 4,
    kPasswordMissing = 5,
};

/// Fewest bytes of a password.
inline constexpr int kPasswordLength = 8;

/// Looks at the password byte by byte, as typed, through the character classes of the current locale; a byte is a
/// signed character. Every byte that is not alphabetic counts as another character: so do the bytes of a multi-byte
/// one.
[[nodiscard]] int passTest(const char* password);

/// Throws OpError (WeakPassword) with the rule that the password breaks.
void demandGoodPassword(const SecretText& password);

}  // namespace crv
