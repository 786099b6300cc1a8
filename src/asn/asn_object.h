// The base of every structure kept or exchanged in DER (X.690): one element that knows its tag and reads itself from
// and writes itself to a byte stream.
#pragma once

#include <memory>
#include <span>

#include "asn/held_bytes.h"
#include "misc/bytes.h"
#include "misc/generic_file.h"

namespace crv {

enum class KcHashAlgo : uint8_t;
class KcHash;
class ASNany;
class ASNoctstr;
class ASNStreamCtx;

/// Read mode: the object refers to the caller's memory, keeps its own encoding there and must not be changed.
constexpr unsigned char ASN_FLAG_CONST = 1;
/// Together with ASN_FLAG_CONST: copies the input first, so nothing of the caller's memory is needed afterwards.
constexpr unsigned char ASN_FLAG_COPY = 2;

/// A tag that takes whatever it meets.
constexpr unsigned char ASN_TAG_ANY = 255;
constexpr unsigned char ASN_CLASS_CONTEXT = 0x80;
constexpr unsigned char ASN_CLASS_BITS = 0xC0;
constexpr unsigned char ASN_CONSTRUCTED_BIT = 0x20;
constexpr unsigned char ASN_NUMBER_BITS = 0x1F;

/// Length octets (X.690 8.1.3) of a body of `length` octets; -1 stands for the indefinite form.
[[nodiscard]] int lenOfLen(long length);
/// Writes them into `out` (at most 5); returns their number.
int write_length(long length, uint8_t* out);
/// Reads them: the number of octets read; 0 when there are more than four length octets; -1 when the stream ends or
/// fails. `length` becomes -1 for the indefinite form. `raw`, when given, receives the octets (at most 5).
[[nodiscard]] int read_length(GenericFile& in, long& length, uint8_t* raw = nullptr);

/// Whether a SEQUENCE of definite length stands at the front whose contents are whole elements, as no text's are.
[[nodiscard]] bool beginsWithSequence(ByteView octets);

/// One element.
///
/// Reading answers the number of octets consumed, 0 when the input does not match the type (wrong tag, lengths that do
/// not fit), -1 when the stream fails or ends inside the element. After 0 or -1 the contents are not to be used, and
/// reading again or assigning makes the object good again.
///
/// Keeping mode (ASN_FLAG_CONST): the object and everything below it refer to the input and give back exactly the
/// octets that were read; every setter fails an assertion. Copying such an object copies its octets, moving it or a
/// part of it keeps the reference. `copyObject(source, 0)` makes a changeable copy.
///
/// An object may be written, measured or hashed by one thread at a time.
class ASNobject {
  public:
    explicit ASNobject(unsigned char tag);
    ASNobject(const ASNobject& other);
    ASNobject(ASNobject&& other) noexcept;
    /// Assignment takes the contents over and leaves this object's own tagging alone.
    ASNobject& operator=(const ASNobject& other);
    ASNobject& operator=(ASNobject&& other);  // NOLINT(performance-noexcept-move-constructor): the assertion may fail
    virtual ~ASNobject();

    /// Reads one element, at most `maxLen` octets of input when that is positive. `f`: 0 or the ASN_FLAG_ read mode.
    [[nodiscard]] virtual long read(GenericFile* in, long maxLen = 0, unsigned char f = 0);
    /// Writes the element; false when the stream fails or the object cannot be encoded.
    [[nodiscard]] virtual bool write(GenericFile* out) const;
    /// Hash of the encoding; false when `outLen` is smaller than the digest or the object cannot be encoded.
    [[nodiscard]] virtual bool computeDigest(KcHashAlgo algo, unsigned char* out, long outLen) const;
    /// Length of the encoding, header included, without encoding.
    [[nodiscard]] virtual long getLength() const;
    /// Reads this object anew from an open-type value; results as for `read`.
    [[nodiscard]] virtual long readAny(const ASNany* any);

    // Piecewise reading and writing of large contents; see asn/asn_stream_ctx.h.
    virtual void cleanStreamCtx();
    /// Takes the next piece of the encoding; `last` says that nothing follows. Contents that stream go to `out`. The
    /// octets taken; 0 mismatch, -1 failure. `streamDone` tells whether the element is complete.
    [[nodiscard]] virtual long doReadData(GenericFile& in, bool last, GenericFile& out);
    [[nodiscard]] virtual long doReadData(const char* data, long len, bool last, GenericFile& out);
    /// Length of the body, and of the whole element, whose contents come to `contents` octets.
    [[nodiscard]] virtual long doGetLenOfBody(long contents) const;
    [[nodiscard]] virtual long doGetLen(long contents) const;
    /// Whether the piecewise reading reached the end of the element.
    [[nodiscard]] bool streamDone() const;
    /// Starts piecewise writing of contents of the given length; negative for the indefinite form, which string types
    /// have.
    [[nodiscard]] bool beginStream(long contents, GenericFile& out);
    /// Writes the next `len` octets of contents from `in`; `last` ends the element. Octets written, -1 on failure.
    [[nodiscard]] long doWriteData(GenericFile& in, long len, bool last, GenericFile& out);

