// UTF-8 texts by bytes and characters.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace crv {

/// At most count bytes of a text, not ending inside a character.
[[nodiscard]] std::string_view cutText(std::string_view text, size_t count);

/// Number of characters.
[[nodiscard]] size_t countCharacters(std::string_view text);

/// Number of bytes of the first count characters.
[[nodiscard]] size_t bytesOf(std::string_view text, size_t count);

/// The text in exactly width characters: cut, or filled up with spaces.
[[nodiscard]] std::string fitText(std::string_view text, size_t width);

}  // namespace crv
