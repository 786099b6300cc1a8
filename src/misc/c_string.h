// Texts as C hands them over.
#pragma once

#include <string>
#include <string_view>

namespace crv {

/// The text, or an empty one for a null pointer.
inline std::string_view viewOrEmpty(const char* text) {
    return text ? text : "";
}
inline std::string orEmpty(const char* text) {
    return std::string(viewOrEmpty(text));
}

}  // namespace crv