    /// In memory. `readFromBuff` answers the octets consumed and leaves what follows to the caller; the others want the
    /// element and nothing else. The default mode copies every value.
    [[nodiscard]] long readFromBuff(ByteView octets, unsigned char f = 0);
    [[nodiscard]] long readFromVector(const Bytes& octets, unsigned char f = 0);
    [[nodiscard]] long readFromOctStr(const ASNoctstr& octets, unsigned char f = 0);
    [[nodiscard]] bool readExactly(ByteView octets, unsigned char f = 0);
    [[nodiscard]] bool writeToVector(Bytes& out) const;
    [[nodiscard]] bool writeToOctStr(ASNoctstr& out) const;
    /// Writes into memory of at least `getLength()` octets, for secrets that live in guards; false when it does not
    /// fit.
    [[nodiscard]] bool writeToSpan(std::span<uint8_t> out) const;
    /// The encoding; throws VtestException for an object that cannot be encoded.
    [[nodiscard]] Bytes encoded() const;
    /// Becomes a copy of an object of the same type, by way of its encoding. Result as for `read`.
    [[nodiscard]] long copyObject(const ASNobject& source, unsigned char f = 0);
    /// Re-reads a typed object from an open-type value: true when it matched.
    bool operator<<(const ASNany& any) { return readAny(&any) > 0; }

    /// With explicit tagging off the object's own tag becomes `tag` (its constructed bit does not count); with it on
    /// `tag` becomes the outer tag and the inner one returns to the type's own. ASN_TAG_ANY accepts any tag.
    void setTag(unsigned char tag);
    /// The outer tag when explicit tagging is on, else the own tag.
    [[nodiscard]] unsigned char getTag() const { return isExplicit() ? outerTag_ : tag_; }
    void setExplicitTagsOn();
    void setExplicitTagsOff();
    [[nodiscard]] virtual unsigned char getDefaultTag() const = 0;
    /// Whether an element with this identifier octet could be one of this type. Negative: no octet, so no.
    [[nodiscard]] virtual bool acceptsTag(int identifier) const;

    /// The octets that were read in keeping mode; empty otherwise.
    [[nodiscard]] ByteView keptEncoding() const { return isConst() ? encoding_.view() : ByteView(); }
    /// Whether the object was read in keeping mode and must not be changed.
    [[nodiscard]] bool isConst() const { return (flags_ & ASN_FLAG_CONST) != 0; }
    /// Whether the last read met the indefinite-length form.
    [[nodiscard]] bool wasIndefinite() const { return (flags_ & kIndefinite) != 0; }
    /// Length of the body as last read (end-of-contents octets included) or measured.
    [[nodiscard]] long bodyLength() const { return bodyLength_; }

  protected:
    /// Bits of the flags word besides the read mode.
    enum Flag : unsigned short {
        kNotUniversal = 4,   ///< the tag has class bits
        kIndefinite = 8,     ///< the last read met the indefinite-length form
        kOwnCopy = 16,       ///< the kept encoding is an own copy
        kConstructed = 32,   ///< the type is constructed
        kExplicit = 64,      ///< explicit tagging is on
        kInner = 128,        ///< read as a part of a kept object
        kSegments = 256,     ///< a string type, which may come in constructed form (X.690 8.7.3)
        kMetSegments = 512,  ///< the last read met that form
    };

    /// Reads the body of `len` octets, or up to the end-of-contents octets and at most `maxLen` octets when that is
    /// positive. Answers 1, 0 or -1.
    [[nodiscard]] virtual long read_contents(GenericFile* in, long len) = 0;
    [[nodiscard]] virtual bool write_contents(GenericFile* out) const = 0;
    [[nodiscard]] virtual long lenOfBody() const = 0;
    [[nodiscard]] virtual long read_ndfl_contents(GenericFile* in, long maxLen);
    virtual void digestOfBody(KcHash* hash) const;
    virtual void digestOfNDefEndBytes(KcHash* hash) const;

