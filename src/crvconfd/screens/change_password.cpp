#include "crvconfd/screens/change_password.h"

#include "crvconfd/screens/password_entry.h"
#include "crvconfd/session/context.h"
#include "crvconfd/session/messages.h"
#include "crvconfd/session/prot_cfg.h"
#include "crvconfd/session/security_file_lock.h"
#include "crvconfd/toolkit/toolkit.h"
#include "keystore/key_manager.h"
#include "misc/secret.h"

namespace crv {

namespace {

/// At most 39 bytes, fewer than a new file's password may have: intended.
constexpr int kChangeSize = 40;

constexpr CodeText kTexts[] = {
    {kKmNoMemory, "Brak pamięci"},
    {kKmOpenFailed, "Błąd otwarcia pliku bezpieczeństwa"},
    {kKmWriteFailed, "Błąd zapisu pliku bezpieczeństwa."},
    {kKmReadFailed, "Błąd odczytu pliku bezpieczeństwa"},
    {kKmWrongPassword, "Błędne hasło/PIN"},
    {kKmCardError, "Błąd przy komunikacji z kartą"},
    {kKmCardBlocked, "Karta zablokowana"},
    {kKmNoSeed, "Brak ziarna !!!"},
};

}  // namespace

void OnChangePassword() {
    PasswordBuffer password{};
    PasswordBuffer repeated{};
    const WipeGuard guardPassword(password.data(), password.size());
    const WipeGuard guardRepeated(repeated.data(), repeated.size());
    if (!readNewPassword(password, kChangeSize, true)) return;
    if (!readPassword("Powtórz hasło:", repeated, kChangeSize)) return;
    if (repeated != password) return errInfo(kMessageRow, "Hasła się nie zgadzają !!!");
    SecurityFileLock lock;
    if (!lock.take()) return;
    const KeyManagerResult result = keyManager->changePin(SecretText(userPassword.data()), SecretText(password.data()));
    lock.release();
    if (result != kKmOk) return showCode(kTexts, result);
    userPassword = password;
    displCentInfo(kMessageRow, "Hasło zostało zmienione", 2);
}

}  // namespace crv
