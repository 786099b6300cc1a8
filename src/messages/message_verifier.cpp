#include "messages/message_verifier.h"

#include <algorithm>
#include <list>

#include "asn/known_oids.h"
#include "corvane/crverrors.h"
#include "messages/message_reader.h"
#include "messages/signature_check.h"
#include "messages/signer_path.h"
#include "misc/exceptions.h"

namespace crv {

namespace {

/// A message without its content, and the hashes that its content is to be run through.
class SignedMessage final : public MessageReader {
  public:
    explicit SignedMessage(ContentSink sink) : MessageReader(MessageVerifier::kMaxHeld), sink_(std::move(sink)) {}

    void take(ByteView piece) {
        for (auto& [algo, hash] : hashes_) hash.update(piece);
        if (const size_t held = content_.beginning.size(); held < SignedContent::kBeginning) {
            const ByteView more = piece.first(std::min(piece.size(), SignedContent::kBeginning - held));
            content_.beginning.insert(content_.beginning.end(), more.begin(), more.end());
        }
    }

    [[nodiscard]] const SignedContent& signedContent() {
        for (auto& [algo, hash] : hashes_) content_.digests[algo] = hash.final();
        return content_;
    }

    /// Every signer's digest, too, when they are known before the content.
    void expectSigners() {
        for (const SignerInfo& one : signerInfos()) addHash(one.digestAlgorithm);
    }

    [[nodiscard]] const std::list<SignerInfo>& signerInfos() const { return signers_; }
    /// Encodings of the elements of both sets.
    [[nodiscard]] const std::vector<Bytes>& certificates() const { return certificates_; }
    [[nodiscard]] const std::vector<Bytes>& crls() const { return crls_; }

  private:
    [[nodiscard]] bool wants(MessageKind kind) const override { return kind == MessageKind::Signed; }
    void part(MessagePart part, ByteView encoding) override {
        switch (part) {
            case MessagePart::Digests:
                for (const ByteView one : elementsOf(encoding, kMostSigners)) {
                    AlgorithmIdentifier algorithm;
                    readPart(algorithm, one);
                    addHash(algorithm);
                }
                break;
            case MessagePart::InnerType:
                readPart(content_.type, encoding);
                break;
            case MessagePart::Certificates:
                takeElements(encoding, certificates_);
                for (const Bytes& one : certificates_) demandModest(one);
                break;
            case MessagePart::Crls:
                takeElements(encoding, crls_);
                break;
            case MessagePart::Signers:
                for (const ByteView one : elementsOf(encoding, kMostSigners)) {
                    if (one.size() > kMostOfSigner)
                        throw CrvApiException(ECRV_INV_CRV_MSG, "a signature with more beside it than anybody needs");
                    readPart(signers_.emplace_back(), one, ASN_FLAG_CONST | ASN_FLAG_COPY);
                }
                break;
            default:
                break;
        }
    }
    void contentBegins() override {}
    void content(ByteView piece) override {
        take(piece);
        if (sink_ && !sink_(piece)) throw CrvApiException(ECRV_WR_OUTFILE, "the content could not be written");
    }
    void addHash(const AlgorithmIdentifier& algorithm) {
        if (const KcHashAlgo hash = hashAlgoOf(algorithm); isHash(hash)) hashes_.try_emplace(hash, hash);
    }
    static void takeElements(ByteView set, std::vector<Bytes>& list) {
        for (const ByteView one : elementsOf(set)) list.push_back(toBytes(one));
    }

    ContentSink sink_;
    SignedContent content_;
    std::map<KcHashAlgo, KcHash> hashes_;
    std::list<SignerInfo> signers_;
    std::vector<Bytes> certificates_, crls_;
};

}  // namespace

int MessageVerdict::code() const {
    if (signers.empty()) return ECRV_MSGSIGN_STR;
    for (const SignerVerdict& one : signers)
        if (!one.good()) return one.code;
    return 0;
}

struct MessageVerifier::State {
    State(VerifyParams given, CertificateManager& certs, RevocationManager& crls)
        : params(std::move(given)), certificates(certs), revocation(crls), message(params.content) {
        if (!params.detached) return;
        message.update(params.message);
        message.finish();
        if (message.hasContent()) throw CrvApiException(ECRV_INV_CRV_MSG, "the message has its content inside");
        message.expectSigners();
    }

    VerifyParams params;
    CertificateManager& certificates;
    RevocationManager& revocation;
    SignedMessage message;
    int64_t length = 0;
};

MessageVerifier::MessageVerifier(VerifyParams params, CertificateManager& certificates, RevocationManager& revocation)
    : state_(std::make_unique<State>(std::move(params), certificates, revocation)) {}
MessageVerifier::MessageVerifier(MessageVerifier&&) noexcept = default;
MessageVerifier& MessageVerifier::operator=(MessageVerifier&&) noexcept = default;
MessageVerifier::~MessageVerifier() = default;

void MessageVerifier::update(ByteView octets) {
    if (!state_->params.detached) return state_->message.update(octets);
    state_->message.take(octets);
    state_->length += std::ssize(octets);
}

MessageVerdict MessageVerifier::finish() {
    State& state = *state_;
    if (!state.params.detached) {
        state.message.finish();
        if (!state.message.hasContent() && !state.message.signerInfos().empty())
            throw CrvApiException(ECRV_DETACHED_FILE_MISSING, "the content of the message stands elsewhere");
        state.length = state.message.contentLength();
    }
    const SignedContent& content = state.message.signedContent();
    MessageVerdict verdict{content.type.text(), !state.params.detached, state.length};
    SignerJudge judge(state.params, state.certificates, state.revocation, state.message.certificates(),
                      state.message.crls());
    for (const SignerInfo& one : state.message.signerInfos()) verdict.signers.push_back(judge.judge(one, content));
    verdict.certificates = judge.certificates();
    verdict.crls = judge.crlCount();
    verdict.ocspResponses = judge.ocspCount();
    return verdict;
}

}  // namespace crv
