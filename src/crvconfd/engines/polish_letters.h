// Letters as Polish readers look for them in lists.
#pragma once

#include <string>
#include <string_view>

namespace crv {

/// The letter or digit of ASCII whose key a character shares ("l" for "Ł"), in lower case; 0 for anything else.
[[nodiscard]] char plainLetter(char32_t character);

/// Texts in UTF-8 are in Polish order when these are in the order of their octets: letters with marks behind those
/// without, letters' case left out.
[[nodiscard]] std::string polishSortKey(std::string_view text);

}  // namespace crv
