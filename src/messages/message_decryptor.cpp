#include "messages/message_decryptor.h"

#include <algorithm>

#include "corvane/crverrors.h"
#include "crypto/crypto_error.h"
#include "messages/message_reader.h"
#include "messages/recipients.h"
#include "misc/exceptions.h"

namespace crv {

namespace {

constexpr size_t kMostOfEnvelope = size_t{16} << 20;

[[noreturn]] void failDecryption() {
    throw CrvApiException(ECRV_DEKKEY, "the message does not decrypt: it was damaged, or the key is another one");
}

class SealedMessage final : public MessageReader {
  public:
    SealedMessage(std::vector<DecryptionKey> keys, ContentSink sink)
        : MessageReader(kMostOfEnvelope), keys_(std::move(keys)), sink_(std::move(sink)) {}

    DecryptResult conclude() {
        finish();
        if (!hasContent()) throw CrvApiException(ECRV_DETACHED_FILE_MISSING, "the enciphered content stands elsewhere");
        if (damaged_) failDecryption();
        try {
            if (kind() == MessageKind::AuthEnveloped) cipher_->expectTag(mac_);
            cipher_->finish(piece_);
        } catch (const CryptoError& error) {
            if (error.failure() != CryptoFailure::BadData) throw;
            failDecryption();
        }
        put();
        return std::move(result_);
    }

  private:
    [[nodiscard]] bool wants(MessageKind kind) const override { return kind != MessageKind::Signed; }
    void part(MessagePart part, ByteView encoding) override;
    void contentBegins() override;
    void content(ByteView piece) override;

    void put() {
        result_.contentLength += std::ssize(piece_);
        if (!piece_.empty() && sink_ && !sink_(piece_))
            throw CrvApiException(ECRV_WR_OUTFILE, "the content could not be written");
    }

    std::vector<DecryptionKey> keys_;
    ContentSink sink_;
    RecipientInfos recipients_;
    std::optional<ContentEncryption> encryption_;
    std::optional<CipherStream> cipher_;
    SecretBytes piece_;
    Bytes mac_;
    bool damaged_ = false;
    DecryptResult result_;
};

void SealedMessage::part(MessagePart part, ByteView encoding) {
    if (part == MessagePart::Recipients) {
        for (const ByteView one : elementsOf(encoding)) readPart(recipients_.emplace_back(), one);
    }
    if (part == MessagePart::InnerType) {
        ASNobjectId type;
        readPart(type, encoding);
        result_.contentType = type.text();
    }
    if (part == MessagePart::Cipher) {
        AlgorithmIdentifier algorithm;
        readPart(algorithm, encoding);
        encryption_ = readContentEncryption(algorithm);
        result_.algorithm = algorithm.algorithm.name();
        const bool fits = encryption_ && isAuthenticated(encryption_->cipher) == (kind() == MessageKind::AuthEnveloped);
        if (!fits) {
            throw CrvApiException(ECRV_SYMALG,
                                  "the content is enciphered in a way that is unknown here: " + result_.algorithm);
        }
    }
    if (part == MessagePart::Mac) {
        ASNoctstr mac;
        readPart(mac, encoding);
        mac_ = toBytes(mac.value());
        if (mac_.size() != encryption_->tagLength) damaged_ = true;
    }
    if (part == MessagePart::Attributes && kind() == MessageKind::AuthEnveloped)
        throw CrvApiException(ECRV_SYMALG, "the message has authenticated attributes, which are not understood here");
}

void SealedMessage::contentBegins() {
    OpenedKey opened = openContentKey(recipients_, keys_, cipherKeyLength(encryption_->cipher));
    cipher_.emplace(encryption_->cipher, CipherStream::Direction::Decrypt, opened.key, encryption_->vector);
    result_.recipients = recipientsOf(recipients_);
    result_.recipient = opened.recipient;
    result_.authenticated = kind() == MessageKind::AuthEnveloped;
}

void SealedMessage::content(ByteView piece) {
    constexpr size_t kStep = size_t{256} << 10;
    while (!piece.empty()) {
        const ByteView some = piece.first(std::min(kStep, piece.size()));
        cipher_->update(some, piece_);
        put();
        piece = piece.subspan(some.size());
    }
}

}  // namespace

struct MessageDecryptor::State {
    SealedMessage message;
};

MessageDecryptor::MessageDecryptor(std::vector<DecryptionKey> keys, ContentSink sink)
    : state_(new State{SealedMessage(std::move(keys), std::move(sink))}) {}
MessageDecryptor::MessageDecryptor(MessageDecryptor&&) noexcept = default;
MessageDecryptor& MessageDecryptor::operator=(MessageDecryptor&&) noexcept = default;
MessageDecryptor::~MessageDecryptor() = default;

void MessageDecryptor::update(ByteView octets) {
    state_->message.update(octets);
}

DecryptResult MessageDecryptor::finish() {
    return state_->message.conclude();
}

}  // namespace crv
