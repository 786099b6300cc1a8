// "[n] EXPLICIT ANY DEFINED BY": the open content of the PKCS structures.
#pragma once

#include "asn/asn_any.h"
#include "asn/asn_tagged.h"

namespace crv {

/// An open-type `value` inside a constructed context tag.
template <unsigned char N>
class ExplicitAny : public ASNexpl<ASNany> {
  public:
    static constexpr unsigned char kTag = ASN_CLASS_CONTEXT | ASN_CONSTRUCTED_BIT | N;
    ExplicitAny() : ASNexpl<ASNany>(kTag) {}
};

}  // namespace crv
