// Display encoding: the program keeps UTF-8 and converts every text that it shows by the one process-wide encoding.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace crv {

/// The letter of each encoding is its value, so it can be printed and compared as it stands.
enum class DisplayEncoding : char { Utf8 = 'U', Latin2 = 'L', Windows1250 = 'W', Ascii = 'B' };

/// The encoding in force; UTF-8 until plStandard chooses another.
[[nodiscard]] DisplayEncoding displayEncoding();

/// Sets the display encoding and returns its letter. A name chooses it: "LATIN2" gives L, "WINDOWS" W, "UTF8" and
/// "UTF-8" U, every other name B. Without a name it is detected: U, unless the first set one of LANG, LANGUAGE,
/// LC_MESSAGES, LC_ALL (in this order) holds a value that readLanguageCode knows.
char plStandard(const char* name = nullptr);

/// Letter of the encoding that a locale's value names after its last "." (the whole value without one), in any case; 0
/// for a name that is not known.
[[nodiscard]] char readLanguageCode(std::string_view value);

/// Base letter of a Polish letter's windows-1250 code; every other byte comes back as it is.
[[nodiscard]] unsigned char replaceNoPolish(unsigned char byte);

/// The text converted byte by byte for display; as long as the text. U and W leave it alone; B sends bytes with the
/// high bit through replaceNoPolish; L remaps the windows-1250 codes of Polish letters that ISO 8859-2 places
/// elsewhere. The tables are those of windows-1250 and are applied to whatever bytes the text holds.
[[nodiscard]] std::string pl(std::string_view text);

/// The text for a terminal: control characters (those of Unicode's C1 range too) are "?"; on one of UTF-8 also marks of
/// the direction of writing and what is no UTF-8.
[[nodiscard]] std::string printable(std::string_view text);

/// Turns bytes typed on a terminal of the display encoding into UTF-8 in place, so that one password means the same
/// from any terminal: windows-1250 and ISO 8859-2 bytes from 0x80 become two or three bytes, everything else stays.
/// buffer holds `length` bytes and has room for `size`, a terminating zero included, which is written. Returns the new
/// length, or -1 with the buffer wiped when the result does not fit.
[[nodiscard]] int typedToUtf8(char* buffer, int length, int size);

}  // namespace crv
