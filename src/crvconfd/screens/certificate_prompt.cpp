#include "crvconfd/screens/certificate_prompt.h"

#include <algorithm>

#include "crvconfd/screens/file_prompt.h"
#include "crvconfd/session/context.h"
#include "crvconfd/toolkit/toolkit.h"
#include "misc/exceptions.h"
#include "pki/certificate_manager.h"

namespace crv {

namespace {

/// Empty as well when the file cannot be read.
CertList certificatesIn(const std::string& path) {
    try {
        return crtManager->readCerts(path);
    } catch (const StoreError&) {
        return {};
    }
}

}  // namespace

CertPtr askForCertificate(const std::function<bool(const SignedCertificate&)>& preferred) {
    const auto file = askForFile("Podaj nazwę pliku z certyfikatem: ");
    if (!file) return nullptr;
    const CertList certs = certificatesIn(file->path);
    if (certs.empty()) {
        errInfo(kMessageRow, "Plik %s nie zawiera poprawnego certyfikatu !!!", file->typed.c_str());
        return nullptr;
    }
    const auto found =
        std::find_if(certs.begin(), certs.end(), [&](const CertPtr& cert) { return preferred && preferred(*cert); });
    return found == certs.end() ? certs.front() : *found;
}

}  // namespace crv
