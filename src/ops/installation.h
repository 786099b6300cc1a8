// Installing the user's certificates of a file.
#pragma once

#include <functional>

#include "asn/x509/cert_ptr.h"
#include "keystore/key_manager_result.h"

namespace crv {

class CertificateManager;
class KeyManager;

/// What is unusual about an installation, for which the user is asked.
enum class InstallDoubt { None, NotYetValid, Expired, Replaces };

struct InstallHooks {
    /// Asked of a doubt; false leaves the certificate out.
    std::function<bool(InstallDoubt doubt, const SignedCertificate& certificate)> confirm;
    /// Stores certificates in the database, then saves the key store; either says itself what went wrong.
    std::function<bool(const CertList& certificates)> store;
    std::function<bool()> save;
};

struct Installation {
    /// What was installed, the newest first, then the authorities that came with it; empty when nothing was.
    CertList certificates{};
    KeyManagerResult refusal = kKmOk;  ///< of the first certificate that was refused, when none could be installed
};

/// Installs every certificate of the list that belongs to a key of the user and puts those of authorities beside them
/// into the database. A failure of the database or the save, or an exception of a hook, takes all of it back.
[[nodiscard]] Installation installCertificates(KeyManager& keys, const CertList& certificates,
                                               const InstallHooks& hooks);

/// Whether the key of the certificate still waits for another one's place after its installation: the certificate
/// allows it nothing of what that one does.
[[nodiscard]] bool stillWaits(const KeyManager& keys, const SignedCertificate& certificate);

}  // namespace crv
