// Any octets as a private key, plain or under a password, and as the structures inside.
#include "asn/pkcs/dsa_private_key.h"
#include "asn/pkcs/ec_private_key.h"
#include "asn/pkcs/km_key_file.h"
#include "asn/pkcs/rsa_private_key.h"
#include "cheap_pbe.h"
#include "crypto/crypto_error.h"
#include "round_trip.h"

using namespace crv;

namespace {

template <class Key>
void throughPkcs8(const PrivateKeyInfo& info) {
    Key key;
    Key again;
    if (key.fromPrivateKeyInfo(info)) fuzz::check(again.fromPrivateKeyInfo(key.toPrivateKeyInfo()));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const ByteView octets(data, size);
    static const PbePassword password("x");
    PrivateKeyInfo info;
    if (fuzz::roundTrip(octets, info)) {
        static_cast<void>(info.keyUsage());
        throughPkcs8<RSAPrivateKey>(info);
        throughPkcs8<DSAPrivateKey>(info);
        throughPkcs8<ECPrivateKey>(info);
    }
    EncryptedPrivateKeyInfo enciphered;
    if (fuzz::roundTrip(octets, enciphered) && fuzz::pbeIsCheap(octets)) {
        try {
            static_cast<void>(enciphered.decrypt(password));
        } catch (const CryptoError&) {
        }
    }
    RSAPrivateKey rsa;
    static_cast<void>(fuzz::roundTrip(octets, rsa));
    ECPrivateKey ec;
    static_cast<void>(fuzz::roundTrip(octets, ec));
    KMKeyFile record;
    if (fuzz::roundTrip(octets, record)) static_cast<void>(record.digestIsRight());
    return 0;
}
