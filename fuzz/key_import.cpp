// Public and private keys from hostile octets: a key that exports to what it came from, or a CryptoError.
#include <cstdlib>

#include "crypto/crypto_error.h"
#include "crypto/private_key.h"

using namespace crv;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const ByteView input(data, size);
    try {
        const PublicKey key = PublicKey::fromSpki(input);
        if (key.toSpki() != toBytes(input)) std::abort();
        (void)key.verify(key.scheme(), KcHashAlgo::Sha1, Bytes(20, 1), Bytes(64, 2));
    } catch (const CryptoError&) {
    }
    try {
        const PrivateKey key = PrivateKey::fromPkcs8(input);
        if (PrivateKey::fromPkcs8(key.toPkcs8()).publicKey() != key.publicKey()) std::abort();
    } catch (const CryptoError&) {
    }
    return 0;
}
