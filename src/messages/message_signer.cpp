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

    /// RFC 5652 5.1.
    [[nodiscard]] long version(bool withOcsp) const {
        const bool other = !(parts.contentType == OID_PKCS7_DATA);
        return std::max(withOcsp ? 5L : other ? 3L : 1L, parts.version);
    }

    [[nodiscard]] MessageFrame makeFrame(bool withOcsp) {
        for (const auto& [algo, hash] : hashes) addOnce(parts.digests, hashAlgorithm(algo).encoded());
        Bytes before = joined(ASNinteger(version(withOcsp)).encoded(), setOf(kSetTag, parts.digests));
        return {OID_PKCS7_SIGNED_DATA, std::move(before), parts.contentType.encoded(), true};
    }

    /// As far as it is known before the first octet of content.
    const MessageFrame& frame() {
        if (!frame_) frame_.emplace(makeFrame(!params.proofs.ocspResponses.empty() || params.stampsBringOcsp));
        return *frame_;
    }

    /// Of a message that is written as a whole.
    const MessageFrame& lastFrame() {
        if (writer.isStreaming()) return frame();
        frame_.reset();
        return frame_.emplace(makeFrame(!ocsp.empty()));
    }

    static Bytes joined(Bytes first, const Bytes& second) {
        first.insert(first.end(), second.begin(), second.end());
        return first;
    }

    void put(const SignatureProofs& proofs) {
        for (const CertPtr& one : proofs.certificates) addOnce(parts.certificates, toBytes(encodingOf(*one)));
        for (const Bytes& one : proofs.crls) addOnce(parts.crls, one);
        for (const Bytes& one : proofs.ocspResponses) addOnce(ocsp, ocspInfo(one));
    }

    Bytes after() {
        for (const MessageSignerKey& one : params.signers)
            addOnce(parts.certificates, toBytes(encodingOf(*one.certificate)));
        put(params.proofs);
        std::map<KcHashAlgo, Bytes> digests;
        for (auto& [algo, hash] : hashes) digests[algo] = hash.final();
        for (const MessageSignerKey& one : params.signers) {
            MadeSigner made = makeSignerInfo({one, parts.contentType, digests[one.hash], params}, random);
            parts.signers.push_back(std::move(made.encoding));
            put(made.proofs);
        }
        parts.crls.insert(parts.crls.end(), ocsp.begin(), ocsp.end());
        Bytes out = setOf(kCertificatesTag, parts.certificates);
        if (!parts.crls.empty()) out = joined(std::move(out), setOf(kCrlsTag, parts.crls));
        return joined(std::move(out), setOf(kSetTag, parts.signers));
    }

    SignParams params;
    RandomBridge& random;
    MessageWriter writer;
    SignedParts parts{};
    std::vector<Bytes> ocsp{};  // that this signing adds
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
    const Bytes after = state.after();
    const MessageFrame& frame = state.lastFrame();
    if (state.params.detached) {
        state.writer.finishDetached(frame, after);
    } else {
        state.writer.finish(frame, after);
    }
    return {state.params.detached, state.length, state.parts.signers.size()};
}

}  // namespace crv
