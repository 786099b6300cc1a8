#include "crypto/hmac.h"

#include <algorithm>

namespace crv {

SecretBytes hmac(KcHashAlgo algo, ByteView key, ByteView message) {
    KcHash hash(algo);
    SecretBytes pad(hashBlockLength(algo));
    SecretBytes mac(hash.length());
    if (key.size() > pad.size()) {
        hash.update(key);
        hash.final(std::span(pad).first(mac.size()));
    } else {
        std::copy(key.begin(), key.end(), pad.begin());
    }
    for (uint8_t& octet : pad) octet ^= 0x36;
    hash.update(pad);
    hash.update(message);
    hash.final(mac);
    for (uint8_t& octet : pad) octet ^= 0x36 ^ 0x5C;
    hash.update(pad);
    hash.update(mac);
    hash.final(mac);
    return mac;
}

}  // namespace crv
