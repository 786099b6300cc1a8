#include "asn/x509/signed_part.h"

#include "asn/x509/sign_algo.h"

namespace crv {

bool isPartSigned(const ASNobject& part, const AlgorithmIdentifier& algorithm, const ASNbitstr& signature,
                  const PublicKey& key) {
    if (signature.unusedBits() != 0) return false;
    if (const ByteView kept = part.keptEncoding(); !kept.empty())
        return verifySignature(key, algorithm, kept, signature.octets());
    return verifySignature(key, algorithm, part.encoded(), signature.octets());
}

}  // namespace crv
