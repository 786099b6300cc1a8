#include "messages/message_signer.h"

#include <algorithm>
#include <map>

#include "asn/known_oids.h"
#include "corvane/crverrors.h"
#include "messages/message_reader.h"
#include "messages/message_writer.h"
#include "messages/signature_parts.h"
#include "misc/exceptions.h"

namespace crv {

namespace {

constexpr uint8_t kSetTag = 0x31, kCertificatesTag = 0xA0, kCrlsTag = 0xA1;
constexpr size_t kMostOfMessage = size_t{64} << 20;

/// What a message has around its content, as encodings.
struct SignedParts {
    long version = 1;
    ASNobjectId contentType{OID_PKCS7_DATA};
    std::vector<Bytes> digests, certificates, crls, signers;
};

void addOnce(std::vector<Bytes>& list, Bytes encoding) {
    if (std::ranges::find(list, encoding) == list.end()) list.push_back(std::move(encoding));
}

/// RFC 5940: an OCSP response among the revocation information.
Bytes ocspInfo(ByteView response) {
    return elementOf(kCrlsTag, {elementOf(ASNobjectId::kTag, {OID_RI_OCSP_RESPONSE.octets()}), response});
}

std::vector<Bytes> copiesOf(ByteView set) {
    std::vector<Bytes> copies;
    for (const ByteView one : elementsOf(set)) copies.push_back(toBytes(one));
    return copies;
}

/// The message that signers are added to.
class SignedBefore final : public MessageReader {
  public:
    SignedBefore(SignedParts& parts, std::function<void(ByteView)> content)
        : MessageReader(kMostOfMessage), parts_(parts), content_(std::move(content)) {}

  private:
    [[nodiscard]] bool wants(MessageKind kind) const override {
        if (kind != MessageKind::Signed) throw CrvApiException(ECRV_FILE_NOT_SGN_FOR_COUNTERSGN);
        return true;
    }
    void part(MessagePart part, ByteView encoding) override {
        if (part == MessagePart::Version) {
            ASNinteger version;
            readPart(version, encoding);
            parts_.version = version.valueOr(1);
        }
        if (part == MessagePart::InnerType) readPart(parts_.contentType, encoding);
        if (part == MessagePart::Digests) parts_.digests = copiesOf(encoding);
        if (part == MessagePart::Certificates) parts_.certificates = copiesOf(encoding);
        if (part == MessagePart::Crls) parts_.crls = copiesOf(encoding);
        if (part == MessagePart::Signers) parts_.signers = copiesOf(encoding);
    }
    void contentBegins() override {}
    void content(ByteView piece) override { content_(piece); }

    SignedParts& parts_;
    std::function<void(ByteView)> content_;
};

}  // namespace

struct MessageSigner::State {
    State(SignParams given, RandomBridge& source, ContentSink sink)
        : params(std::move(given)), random(source), writer(std::move(sink), kHeldContent) {
        if (params.signers.empty()) throw CrvApiException(ECRV_SKEYS_NOT_PRES);
        for (const MessageSignerKey& one : params.signers) {
            demandFit(one);
            hashes.try_emplace(one.hash, one.hash);
        }
        if (!params.detachedMessage.empty()) {
            SignedBefore before(parts, [](ByteView) {});
            before.update(params.detachedMessage);
            before.finish();
            if (before.hasContent()) throw CrvApiException(ECRV_INV_CRV_MSG, "the message has its content inside");
            params.detached = true;
        } else if (params.cosign) {
            reader.emplace(parts, [this](ByteView piece) { take(piece); });
        }
    }

    void take(ByteView piece) {
        for (auto& [algo, hash] : hashes) hash.update(piece);
        length += std::ssize(piece);
        if (!params.detached) writer.content(frame(), piece);
    }

    /// Everything in it is known before the first octet of content.
    const MessageFrame& frame() {
        if (frame_) return *frame_;
        for (const auto& [algo, hash] : hashes) addOnce(parts.digests, hashAlgorithm(algo).encoded());
        // RFC 5652 5.1.
        const bool other = !(parts.contentType == OID_PKCS7_DATA);
        const long version = params.ocspResponses.empty() ? (other ? 3 : 1) : 5;
        Bytes before = joined(ASNinteger(std::max(version, parts.version)).encoded(), setOf(kSetTag, parts.digests));
        return frame_.emplace(
            MessageFrame{OID_PKCS7_SIGNED_DATA, std::move(before), parts.contentType.encoded(), true});
    }

    static Bytes joined(Bytes first, const Bytes& second) {
        first.insert(first.end(), second.begin(), second.end());
        return first;
    }

    Bytes after() {
        for (const MessageSignerKey& one : params.signers)
            addOnce(parts.certificates, toBytes(encodingOf(*one.certificate)));
        for (const CertPtr& one : params.certificates) addOnce(parts.certificates, toBytes(encodingOf(*one)));
        for (const Bytes& one : params.crls) addOnce(parts.crls, one);
        for (const Bytes& one : params.ocspResponses) addOnce(parts.crls, ocspInfo(one));
        std::map<KcHashAlgo, Bytes> digests;
        for (auto& [algo, hash] : hashes) digests[algo] = hash.final();
        for (const MessageSignerKey& one : params.signers)
            parts.signers.push_back(makeSignerInfo({one, parts.contentType, digests[one.hash], params}, random));
        Bytes out = setOf(kCertificatesTag, parts.certificates);
        if (!parts.crls.empty()) out = joined(std::move(out), setOf(kCrlsTag, parts.crls));
        return joined(std::move(out), setOf(kSetTag, parts.signers));
    }

    SignParams params;
    RandomBridge& random;
    MessageWriter writer;
    SignedParts parts{};
    std::map<KcHashAlgo, KcHash> hashes{};
    std::optional<SignedBefore> reader{};
    std::optional<MessageFrame> frame_{};
    int64_t length = 0;
};

MessageSigner::MessageSigner(SignParams params, RandomBridge& random, ContentSink sink)
    : state_(std::make_unique<State>(std::move(params), random, std::move(sink))) {}
MessageSigner::MessageSigner(MessageSigner&&) noexcept = default;
MessageSigner& MessageSigner::operator=(MessageSigner&&) noexcept = default;
MessageSigner::~MessageSigner() = default;

void MessageSigner::update(ByteView octets) {
    if (state_->reader) {
        state_->reader->update(octets);
    } else {
        state_->take(octets);
    }
}

SignResult MessageSigner::finish() {
    State& state = *state_;
    if (state.reader) {
        state.reader->finish();
        if (!state.reader->hasContent())
            throw CrvApiException(ECRV_DETACHED_FILE_MISSING, "the content of the message stands elsewhere");
    }
    const MessageFrame& frame = state.frame();
    const Bytes after = state.after();
    if (state.params.detached) {
        state.writer.finishDetached(frame, after);
    } else {
        state.writer.finish(frame, after);
    }
    return {state.params.detached, state.length, state.parts.signers.size()};
}

}  // namespace crv
