#include "crvconfd/screens/key_transfer_screens.h"

#include <filesystem>

#include "asn/x509/signed_certificate.h"
#include "corvane/crvapi.h"
#include "crvconfd/engines/screen.h"
#include "crvconfd/screens/cert_view.h"
#include "crvconfd/screens/file_prompt.h"
#include "crvconfd/screens/password_entry.h"
#include "crvconfd/session/context.h"
#include "crvconfd/session/messages.h"
#include "crvconfd/session/prot_cfg.h"
#include "crvconfd/toolkit/toolkit.h"
#include "keystore/key_manager.h"
#include "misc/atomic_write.h"
#include "misc/hex.h"
#include "ops/export_file.h"
#include "ops/key_transfer.h"
#include "ops/op_error.h"
#include "pki/certificate_manager.h"

namespace crv {

namespace {

constexpr CodeText kTransferTexts[] = {
    {static_cast<int>(OpFault::BadFile), "Plik nie zawiera klucza prywatnego, który można odczytać"},
};

void tellFailure(const OpError& error) {
    const char* text = findText(kTransferTexts, static_cast<int>(error.fault()));
    note(std::string("Klucze z pliku: ") + error.what());
    warnInfo(kMessageRow, "%s", text ? text : crvErrorTextAPI(crvCtx, error.code()));
}

/// Nothing after Escape.
std::optional<KeyFileFormat> askForFormat() {
    const int key = displCentQuestion(kMessageRow, "Plik ~PKCS#12 czy P~EM?", "pPeE");
    clrToEol(kMessageRow, 0);
    if (key < 0) return std::nullopt;
    return isLetter(key, 'e') ? KeyFileFormat::Pem : KeyFileFormat::Pkcs12;
}

/// Certificates of authorities belong into the database, the user's came with the keys.
void storeAuthorities(const CertList& authorities) {
    CrtDb database = crtManager->db();
    for (const CertPtr& one : authorities)
        if (!database.insert(*one)) return showDatabaseFailure();
}

/// Deciphers what came from elsewhere, as slowly as its writer wished; Escape ends that.
KeysOfFile decipher(ByteView octets, const SecretText& password) {
    clrToEol(kMessageRow, 0);
    displText(kMessageRow, 0, "Trwa odczyt pliku z kluczem... (Esc)");
    refreshScr();
    return keysOfFile(octets, password, [] { return waitForKeyOrTimeout(0) != kKeyEscape; });
}

bool confirmImport(const KeysOfFile& found, const CertList& authorities) {
    std::string question = "Wczytać klucze do profilu: " + std::to_string(found.keys.size());
    if (!authorities.empty()) question += ", do bazy certyfikaty urzędów: " + std::to_string(authorities.size());
    return displCentQuestion(kMessageRow, (question + " (t/n)?").c_str()) == 1;
}

/// Under the lock of the security file; how many were taken before one was refused. Those that are there already are
/// passed over: a refusal only when all are.
KeyManagerResult takeKeys(const KeysOfFile& found, size_t& taken) {
    const KeyStoreAccess access = keyStoreAccess();
    KeyStoreLock lock(access);
    KeyManagerResult result = lock.take();
    if (result != kKmOk) return result;
    for (const PrivateKey& key : found.keys) {
        result = importKeyInto(*keyManager, key, found.certificates, std::nullopt);
        if (result == kKmKeyExists) {
            note("Klucz już jest w profilu: " + toHex(key.keyId()));
            continue;
        }
        if (result != kKmOk) break;
        note("Wczytano klucz " + toHex(key.keyId()));
        ++taken;
    }
    if (result == kKmKeyExists && taken > 0) result = kKmOk;
    return lock.release(result);
}

}  // namespace

void exportKeyToFile(size_t index) try {
    const StoredKey key = keyManager->keys()[index];
    const std::string question =
        "Zapisać klucz " + shortKeyId(key) + " (" + roleText(key.role) + ") w osobnym pliku (t/n)?";
    if (displCentQuestion(kMessageRow, question.c_str()) == 0) return;
    const auto format = askForFormat();
    if (!format) return;
    const auto file = askForFile("Podaj nazwę pliku z kluczem: ");
    if (!file || file->typed.empty() || !mayWrite(*file)) return;
    SecretText password;
    if (!chooseFirstPassword(password, "Hasło nowego pliku:")) return;
    const SecretBytes octets = exportedKey(key, chainOf(*crtManager, *keyManager, key), *format, password);
    const WriteResult written = writeFileAtomically(file->path, octets, {.mode = WriteMode::Private});
    if (!written) return showWriteFailure(written, file->typed);
    note("Zapisano klucz " + toHex(key.key->keyId()) + ": " + file->path);
    displCentInfo(kMessageRow, "Klucz został zapisany", 2);
} catch (const OpError& error) {
    tellFailure(error);
}

void importKeysFromFile() try {
    const auto file = askForFile("Podaj nazwę pliku z kluczem: ");
    if (!file || file->typed.empty()) return;
    // Only a file ends: the name "-" and pipes would keep the console waiting.
    std::error_code none;
    if (std::filesystem::exists(file->path, none) && !std::filesystem::is_regular_file(file->path, none))
        return showFileFailure("To nie jest zwykły plik: %s", file->typed, 0);
    if (const int error = openError(file->path); error != 0)
        return showFileFailure("Błąd otwarcia pliku %s !!!", file->typed, error);
    const SecretBytes octets = importSecretFile(file->path == "-" ? "./-" : file->path);
    SecretText password;
    if (!readPassword("Hasło tego pliku:", password)) return;
    const KeysOfFile found = decipher(octets, password);
    const CertList authorities = authoritiesOf(found);
    if (!confirmImport(found, authorities)) return;
    size_t taken = 0;
    const KeyManagerResult result = takeKeys(found, taken);
    if (taken > 0) storeAuthorities(authorities);
    if (result != kKmOk) return showKeyStoreFailure(result);
    displCentInfo(kMessageRow, ("Wczytano kluczy: " + std::to_string(taken)).c_str(), 2);
    tellOfHistory();
} catch (const OpError& error) {
    tellFailure(error);
}

}  // namespace crv
