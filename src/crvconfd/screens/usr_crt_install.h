// Installing the user's certificate.
#pragma once

namespace crv {

/// Asks for a certificate file, pairs the certificate with its key, puts it into the database and saves. When one of
/// the later steps fails, nothing is installed.
void OnUsrCrtInstall();

}  // namespace crv
