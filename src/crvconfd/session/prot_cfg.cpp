#include "crvconfd/session/prot_cfg.h"

#include "api/error_table.h"
#include "corvane/crvapi.h"
#include "crvconfd/session/context.h"
#include "crvconfd/session/messages.h"
#include "crvconfd/session/security_file_lock.h"
#include "crvconfd/toolkit/toolkit.h"
#include "keystore/key_manager.h"
#include "misc/secret.h"

namespace crv {

namespace {

constexpr CodeText kSaveTexts[] = {
    {kKmNoMemory, "Brak pamięci"},
    {kKmOpenFailed, "Błąd otwarcia pliku bezpieczeństwa"},
    {kKmWriteFailed, "Błąd zapisu pliku bezpieczeństwa"},
    {kKmReadFailed, "Błąd odczytu pliku bezpieczeństwa"},  // it changed meanwhile and is to be merged
    {kKmDeviceError, "Błąd komunikacji z urządzeniem Tarvo"},
    {kKmCardNotFound, "Karta nieznaleziona"},
    {kKmCardError, "Błąd komunikacji z kartą"},
    {kKmCardFileSystem, "Błąd tworzenia systemu plików karty"},
    {kKmCardBlocked, "Karta zablokowana"},
    {kKmPkcs11NotInitialised, "Błąd inicjowania biblioteki PKCS#11"},
    {kKmPkcs11Init, "Błąd inicjowania biblioteki PKCS#11"},
    {kKmKeyNotFound, "Nie znaleziono klucza do podpisu"},
    {kKmNoSeed, "Brak ziarna !!!"},
    {kKmNoSigningKeyPin, "Brak PINu klucza do podpisywania"},
    {kKmWrongSigningKeyPin, "Błędny PIN klucza do podpisywania"},
    {kKmKeyHasTwoNames, "Wykryty klucz recertyfikowany dla różnych identyfikatorów wyróżniających !!!"},
};

}  // namespace

PasswordWiper::~PasswordWiper() {
    wipeMemory(userPassword.data(), userPassword.size());
    wipeMemory(rootsPassword.data(), rootsPassword.size());
}

bool storePin(long id, const char* pin) {
    const int code = crvStorePINUtf8API(crvCtx, id, pin);
    if (code == CRV_OK) return true;
    if (findErrorRow(code)) {
        errInfo(kMessageRow, "%s", crvErrorTextAPI(crvCtx, code));
    } else {
        errInfo(kMessageRow, "crvStorePin(): Nieznany blad: %u (%08x)", static_cast<unsigned>(code),
                static_cast<unsigned>(code));
    }
    return false;
}

bool writeProtCfg() {
    SecurityFileLock lock;
    // The PIN first: its refusal is shown, and nobody else is to wait for that.
    if (!storePin(1, userPassword.data()) || !lock.take()) return false;
    const KeyManagerResult result = keyManager->saveConfiguration();
    lock.release();
    if (result == kKmOk) return true;
    showCode(kSaveTexts, result);
    return false;
}

}  // namespace crv
