#include "crvconfd/screens/key_store_view.h"

#include "asn/x509/signed_certificate.h"
#include "config/configuration_manager.h"
#include "crvconfd/engines/screen.h"
#include "crvconfd/screens/cert_view.h"
#include "crvconfd/screens/crt_text.h"
#include "crvconfd/screens/former_files.h"
#include "crvconfd/screens/key_transfer_screens.h"
#include "crvconfd/session/context.h"
#include "crvconfd/session/messages.h"
#include "crvconfd/session/prot_cfg.h"
#include "crvconfd/toolkit/toolkit.h"
#include "crypto/sign_algo_map.h"
#include "keystore/key_manager.h"
#include "misc/hex.h"

namespace crv {

namespace {

constexpr size_t kRoleWidth = 16, kAlgorithmWidth = 20, kIdWidth = 9;
std::string keyRow(const StoredKey& key) {
    const PublicKey publicKey = key.key->publicKey();
    const CertPtr certificate = keyManager->certificateOf(key);
    const std::string algorithm =
        std::string(signAlgoName(keyManager->schemeOf(key), KcHashAlgo::None)) + " " + std::to_string(publicKey.bits());
    return fitText(roleText(key.role), kRoleWidth) + fitText(algorithm, kAlgorithmWidth) +
           fitText(shortKeyId(key), kIdWidth) +
           (certificate ? dateLine(certificate->tbs.validity.notAfter) + " " + shortName(certificate->subject())
                        : std::string("brak certyfikatu"));
}

/// Twice, since nobody brings it back who does not look into the history.
bool confirmDeletion(const StoredKey& key) {
    const std::string id = shortKeyId(key);
    const std::string first = key.role == KeyRole::Further
                                  ? "Usunąć klucz " + id + "? Zaszyfrowanego do niego nikt już nie odczyta (t/n)"
                                  : "Klucz " + id + " jest w UŻYCIU. Usunąć go z jego certyfikatami (t/n)?";
    return askOfLoss(first) && askOfLoss("Klucz zostanie usunięty na dobre. Czy na pewno (t/n)?");
}

void remove(size_t index) {
    const StoredKey& key = keyManager->keys()[index];
    if (!confirmDeletion(key)) return;
    const KeyId gone = key.key->keyId();
    const bool waits = keyManager->waitingFor(gone) != nullptr;
    const KeyStoreAccess access = keyStoreAccess();
    KeyStoreLock lock(access);
    KeyManagerResult result = lock.take();
    if (result == kKmOk) result = lock.release(keyManager->deleteKey(gone));
    if (result != kKmOk) return showKeyStoreFailure(result);
    note("Usunięto klucz " + toHex(gone));
    displCentInfo(kMessageRow, "Klucz usunięty", 2);
    if (waits) warnInfo(kMessageRow, "Jego miejsce zajął czekający klucz; potrzebuje certyfikatu (Zgłoszenie)");
}

}  // namespace

void OnKeyStore() {
    const auto items = [] {
        std::vector<std::string> rows;
        for (const StoredKey& key : keyManager->keys()) rows.push_back(keyRow(key));
        return rows;
    };
    runScreen({.draw = drawTitle("Klucze w pliku bezpieczeństwa"),
               .items = items,
               .empty = "Brak kluczy",
               .actions = {{'e', "~Eksportuj", true, exportKeyToFile},
                           {'i', "~Importuj", false, [](size_t) { importKeysFromFile(); }},
                           {'u', "~Usuń", true, remove},
                           {'h', "~Historia pliku", false, [](size_t) { OnFormerFiles(); }}}});
}

}  // namespace crv
