#include "asn/pkcs/digested_record.h"

#include <algorithm>
#include <array>

#include "asn/asn_primitives.h"
#include "asn/pkcs/secret_encoding.h"
#include "crypto/kc_hash.h"

namespace crv {

void DigestedRecord::digestOfBody(KcHash* hash) const {
    for (const Member& row : members().first(members().size() - 1))
        if (const ASNobject* part = row.written(*this)) hash->update(encodedSecret(*part));
}

bool DigestedRecord::computeDigest(KcHashAlgo algo, unsigned char* out, long outLen) const {
    const size_t length = hashLength(algo);
    if (length == 0 || outLen < static_cast<long>(length)) return false;
    KcHash hash(algo);
    uint8_t header[6] = {identifier()};
    hash.update(header, 1 + static_cast<size_t>(write_length(lenOfBody(), header + 1)));
    digestOfBody(&hash);
    hash.final({out, length});
    return true;
}

void DigestedRecord::fillDigest() {
    assertChangeable();
    ASNoctstr& field = digestField();
    std::array<uint8_t, kDigestLength> digest{};
    field.build(digest);  // its length counts in the header
    static_cast<void>(computeDigest(KcHashAlgo::Sha1, digest.data(), kDigestLength));
    field.build(digest);
}

bool DigestedRecord::digestIsRight() const {
    std::array<uint8_t, kDigestLength> digest{};
    return computeDigest(KcHashAlgo::Sha1, digest.data(), kDigestLength) && std::ranges::equal(digest, digestOctets());
}

}  // namespace crv
