// Any octets as a PKCS#12 file, and as the contents of one whose authentication code is right.
#include "asn/pkcs/pfx.h"

#include "cheap_pbe.h"
#include "der_mutator.h"
#include "round_trip.h"

CRV_MUTATE_DER

using namespace crv;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const ByteView octets(data, size);
    if (!fuzz::pbeIsCheap(octets)) return 0;
    static const PbePassword password("x");
    PfxContents contents;
    Pfx pfx;
    if (fuzz::roundTrip(octets, pfx) && (!pfx.macData || pfx.macData->iterations.valueOr(0) < 5000))
        static_cast<void>(pfx.getContents(password, contents));
    Pfx authentic;
    authentic.authSafe.buildData(octets);
    authentic.macData.emplace();
    authentic.macData->mac = DigestInfo(KcHashAlgo::Sha1, authentic.computeHMAC_SHA1(password.unicode()));
    const PfxResult result = authentic.getContents(password, contents);
    fuzz::check(result == PfxResult::Ok || result == PfxResult::Malformed || result == PfxResult::Unsupported);
    for (const PfxContents::Key& key : contents.keys) static_cast<void>(key.key.keyUsage());
    return 0;
}
