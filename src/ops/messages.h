// Messages made of and into files with the keys of an open profile.
#pragma once

#include <functional>
#include <string>

#include "messages/message_decryptor.h"
#include "messages/message_encryptor.h"
#include "messages/message_signer.h"
#include "messages/message_verifier.h"
#include "messages/signature_level.h"
#include "ops/export_file.h"
#include "ops/session.h"

namespace crv {

/// The content of a file in pieces; "-" is standard input. Throws OpError (FileMissing, FileUnreadable), OpStopped.
void readPieces(const std::string& path, const std::function<void(ByteView)>& take);

struct SignFileOrder {
    std::string input;
    ExportTarget target;
    SignatureLevel level = SignatureLevel::Basic;
    NetProgress progress{};           ///< while time stamps and proofs are fetched
    std::vector<std::string> keys{};  ///< beginnings of identifiers of the keys that sign; none: the signing key
    bool detached = false;
    bool cosign = false;
    bool claimTime = true;
    bool pem = false;
    bool pss = false;                    ///< sign by RSA-PSS whatever the profile says
    KcHashAlgo hash = KcHashAlgo::None;  ///< none: the profile's
    std::string detachedMessage{};       ///< co-signing: `input` is its content; empty: none
    std::string policy{};                ///< one of the user's policies, dotted; empty: none
    std::string policyDocument{};        ///< file whose digest the policy's identifier carries; empty: none
};

// Each throws OpError: BadMessage, NoSigningCertificate, ObjectMissing, WrongKind, and what exportPieces throws. An
// output appears whole, or not at all.

/// What was fetched is stored, whatever becomes of the message; WARN_NET_STORE_NOT_MOVED among the context's warnings
/// where that fails.
SignResult signFile(Session& session, const SignFileOrder& order);

struct VerifyFileOrder {
    std::string input;              ///< the message, or its content when that is detached
    std::string detachedMessage{};  ///< empty: the content is inside
    std::string out{};              ///< where a content inside goes to when the verdict is good; empty: nowhere
    ExportTarget target{};          ///< of `out`
};
MessageVerdict verifyFile(Session& session, const VerifyFileOrder& order, VerifyParams params);

/// A certificate to encrypt for must have a good path now, unless `unchecked`; else OpError (CertificateRefused).
void encryptFile(Session& session, const std::string& input, const ExportTarget& target, const EncryptParams& params,
                 bool pem, bool unchecked);
DecryptResult decryptFile(Session& session, const std::string& input, const ExportTarget& target);

/// The newest valid certificate in the database with the e-mail address that can be encrypted for; when there is none
/// and option 6 asks for it, one from the servers of certificates. Throws OpError (ObjectMissing), (Ambiguous) when
/// different people have it.
CertPtr recipientByEmail(Session& session, const std::string& email);

}  // namespace crv
