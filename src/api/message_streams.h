// Messages that calls make and read.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "api/handles.h"
#include "messages/message_decryptor.h"
#include "messages/message_encryptor.h"
#include "messages/message_signer.h"
#include "messages/message_verifier.h"
#include "misc/base64_file.h"

namespace crv {

/// Where a message goes to, in PEM when asked for.
class MessageOutput final : public GenericFile {
  public:
    MessageOutput(ContentSink sink, bool pem);

    [[nodiscard]] bool write(ByteView octets) override { return sink_(octets); }
    /// A sink for the message's octets, which refers to this object.
    [[nodiscard]] ContentSink sink();
    /// Ends the message; false when the sink refused.
    [[nodiscard]] bool finish();

  private:
    ContentSink sink_;
    std::optional<Base64Writer> writer_;
};

}  // namespace crv

/// A message at work. Once something failed, it only waits for its end.
struct CrvStream {
    using Work = std::variant<std::monostate, crv::MessageSigner, crv::MessageVerifier, crv::MessageEncryptor,
                              crv::MessageDecryptor>;

    CRVctx* owner = nullptr;
    std::unique_ptr<crv::MessageOutput> output;
    Work work;
};

/// A verdict with what is handed out of it.
struct CrvMessageVerdict {
    struct Signer {
        CrvCert certificate;
        std::unique_ptr<CrvVerifyResult> path, stampPath;
        std::string policy;
        std::string notSigned;
    };

    explicit CrvMessageVerdict(crv::MessageVerdict made);

    crv::MessageVerdict verdict;
    std::vector<Signer> signers;
};

namespace crv {

// Each begins a stream. Throws CrvApiException as the Init call of its name answers.
[[nodiscard]] std::unique_ptr<CrvStream> beginSigning(CRVctx& ctx, const CrvSignParams* params, ContentSink sink);
[[nodiscard]] std::unique_ptr<CrvStream> beginVerifying(CRVctx& ctx, const CrvMessageParams* params, ContentSink sink);
[[nodiscard]] std::unique_ptr<CrvStream> beginEncrypting(CRVctx& ctx, const CrvEncryptParams* params, ContentSink sink);
[[nodiscard]] std::unique_ptr<CrvStream> beginDecrypting(CRVctx& ctx, ContentSink sink);

/// Certificates of a caller's list.
[[nodiscard]] CertList certsOfHandles(const CrvCert* const* certs, long count);

}  // namespace crv
