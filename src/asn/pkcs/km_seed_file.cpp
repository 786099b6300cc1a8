#include "asn/pkcs/km_seed_file.h"

namespace crv {

KMSeedFile::KMSeedFile() : seed(Bytes(kSeedLength)), digest(Bytes(kDigestLength)) {}

MemberTable KMSeedFile::members() const {
    static constexpr Member kMembers[] = {member<&KMSeedFile::seed>, member<&KMSeedFile::digest>};
    return kMembers;
}

bool KMSeedFile::validMembers() const {
    return seed.value().size() == kSeedLength && digest.value().size() == kDigestLength;
}

}  // namespace crv
