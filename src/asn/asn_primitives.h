// The primitive types of X.690 8: BOOLEAN, INTEGER, ENUMERATED, BIT STRING, OCTET STRING, NULL.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "asn/asn_object.h"

namespace crv {

/// A type whose value is kept as its content octets.
class ASNprimitive : public ASNobject {
  public:
    /// Content octets.
    [[nodiscard]] ByteView contents() const { return contents_.view(); }

  protected:
    using ASNobject::ASNobject;

    [[nodiscard]] long read_contents(GenericFile* in, long len) override;
    [[nodiscard]] bool write_contents(GenericFile* out) const override;
    [[nodiscard]] long lenOfBody() const override { return static_cast<long>(contents_.size()); }
    /// Whether content octets that were read are of the type; asked after each reading.
    [[nodiscard]] virtual bool validContents() const { return true; }
    void setContents(ByteView octets);

    HeldBytes contents_;
};

/// OCTET STRING. The constructed form (X.690 8.7.3) is read too, its segments joined.
class ASNoctstr : public ASNprimitive {
  public:
    static constexpr unsigned char kTag = 4;
    ASNoctstr() : ASNoctstr(kTag) { setFlag(kSegments); }
    explicit ASNoctstr(ByteView octets) : ASNoctstr() { build(octets); }

    [[nodiscard]] ByteView value() const { return contents(); }
    [[nodiscard]] std::string_view text() const { return asText(contents()); }

    virtual void build(const char* data, unsigned long length);
    virtual void build(std::string& text);
    void build(ByteView octets) { setContents(octets); }
    void build(std::string_view text) { setContents(asBytes(text)); }

    using ASNobject::doGetLenOfBody;
    /// Body length of contents that come piecewise; -1 for the indefinite form when their length is not known
    /// (negative).
    [[nodiscard]] virtual long doGetLenOfBody(int contents) const;
    [[nodiscard]] unsigned char getDefaultTag() const override { return kTag; }

    friend bool operator==(const ASNoctstr& a, const ASNoctstr& b);

  protected:
    explicit ASNoctstr(unsigned char tag) : ASNprimitive(tag) {}

    [[nodiscard]] long read_contents(GenericFile* in, long len) override;
    [[nodiscard]] long read_ndfl_contents(GenericFile* in, long maxLen) override;
    void allocateStreamCtx() override;
    [[nodiscard]] long doWriteContents(GenericFile* in, long len, bool last, GenericFile* out) override;

  private:
    [[nodiscard]] long joinSegments(BodyCursor body);
};

/// INTEGER of any size, kept as its content octets: two's complement, big-endian, never empty.
class ASNinteger : public ASNoctstr {
  public:
    static constexpr unsigned char kTag = 2;
    static constexpr size_t kLongestDecimal = 1024;
    ASNinteger() : ASNinteger(0L) {}
    explicit ASNinteger(long value) : ASNinteger(kTag, value) {}

    void setValue(long value);
    /// The shortest encoding of a non-negative number given by its big-endian octets (leading zeros allowed).
    void setUnsigned(ByteView magnitude);
    /// The value, nothing when it does not fit.
    [[nodiscard]] std::optional<long> value() const;
    [[nodiscard]] long valueOr(long other) const { return value().value_or(other); }
    [[nodiscard]] bool isNegative() const { return !contents_.empty() && (contents().front() & 0x80) != 0; }
    /// Big-endian octets of a non-negative number without leading zeros (empty for 0).
    [[nodiscard]] ByteView magnitude() const;
    /// Decimal digits, with "-" for a negative number. Their time grows with the square of the length, so contents of
    /// more than kLongestDecimal octets, which no honest number has, come as "0x" and hexadecimal digits.
    [[nodiscard]] std::string decimal() const;
    [[nodiscard]] unsigned char getDefaultTag() const override { return kTag; }

  protected:
    ASNinteger(unsigned char tag, long value);
    [[nodiscard]] bool validContents() const override { return !contents_.empty(); }
};

/// ENUMERATED.
class ASNenum : public ASNinteger {
  public:
    static constexpr unsigned char kTag = 10;
    explicit ASNenum(long value = 0) : ASNinteger(kTag, value) {}
    [[nodiscard]] unsigned char getDefaultTag() const override { return kTag; }
};

/// BOOLEAN. Any octet but 0 is read as true; true is written as 0xFF (X.690 11.1).
class ASNbool : public ASNprimitive {
  public:
    static constexpr unsigned char kTag = 1;
    explicit ASNbool(bool value = false);

    void setValue(bool value);
    [[nodiscard]] bool value() const { return contents_.view()[0] != 0; }
    [[nodiscard]] unsigned char getDefaultTag() const override { return kTag; }

  protected:
    [[nodiscard]] bool validContents() const override { return contents_.size() == 1; }
};

/// NULL.
class ASNnull : public ASNprimitive {
  public:
    static constexpr unsigned char kTag = 5;
    ASNnull() : ASNprimitive(kTag) {}
    [[nodiscard]] unsigned char getDefaultTag() const override { return kTag; }

  protected:
    [[nodiscard]] bool validContents() const override { return contents_.empty(); }
};

/// BIT STRING in primitive form. Bit 0 is the first, most significant bit of the first octet.
class ASNbitstr : public ASNprimitive {
  public:
    static constexpr unsigned char kTag = 3;
    ASNbitstr();

    void build(ByteView octets, int unusedBits = 0);
    /// A named bit list (X.690 11.2.2): bit i of `bits` becomes bit i of the string, trailing zeros are dropped.
    void setNamedBits(uint32_t bits);

    /// The octets behind the count of unused bits.
    [[nodiscard]] ByteView octets() const { return contents().subspan(1); }
    [[nodiscard]] int unusedBits() const { return contents()[0]; }
    [[nodiscard]] size_t bitCount() const { return octets().size() * 8 - static_cast<size_t>(unusedBits()); }
    /// Whether bit `index` is there and set.
    [[nodiscard]] bool bit(size_t index) const;
    /// The first 32 bits as for `setNamedBits`.
    [[nodiscard]] uint32_t namedBits() const;
    [[nodiscard]] unsigned char getDefaultTag() const override { return kTag; }

  protected:
    [[nodiscard]] bool validContents() const override;
};

}  // namespace crv
