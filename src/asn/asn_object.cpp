#include "asn/asn_object.h"

#include <algorithm>
#include <limits>

#include "asn/asn_any.h"
#include "asn/asn_primitives.h"
#include "asn/asn_stream_ctx.h"
#include "crypto/kc_hash.h"
#include "misc/exceptions.h"
#include "misc/memory_file.h"

namespace crv {

namespace {

constexpr const char* kObjectPlace = "src/asn/asn_object";
constexpr uint8_t kIndefiniteLength = 0x80;
constexpr long kNoLimit = std::numeric_limits<long>::max() / 2;

/// Feeds what is written into a hash.
class HashFile final : public GenericFile {
  public:
    explicit HashFile(KcHash& hash) : hash_(hash) {}
    bool write(ByteView octets) override {
        hash_.update(octets);
        return true;
    }

  private:
    KcHash& hash_;
};

bool exceeds(long used, long bodyLength, long maxLen) {
    return maxLen > 0 && used + std::max(bodyLength, 0L) > maxLen;
}

/// A length beyond what memory holds is a truncated input, seen before anything below is read.
bool endsInside(const GenericFile& in, long bodyLength) {
    return in.inMemory() && bodyLength > static_cast<long>(in.window().size());
}

bool copyPiece(GenericFile& in, long count, GenericFile* out) {
    if (!out) return in.skip(count) == count;
    while (count > 0) {
        if (in.peek() < 0) return false;
        const ByteView piece = in.window().first(std::min(static_cast<size_t>(count), in.window().size()));
        if (!out->write(piece)) return false;
        in.consume(piece.size());
        count -= static_cast<long>(piece.size());
    }
    return true;
}

}  // namespace

int lenOfLen(long length) {
    if (length < 0x80) return 1;
    if (length <= 0xFF) return 2;
    if (length <= 0xFFFF) return 3;
    return length <= 0xFFFFFF ? 4 : 5;
}

int write_length(long length, uint8_t* out) {
    const int octets = lenOfLen(length);
    if (octets == 1) {
        out[0] = length < 0 ? kIndefiniteLength : static_cast<uint8_t>(length);
        return 1;
    }
    out[0] = static_cast<uint8_t>(0x80 | (octets - 1));
    for (int i = 1; i < octets; ++i) out[i] = static_cast<uint8_t>(length >> (8 * (octets - 1 - i)));
    return octets;
}

int read_length(GenericFile& in, long& length, uint8_t* raw) {
    const int first = in.get();
    if (first < 0) return -1;
    if (raw) *raw++ = static_cast<uint8_t>(first);
    length = first == kIndefiniteLength ? -1 : first;
    if (first <= kIndefiniteLength) return 1;
    const int octets = first & 0x7F;
    if (octets > 4) return 0;
    length = 0;
    for (int i = 0; i < octets; ++i) {
        const int octet = in.get();
        if (octet < 0) return -1;
        if (raw) *raw++ = static_cast<uint8_t>(octet);
        length = length << 8 | octet;
    }
    return 1 + octets;
}

int takeEndOfContents(GenericFile& in) {
    if (!in.lookAhead(2)) return -1;
    if (in.window()[0] != 0 || in.window()[1] != 0) return 0;
    in.consume(2);
    return 1;
}

BodyCursor BodyCursor::indefinite(GenericFile& in, long maxLen) {
    return {in, in.position() + (maxLen > 0 ? maxLen : kNoLimit), false};
}

bool BodyCursor::atEnd() {
    if (definite_) return left() <= 0;
    return in_.lookAhead(2) && in_.window()[0] == 0 && in_.window()[1] == 0;
}

long walkElement(GenericFile& in, long maxLen, GenericFile* out) {
    const GenericFile::Nesting level(in);
    const int identifier = in.get();
    if (identifier < 0) return -1;
    if (!level.allowed() || identifier == 0 || (identifier & ASN_NUMBER_BITS) == ASN_NUMBER_BITS) return 0;
    long length = 0;
    uint8_t header[6] = {static_cast<uint8_t>(identifier)};
    const int octets = read_length(in, length, header + 1);
    if (octets <= 0) return octets;
    const long used = 1 + octets;
    if (exceeds(used, length, maxLen) || (length < 0 && (identifier & ASN_CONSTRUCTED_BIT) == 0)) return 0;
    if (out && !out->write({header, static_cast<size_t>(used)})) return -1;
    if (length >= 0) return copyPiece(in, length, out) ? used + length : -1;
    long total = used;
    int end = takeEndOfContents(in);
    for (; end == 0; end = takeEndOfContents(in)) {
        const long rest = maxLen > 0 ? maxLen - total : 0;
        if (maxLen > 0 && rest <= 0) return 0;
        const long part = walkElement(in, rest, out);
        if (part <= 0) return part;
        total += part;
    }
    if (end < 0) return -1;
    if (exceeds(total, 2, maxLen)) return 0;
    constexpr uint8_t kEnd[2] = {0, 0};
    return !out || out->write(kEnd) ? total + 2 : -1;
}

bool beginsWithSequence(ByteView octets) {
    constexpr uint8_t kSequence = 0x30;
    MemoryFile in(octets);
    long length = 0;
    if (in.get() != kSequence || read_length(in, length) <= 0 || endsInside(in, length) || length < 0) return false;
    for (const long end = in.position() + length; in.position() < end;)
        if (walkElement(in, end - in.position(), nullptr) <= 0) return false;
    return true;
}

ASNobject::ASNobject(unsigned char tag) : tag_(tag) {
    if (tag == ASN_TAG_ANY) return;
    if ((tag & ASN_CLASS_BITS) != 0) setFlag(kNotUniversal);
    if ((tag & ASN_CONSTRUCTED_BIT) != 0) setFlag(kConstructed);
}

ASNobject::ASNobject(const ASNobject& other)
    : tag_(other.tag_),
      outerTag_(other.outerTag_),
      flags_(static_cast<unsigned short>(other.flags_ & ~kInner)),
      bodyLength_(other.bodyLength_),
      encoding_(other.isConst() ? other.encoding_ : HeldBytes()) {}

ASNobject::ASNobject(ASNobject&& other) noexcept
    : tag_(other.tag_),
      outerTag_(other.outerTag_),
      flags_(static_cast<unsigned short>(other.flags_ & ~kInner)),
      bodyLength_(other.bodyLength_),
      encoding_(std::move(other.encoding_)) {}

ASNobject& ASNobject::operator=(const ASNobject& other) {
    if (this == &other) return *this;
    takeContents(other);
    if (isConst()) encoding_ = other.encoding_;
    return *this;
}

// NOLINTNEXTLINE(performance-noexcept-move-constructor)
ASNobject& ASNobject::operator=(ASNobject&& other) {
    if (this == &other) return *this;
    takeContents(other);
    if (!isConst() && !other.hasFlag(kOwnCopy)) return *this;
    flags_ |= other.flags_ & kOwnCopy;
    encoding_ = std::move(other.encoding_);  // what moves along refers to it, even where it is kept no longer
    return *this;
}

/// An encoding is kept only where it is this object's encoding, too: with the same tags, and as a whole.
void ASNobject::takeContents(const ASNobject& other) {
    if (hasFlag(kInner)) assertChangeable();
    releaseParts();
    forgetReading();
    bodyLength_ = -1;
    const auto tagging = [](const ASNobject& o) { return o.flags_ & (kNotUniversal | kConstructed | kExplicit); };
    if (other.isConst() && tag_ == other.tag_ && getTag() == other.getTag() && tagging(*this) == tagging(other))
        flags_ |= other.flags_ & (ASN_FLAG_CONST | kIndefinite | kOwnCopy);
}

ASNobject::~ASNobject() = default;

void ASNobject::assertChangeable() const {
    if (isConst()) failAssertion("!( flags & ASN_FLAG_CONST )", kObjectPlace, __LINE__);
}

void ASNobject::forgetReading() {
    encoding_.clear();
    flags_ &= kNotUniversal | kConstructed | kExplicit | kSegments;
}

void ASNobject::setOwnTag(unsigned char tag) {
    tag_ = tag == ASN_TAG_ANY ? tag : static_cast<unsigned char>(tag & ~ASN_CONSTRUCTED_BIT);
    const bool classed = tag != ASN_TAG_ANY && (tag & ASN_CLASS_BITS) != 0;
    flags_ = static_cast<unsigned short>(classed ? flags_ | kNotUniversal : flags_ & ~kNotUniversal);
}

void ASNobject::setTag(unsigned char tag) {
    assertChangeable();
    if (!isExplicit()) return setOwnTag(tag);
    outerTag_ = tag | ASN_CONSTRUCTED_BIT;
    setOwnTag(getDefaultTag());
}

void ASNobject::setExplicitTagsOn() {
    assertChangeable();
    if (isExplicit()) return;
    outerTag_ = tag_ | ASN_CONSTRUCTED_BIT;
    setFlag(kExplicit);
    setOwnTag(getDefaultTag());
}

void ASNobject::setExplicitTagsOff() {
    assertChangeable();
    if (!isExplicit()) return;
    flags_ &= static_cast<unsigned short>(~kExplicit);
    setOwnTag(outerTag_);
}

unsigned char ASNobject::identifier() const {
    if (tag_ == ASN_TAG_ANY) return tag_;
    return hasFlag(kConstructed) ? tag_ | ASN_CONSTRUCTED_BIT : tag_;
}

bool ASNobject::takesIdentifier(int identifier) const {
    if ((identifier & ASN_NUMBER_BITS) == ASN_NUMBER_BITS || identifier <= 0) return false;
    if (tag_ == ASN_TAG_ANY) return true;
    const unsigned char own = this->identifier();
    return identifier == own || (hasFlag(kSegments) && identifier == (own | ASN_CONSTRUCTED_BIT));
}

bool ASNobject::acceptsTag(int identifier) const {
    return isExplicit() ? identifier == outerTag_ : takesIdentifier(identifier);
}

long ASNobject::read(GenericFile* in, long maxLen, unsigned char f) {
    VTEST(!(maxLen <= 0 && (f & ASN_FLAG_COPY)), kObjectPlace);
    deleteStreamCtx();
    forgetReading();
    if ((f & ASN_FLAG_CONST) == 0) return readTagged(*in, maxLen);
    flags_ |= f & (ASN_FLAG_CONST | kInner);
    if ((f & ASN_FLAG_COPY) != 0 || !in->inMemory()) return readKept(*in, maxLen, (f & ASN_FLAG_COPY) != 0);
    const uint8_t* start = in->window().data();
    const long length = readTagged(*in, maxLen);
    if (length > 0) encoding_.refer({start, static_cast<size_t>(length)});
    return length;
}

/// Keeps an own copy of the input: its next `maxLen` octets, or just the element when the input is no memory.
long ASNobject::readKept(GenericFile& in, long maxLen, bool copy) {
    setFlag(kOwnCopy);
    const long start = in.position();
    if (copy) {
        if (encoding_.load(in, maxLen) < 0) return -1;
    } else {
        MemoryFile element;
        const long walked = walkElement(in, maxLen, &element);
        if (walked <= 0) return walked;
        encoding_.assign(element.written());
    }
    MemoryFile kept(encoding_.view(), in.nesting());
    const long length = readTagged(kept, copy ? maxLen : 0);
    if (length <= 0) return length;
    if (copy && static_cast<long>(encoding_.size()) > length) static_cast<void>(in.seek(start + length));
    encoding_.shorten(static_cast<size_t>(length));
    return length;
}

long ASNobject::readTagged(GenericFile& in, long maxLen) {
    if (!isExplicit()) return readElement(in, maxLen);
    const int outer = in.get();
    if (outer < 0) return -1;
    if (outer != outerTag_) return 0;
    long length = 0;
    const int octets = read_length(in, length);
    if (octets <= 0) return octets;
    const long header = 1 + octets;
    if (length == 0 || exceeds(header, length, maxLen)) return 0;
    if (endsInside(in, length)) return -1;
    const long rest = maxLen > 0 ? maxLen - header : 0;
    const long inner = readElement(in, length > 0 ? length : rest);
    if (inner <= 0) return inner;
    if (length > 0) return inner == length ? header + length : 0;
    const int end = takeEndOfContents(in);
    if (end <= 0) return end;
    return exceeds(header, inner + 2, maxLen) ? 0 : header + inner + 2;
}

long ASNobject::doReadHeader(GenericFile* in, long* len) {
    const int identifier = in->get();
    if (identifier < 0) return -1;
    if (!takesIdentifier(identifier)) return 0;
    const int octets = read_length(*in, *len);
    if (octets <= 0) return octets;
    const bool constructed = (identifier & ASN_CONSTRUCTED_BIT) != 0;
    if (*len < 0) {
        if (!constructed) return 0;
        setFlag(kIndefinite);
    }
    if (tag_ == ASN_TAG_ANY) {
        setOwnTag(static_cast<unsigned char>(identifier));
        tag_ = static_cast<unsigned char>(identifier);
    } else if (constructed && !hasFlag(kConstructed)) {
        setFlag(kMetSegments);
    }
    bodyLength_ = *len;
    return 1 + octets;
}

long ASNobject::readElement(GenericFile& in, long maxLen) {
    const GenericFile::Nesting level(in);
    long length = 0;
    const long header = doReadHeader(&in, &length);
    if (header <= 0) return header;
    if (exceeds(header, length, maxLen) || !level.allowed()) return 0;
    if (endsInside(in, length)) return -1;
    const long start = in.position();
    const long rest = maxLen > 0 ? maxLen - header : 0;
    const long result = length >= 0 ? read_contents(&in, length) : read_ndfl_contents(&in, rest);
    if (result <= 0) return result;
    if (length < 0) {
        const int end = takeEndOfContents(in);
        if (end <= 0) return end;
        bodyLength_ = in.position() - start;
    }
    return exceeds(header, bodyLength_, maxLen) ? 0 : header + bodyLength_;
}

long ASNobject::read_ndfl_contents(GenericFile*, long) {
    return 0;
}

long ASNobject::readAny(const ASNany* any) {
    const ByteView value = any->getMemory();
    return readExactly(value) ? static_cast<long>(value.size()) : 0;
}

long ASNobject::getLength() const {
    if (const ByteView kept = keptEncoding(); !kept.empty()) return static_cast<long>(kept.size());
    measured_ = elementLength();
    return isExplicit() ? 1 + lenOfLen(measured_) + measured_ : measured_;
}

long ASNobject::elementLength() const {
    bodyLength_ = lenOfBody();
    return 1 + lenOfLen(bodyLength_) + bodyLength_;
}

bool ASNobject::writeHeader(GenericFile& out, long bodyLength) const {
    uint8_t header[6] = {identifier()};
    return out.write({header, static_cast<size_t>(1 + write_length(bodyLength, header + 1))});
}

/// The outermost call measures the whole tree once; every element remembers the length of its body, so the inner calls
/// need not measure again and deep structures cost no more than flat ones.
bool ASNobject::write(GenericFile* out) const {
    if (const ByteView kept = keptEncoding(); !kept.empty()) return out->write(kept);
    const GenericFile::Nesting level(*out);
    if (out->nesting() == 1 || measured_ < 0) static_cast<void>(getLength());
    if (isExplicit()) {
        uint8_t header[6] = {outerTag_};
        if (!out->write({header, static_cast<size_t>(1 + write_length(measured_, header + 1))})) return false;
    }
    return writeElement(*out);
}

bool ASNobject::writeElement(GenericFile& out) const {
    return tag_ != ASN_TAG_ANY && writeHeader(out, bodyLength_) && write_contents(&out);
}

bool ASNobject::computeDigest(KcHashAlgo algo, unsigned char* out, long outLen) const {
    const size_t length = hashLength(algo);
    if (length == 0 || outLen < static_cast<long>(length)) return false;
    KcHash hash(algo);
    HashFile file(hash);
    if (!write(&file)) return false;
    hash.final({out, length});
    return true;
}

void ASNobject::digestOfBody(KcHash* hash) const {
    HashFile file(*hash);
    static_cast<void>(getLength());
    const GenericFile::Nesting level(file);  // measured above
    VTEST(write_contents(&file), kObjectPlace);
}

void ASNobject::digestOfNDefEndBytes(KcHash* hash) const {
    constexpr uint8_t kEnd[2] = {0, 0};
    hash->update(kEnd);
}

long ASNobject::readFromBuff(ByteView octets, unsigned char f) {
    if (octets.empty()) return -1;
    MemoryFile file(octets);
    return read(&file, static_cast<long>(octets.size()), f);
}

bool ASNobject::readExactly(ByteView octets, unsigned char f) {
    const long used = readFromBuff(octets, f);
    return used > 0 && static_cast<size_t>(used) == octets.size();
}

long ASNobject::readFromVector(const Bytes& octets, unsigned char f) {
    return readExactly(octets, f) ? static_cast<long>(octets.size()) : 0;
}

long ASNobject::readFromOctStr(const ASNoctstr& octets, unsigned char f) {
    return readExactly(octets.value(), f) ? static_cast<long>(octets.value().size()) : 0;
}

bool ASNobject::writeToSpan(std::span<uint8_t> out) const {
    SpanFile file(out);
    return write(&file);
}

bool ASNobject::writeToVector(Bytes& out) const {
    out.resize(static_cast<size_t>(getLength()));
    return writeToSpan(out);
}

bool ASNobject::writeToOctStr(ASNoctstr& out) const {
    MemoryFile file;
    if (!write(&file)) return false;
    out.build(file.written());
    return true;
}

Bytes ASNobject::encoded() const {
    Bytes octets;
    VTEST(writeToVector(octets), kObjectPlace);
    return octets;
}

long ASNobject::copyObject(const ASNobject& source, unsigned char f) {
    MemoryFile file;
    if (!source.write(&file)) return 0;
    const ByteView octets = file.written();
    const auto mode = static_cast<unsigned char>((f & ASN_FLAG_CONST) != 0 ? f | ASN_FLAG_COPY : f);
    return readExactly(octets, mode) ? static_cast<long>(octets.size()) : 0;
}

}  // namespace crv
