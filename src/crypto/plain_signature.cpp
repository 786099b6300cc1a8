#include "crypto/plain_signature.h"

#include <algorithm>

#include "crypto/crypto_error.h"
#include "crypto/der.h"

namespace crv {

Bytes toDerSignature(ByteView plain) {
    if (plain.empty() || plain.size() % 2 != 0) return {};
    const size_t half = plain.size() / 2;
    const SecretBytes der =
        der::element(der::kSequence, {der::number(plain.first(half)), der::number(plain.subspan(half))});
    return {der.begin(), der.end()};
}

Bytes toPlainSignature(ByteView der, size_t half) {
    der::Reader outer(der);
    der::Reader numbers(outer.take(der::kSequence));
    outer.end();
    Bytes plain(2 * half);
    for (size_t end = half; end <= plain.size(); end += half) {
        const ByteView number = numbers.takeNumber();
        if (number.size() > half) throw CryptoError(CryptoFailure::BadKey, "a number longer than the group's order");
        std::ranges::copy(number, plain.begin() + static_cast<std::ptrdiff_t>(end - number.size()));
    }
    numbers.end();
    return plain;
}

}  // namespace crv
