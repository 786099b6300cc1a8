// One signature of a message: its attributes, its certificate, its octets (RFC 5652 5.4, 5.6).
#pragma once

#include <map>

#include "asn/pkcs/signed_data.h"
#include "crypto/kc_hash.h"
#include "messages/message_verifier.h"

namespace crv {

/// What the signatures of a message are about.
struct SignedContent {
    ASNobjectId type{};
    std::map<KcHashAlgo, Bytes> digests{};
    Bytes beginning{};  ///< its first octets
    static constexpr size_t kBeginning = 16;
};

/// Who may have signed: certificates to try, those that came with the message first.
using CandidateSource = std::function<CertList(const SignerInfo& signer)>;

/// The verdict on the signature alone: everything of SignerVerdict that needs no path; code ECRV_MSGSIGN and the like.
/// `signer` was read in keeping mode. Throws CryptoError when a primitive itself fails.
[[nodiscard]] SignerVerdict checkSignature(const SignerInfo& signer, const SignedContent& content,
                                           const CandidateSource& candidates);

}  // namespace crv
