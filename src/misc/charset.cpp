#include "misc/charset.h"

#include <iconv.h>

#include <memory>
#include <type_traits>

#include "misc/utf8.h"

namespace crv {

bool convertCharset(const std::string& from, const std::string& to, std::string_view text, SecretBytes& out,
                    char replacement) {
    constexpr size_t kMostOctets = 8;  // of one converted character, those of a transliteration included
    iconv_t opened = iconv_open(to.c_str(), from.c_str());
    // NOLINTNEXTLINE(performance-no-int-to-ptr): the value that iconv_open answers a failure with
    if (opened == reinterpret_cast<iconv_t>(-1)) return false;
    const std::unique_ptr<std::remove_pointer_t<iconv_t>, int (*)(iconv_t)> conversion(opened, iconv_close);
    out.resize(text.size() * kMostOctets);
    char* to_ = reinterpret_cast<char*>(out.data());
    size_t room = out.size();
    while (!text.empty()) {
        char* at = const_cast<char*>(text.data());
        size_t left = text.size();
        const bool whole = iconv(conversion.get(), &at, &left, &to_, &room) != static_cast<size_t>(-1);
        text.remove_prefix(text.size() - left);
        if (whole) break;
        if (replacement == 0 || room == 0) return false;
        (void)takeCharacter(text);
        *to_++ = replacement;
        --room;
    }
    out.resize(out.size() - room);
    return true;
}

}  // namespace crv
