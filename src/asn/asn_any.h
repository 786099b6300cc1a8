// An open-type value: any element, kept as its tag and body.
#pragma once

#include "asn/asn_primitives.h"

namespace crv {

/// Value of an open type (X.680 3.8.57): the identifier octet and the body octets as read. Typed objects read
/// themselves from it with `object << any`.
class ASNany : public ASNprimitive {
  public:
    static constexpr unsigned char kTag = ASN_TAG_ANY;
    explicit ASNany(unsigned char tag = kTag) : ASNprimitive(tag), constructedWith_(tag) {}
    /// The encoding of the object.
    explicit ASNany(const ASNobject& value);

    ASNany(const ASNany&) = default;
    ASNany(ASNany&&) noexcept = default;
    /// Takes the other's tag over, too.
    ASNany& operator=(const ASNany& other);
    ASNany& operator=(ASNany&& other);  // NOLINT(performance-noexcept-move-constructor): the assertion may fail
    ~ASNany() override = default;

    /// As for every object, after the tag that it was constructed with was restored.
    [[nodiscard]] long read(GenericFile* in, long maxLen = 0, unsigned char f = 0) override;

    /// An element with this identifier octet and body.
    void build(unsigned char tag, const char* data, long len);
    void build(unsigned char tag, ByteView body);
    /// One whole encoding; false when the octets are not exactly one element.
    [[nodiscard]] bool build(const char* encoding, long len);
    [[nodiscard]] bool build(ByteView encoding);
    /// The encoding of an object.
    void build(const ASNobject& value);

    /// Whether it holds an element at all.
    [[nodiscard]] bool isSet() const { return tag_ != ASN_TAG_ANY; }
    /// Identifier octet of the value itself, whatever explicit tag stands around it.
    [[nodiscard]] unsigned char valueTag() const { return tag_; }
    /// The value's whole encoding, without an explicit tag around it; valid until the object changes.
    [[nodiscard]] ByteView getMemory() const;
    /// Reads a typed object from the value, in the given mode: with ASN_FLAG_CONST it refers to the octets held here.
    [[nodiscard]] bool decode(ASNobject& value, unsigned char f = 0) const { return value.readExactly(getMemory(), f); }

    [[nodiscard]] unsigned char getDefaultTag() const override { return kTag; }
    friend bool operator==(const ASNany& a, const ASNany& b);

  protected:
    [[nodiscard]] long read_ndfl_contents(GenericFile* in, long maxLen) override;

  private:
    void takeTag(const ASNany& other);

    unsigned char constructedWith_;
    mutable HeldBytes memory_;  // made by getMemory where the encoding was not kept
};

}  // namespace crv
