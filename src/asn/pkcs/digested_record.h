// Records that end with a digest of themselves.
#pragma once

#include "asn/asn_sequence.h"

namespace crv {

/// A SEQUENCE whose last member is an OCTET STRING with the SHA-1 digest of the record. What the digest covers is the
/// header of the whole record and all members before the digest, never the digest itself.
class DigestedRecord : public ASNsequenceF {
  public:
    static constexpr size_t kDigestLength = 20;

    /// Stores the digest.
    void fillDigest();
    /// Whether there is a digest and it is right.
    [[nodiscard]] bool digestIsRight() const;
    [[nodiscard]] bool computeDigest(KcHashAlgo algo, unsigned char* out, long outLen) const override;

  protected:
    /// The digest member, made when it is absent; of 20 octets.
    [[nodiscard]] virtual ASNoctstr& digestField() = 0;
    /// Its octets, empty when it is absent.
    [[nodiscard]] virtual ByteView digestOctets() const = 0;
    void digestOfBody(KcHash* hash) const override;
};

}  // namespace crv
