#include "crvctl/texts.h"

#include <iconv.h>
#include <langinfo.h>
#include <libintl.h>

#include <clocale>
#include <cstdlib>
#include <filesystem>

#include "misc/utf8.h"

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
    iconv_t conversion = iconv_open((std::string(charset) + "//TRANSLIT").c_str(), "UTF-8");
    std::string out;
    // NOLINTNEXTLINE(performance-no-int-to-ptr): the value that iconv_open answers a failure with
    if (conversion == reinterpret_cast<iconv_t>(-1)) return std::string(text);
    char* from = const_cast<char*>(text.data());
    size_t left = text.size();
    while (left > 0) {
        char block[256];
        char* to = block;
        size_t room = sizeof block;
        const size_t converted = iconv(conversion, &from, &left, &to, &room);
        out.append(block, sizeof block - room);
        if (converted != static_cast<size_t>(-1) || left == 0 || room < sizeof block / 2) continue;
        out += '?';
        do {
            ++from;
            --left;
        } while (left > 0 && (static_cast<unsigned char>(*from) & 0xC0U) == 0x80U);
    }
    iconv_close(conversion);
    return out;
}

std::string printable(std::string_view text) {
    std::string line;
    while (!text.empty()) {
        const char32_t character = takeUtf8(text);
        isHarmful(character) ? line.push_back('?') : appendUtf8(line, character);
    }
    return line;
}

}  // namespace crv::ctl
