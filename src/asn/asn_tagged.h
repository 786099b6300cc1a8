// Tagged types: "[n] IMPLICIT T" and "[n] EXPLICIT T" as C++ types, and the wrapper ASNexpl.
#pragma once

#include <concepts>
#include <utility>

#include "asn/asn_object.h"

namespace crv {

/// [N] IMPLICIT T: a T with a context tag in the place of its own.
template <unsigned char N, class T>
class Implicit : public T {
  public:
    static_assert(T::kTag != ASN_TAG_ANY, "open types and choices have no tag to replace: use Explicit");
    static constexpr unsigned char kTag = ASN_CLASS_CONTEXT | N;
    Implicit() { this->setTag(kTag); }
    /// With the contents of a T.
    explicit Implicit(const T& value) : Implicit() { T::operator=(value); }
    using T::operator=;
};

/// [N] EXPLICIT T: a T whose whole encoding stands inside a constructed context tag.
template <unsigned char N, class T>
class Explicit : public T {
  public:
    static constexpr unsigned char kTag = ASN_CLASS_CONTEXT | ASN_CONSTRUCTED_BIT | N;
    Explicit() {
        this->setExplicitTagsOn();
        this->setTag(kTag);
    }
    explicit Explicit(const T& value) : Explicit() { T::operator=(value); }
    using T::operator=;
};

/// An explicitly tagged T that is a part of its own: an outer constructed tag around the complete encoding of `value`.
/// The tag is given at run time; 255 accepts any constructed one.
template <class T>
class ASNexpl : public ASNobject {
  public:
    static constexpr unsigned char kTag = ASN_TAG_ANY;
    explicit ASNexpl(unsigned char tag = kTag) : ASNobject(tag) { setFlag(kConstructed); }

    T value;

    [[nodiscard]] unsigned char getDefaultTag() const override { return kTag; }

  protected:
    [[nodiscard]] long doReadHeader(GenericFile* in, long* len) override {
        const int identifier = in->peek();
        if (identifier >= 0 && (identifier & ASN_CONSTRUCTED_BIT) == 0) return 0;
        return ASNobject::doReadHeader(in, len);
    }
    [[nodiscard]] long read_contents(GenericFile* in, long len) override { return readOne({*in, len}); }
    [[nodiscard]] long read_ndfl_contents(GenericFile* in, long maxLen) override {
        return readOne(BodyCursor::indefinite(*in, maxLen));
    }
    [[nodiscard]] bool write_contents(GenericFile* out) const override { return value.write(out); }
    [[nodiscard]] long lenOfBody() const override { return value.getLength(); }
    void releaseParts() override {
        ASNobject::releaseParts();
        releasePart(value);
    }

  private:
    [[nodiscard]] long readOne(BodyCursor body) {
        const long used = body.read(value, modeOfParts());
        return used <= 0 ? used : static_cast<long>(body.atEnd());
    }
};

}  // namespace crv
