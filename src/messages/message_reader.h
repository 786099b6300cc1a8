// The one reader of CMS messages in pieces: what stands where in SignedData, EnvelopedData and AuthEnvelopedData.
#pragma once

#include <optional>

#include "asn/asn_object_id.h"
#include "messages/armour.h"
#include "messages/ber_walker.h"

namespace crv {

/// What a message consists of, in the order of their encoding (RFC 5652 3, 5.1, 6.1; RFC 5083 2.1).
enum class MessagePart : uint8_t {
    Whole,
    Type,
    Explicit,
    Structure,
    Version,
    Originator,  ///< enveloped
    Digests,     ///< signed
    Recipients,  ///< enveloped
    Inner,
    InnerType,
    Cipher,         ///< enveloped
    InnerExplicit,  ///< signed
    Content,
    Certificates,  ///< signed
    Crls,          ///< signed
    Signers,       ///< signed
    Attributes,    ///< EnvelopedData: unprotected; AuthEnvelopedData: authenticated
    Mac,           ///< AuthEnvelopedData
    Unauthenticated,
    End
};

enum class MessageKind { Signed, Enveloped, AuthEnveloped };

/// Takes a message piece by piece and hands its parts on. Derived classes say what becomes of them.
class MessageReader : private BerWalker::Visitor {
  public:
    /// In any form that MessageArmour knows. Throws as MessageArmour and BerWalker, ECRV_NO_CRV_MSG for another kind of
    /// content than `wants` takes.
    void update(ByteView octets) {
        walker_.feed(armour_.take(octets));
        armour_.demandSound();
    }
    /// Nothing follows. ECRV_INV_CRV_MSG for a message that is cut off or lacks a part.
    void finish();

    [[nodiscard]] MessageKind kind() const { return kind_; }
    [[nodiscard]] bool hasContent() const { return hasContent_; }
    [[nodiscard]] int64_t contentLength() const { return contentLength_; }

  protected:
    explicit MessageReader(size_t mostHeld) : walker_(*this, mostHeld) {}
    ~MessageReader() override = default;

    [[nodiscard]] virtual bool wants(MessageKind kind) const = 0;
    /// A part is complete: its encoding.
    virtual void part(MessagePart part, ByteView encoding) = 0;
    /// The content begins; everything that stands before it was handed on.
    virtual void contentBegins() = 0;
    virtual void content(ByteView piece) = 0;

  private:
    [[nodiscard]] BerWalker::Treat begin(size_t depth, uint8_t tag) override;
    void whole(ByteView encoding) override;
    void octets(ByteView piece) override;
    void end(size_t) override {}
    void takeType(ByteView encoding);

    MessageArmour armour_;
    BerWalker walker_;
    std::optional<MessagePart> at_;
    MessageKind kind_ = MessageKind::Signed;
    bool typeKnown_ = false, hasContent_ = false;
    int64_t contentLength_ = 0;
};

/// Elements of a SET OF that a message has at most.
constexpr size_t kMostElements = 10'000, kMostSigners = 1000;
/// Octets of one SignerInfo at most.
constexpr size_t kMostOfSigner = size_t{4} << 20;
/// The encodings in a SET OF; ECRV_INV_CRV_MSG for more than `most` and for what is none. They refer to `set`.
[[nodiscard]] std::vector<ByteView> elementsOf(ByteView set, size_t most = kMostElements);
/// ECRV_INV_CRV_MSG where a list in an element, `depth` levels down, has more than kMostElements: objects take many
/// times the memory of the octets that they are read from. What stands deeper is held as octets.
void demandModest(ByteView encoding, int depth = 3);
/// Reads a structure from a part of a message; ECRV_INV_CRV_MSG when it is none or has too long lists.
void readPart(ASNobject& object, ByteView encoding, unsigned char mode = 0);

}  // namespace crv
