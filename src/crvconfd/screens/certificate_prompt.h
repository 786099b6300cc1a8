// The prompt for a file of certificates.
#pragma once

#include "asn/x509/cert_ptr.h"

namespace crv {

/// Asks on the message row for a file and reads its certificates, in any usual form: DER, PEM or a PKCS#7 bundle. Empty
/// after Escape, and after the message that the file holds none.
[[nodiscard]] CertList askForCertificates();

/// The first of them; null when there is none.
[[nodiscard]] CertPtr askForCertificate();

/// Shows what was installed or added: subject, issuer, validity and fingerprint of each.
void showSummary(const char* header, const CertList& certificates);

}  // namespace crv
