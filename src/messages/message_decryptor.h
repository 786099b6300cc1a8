// Decrypting CMS messages: EnvelopedData (RFC 5652 6) and AuthEnvelopedData (RFC 5083), in constant memory.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "asn/x509/cert_ptr.h"
#include "crypto/signer.h"
#include "misc/atomic_write.h"

namespace crv {

/// A key that may decrypt, with the certificates that senders may know it by.
struct DecryptionKey {
    SignerPtr key;
    CertList certificates{};
};

/// One that a message is for.
struct MessageRecipient {
    std::string issuer{};  ///< on one line; empty when named by key identifier
    std::string serial{};  ///< hexadecimal
    Bytes keyId{};
    std::string algorithm{};  ///< how the content key is protected
};

struct DecryptResult {
    std::string contentType{};   ///< of what was inside, dotted
    std::string algorithm{};     ///< that the content was enciphered with
    bool authenticated = false;  ///< whether the message shows that nobody changed it (AuthEnvelopedData)
    int64_t contentLength = 0;
    std::vector<MessageRecipient> recipients{};
    size_t recipient = 0;  ///< which of them is the key's
};

/// Decrypts one message, fed piece by piece in DER, BER, PEM or Base64. Plaintext goes to the sink while it is read.
///
/// NOTHING that the sink was given may be used, or kept under the name of a result, before `finish` came back: a
/// damaged or forged message is found at its end only (the tag of GCM, the padding of CBC). Write to a temporary file
/// and rename it. A content in CBC mode is not protected against changes at all (`authenticated` is false): sign it.
///
/// A key that does not come out of its encryption is replaced by a random one (RFC 3218 2.3.2), so that a wrong key and
/// damaged content are one failure: CrvApiException (ECRV_DEKKEY), always thrown by `finish`. Others:
/// ECRV_NO_CRV_MSG, ECRV_INV_CRV_MSG for what is malformed or cut off, ECRV_NOTADDR when no key is one of a recipient's
/// (with the recipients in its text), ECRV_SYMALG, ECRV_UNSUPPORTED_KEY_ALGO, ECRV_WR_OUTFILE.
class MessageDecryptor {
  public:
    MessageDecryptor(std::vector<DecryptionKey> keys, ContentSink sink);
    MessageDecryptor(MessageDecryptor&&) noexcept;
    MessageDecryptor& operator=(MessageDecryptor&&) noexcept;
    ~MessageDecryptor();

    void update(ByteView octets);
    DecryptResult finish();

  private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace crv
