#include "messages/message_encryptor.h"

#include <algorithm>

#include "asn/known_oids.h"
#include "asn/x509/signed_certificate.h"
#include "corvane/crverrors.h"
#include "crypto/crypto_error.h"
#include "messages/message_signer.h"
#include "messages/message_writer.h"
#include "messages/recipients.h"
#include "misc/exceptions.h"

namespace crv {

namespace {

constexpr uint8_t kRecipientsTag = 0x31;

SecretBytes drawn(RandomBridge& random, size_t length) {
    SecretBytes octets(length);
    random.draw(octets);
    return octets;
}

CipherAlgo demandCipher(const ASNobjectId& oid) {
    const auto cipher = contentCipher(oid);
    if (!cipher) throw CrvApiException(ECRV_SYMALG, "content is not enciphered with " + oid.name());
    return *cipher;
}

Bytes versionOf(const CertList& recipients, bool authenticated) {
    const bool agreed = std::ranges::any_of(recipients, [](const CertPtr& one) { return agreesOnSecrets(*one); });
    return ASNinteger(agreed && !authenticated ? 2 : 0).encoded();
}

}  // namespace

struct MessageEncryptor::State {
    State(const EncryptParams& params, RandomBridge& random, ContentSink sink)
        : algo(demandCipher(params.algorithm)),
          writer(std::move(sink), MessageSigner::kHeldContent),
          key(drawn(random, cipherKeyLength(algo))),
          vector(drawn(random, cipherVectorLength(algo))),
          cipher(algo, CipherStream::Direction::Encrypt, key, vector),
          frame{isAuthenticated(algo) ? OID_CT_AUTH_ENVELOPED_DATA : OID_PKCS7_ENVELOPED_DATA, {}, {}, false} {
        if (params.recipients.empty()) throw CrvApiException(ECRV_RECCRT);
        std::vector<Bytes> recipients;
        for (const CertPtr& one : params.recipients) recipients.push_back(makeRecipientInfo(*one, key, params, random));
        frame.before = versionOf(params.recipients, isAuthenticated(algo));
        append(frame.before, setOf(kRecipientsTag, std::move(recipients)));
        frame.innerHead = ASNobjectId(OID_PKCS7_DATA).encoded();
        append(frame.innerHead, contentEncryption(params.algorithm, vector).encoded());
        wipe(key);
    }

    static void append(Bytes& out, const Bytes& more) { out.insert(out.end(), more.begin(), more.end()); }

    CipherAlgo algo;
    MessageWriter writer;
    SecretBytes key, vector;
    CipherStream cipher;
    MessageFrame frame;
    SecretBytes piece{};
};

MessageEncryptor::MessageEncryptor(const EncryptParams& params, RandomBridge& random, ContentSink sink)
    : state_(std::make_unique<State>(params, random, std::move(sink))) {}
MessageEncryptor::MessageEncryptor(MessageEncryptor&&) noexcept = default;
MessageEncryptor& MessageEncryptor::operator=(MessageEncryptor&&) noexcept = default;
MessageEncryptor::~MessageEncryptor() = default;

void MessageEncryptor::update(ByteView octets) {
    constexpr size_t kStep = size_t{256} << 10;
    while (!octets.empty()) {
        const ByteView some = octets.first(std::min(kStep, octets.size()));
        state_->cipher.update(some, state_->piece);
        state_->writer.content(state_->frame, state_->piece);
        octets = octets.subspan(some.size());
    }
}

void MessageEncryptor::finish() {
    State& state = *state_;
    state.cipher.finish(state.piece);
    state.writer.content(state.frame, state.piece);
    Bytes after;
    if (isAuthenticated(state.algo)) after = ASNoctstr(state.cipher.tag()).encoded();
    state.writer.finish(state.frame, after);
}

}  // namespace crv
