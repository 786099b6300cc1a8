#include "crvconfd/screens/certificate_prompt.h"

#include "crvconfd/engines/text_view.h"
#include "crvconfd/screens/crt_text.h"
#include "crvconfd/screens/file_prompt.h"
#include "crvconfd/session/context.h"
#include "crvconfd/session/messages.h"
#include "crvconfd/toolkit/toolkit.h"
#include "crypto/kc_hash.h"
#include "misc/exceptions.h"
#include "pki/certificate_manager.h"

namespace crv {

namespace {

/// Nothing, after a message, when the file cannot be read or holds none.
CertList certificatesIn(const TypedFile& file) {
    CertList certs;
    try {
        certs = crtManager->readCerts(file.path);
    } catch (const StoreError&) {
        if (const int error = openError(file.path); error != 0) {
            showFileFailure("Błąd otwarcia pliku %s !!!", file.typed, error);
        } else {
            errInfo(kMessageRow, "Błąd odczytu pliku %s !!!", file.typed.c_str());
        }
        return {};
    }
    if (certs.empty()) errInfo(kMessageRow, "Plik %s nie zawiera poprawnego certyfikatu !!!", file.typed.c_str());
    return certs;
}

}  // namespace

CertList askForCertificates() {
    const auto file = askForFile("Podaj nazwę pliku z certyfikatem: ");
    if (!file) return {};
    return certificatesIn(*file);
}

CertPtr askForCertificate() {
    const CertList certs = askForCertificates();
    return certs.empty() ? nullptr : certs.front();
}

void showSummary(const char* header, const CertList& certificates) {
    TextView view{header, {}};
    for (const CertPtr& certificate : certificates) {
        const Validity& validity = certificate->tbs.validity;
        if (!view.lines.empty()) view.lines.emplace_back();
        addField(view.lines, "Właściciel:", nameLine(certificate->subject()));
        addField(view.lines, "Wystawca:", nameLine(certificate->issuer()));
        addField(view.lines, "Ważny od:", timeLine(validity.notBefore));
        addField(view.lines, "Ważny do:", timeLine(validity.notAfter));
        addField(view.lines, "Skrót SHA-256:", hexText(hashOf(KcHashAlgo::Sha256, encodingOf(*certificate))));
    }
    runTextView(view);
}

}  // namespace crv
