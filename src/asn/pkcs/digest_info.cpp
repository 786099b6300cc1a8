#include "asn/pkcs/digest_info.h"

namespace crv {

DigestInfo::DigestInfo(KcHashAlgo hash, ByteView digestOctets)
    : digestAlgorithm(hashAlgorithm(hash)), digest(digestOctets) {}

MemberTable DigestInfo::members() const {
    static constexpr Member kMembers[] = {member<&DigestInfo::digestAlgorithm>, member<&DigestInfo::digest>};
    return kMembers;
}

}  // namespace crv
