#include "misc/secret.h"

#include <openssl/crypto.h>

#include <utility>

namespace crv {

void wipeMemory(void* memory, size_t length) noexcept {
    if (length != 0) OPENSSL_cleanse(memory, length);
}

void wipe(SecretBytes& secret) noexcept {
    secret.resize(secret.capacity());  // cannot allocate; what shrinking left behind goes too
    wipeMemory(secret.data(), secret.size());
    secret.clear();
}

SecretText::SecretText(std::string_view text) {
    append(text);
}

SecretText& SecretText::operator=(SecretText other) noexcept {
    chars_.swap(other.chars_);
    return *this;
}

const char* SecretText::c_str() const noexcept {
    return chars_.empty() ? "" : reinterpret_cast<const char*>(chars_.data());
}

void SecretText::append(std::string_view more) {
    if (more.empty()) return;
    SecretBytes grown;
    grown.reserve(size() + more.size() + 1);
    for (std::string_view part : {view(), more}) grown.insert(grown.end(), part.begin(), part.end());
    grown.push_back(0);
    chars_.swap(grown);
}

void SecretText::truncate(size_t newSize) noexcept {
    if (newSize >= size()) return;
    wipeMemory(chars_.data() + newSize, chars_.size() - newSize);
    chars_.resize(newSize + 1);
}

void SecretText::clear() noexcept {
    wipe(chars_);
}

bool operator==(const SecretText& a, const SecretText& b) noexcept {
    return equalConstantTime(a.bytes(), b.bytes());
}

bool equalConstantTime(ByteView a, ByteView b) noexcept {
    return a.size() == b.size() && (a.empty() || CRYPTO_memcmp(a.data(), b.data(), a.size()) == 0);
}

}  // namespace crv
