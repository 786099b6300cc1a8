// The one writer of CMS messages in pieces.
#pragma once

#include <initializer_list>
#include <vector>

#include "asn/asn_object_id.h"
#include "misc/atomic_write.h"
#include "misc/secret.h"

namespace crv {

/// An element whose contents are the pieces one after the other.
[[nodiscard]] Bytes elementOf(uint8_t tag, std::initializer_list<ByteView> parts);
/// A SET OF with this tag in the order of DER (X.690 11.6).
[[nodiscard]] Bytes setOf(uint8_t tag, std::vector<Bytes> elements);

/// What stands around the content.
struct MessageFrame {
    const KnownOid& type;
    Bytes before;          ///< in the structure before the element with the content
    Bytes innerHead;       ///< in that part before the content
    bool explicitContent;  ///< [0] EXPLICIT OCTET STRING, else [0] IMPLICIT
};

/// Writes a message around content that comes in pieces: DER when it is short, else with indefinite lengths. Throws
/// CrvApiException (ECRV_WR_OUTFILE) when the sink refuses.
class MessageWriter {
  public:
    /// `mostHeld`: octets of content up to which the message is DER.
    MessageWriter(ContentSink sink, size_t mostHeld) : sink_(std::move(sink)), mostHeld_(mostHeld) {}

    void content(const MessageFrame& frame, ByteView piece);
    /// `after`: what the structure has behind the element with the content.
    void finish(const MessageFrame& frame, ByteView after);
    /// A message without its content.
    void finishDetached(const MessageFrame& frame, ByteView after) { putWhole(frame, {}, {}, after); }

    /// Whether the frame is written already.
    [[nodiscard]] bool isStreaming() const { return streaming_; }

  private:
    void put(ByteView octets);
    void putWhole(const MessageFrame& frame, const Bytes& contentHead, ByteView content, ByteView after);
    void putSegment(ByteView piece);

    ContentSink sink_;
    size_t mostHeld_;
    SecretBytes held_;
    bool streaming_ = false;
};

}  // namespace crv
