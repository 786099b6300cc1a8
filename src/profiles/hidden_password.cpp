#include "profiles/hidden_password.h"

#include <sys/random.h>

#include <array>

#include "corvane/crverrors.h"
#include "crypto/cipher.h"
#include "crypto/crypto_error.h"
#include "misc/base64_file.h"
#include "misc/exceptions.h"

namespace crv {
namespace {

constexpr std::array<uint8_t, 16> kKey = {0x6B, 0x1D, 0xC4, 0x92, 0x0F, 0xE8, 0x53, 0xA7,
                                          0x3C, 0x71, 0xB9, 0x2E, 0xD6, 0x48, 0x95, 0xFA};
constexpr size_t kVector = 16;

}  // namespace

std::string hidePassword(const SecretText& password) {
    if (password.empty()) return {};
    Bytes hidden(kVector);
    if (getrandom(hidden.data(), kVector, 0) != static_cast<ssize_t>(kVector))
        throw CrvApiException(ECRV_INTERNAL_ERROR, "getrandom");
    const Bytes cipher = encipher(CipherAlgo::Aes128Cbc, kKey, hidden, password.bytes());
    hidden.insert(hidden.end(), cipher.begin(), cipher.end());
    return toBase64(hidden);
}

SecretText revealPassword(const std::string& hidden) {
    if (hidden.empty()) return {};
    const auto octets = fromBase64(hidden);
    try {
        if (octets && octets->size() > kVector) {
            const ByteView all = *octets;
            const auto plain = decipher(CipherAlgo::Aes128Cbc, kKey, all.first(kVector), all.subspan(kVector));
            return SecretText(asText(plain));
        }
    } catch (const CryptoError&) {
    }
    throw CrvApiException(ECRV_INV_REG, "Niepoprawnie zapisane hasło");
}

}  // namespace crv
