#include "crypto/der.h"

#include "crypto/crypto_error.h"

namespace crv::der {

namespace {

[[noreturn]] void fail(const char* text) {
    throw CryptoError(CryptoFailure::BadKey, text);
}

}  // namespace

// X.690 8.1.3, definite lengths of up to four octets, in the shortest form (10.1).
Reader::Header Reader::header() const {
    if (rest_.size() < 2 || (rest_[0] & 0x1F) == 0x1F) fail("truncated key encoding");
    size_t size = 2;
    size_t content = rest_[1];
    if (content >= 0x80) {
        const size_t count = content & 0x7F;
        if (count == 0 || count > 4 || rest_.size() < 2 + count) fail("bad length in a key encoding");
        content = 0;
        for (size_t i = 0; i < count; ++i) content = content << 8 | rest_[2 + i];
        size += count;
        if (content < 0x80 || rest_[2] == 0) fail("bad length in a key encoding");
    }
    if (content > rest_.size() - size) fail("truncated key encoding");
    return {size, content};
}

ByteView Reader::take(uint8_t tag) {
    if (!at(tag)) fail("unexpected element in a key encoding");
    const Header head = header();
    const ByteView content = rest_.subspan(head.size, head.content);
    rest_ = rest_.subspan(head.size + head.content);
    return content;
}

ByteView Reader::takeElement() {
    const Header head = header();
    const ByteView element = rest_.first(head.size + head.content);
    rest_ = rest_.subspan(element.size());
    return element;
}

ByteView Reader::takeNumber() {
    ByteView octets = take(kInteger);
    if (octets.empty() || (octets[0] & 0x80) != 0) fail("negative number in a key");
    while (!octets.empty() && octets[0] == 0) octets = octets.subspan(1);
    return octets;
}

ByteView Reader::takeBits() {
    const ByteView content = take(kBitString);
    if (content.empty() || content[0] != 0) fail("key bits that are no octets");
    return content.subspan(1);
}

void Reader::end() const {
    if (!rest_.empty()) fail("trailing octets in a key encoding");
}

SecretBytes element(uint8_t tag, std::initializer_list<ByteView> parts) {
    size_t length = 0;
    for (const ByteView part : parts) length += part.size();
    SecretBytes out;
    out.reserve(length + 6);
    out.push_back(tag);
    if (length < 0x80) {
        out.push_back(static_cast<uint8_t>(length));
    } else {
        int count = 1;
        while (length >> (8 * count) != 0) ++count;
        out.push_back(static_cast<uint8_t>(0x80 | count));
        while (count-- > 0) out.push_back(static_cast<uint8_t>(length >> (8 * count)));
    }
    for (const ByteView part : parts) out.insert(out.end(), part.begin(), part.end());
    return out;
}

SecretBytes number(ByteView octets) {
    while (!octets.empty() && octets[0] == 0) octets = octets.subspan(1);
    constexpr uint8_t kZero[] = {0};
    const bool padded = octets.empty() || (octets[0] & 0x80) != 0;
    return element(kInteger, {padded ? ByteView(kZero) : ByteView(), octets});
}

SecretBytes bits(ByteView octets) {
    constexpr uint8_t kNoUnusedBits[] = {0};
    return element(kBitString, {kNoUnusedBits, octets});
}

}  // namespace crv::der
