// Saving the protected configuration, and the passwords that open it.
#pragma once

#include "config/context_services.h"
#include "keystore/key_store_door.h"

namespace crv {

inline constexpr const char* kLockFailedText = "Błąd blokady pliku bezpieczeństwa !!!";
inline constexpr const char* kGivenUpText = "Operacja przerwana przez użytkownika !!!";

inline constexpr const char* kPasswordNotTextText = "Hasło zawiera bajty, które nie są tekstem UTF-8";
inline constexpr const char* kForeignFileText =
    "W miejscu pliku bezpieczeństwa jest plik innego programu, zaloguj się ponownie";
inline constexpr const char* kReadOnlyText = "Plik bezpieczeństwa otwarto tylko do odczytu, zmian nie można zapisać";

/// The key store of the current profile. Who waits for its lock is told so on the message row and gives up with Escape.
[[nodiscard]] KeyStoreAccess keyStoreAccess();

/// Hands a password to the library as a PIN, which keeps it from then on. A refusal is shown with the library's text;
/// false then.
[[nodiscard]] bool storePin(PinSlot slot, const SecretText& pin);

/// Says why a change of the key store failed, until a key: it is not in the file.
void showKeyStoreFailure(KeyManagerResult result);

/// Says, after a save, when the file of before could not be kept.
void tellOfHistory();

/// Says, until a key, what stays as it was in the former security files, if there are any.
void tellOfCopies(const char* what);

/// Saves keys and configuration. Says itself what went wrong; false then.
[[nodiscard]] bool writeProtCfg();

}  // namespace crv
