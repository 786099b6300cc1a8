// The content key of a message on its way to and from the recipients' keys (RFC 5652 6.2, RFC 5753).
#pragma once

#include <list>

#include "asn/pkcs/enveloped_data.h"
#include "messages/message_decryptor.h"
#include "messages/message_encryptor.h"

namespace crv {

/// A RecipientInfo with the content key for a certificate. Throws as MessageEncryptor.
[[nodiscard]] Bytes makeRecipientInfo(const SignedCertificate& certificate, ByteView contentKey,
                                      const EncryptParams& params, RandomBridge& random);
/// Whether the recipient's certificate is named by something else than issuer and number, or its key agrees on secrets:
/// such a message has version 2 (RFC 5652 6.1).
[[nodiscard]] bool agreesOnSecrets(const SignedCertificate& certificate);

/// Everybody whom the message is for.
using RecipientInfos = std::list<RecipientInfo>;
[[nodiscard]] std::vector<MessageRecipient> recipientsOf(const RecipientInfos& infos);

struct OpenedKey {
    SecretBytes key;
    size_t recipient = 0;  ///< the index in recipientsOf
};
/// The content key of `length` octets by the first of the keys that is one of a recipient's and can open what stands
/// there. One that does not come out right is a random one (RFC 3218 2.3.2), and no other is tried. Throws
/// CrvApiException (ECRV_NOTADDR, ECRV_UNSUPPORTED_KEY_ALGO); what a token throws passes.
[[nodiscard]] OpenedKey openContentKey(const RecipientInfos& infos, const std::vector<DecryptionKey>& keys,
                                       size_t length);

}  // namespace crv
