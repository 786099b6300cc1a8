#include "messages/message_reader.h"

#include "asn/known_oids.h"
#include "corvane/crverrors.h"
#include "misc/exceptions.h"
#include "misc/memory_file.h"

namespace crv {

namespace {

using Treat = BerWalker::Treat;

constexpr unsigned bitOf(MessageKind kind) {
    return 1U << static_cast<unsigned>(kind);
}
constexpr unsigned kInSigned = bitOf(MessageKind::Signed);
constexpr unsigned kInEnveloped = bitOf(MessageKind::Enveloped);
constexpr unsigned kInAuth = bitOf(MessageKind::AuthEnveloped);
constexpr unsigned kInSealed = kInEnveloped | kInAuth;
constexpr unsigned kInAll = kInSigned | kInSealed;
constexpr uint8_t kAnyTag = 0xFF;

struct PartRow {
    MessagePart part;
    unsigned kinds;
    size_t depth;
    uint8_t tag;
    Treat treat;
    bool needed;
};

constexpr PartRow kParts[] = {
    {MessagePart::Whole, kInAll, 0, 0x30, Treat::Enter, true},
    {MessagePart::Type, kInAll, 1, 0x06, Treat::Hold, true},
    {MessagePart::Explicit, kInAll, 1, 0xA0, Treat::Enter, true},
    {MessagePart::Structure, kInAll, 2, 0x30, Treat::Enter, true},
    {MessagePart::Version, kInAll, 3, 0x02, Treat::Hold, true},
    {MessagePart::Originator, kInSealed, 3, 0xA0, Treat::Hold, false},
    {MessagePart::Digests, kInSigned, 3, 0x31, Treat::Hold, true},
    {MessagePart::Recipients, kInSealed, 3, 0x31, Treat::Hold, true},
    {MessagePart::Inner, kInAll, 3, 0x30, Treat::Enter, true},
    {MessagePart::InnerType, kInAll, 4, 0x06, Treat::Hold, true},
    {MessagePart::Cipher, kInSealed, 4, 0x30, Treat::Hold, true},
    {MessagePart::InnerExplicit, kInSigned, 4, 0xA0, Treat::Enter, false},
    {MessagePart::Content, kInSigned, 5, 0x04, Treat::Octets, false},
    {MessagePart::Content, kInSigned, 5, 0x24, Treat::Octets, false},
    // PKCS#7 has any type here and signs its contents (RFC 5652 5.2.1).
    {MessagePart::Content, kInSigned, 5, kAnyTag, Treat::Contents, false},
    {MessagePart::Content, kInSealed, 4, 0x80, Treat::Octets, false},
    {MessagePart::Content, kInSealed, 4, 0xA0, Treat::Octets, false},
    {MessagePart::Certificates, kInSigned, 3, 0xA0, Treat::Hold, false},
    {MessagePart::Crls, kInSigned, 3, 0xA1, Treat::Hold, false},
    {MessagePart::Signers, kInSigned, 3, 0x31, Treat::Hold, true},
    {MessagePart::Attributes, kInSealed, 3, 0xA1, Treat::Hold, false},
    {MessagePart::Mac, kInAuth, 3, 0x04, Treat::Hold, true},
    {MessagePart::Unauthenticated, kInAuth, 3, 0xA2, Treat::Hold, false},
};

struct KindRow {
    const KnownOid& oid;
    MessageKind kind;
};
constexpr KindRow kKinds[] = {{OID_PKCS7_SIGNED_DATA, MessageKind::Signed},
                              {OID_PKCS7_ENVELOPED_DATA, MessageKind::Enveloped},
                              {OID_CT_AUTH_ENVELOPED_DATA, MessageKind::AuthEnveloped}};

[[noreturn]] void failStructure() {
    throw CrvApiException(ECRV_INV_CRV_MSG, "the message is malformed: its parts are not those of its type");
}

/// Whether a part that must be there stands between two.
bool skipsNeeded(MessageKind kind, std::optional<MessagePart> from, MessagePart to) {
    for (const PartRow& row : kParts)
        if (row.needed && (row.kinds & bitOf(kind)) != 0 && (!from || row.part > *from) && row.part < to) return true;
    return false;
}

}  // namespace

void demandModest(ByteView encoding, int depth) {
    if (encoding.empty() || (encoding[0] & ASN_CONSTRUCTED_BIT) == 0) return;
    for (const ByteView one : elementsOf(encoding))
        if (depth > 0) demandModest(one, depth - 1);
}

void readPart(ASNobject& object, ByteView encoding, unsigned char mode) {
    demandModest(encoding);
    if (!object.readExactly(encoding, mode)) failStructure();
}

std::vector<ByteView> elementsOf(ByteView set, size_t most) {
    MemoryFile in(set);
    std::vector<ByteView> elements;
    long length = 0;
    if (in.get() < 0 || read_length(in, length) <= 0) failStructure();
    BodyCursor body = length < 0 ? BodyCursor::indefinite(in, 0) : BodyCursor(in, length);
    while (!body.atEnd()) {
        const auto begin = static_cast<size_t>(in.position());
        if (elements.size() == most || walkElement(in, 0, nullptr) <= 0) failStructure();
        elements.push_back(set.subspan(begin, static_cast<size_t>(in.position()) - begin));
    }
    return elements;
}

BerWalker::Treat MessageReader::begin(size_t depth, uint8_t tag) {
    const unsigned kinds = typeKnown_ ? bitOf(kind_) : kInAll;
    for (const PartRow& row : kParts) {
        const bool follows = !at_ || row.part > *at_;
        const bool tagFits = row.tag == tag || row.tag == kAnyTag;
        if (!follows || !tagFits || row.depth != depth || (row.kinds & kinds) == 0) continue;
        if (skipsNeeded(kind_, at_, row.part)) failStructure();
        at_ = row.part;
        if (row.part == MessagePart::Content) {
            hasContent_ = true;
            contentBegins();
        }
        return row.treat;
    }
    failStructure();
}

void MessageReader::takeType(ByteView encoding) {
    ASNobjectId type;
    readPart(type, encoding);
    for (const KindRow& row : kKinds) {
        if (!(type == row.oid) || !wants(row.kind)) continue;
        kind_ = row.kind;
        typeKnown_ = true;
        return;
    }
    throw CrvApiException(ECRV_NO_CRV_MSG, "the message is of another kind: " + type.name());
}

void MessageReader::whole(ByteView encoding) {
    if (*at_ == MessagePart::Type) {
        takeType(encoding);
    } else {
        part(*at_, encoding);
    }
}

void MessageReader::octets(ByteView piece) {
    contentLength_ += std::ssize(piece);
    content(piece);
}

void MessageReader::finish() {
    armour_.finish();
    if (!walker_.done()) throw CrvApiException(ECRV_INV_CRV_MSG, "the message is cut off");
    if (skipsNeeded(kind_, at_, MessagePart::End)) failStructure();
}

}  // namespace crv
