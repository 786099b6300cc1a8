// Common base of the objects handed out through the library.
#pragma once

#include "asn/asn_object.h"

namespace crv {

/// An object of the library that its user holds by a handle and gives back through the library. Most have no encoding:
/// reading answers 0 and writing false unless a class says otherwise.
class CRVObject : public ASNobject {
  public:
    [[nodiscard]] unsigned char getDefaultTag() const override { return ASN_TAG_ANY; }

  protected:
    CRVObject() : ASNobject(ASN_TAG_ANY) {}

    [[nodiscard]] long read_contents(GenericFile*, long) override { return 0; }
    [[nodiscard]] bool write_contents(GenericFile*) const override { return false; }
    [[nodiscard]] long lenOfBody() const override { return 0; }
};

}  // namespace crv
