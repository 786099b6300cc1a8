// The prompt for the file of one certificate.
#pragma once

#include <functional>

#include "keystore/key_store_contents.h"

namespace crv {

/// Asks on the message row for a file and reads a certificate from it, in any usual form: DER, PEM or a PKCS#7 bundle.
/// Of several the first that is preferred is taken, else the first. Null after Escape, and after the message that the
/// file holds none.
[[nodiscard]] CertPtr askForCertificate(const std::function<bool(const SignedCertificate&)>& preferred = {});

}  // namespace crv
