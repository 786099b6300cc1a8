// SignerInfo of messages: made with the attributes of advanced signatures.
#pragma once

#include "asn/pkcs/signed_data.h"
#include "messages/message_signer.h"

namespace crv {

/// What one signer signs.
struct SignatureOrder {
    const MessageSignerKey& signer;
    const ASNobjectId& contentType;
    ByteView contentDigest;
    const SignParams& params;
};

struct MadeSigner {
    Bytes encoding;            ///< of the SignerInfo
    SignatureProofs proofs{};  ///< that its time stamp brought
};
/// A SignerInfo with signed attributes (EN 319 122-1 6.3): content type, digest, signing certificate, and the time and
/// policy that are asked for; with a time stamp where there is a source. Throws as MessageSigner.
[[nodiscard]] MadeSigner makeSignerInfo(const SignatureOrder& order, RandomBridge& random);

/// Throws CrvApiException (ECRV_SIG_WITH_DIG_NOT_SUPPORTED) for a key that does not go with its scheme and hash.
void demandFit(const MessageSignerKey& signer);

}  // namespace crv
