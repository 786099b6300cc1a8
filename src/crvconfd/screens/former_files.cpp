#include "crvconfd/screens/former_files.h"

#include <algorithm>

#include "config/configuration_manager.h"
#include "corvane/crvapi.h"
#include "crvconfd/engines/screen.h"
#include "crvconfd/screens/key_gen.h"
#include "crvconfd/screens/key_store_view.h"
#include "crvconfd/screens/password_entry.h"
#include "crvconfd/session/context.h"
#include "crvconfd/session/messages.h"
#include "crvconfd/session/prot_cfg.h"
#include "crvconfd/toolkit/toolkit.h"
#include "keystore/file_history.h"
#include "keystore/key_manager.h"
#include "misc/hex.h"
#include "ops/op_error.h"
#include "ops/session.h"

namespace crv {

namespace {

/// "20271122T155901Z-3.p12" as "2027.11.22 15:59:01 UTC".
std::string momentOf(const std::string& name) {
    constexpr size_t kDigits = 15;
    if (name.size() < kDigits) return name;
    const auto part = [&](size_t at, size_t count) { return name.substr(at, count); };
    return part(0, 4) + "." + part(4, 2) + "." + part(6, 2) + " " + part(9, 2) + ":" + part(11, 2) + ":" + part(13, 2) +
           " UTC";
}

/// Keys that came after the former file stand in the history alone then: asks about each by its name.
bool confirmLoss(const FormerFile& former, const SecretText& password) {
    const KeysNotIn lost = keysNotIn(cfgManager->securityFileName(), former.name, password);
    if (!lost.known) return askOfLoss("Tym hasłem obecny plik się nie otwiera, może mieć nowsze klucze. Wrócić (t/n)?");
    return std::ranges::all_of(lost.keys, [](const KeyId& key) {
        return askOfLoss("Tamten plik nie ma klucza " + toHex(key).substr(0, 8) + ". Wrócić mimo to (t/n)?");
    });
}

/// Under the lock. False after a message, or when the user thinks better of it.
bool restore(const FormerFile& former) try {
    // The file is opened anew then, and a key that is in memory alone would be gone.
    offerUnsavedKey();
    if (keyManager->unsavedKey()) return false;
    if (!askOfLoss("Wrócić do pliku z " + momentOf(former.name) + " (t/n)?")) return false;
    SecretText password;
    if (!readPassword("Hasło, które plik miał wtedy:", password) || !confirmLoss(former, password)) return false;
    const KeyStoreAccess access = keyStoreAccess();
    KeyStoreLock lock(access);
    if (const KeyManagerResult result = lock.take(); result != kKmOk) {
        showKeyStoreFailure(result);
        return false;
    }
    restoreFormerFile(cfgManager->securityFileName(), former.name, password);
    note("Przywrócono plik " + former.path);
    return true;
} catch (const HistoryError& error) {
    warnOfFile("Nie zachowano obecnego pliku", error.failure().path, error.failure().error);
    return false;
} catch (const OpError& error) {
    const bool gone = error.fault() == OpFault::ObjectMissing;
    note(std::string("Poprzedni plik: ") + error.what());
    warnInfo(kMessageRow, "%s", gone ? "Tego pliku już nie ma" : crvErrorTextAPI(crvCtx, error.code()));
    return false;
}

}  // namespace

bool chooseFormerFile() {
    std::vector<FormerFile> files;
    bool restored = false;
    const auto items = [&files] {
        HistoryFailure failure;
        files = historyOf(cfgManager->securityFileName(), &failure);
        if (!failure.empty()) warnOfFile("Nie można odczytać historii", failure.path, failure.error);
        std::ranges::reverse(files);
        std::vector<std::string> rows;
        for (const FormerFile& one : files)
            rows.push_back(momentOf(one.name) + "   " + std::to_string(one.size) + " B");
        return rows;
    };
    const auto putBack = [&](size_t index) { restored = restore(files[index]); };
    runScreen({.draw = drawTitle("Poprzednie pliki bezpieczeństwa"),
               .items = items,
               .empty = "Brak poprzednich plików",
               .actions = {{'p', "~Przywróć", true, putBack}},
               .done = [&restored] { return restored; }});
    return restored;
}

void OnFormerFiles() {
    if (!chooseFormerFile()) return;
    warnInfo(kMessageRow, "Plik przywrócony, poprzedni został w historii. Otwórz profil jeszcze raz.");
    throw SessionOver();
}

}  // namespace crv
