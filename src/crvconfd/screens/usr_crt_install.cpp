#include "crvconfd/screens/usr_crt_install.h"

#include <algorithm>
#include <ctime>
#include <iterator>
#include <new>

#include "asn/x509/signed_certificate.h"
#include "crvconfd/screens/certificate_prompt.h"
#include "crvconfd/session/context.h"
#include "crvconfd/session/messages.h"
#include "crvconfd/session/prot_cfg.h"
#include "crvconfd/toolkit/toolkit.h"
#include "keystore/key_manager.h"
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

bool belongsToUser(const SignedCertificate& certificate) {
    const KeyId id = certificate.computeKeyIdentifierSha1Hash();
    const auto keys = keyManager->keys();
    return std::any_of(keys.begin(), keys.end(), [&](const StoredKey& stored) { return stored.key->keyId() == id; });
}

/// What is unusual about an installation, as a question; null when nothing is.
const char* questionAbout(const SignedCertificate& certificate) {
    const int64_t now = std::time(nullptr);
    const auto from = certificate.tbs.validity.notBefore.seconds();
    const CertList& installed = keyManager->userCerts();
    const bool replaces = std::any_of(installed.begin(), installed.end(), [&](const CertPtr& old) {
        return old->isValidAt(now) && isNewer(certificate, *old) && old->subject() == certificate.subject() &&
               old->computeKeyIdentifierSha1Hash() == certificate.computeKeyIdentifierSha1Hash();
    });
    if (!certificate.isValidAt(now)) {
        return from && *from > now ? "Certyfikat nie jest jeszcze ważny. Czy go zainstalować (t/n)?"
                                   : "Certyfikat jest przeterminowany. Czy go zainstalować (t/n)?";
    }
    return replaces ? "Klucz ma już ważny certyfikat. Czy zastąpić go nowszym (t/n)?" : nullptr;
}

/// Installs the user's certificates of a file, and puts those of authorities that came with them into the database. The
/// first refusal is shown when nothing could be installed.
CertList installAll(const CertList& certificates, const CertList& own) {
    CertList installed;
    KeyManagerResult refusal = kKmOk;
    for (const CertPtr& certificate : own) {
        const char* question = questionAbout(*certificate);
        if (question && displCentQuestion(kMessageRow, question) == 0) continue;
        const KeyManagerResult result = keyManager->installUserCrt(certificate);
        if (result == kKmOk) installed.push_back(certificate);
        if (refusal == kKmOk) refusal = result;
    }
    if (installed.empty()) {
        if (refusal != kKmOk) showCode(kInstallTexts, refusal);
        return {};
    }
    std::copy_if(certificates.begin(), certificates.end(), std::back_inserter(installed),
                 [](const CertPtr& one) { return one->isCaCrt() && !belongsToUser(*one); });
    return installed;
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
    CertList own;
    for (const CertPtr& one : certificates)
        if (belongsToUser(*one) && !contains(own, *one)) own.push_back(one);
    if (own.empty()) own.push_back(certificates.front());  // whose refusal says why
    std::stable_sort(own.begin(), own.end(), [](const CertPtr& a, const CertPtr& b) { return isNewer(*a, *b); });
    const CertList installed = installAll(certificates, own);
    if (installed.empty()) return keyManager->undoInstallUserCrt();
    if (!storeInDatabase(installed) || !writeProtCfg()) return keyManager->undoInstallUserCrt();
    displCentInfo(kMessageRow, "Certyfikat użytkownika poprawnie zainstalowany", 2);
    showSummary("Zainstalowane certyfikaty", installed);
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
