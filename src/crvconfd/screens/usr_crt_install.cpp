#include "crvconfd/screens/usr_crt_install.h"

#include <algorithm>
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
    return std::any_of(keys.begin(), keys.end(), [&](const StoredKey& stored) { return stored.key.keyId() == id; });
}

bool storeInDatabase(const SignedCertificate& certificate) {
    if (crtManager->db().insert(certificate)) return true;
    errInfo(kMessageRow, "Błąd bazy danych !!!");
    return false;
}

void install() {
    const CertPtr certificate = askForCertificate(belongsToUser);
    if (!certificate) return;
    const KeyManagerResult result = keyManager->installUserCrt(certificate);
    if (result != kKmOk) return showCode(kInstallTexts, result);
    if (!storeInDatabase(*certificate) || !writeProtCfg()) return keyManager->undoInstallUserCrt();
    displCentInfo(kMessageRow, "Certyfikat użytkownika poprawnie zainstalowany", 2);
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