    virtual void allocateStreamCtx();
    virtual void deleteStreamCtx();
    void setStreamCtx(std::unique_ptr<ASNStreamCtx> ctx);
    /// Contents still to be written piecewise, -1 when their length is not known.
    [[nodiscard]] long streamLeft() const;
    /// Reads tag and length; the octets read, 0 mismatch, -1 failure. `len` becomes -1 for the indefinite form.
    [[nodiscard]] virtual long doReadHeader(GenericFile* in, long* len);
    /// Takes the next `len` octets of contents, which go to `out`. The octets taken, 0 mismatch, -1 failure.
    [[nodiscard]] virtual long doReadContents(GenericFile* in, long len, GenericFile* out);
    /// Writes the next `len` octets of contents from `in`; `last` ends the element. Octets written, -1 on failure.
    [[nodiscard]] virtual long doWriteContents(GenericFile* in, long len, bool last, GenericFile* out);

    /// The element without its outer tag.
    [[nodiscard]] virtual long readElement(GenericFile& in, long maxLen);
    [[nodiscard]] virtual bool writeElement(GenericFile& out) const;
    [[nodiscard]] virtual long elementLength() const;

    /// Every setter starts with this.
    void assertChangeable() const;
    [[nodiscard]] bool isExplicit() const { return (flags_ & kExplicit) != 0; }
    /// Read mode for the objects below this one.
    [[nodiscard]] unsigned char modeOfParts() const { return isConst() ? ASN_FLAG_CONST | kInner : 0; }
    /// Gives up the kept encoding and the read mode: the object may be filled anew.
    void forgetReading();
    /// Takes the read mode of the object that this one is a part of.
    void takeModeOf(const ASNobject& whole) { flags_ |= whole.modeOfParts(); }
    /// Called before the whole object is replaced: its parts may be assigned to.
    virtual void releaseParts() { flags_ &= static_cast<unsigned short>(~kInner); }
    static void releasePart(ASNobject& part) { part.releaseParts(); }
    [[nodiscard]] bool hasFlag(Flag flag) const { return (flags_ & flag) != 0; }
    void setFlag(Flag flag) { flags_ = static_cast<unsigned short>(flags_ | flag); }
    [[nodiscard]] unsigned char identifier() const;
    [[nodiscard]] bool writeHeader(GenericFile& out, long bodyLength) const;
    void setOwnTag(unsigned char tag);

    unsigned char tag_;

  private:
    friend class ASNStreamCtx;
    friend class ASNsequenceF;

    [[nodiscard]] long readKept(GenericFile& in, long maxLen, bool copy);
    [[nodiscard]] long readTagged(GenericFile& in, long maxLen);
    [[nodiscard]] bool takesIdentifier(int identifier) const;
    void takeContents(const ASNobject& other);

    unsigned char outerTag_ = 0;
    bool streamDone_ = false;
    unsigned short flags_ = 0;
    mutable long bodyLength_ = -1;
    mutable long measured_ = -1;  // the element without its outer tag, by the last getLength
    HeldBytes encoding_;          // kept in keeping mode; else at most memory that the contents refer to
    std::unique_ptr<ASNStreamCtx> streamCtx_;
};

/// Copies one element of any kind from `in` to the end of `out`, whatever its form; `out` may be null to skip it.
/// Octets consumed, 0 when it is malformed or longer than `maxLen` (if positive), -1 when the stream ends or fails.
[[nodiscard]] long walkElement(GenericFile& in, long maxLen, GenericFile* out);

/// Takes the two end-of-contents octets: 1; 0 when something else follows; -1 when the stream ends or fails before that
/// is known.
[[nodiscard]] int takeEndOfContents(GenericFile& in);

/// Walks the elements of a constructed body of definite or indefinite length.
class BodyCursor {
  public:
    /// A body of `len` octets.
    BodyCursor(GenericFile& in, long len) : in_(in), end_(in.position() + len), definite_(true) {}
    /// A body up to its end-of-contents octets, of at most `maxLen` octets when that is positive.
    static BodyCursor indefinite(GenericFile& in, long maxLen);

    [[nodiscard]] bool atEnd();
    /// Identifier octet of the next element, GenericFile::kEnd behind the last one.
    [[nodiscard]] int peek() { return atEnd() ? GenericFile::kEnd : in_.peek(); }
    /// Reads the next element; results as for ASNobject::read.
    [[nodiscard]] long read(ASNobject& element, unsigned char mode) {
        if (broken()) return -1;
        return left() > 0 ? element.read(&in_, left(), mode) : 0;
    }
    /// Whether the stream fails or ends inside the body, where every element and the end take two octets.
    [[nodiscard]] bool broken() { return definite_ ? left() > 0 && in_.peek() < 0 : !in_.lookAhead(2); }

  private:
    BodyCursor(GenericFile& in, long end, bool definite) : in_(in), end_(end), definite_(definite) {}
    [[nodiscard]] long left() const { return end_ - in_.position(); }

    GenericFile& in_;
    long end_;
    bool definite_;
};

}  // namespace crv
