#include "crvctl/texts.h"

#include <langinfo.h>
#include <libintl.h>

#include <clocale>
#include <cstdlib>
#include <filesystem>

#include "misc/charset.h"

namespace crv::ctl {
namespace {

constexpr const char* kDomain = "crvctl";

}  // namespace

void chooseLanguage(const std::string& language) {
    std::setlocale(LC_CTYPE, "");
    std::setlocale(LC_MESSAGES, "");
    if (!language.empty()) {
        // The C library looks at LANGUAGE in every locale but "C", so no locale of the language need be installed.
        std::setlocale(LC_MESSAGES, "C.UTF-8");
        setenv("LANGUAGE", language.c_str(), 1);
    }
    std::error_code error;
    const auto program = std::filesystem::read_symlink("/proc/self/exe", error);
    if (error) return;
    bindtextdomain(kDomain, (program.parent_path().parent_path() / "share" / "locale").c_str());
    bind_textdomain_codeset(kDomain, "UTF-8");
    textdomain(kDomain);
}

const char* tr(const char* text) {
    return *text ? gettext(text) : text;
}

std::string forTerminal(std::string_view text) {
    const std::string_view charset = nl_langinfo(CODESET);
    if (charset == "UTF-8") return std::string(text);
    SecretBytes out;
    return convertCharset("UTF-8", std::string(charset) + "//TRANSLIT", text, out, '?') ? std::string(asText(out))
                                                                                        : std::string(text);
}

}  // namespace crv::ctl
