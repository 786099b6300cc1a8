// Keeps the fuzz targets from spending their time in key derivations.
#pragma once

#include "asn/pkcs/pbe.h"

namespace crv::fuzz {

/// Whether no derivation parameters anywhere in the octets ask for more than a few iterations.
inline bool pbeIsCheap(ByteView octets) {
    constexpr long kFew = 5000;
    for (size_t at = 0; at < octets.size(); ++at) {
        if (octets[at] != 0x30) continue;
        PbeParameters pbe;
        Pbkdf2Parameters pbkdf2;
        ScryptParameters scrypt;
        if (pbe.readFromBuff(octets.subspan(at), ASN_FLAG_CONST) > 0 && pbe.iterations.valueOr(0) > kFew) return false;
        if (pbkdf2.readFromBuff(octets.subspan(at), ASN_FLAG_CONST) > 0 && pbkdf2.iterationCount.valueOr(0) > kFew)
            return false;
        if (scrypt.readFromBuff(octets.subspan(at), ASN_FLAG_CONST) > 0 && scrypt.costParameter.valueOr(0) > kFew)
            return false;
    }
    return true;
}

}  // namespace crv::fuzz
