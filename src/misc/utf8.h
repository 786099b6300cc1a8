// UTF-8 (RFC 3629): taking texts apart, putting them together, cutting them.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>

namespace crv {

/// Stands for what is no character.
constexpr char32_t kReplacementCharacter = 0xFFFD;

/// Takes the next character of a text that is not empty off its front. Where none begins (overlong forms, surrogates,
/// numbers beyond U+10FFFF) one octet is taken and the answer is nothing.
[[nodiscard]] std::optional<char32_t> takeCharacter(std::string_view& text);
/// The same with U+FFFD for each octet that begins none.
[[nodiscard]] inline char32_t takeUtf8(std::string_view& text) {
    return takeCharacter(text).value_or(kReplacementCharacter);
}

/// Whether the text is nothing but characters.
[[nodiscard]] bool isUtf8(std::string_view text);

/// Whether the number is a character's (surrogates are none).
[[nodiscard]] bool isCharacter(char32_t character);

/// The octets of a character and how many they are; those of U+FFFD for a number that is none.
struct Utf8Character {
    std::array<char, 4> octets;
    size_t size;
    [[nodiscard]] std::string_view view() const { return {octets.data(), size}; }
};
[[nodiscard]] Utf8Character toUtf8(char32_t character);
inline void appendUtf8(std::string& out, char32_t character) {
    out += toUtf8(character).view();
}

/// At most count bytes of a text, not ending inside a character.
[[nodiscard]] std::string_view cutText(std::string_view text, size_t count);

/// Whether a character does something else than show itself: controls, separators of lines and paragraphs, marks of no
/// width or that change the direction of writing. Texts of others are shown with such characters escaped.
[[nodiscard]] bool isHarmful(char32_t character);
/// The text for a line of a terminal: harmful characters and octets that are none become "?".
[[nodiscard]] std::string harmlessUtf8(std::string_view text);

}  // namespace crv
