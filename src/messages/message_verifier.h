// Verifying signed CMS messages (RFC 5652 5, EN 319 122-1) in constant memory: a verdict for every signer.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "asn/pkcs/signed_data.h"
#include "misc/atomic_write.h"
#include "pki/path_verdict.h"

namespace crv {

class CertificateManager;
class RevocationManager;

/// At which moment certificate paths are judged.
enum class VerifyMoment {
    Signing,  ///< the time stamp's, where a good one stands, else the claimed one, else now
    Now,
    Given
};

/// Where the moment came from.
enum class MomentSource { Stamp, Claim, Now, Given };

struct VerifyParams {
    bool detached = false;  ///< `update` takes the content; the message is `message`
    Bytes message{};        ///< the detached message, DER, BER or PEM
    ContentSink content{};  ///< gets an attached content; may be empty
    VerifyMoment moment = VerifyMoment::Signing;
    int64_t time = 0;         ///< for VerifyMoment::Given
    int64_t now = 0;          ///< seconds since 1970 UTC
    PathOptions path{};       ///< its time does not matter; its limits are for the message as a whole
    CertList certificates{};  ///< that may be the signers' or lead to a trust point
    bool everyStamp = false;  ///< whether a time stamp that does not count makes the signature bad (ECRV_TS_VERIF)
};

/// What became of one signature.
struct SignerVerdict {
    // Who.
    std::string issuer{};   ///< of the certificate that the message names, on one line; empty when named by key
    std::string serial{};   ///< hexadecimal
    Bytes keyId{};          ///< when named by key identifier
    CertPtr certificate{};  ///< null when nobody has it
    bool certificateInside = false;  ///< whether it came with the message

    // The signature.
    SignatureCheck signature = SignatureCheck::NoCertificate;
    std::string fault{};      ///< why it is not good, in words
    std::string algorithm{};  ///< name
    KcHashAlgo hash = KcHashAlgo::None;
    bool bindsCertificate = false;  ///< signing-certificate (v2) names the certificate
    std::optional<int64_t> claimedTime{};
    std::optional<ASNobjectId> policy{};  ///< signature policy that the signer says to follow

    // The time stamp.
    std::optional<int64_t> stampTime{};  ///< of the earliest good one that was looked at
    std::string stampFault{};            ///< why the one that stands there does not count; empty: none, or a good one
    std::string stampAuthority{};        ///< subject of who made a good one
    PathVerdict stampPath{};             ///< of who made it, with the status of every certificate

    // The certificate.
    int64_t moment = 0;  ///< at which the path was judged
    MomentSource momentSource = MomentSource::Now;
    PathVerdict path{};  ///< code 0 and no certificates when nobody looked because the signature is not good
    /// Revoked after a moment that only the signer claims: who has the key now may have made the signature.
    bool revokedSince = false;
    /// The same of a path that has expired after such a moment; the signature counts only as long as no status is
    /// required.
    bool expiredSince = false;

    /// What is not protected by the signature, each in words.
    std::vector<std::string> notSigned{};

    int code = 0;  ///< 0, or the library's code for the first thing that is wrong
    [[nodiscard]] bool good() const { return code == 0; }
};

struct MessageVerdict {
    std::string contentType{};  ///< dotted
    bool attached = false;
    int64_t contentLength = 0;
    std::vector<SignerVerdict> signers{};
    CertList certificates{};  ///< that came with the message
    size_t crls = 0;          ///< that came with the message
    size_t ocspResponses = 0;

    /// 0 when there are signers and all are good, else the first code that is not.
    [[nodiscard]] int code() const;
    [[nodiscard]] bool good() const { return code() == 0; }
};

/// Judges one message; feed it piece by piece in DER, BER, PEM or Base64, or its content when it is detached. The
/// content goes to the sink while it is read: it is nobody's word before `finish` came back with a good verdict.
///
/// Throws CrvApiException: ECRV_NO_CRV_MSG for what is no CMS message, ECRV_INV_CRV_MSG for a malformed, cut off or
/// other one, ECRV_DETACHED_FILE_MISSING when the message has no content and none was given, ECRV_WR_OUTFILE when the
/// sink refuses. What is wrong with a signature is in its verdict.
class MessageVerifier {
  public:
    /// Octets of certificates, CRLs and signatures beside the content that are held at most.
    static constexpr size_t kMaxHeld = size_t{64} << 20;

    MessageVerifier(VerifyParams params, CertificateManager& certificates, RevocationManager& revocation);
    MessageVerifier(MessageVerifier&&) noexcept;
    MessageVerifier& operator=(MessageVerifier&&) noexcept;
    ~MessageVerifier();

    void update(ByteView octets);
    MessageVerdict finish();

  private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace crv
