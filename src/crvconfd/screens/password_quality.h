// What may become a password, and the Polish plural forms that say so.
#pragma once

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

/// 1 for a good password. Otherwise shows the rules on rows 22 and 23 until a key or a time-out, clears both and
/// answers 0.
[[nodiscard]] int goodPassQuality(const char* password);

/// The Polish form of a counted noun: `one` for 1, `few` for 2 to 4, `many` otherwise.
[[nodiscard]] const char* declension(int count, const char* one, const char* few, const char* many);

}  // namespace crv
