// Encrypting content for certificates as a CMS message: EnvelopedData (RFC 5652 6) or AuthEnvelopedData (RFC 5083,
// RFC 5084), in constant memory.
#pragma once

#include <memory>

#include "asn/asn_object_id.h"
#include "asn/x509/cert_ptr.h"
#include "crypto/public_key.h"
#include "misc/atomic_write.h"

namespace crv {

class RandomBridge;

struct EncryptParams {
    CertList recipients{};
    ASNobjectId algorithm{};                    ///< AES in CBC or GCM mode, triple DES, Camellia
    RsaPadding rsaPadding = RsaPadding::Pkcs1;  ///< of the content key for RSA certificates
    KcHashAlgo oaepHash = KcHashAlgo::Sha256;
    bool anyUsage = false;  ///< also for certificates whose keyUsage forbids it
};

/// Makes one message; feeding and output as for MessageSigner. Content keys are drawn from the source.
///
/// Throws CrvApiException: ECRV_RECCRT without recipients, ECRV_SYMALG for an algorithm that does not encipher content,
/// ECRV_UNSUPPORTED_KEY_ALGO for a certificate whose key cannot receive, ECRV_INV_CRT_PROF for one whose keyUsage
/// forbids it, ECRV_WR_OUTFILE when the sink refuses.
class MessageEncryptor {
  public:
    MessageEncryptor(const EncryptParams& params, RandomBridge& random, ContentSink sink);
    MessageEncryptor(MessageEncryptor&&) noexcept;
    MessageEncryptor& operator=(MessageEncryptor&&) noexcept;
    ~MessageEncryptor();

    void update(ByteView octets);
    void finish();

  private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace crv
