#include "crvconfd/toolkit/utf8.h"

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

}  // namespace crv
