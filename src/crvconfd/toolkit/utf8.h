// UTF-8 texts by bytes.
#pragma once

#include <cstddef>
#include <string_view>

namespace crv {

/// At most count bytes of a text, not ending inside a character.
[[nodiscard]] std::string_view cutText(std::string_view text, size_t count);

}  // namespace crv
