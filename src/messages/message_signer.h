// Signing content as a CMS message (RFC 5652 5) with CAdES attributes (ETSI EN 319 122-1), in constant memory.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "asn/asn_object_id.h"
#include "asn/x509/cert_ptr.h"
#include "crypto/signer.h"
#include "misc/atomic_write.h"

namespace crv {

/// One who signs.
struct MessageSignerKey {
    SignerPtr key;
    CertPtr certificate;
    KeyScheme scheme = KeyScheme::Rsa;  ///< how an RSA key signs; other keys have one way
    KcHashAlgo hash = KcHashAlgo::Sha256;
};

/// The policy that a signature follows (EN 319 122-1 5.2.9.1).
struct SignaturePolicy {
    ASNobjectId identifier;
    KcHashAlgo hash = KcHashAlgo::None;  ///< of the policy's document; none: the hash is left out
    Bytes digest{};
};

/// What proves a signature long after it was made (EN 319 122-1 6.3, level B-LT).
struct SignatureProofs {
    CertList certificates{};             ///< the path
    std::vector<Bytes> crls{};           ///< DER CertificateList
    std::vector<Bytes> ocspResponses{};  ///< DER OCSPResponse (RFC 5940)
};

/// A time stamp that was asked for.
struct SignatureStamp {
    Bytes token{};             ///< the DER TimeStampToken (RFC 3161 2.4.2), checked
    SignatureProofs proofs{};  ///< of who made it
};
/// Asks for a time stamp of a digest. What it throws ends signing.
using TimeStampSource = std::function<SignatureStamp(KcHashAlgo hash, ByteView digest)>;

struct SignParams {
    std::vector<MessageSignerKey> signers{};
    bool detached = false;          ///< leave the content out of the message
    std::optional<int64_t> time{};  ///< signing time that is claimed, seconds since 1970 UTC; nothing: none is claimed
    std::optional<SignaturePolicy> policy{};
    SignatureProofs proofs{};     ///< to be put in beside the signers' certificates
    TimeStampSource timeStamp{};  ///< makes a CAdES-B-T signature of each; empty: none
    /// Stamps may bring OCSP answers; a message that is too long to be held announces them (version 5).
    bool stampsBringOcsp = false;
    bool cosign = false;      ///< `update` takes an attached message, to which the signers are added
    Bytes detachedMessage{};  ///< co-signing: the message whose content `update` takes
};

/// What was made.
struct SignResult {
    bool detached = false;
    int64_t contentLength = 0;  ///< octets that were signed
    size_t signers = 0;         ///< in the message now
};

/// Makes one message. Feed the content piece by piece, then finish; octets of the message go to the sink as soon as
/// they are known. A message whose content is at most kHeldContent octets is DER; a longer one has indefinite lengths
/// (BER) and is never held. What stands in the sink before `finish` came back is no message: throw it away when
/// anything throws.
///
/// Throws CrvApiException: ECRV_SKEYS_NOT_PRES without signers, ECRV_SIG_WITH_DIG_NOT_SUPPORTED for a key that does not
/// go with its hash, ECRV_INV_CRV_MSG for what is no signed message and ECRV_FILE_NOT_SGN_FOR_COUNTERSGN for another
/// kind of message when co-signing, ECRV_WR_OUTFILE when the sink refuses. CryptoError, and what a token and the source
/// of the time stamp throw, pass through.
class MessageSigner {
  public:
    static constexpr size_t kHeldContent = size_t{1} << 20;

    MessageSigner(SignParams params, RandomBridge& random, ContentSink sink);
    MessageSigner(MessageSigner&&) noexcept;
    MessageSigner& operator=(MessageSigner&&) noexcept;
    ~MessageSigner();

    void update(ByteView octets);
    SignResult finish();

  private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace crv
