#include "crvconfd/session/prot_cfg.h"

#include "config/configuration_manager.h"
#include "context/error_table.h"
#include "corvane/crvapi.h"
#include "crvconfd/session/context.h"
#include "crvconfd/session/messages.h"
#include "crvconfd/toolkit/toolkit.h"
#include "keystore/file_history.h"

namespace crv {

namespace {

constexpr CodeText kSaveTexts[] = {
    {kKmNoMemory, "Brak pamięci"},
    {kKmOpenFailed, "Błąd otwarcia pliku bezpieczeństwa"},
    {kKmWriteFailed, "Błąd zapisu pliku bezpieczeństwa"},
    {kKmReadFailed, "Błąd odczytu pliku bezpieczeństwa", true},  // it changed meanwhile and is to be merged
    {kKmDeviceError, "Błąd komunikacji z urządzeniem Tarvo"},
    {kKmCardNotFound, "Karta nieznaleziona"},
    {kKmCardError, "Błąd komunikacji z kartą"},
    {kKmCardFileSystem, "Błąd tworzenia systemu plików karty"},
    {kKmCardBlocked, "Karta zablokowana"},
    {kKmPkcs11NotInitialised, "Błąd inicjowania biblioteki PKCS#11"},
    {kKmPkcs11Init, "Błąd inicjowania biblioteki PKCS#11"},
    {kKmKeyNotFound, "Nie znaleziono klucza do podpisu"},
    {kKmTokenKeyNotFound, "Nie znaleziono klucza do podpisu"},
    {kKmWrongPassword, "Błędny PIN do karty"},
    {kKmCancelled, "Brak PINu do karty"},
    {kKmNoDecryptionPin, "Brak PINu do klucza deszyfrującego !!!"},
    {kKmRoleTaken, "Wykryto wiele kluczy spełniających warunki profilu !!!"},
    {kKmConfigurationSignature, "Zapisana na karcie konfiguracja nie weryfikuje się"},
    {kKmHashNotSupported, "Karta nie wykonuje skonfigurowanego podpisu"},
    {kKmNoSeed, "Brak ziarna !!!"},
    {kKmNoSigningKeyPin, "Brak PINu klucza do podpisywania"},
    {kKmWrongSigningKeyPin, "Błędny PIN klucza do podpisywania"},
    {kKmLockFailed, kLockFailedText},
    {kKmLockGivenUp, kGivenUpText},
    {kKmReadOnly, kReadOnlyText, true},
    {kKmForeignFile, kForeignFileText, true},
    {kKmPasswordNotText, kPasswordNotTextText, true},
    {kKmHistoryFailed, "Nie udało się zachować poprzedniego pliku bezpieczeństwa", true},
    {kKmKeyHasTwoNames, "Wykryty klucz recertyfikowany dla różnych identyfikatorów wyróżniających !!!"},
};

/// What only changes of single keys answer.
constexpr CodeText kChangeTexts[] = {
    {kKmKeyExists, "Ten klucz już jest w profilu"},
    {kKmNotOnThisMedium, "Klucz nie może opuścić swojego nośnika"},
};

}  // namespace

KeyStoreAccess keyStoreAccess() {
    const auto tell = [] {
        clrToEol(kMessageRow, 0);
        displText(kMessageRow, 0, "Plik bezpieczeństwa jest używany przez inny program, proszę czekać... (Esc)");
        refreshScr();
    };
    return {*cfgManager, *keyManager, {tell, [] { return waitForKeyOrTimeout(0) != kKeyEscape; }}};
}

bool storePin(PinSlot slot, const SecretText& pin) {
    const int code = crvStorePINUtf8API(crvCtx, static_cast<long>(slot), pin.c_str());
    if (code == CRV_OK) return true;
    if (findErrorRow(code)) {
        errInfo(kMessageRow, "%s", crvErrorTextAPI(crvCtx, code));
    } else {
        errInfo(kMessageRow, "crvStorePin(): Nieznany blad: %u (%08x)", static_cast<unsigned>(code),
                static_cast<unsigned>(code));
    }
    return false;
}

void showKeyStoreFailure(KeyManagerResult result) {
    const char* text = findText(kSaveTexts, result);
    if (!text) text = findText(kChangeTexts, result);
    note(std::string(resultText(result)) + " (" + std::to_string(result) + ")");
    if (result == kKmHistoryFailed) return tellOfHistory();
    warnInfo(kMessageRow, "%s", text ? text : crvErrorTextAPI(crvCtx, libraryCode(result)));
}

void tellOfHistory() {
    if (keyManager->wasHistoryKept()) return;
    const HistoryFailure& failure = keyManager->historyFailure();
    warnOfFile(findText(kSaveTexts, kKmHistoryFailed), failure.path, failure.error);
}

void tellOfCopies(const char* what) {
    const std::string file = cfgManager->securityFileName();
    if (cfgManager->keyMedium() != KeyMedium::File || historyOf(file).empty()) return;
    note(std::string(what) + ": " + historyFolder(file));
    warnInfo(kMessageRow, "%s (crvctl store history --clear)", what);
}

bool writeProtCfg() {
    const KeyManagerResult result = saveKeyStore(keyStoreAccess());
    if (result == kKmOk) {
        note("Zapisano klucze i ustawienia: " + cfgManager->securityFileName());
        tellOfHistory();
        return true;
    }
    showCode(kSaveTexts, result);
    return false;
}

}  // namespace crv
