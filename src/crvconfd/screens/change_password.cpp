#include "crvconfd/screens/change_password.h"

#include "crvconfd/screens/password_entry.h"
#include "crvconfd/session/messages.h"
#include "crvconfd/session/prot_cfg.h"
#include "crvconfd/toolkit/toolkit.h"

namespace crv {

namespace {

/// At most 39 bytes, fewer than a new file's password may have: intended.
constexpr int kChangeSize = 40;

constexpr CodeText kPasswordTexts[] = {
    {kKmNoMemory, "Brak pamięci"},
    {kKmOpenFailed, "Błąd otwarcia pliku bezpieczeństwa"},
    {kKmWriteFailed, "Błąd zapisu pliku bezpieczeństwa."},
    {kKmReadFailed, "Błąd odczytu pliku bezpieczeństwa"},
    {kKmWrongPassword, "Błędne hasło/PIN"},
    {kKmCardError, "Błąd przy komunikacji z kartą"},
    {kKmCardBlocked, "Karta zablokowana"},
    {kKmNoSeed, "Brak ziarna !!!"},
    {kKmLockFailed, kLockFailedText},
    {kKmLockGivenUp, kGivenUpText},
    {kKmReadOnly, kReadOnlyText, true},
    {kKmForeignFile, kForeignFileText, true},
    {kKmPasswordNotText, kPasswordNotTextText, true},
};

}  // namespace

void OnChangePassword() {
    SecretText password, repeated;
    if (!readNewPassword(password, kChangeSize, true)) return;
    if (!readPassword("Powtórz hasło:", repeated, kChangeSize)) return;
    if (!(repeated == password)) return errInfo(kMessageRow, "Hasła się nie zgadzają !!!");
    const KeyManagerResult result = changeKeyStorePassword(keyStoreAccess(), password);
    clrToEol(kMessageRow, 0);
    if (result != kKmOk)
        return findText(kPasswordTexts, result) ? showCode(kPasswordTexts, result) : showKeyStoreFailure(result);
    displCentInfo(kMessageRow, "Hasło zostało zmienione", 2);
    tellOfHistory();
    tellOfCopies("Kopie w historii mają dawne hasło");
}

}  // namespace crv
