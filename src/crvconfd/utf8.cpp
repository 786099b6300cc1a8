#include "crvconfd/utf8.h"

#include <algorithm>

namespace crv {

namespace {
bool isTail(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0) == 0x80;
}
}  // namespace

std::string_view cutText(std::string_view text, size_t count) {
    if (text.size() <= count) return text;
    while (count > 0 && isTail(text[count])) --count;
    return text.substr(0, count);
}

size_t countCharacters(std::string_view text) {
    return text.size() - static_cast<size_t>(std::count_if(text.begin(), text.end(), isTail));
}

size_t bytesOf(std::string_view text, size_t count) {
    size_t at = 0;
    for (; at < text.size() && count > 0; --count) {
        ++at;
        while (at < text.size() && isTail(text[at])) ++at;
    }
    return at;
}

std::string fitText(std::string_view text, size_t width) {
    std::string fitted(text.substr(0, bytesOf(text, width)));
    fitted.append(width - countCharacters(fitted), ' ');
    return fitted;
}

}  // namespace crv
