// The loader of the security file from hostile octets. The first octet says what the rest is: a whole file, its
// authenticated contents or the bags of one content, the latter two under a right authentication code.
#include <cstdlib>

#include "asn/known_oids.h"
#include "asn/pkcs/pfx.h"
#include "crypto/crypto_error.h"
#include "keystore/key_pairing.h"
#include "keystore/security_file.h"

using namespace crv;

namespace {

Bytes underMac(ByteView safe) {
    Pfx pfx;
    pfx.authSafe.buildData(safe);
    pfx.macData.emplace().macSalt.build(asBytes("saltsalt"));
    pfx.macData->mac = DigestInfo(KcHashAlgo::Sha1, pfx.computeHMAC_SHA1(Pfx::convertToUTF16BE("pass")));
    return pfx.encoded();
}

Bytes fileOf(uint8_t form, ByteView octets) {
    if (form % 3 == 0) return toBytes(octets);
    if (form % 3 == 1) return underMac(octets);
    AuthenticatedSafe safe;
    safe.add().buildData(octets);
    return underMac(safe.encoded());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const SecretText password("pass");
    LoadedSecurityFile file;
    KeyStoreContents contents;
    if (readSecurityFile(fileOf(data[0], {data + 1, size - 1}), password, true, file) != kKmOk) return 0;
    if (analyzeKeysAndCerts(file, false, contents) != kKmOk) return 0;
    contents = mergeContents({}, contents, contents);
    // What was read can be written and read again.
    SecretArray<20> salt;
    Bytes octets;
    LoadedSecurityFile again;
    if (buildSecurityFile(contents, password, salt, octets) != kKmOk) std::abort();
    if (readSecurityFile(octets, password, true, again) != kKmOk) std::abort();
    if (again.keys.size() != file.keys.size() || again.certificates.size() != file.certificates.size()) std::abort();
    return 0;
}
