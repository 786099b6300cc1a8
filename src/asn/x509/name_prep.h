// How values of names compare (RFC 5280 7.1): the string preparation of RFC 4518 2, with Unicode case folding.
#pragma once

#include <string>
#include <string_view>

namespace crv {

/// The form under which equal values are equal octets: characters that mean nothing dropped, every space a plain one
/// and single, none at the ends, letter case folded, NFKC.
[[nodiscard]] std::string preparedText(std::string_view utf8);
/// The same for the letters and spaces of ASCII only: the form of databases written before Unicode folding.
[[nodiscard]] std::string preparedAsciiText(std::string_view utf8);

}  // namespace crv
