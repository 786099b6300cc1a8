// Texts for people, in the language of the user.
#pragma once

#include <string>
#include <string_view>

namespace crv::ctl {

/// Takes the language from the locale (LC_MESSAGES), or from `language` ("pl", "en") when it is not empty. The
/// translations stand in ../share/locale beside the program's folder.
void chooseLanguage(const std::string& language);

/// The translation, in UTF-8.
const char* tr(const char* text);

/// UTF-8 as the terminal's character set wants it; what that does not have is transliterated or becomes "?".
std::string forTerminal(std::string_view text);

}  // namespace crv::ctl
