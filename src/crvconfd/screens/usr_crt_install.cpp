#include "crvconfd/screens/usr_crt_install.h"

#include <algorithm>
#include <new>

#include "crvconfd/screens/certificate_prompt.h"
#include "crvconfd/session/context.h"
#include "crvconfd/session/messages.h"
#include "crvconfd/session/prot_cfg.h"
#include "crvconfd/toolkit/toolkit.h"
#include "keystore/key_manager.h"
#include "ops/installation.h"
#include "pki/certificate_manager.h"

namespace crv {

namespace {

constexpr CodeText kInstallTexts[] = {
    {kKmNoMemory, "Brak pamięci"},
    {kKmWrongPassword, "Błędne hasło/PIN lub naruszona integralność pliku bezpieczeństwa"},
    {kKmNoKeyForCertificate, "Certyfikat nie jest sparowany z zadnym kluczem uzytkownika !!!"},
    {kKmUnknownKeyAlgorithm, "Błędny format"},
    {kKmDeviceError, "Błąd komunikacji z urządzeniem Tarvo"},
    {kKmCardNotFound, "Karta nieznaleziona"},
    {kKmCardBlocked, "Karta zablokowana"},
    {kKmPkcs11NotInitialised, "Błąd podczas inicjowania biblioteki PKCS#11"},
    {kKmPkcs11Init, "Błąd podczas inicjowania biblioteki PKCS#11"},
    {kKmRoleTaken, "Nie można zainstalować certyfikatu do innego klucza o tym samym zastosowaniu !!!"},
    {kKmCancelled, "Brak PINu do klucza podpisującego !!!"},
    {kKmNoDecryptionPin, "Brak PINu do klucza deszyfrującego !!!"},
    {kKmNoRootsPassword, "Brak PINu do nośnika punktów zaufania !!!"},
    {kKmCertificateExists, "Certyfikat do tego zastosowania już istnieje !!!"},
    {kKmKeyHasTwoNames, "Wykryty klucz recertyfikowany dla różnych identyfikatorów wyróżniających !!!"},
};

constexpr CodeText kDoubtTexts[] = {
    {static_cast<int>(InstallDoubt::NotYetValid), "Certyfikat nie jest jeszcze ważny. Czy go zainstalować (t/n)?"},
    {static_cast<int>(InstallDoubt::Expired), "Certyfikat jest przeterminowany. Czy go zainstalować (t/n)?"},
    {static_cast<int>(InstallDoubt::Replaces), "Klucz ma już ważny certyfikat. Czy zastąpić go nowszym (t/n)?"},
};

bool confirm(InstallDoubt doubt, const SignedCertificate&) {
    return displCentQuestion(kMessageRow, findText(kDoubtTexts, static_cast<int>(doubt))) == 1;
}

bool storeInDatabase(const CertList& certificates) {
    const bool stored = std::all_of(certificates.begin(), certificates.end(),
                                    [](const CertPtr& one) { return crtManager->db().insert(*one); });
    if (!stored) showDatabaseFailure("Błąd bazy danych !!!", "Brak pamięci !!!");
    return stored;
}

void install() {
    const CertList certificates = askForCertificates();
    if (certificates.empty()) return;
    const Installation done = installCertificates(*keyManager, certificates, {confirm, storeInDatabase, writeProtCfg});
    if (done.refusal != kKmOk) return showCode(kInstallTexts, done.refusal);
    if (done.certificates.empty()) return;
    displCentInfo(kMessageRow, "Certyfikat użytkownika poprawnie zainstalowany", 2);
    for (const CertPtr& one : done.certificates) {
        if (stillWaits(*keyManager, *one))
            warnInfo(kMessageRow, "Certyfikat nie pozwala na to, co robi dotychczasowy klucz: pozostaje w użyciu");
    }
    showSummary("Zainstalowane certyfikaty", done.certificates);
}

}  // namespace

void OnUsrCrtInstall() {
    if (!keyManager->hasAnyKey()) return errInfo(kMessageRow, "Brak kluczy, nie można zainstalować certyfikatu !!!");
    try {
        install();
    } catch (const std::bad_alloc&) {
        errInfo(kMessageRow, "Brak pamięci !!!");
    }
}

}  // namespace crv
