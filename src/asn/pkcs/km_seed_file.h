// The seed record of the key manager.
#pragma once

#include "asn/asn_primitives.h"
#include "asn/pkcs/digested_record.h"

namespace crv {

/// SEQUENCE {seed OCTET STRING (20), digest OCTET STRING (20)}; a fresh one holds zeros in both.
class KMSeedFile : public DigestedRecord {
  public:
    static constexpr size_t kSeedLength = 20;

    ASNoctstr seed;
    ASNoctstr digest;

    KMSeedFile();

  protected:
    [[nodiscard]] MemberTable members() const override;
    [[nodiscard]] bool validMembers() const override;
    [[nodiscard]] ASNoctstr& digestField() override { return digest; }
    [[nodiscard]] ByteView digestOctets() const override { return digest.value(); }
};

}  // namespace crv
