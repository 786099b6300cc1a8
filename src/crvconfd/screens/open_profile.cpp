#include "crvconfd/screens/open_profile.h"

#include <cstdlib>

#include "config/configuration_manager.h"
#include "context/crvctx.h"
#include "corvane/crvapi.h"
#include "crvconfd/screens/former_files.h"
#include "crvconfd/screens/keystroke_seed.h"
#include "crvconfd/screens/password_entry.h"
#include "crvconfd/session/context.h"
#include "crvconfd/session/messages.h"
#include "crvconfd/session/program_info.h"
#include "crvconfd/session/prot_cfg.h"
#include "crvconfd/toolkit/encoding.h"
#include "crvconfd/toolkit/toolkit.h"
#include "db_sql/db_manager.h"
#include "keystore/file_history.h"
#include "misc/ascii.h"
#include "misc/c_string.h"

namespace crv {

namespace {

constexpr auto kUserPin = static_cast<long>(PinSlot::SigningToken);
constexpr auto kRootsPin = static_cast<long>(PinSlot::Roots);

constexpr CodeText kDatabaseTexts[] = {
    {static_cast<int>(DbState::Incomplete), "Błąd przy sprawdzaniu obecnosci bazy danych !!!"},
    {static_cast<int>(DbState::OtherVersion), "Niepoprawna wersja bazy danych !!!"},
    {static_cast<int>(DbState::NoAccess), "Brak dostępu do bazy danych !!!"},
};

constexpr const char* kTrustStoreText = "Błędne hasło lub naruszona integralność nośnika punktów zaufania !!!";
constexpr const char* kFormatText = "Błędny format pliku bezpieczeństwa !!!";
constexpr const char* kManyCardsText = "Wykryto wiele kart EKD spełniających warunki profilu !!!";
constexpr const char* kNoKeyText = "Klucz pasujący do profilu nie został znaleziony !!!";

/// Codes that are not listed show the library's text.
constexpr CodeText kOpenTexts[] = {
    {kKmNoMemory, "Błąd otwarcia pliku bezpieczeństwa !!!"},
    {kKmOpenFailed, "Błąd otwarcia pliku bezpieczeństwa !!!"},
    {kKmWriteFailed, "Błąd zapisu pliku bezpieczeństwa !!!"},
    {kKmReadFailed, "Błąd odczytu pliku bezpieczeństwa !!!"},
    {kKmBadFormat, kFormatText},
    {kKmUnknownKeyAlgorithm, kFormatText},
    {kKmRootsFormat, kFormatText},
    {kKmConfigurationSignature, kFormatText},
    {kKmWrongPassword, "Błędne hasło/PIN lub naruszona integralność pliku bezpieczeństwa !!!"},
    {kKmEkdNotFound, "Karta EKD nie została znaleziona !!!"},
    {kKmCardNotFound, "Karta zablokowana !!!"},
    {kKmCardError, "Karta zablokowana !!!"},
    {kKmCardBlocked, "Karta zablokowana !!!"},
    {kKmPkcs11NotInitialised, "Błąd inicjowania biblioteki PKCS#11"},
    {kKmPkcs11Init, "Błąd inicjowania biblioteki PKCS#11"},
    {kKmTokenKeyNotFound, kNoKeyText},
    {kKmKeyNotFound, kNoKeyText},
    {kKmManyCards, kManyCardsText},
    {kKmRoleTaken, kManyCardsText},
    {kKmManySigningCards, kManyCardsText},
    {kKmManyDecryptionCards, kManyCardsText},
    {kKmNoSeed, "Brak ziarna !!!"},
    {kKmProtectionNotSupported, "Nieobsługiwany algorytm ochrony pliku !!!"},
    {kKmStopped, "Przerwano otwieranie pliku bezpieczeństwa"},
    {kKmCancelled, kTrustStoreText},
    {kKmNoDecryptionPin, kTrustStoreText},
    {kKmNoRootsPassword, kTrustStoreText},
    {kKmWrongRootsPassword, kTrustStoreText},
    {kKmKeyHasTwoNames, "Wykryty klucz recertyfikowany dla różnych identyfikatorów wyróżniających !!!"},
    {kKmKeyTooShort, "Klucze o długości mniejszej niż 2048 bitów nie są wspierane !!!"},
    {kKmCurveTooSmall, "Klucze o rzędzie ciała krzywej mniejszym niż 160 bitów nie są wspierane!!!"},
    {kKmAlgorithmNotSupported, "Nieobsługiwany algorytm w certyfikowanej wersji biblioteki!!!"},
    {kKmLockFailed, kLockFailedText},
    {kKmLockGivenUp, kGivenUpText},
    {kKmDsaNotSupported, "Klucze DSA nie są wspierane w certyfikowanej wersji biblioteki!!!"},
};

/// Codes 28 to 30 of the device start; 29 and 30 show the library's text.
constexpr CodeText kDeviceTexts[] = {
    {kKmDeviceError, "Błąd komunikacji z urządzeniem Tarvo"},
    {kKmDeviceNotFound, "Nie znaleziono zainicjowanego urządzenia Tarvo w systemie"},
    {kKmPkcs11NotInitialised, "Błąd podczas inicjowania biblioteki PKCS#11"},
    {kKmPkcs11Init, "Błąd podczas inicjowania biblioteki PKCS#11"},
};

void showLibraryText(KeyManagerResult result) {
    errInfo(kMessageRow, "%s", crvErrorTextAPI(crvCtx, libraryCode(result)));
}

/// The PINs that the profile needs, as a mask; a failed query counts as the user's.
long neededPins() {
    long mask = 0;
    for (const long kind : {static_cast<long>(PinSlot::DecryptionToken), kRootsPin}) {
        long needed = 0;
        mask |= crvGetPINInfo(crvCtx, kind, &needed) == CRV_OK ? needed : kUserPin;
    }
    return mask;
}

bool askPins(const char* prompt, long needed) {
    if ((needed & kUserPin) != 0) {
        SecretText userPassword;
        if (!readPassword(prompt, userPassword) || !storePin(PinSlot::SigningToken, userPassword)) return false;
    }
    if ((needed & kRootsPin) == 0) return true;
    SecretText rootsPassword;
    return readPassword("Wprowadź hasło do dodatkowych punktów zaufania:", rootsPassword) &&
           storePin(PinSlot::Roots, rootsPassword);
}

bool isWrongPassword(KeyManagerResult result) {
    return result == kKmWrongPassword || result == kKmWrongRootsPassword || result == kKmWrongSigningKeyPin;
}

/// The file itself is damaged, whatever its password.
bool isDamaged(KeyManagerResult result) {
    return result == kKmBadFormat || result == kKmUnknownKeyAlgorithm || result == kKmConfigurationSignature;
}

/// For who has no security file, or none that can be read: true when a former one was put back.
bool offerFormerFiles() {
    const std::string file = cfgManager->securityFileName();
    if (cfgManager->keyMedium() != KeyMedium::File || historyOf(file).empty()) return false;
    note("Poprzednie pliki bezpieczeństwa: " + historyFolder(file));
    if (displCentQuestion(kMessageRow, "Są poprzednie pliki bezpieczeństwa. Pokazać je (t/n)?") == 0) return false;
    const bool restored = chooseFormerFile();
    clrScr();
    displayProgramInfo(0);
    return restored;
}

void showOpenFailure(KeyManagerResult result) {
    const char* text = findText(kOpenTexts, result);
    note((text ? text : "Nie otwarto profilu") + (" (" + std::to_string(result) + ")"));
    if (text) {
        errInfo(kMessageRow, "%s", text);
    } else {
        showLibraryText(result);
    }
}

/// Whether there is a token to log in to whose PIN is not locked.
bool tokensReady() {
    const KeyManagerResult result = keyManager->announceTokens();
    if (result != kKmOk && result != kKmCancelled) showOpenFailure(result);
    return result == kKmOk;
}

/// Offers the certificates of authorities that came with another program's file as trust points; each is looked at as
/// one that the user adds.
void offerTrustPoints() {
    const CertList candidates = keyManager->trustCandidates();
    if (candidates.empty() ||
        displCentQuestion(kMessageRow, "Czy dodać urzędy certyfikacji z tego pliku do punktów zaufania (t/n)?") == 0)
        return;
    long added = 0;
    for (const CertPtr& candidate : candidates) added += keyManager->addTrustedCA(candidate) == kKmOk;
    if (added > 0 && !writeProtCfg()) return;
    const std::string text = "Dodano punktów zaufania: " + std::to_string(added) +
                             ", odrzucono: " + std::to_string(static_cast<long>(candidates.size()) - added);
    displCentInfo(kMessageRow, text.c_str(), 2);
}

/// Says what may not be written, and takes another program's file over when the user agrees.
bool settleRights() {
    if (keyManager->wasCutOff())
        warnInfo(kMessageRow, "Przerwany zapis pliku bezpieczeństwa: przywrócono poprzednią zawartość");
    if (keyManager->isForeign() &&
        displCentQuestion(kMessageRow,
                          "Plik pochodzi z innego programu i będzie zapisany od nowa. Przejąć go (t/n)?") == 1) {
        if (initProfile(OpenMode::AdoptForeign) != kKmOk) return false;
        offerTrustPoints();
    } else if (keyManager->isReadOnly()) {
        warnInfo(kMessageRow, "%s", kReadOnlyText);
    }
    return true;
}

/// Seeds the generators of a store that has no seed from keystrokes, saves the seed and opens the store again.
bool seedAndReopen() {
    if (keyManager->seedingSuppressed() || !seedFromKeystrokes("Brak pamięci")) return false;
    return writeProtCfg() && initProfile() == kKmOk;
}

/// What the server of a database said, or why there is none: the texts of the states cannot tell.
void showDatabaseReason() {
    const std::string& failure = dbManager->lastFailure();
    if (failure.empty()) return;
    note(failure);
    warnInfo(kMessageRow, "%s", printable(failure.substr(failure.find('\n') + 1)).c_str());
}

/// 't', 'm' (with the strong protection) or 'n'.
char askForCreation() {
    displCentText(kFooterRow, "M: utwórz z mocną ochroną (nieczytelną w starszych wersjach)");
    int answer = -1;
    while (answer < 0) {
        clrToEol(kMessageRow, 0);
        answer = displCentQuestion(
            kMessageRow, "Plik bezpieczeństwa pakietu nie istnieje. Czy chcesz go utworzyć (t/n) ?", "tTmMnN");
    }
    clrToEol(kFooterRow, 0);
    clrToEol(kMessageRow, 0);
    return asciiLower(static_cast<char>(answer));
}

}  // namespace

bool createDB() {
    dbManager->setMendProgress([](int percent) {
        displText(kMessageRow, 0, "Trwa naprawa bazy danych po przerwanej zmianie, może potrwać kilka minut: %d%%",
                  percent);
        refreshScr();
    });
    switch (const DbState state = dbManager->isDbCreated()) {
        case DbState::Complete:
            return true;
        case DbState::Missing:
            break;
        default:
            showCode(kDatabaseTexts, static_cast<int>(state));
            if (state == DbState::NoAccess) showDatabaseReason();
            return false;
    }
    if (displCentQuestion(kMessageRow, "Bazy danych pakietu nie istnieją. Czy chcesz je utworzyć (t/n) ?") == 0)
        return false;
    if (dbManager->createDb()) return true;
    showDatabaseFailure("Błąd przy tworzeniu bazy danych !!!");
    return false;
}

bool createPfx() {
    if (offerFormerFiles()) return OnProfileZaloguj();
    const char answer = askForCreation();
    if (answer == 'n') return false;
    SecretText password;
    if (!chooseFirstPassword(password)) return false;
    keyManager->beginNewProfile();
    keyManager->protectStrongly(answer == 'm' || viewOrEmpty(std::getenv("CRV_STORE_PROTECTION")) == "strong");
    // The sign in the text stands where the other copies have "ę".
    if (!seedFromKeystrokes("Brak pami©ci")) return false;
    cfgManager->resetRecord();
    return storePin(PinSlot::SigningToken, password) && writeProtCfg();
}

bool deviceInit() {
    const KeyManagerResult result = keyManager->deviceInit();
    if (result == kKmOk) return true;
    if (result == kKmDeviceLibrary || result == kKmDeviceFunction) {
        showLibraryText(result);
    } else {
        showCode(kDeviceTexts, result);
    }
    return false;
}

KeyManagerResult initProfile(OpenMode mode) {
    clrToEol(kMessageRow, 0);
    const bool card = cfgManager->keyMedium() == KeyMedium::Token;
    const auto reading = [card] {
        clrToEol(kMessageRow, 0);
        displText(kMessageRow, 0, "%s",
                  card ? "Trwa odczyt informacji z karty..." : "Trwa odczyt kluczy i certyfikatów...");
        refreshScr();
        return true;
    };
    keyManager->setProgress([] { return waitForKeyOrTimeout(0) != kKeyEscape; });
    const KeyManagerResult result = openKeyStore(keyStoreAccess(), mode, true, reading);
    keyManager->setProgress({});
    clrToEol(kMessageRow, 0);
    if (result == kKmOk) {
        note("Otwarto profil: " + boundProfile().name());
    } else {
        showOpenFailure(result);
    }
    return result;
}

bool OnProfileZaloguj() {
    const bool card = cfgManager->keyMedium() == KeyMedium::Token;
    const char* prompt = card ? "Podaj PIN do karty:" : "Wprowadź hasło dostępu:";
    bool refused = false;
    for (bool again = false;; again = true) {
        // A refused PIN changes what the token says of the tries that are left.
        if (card && ((again && !deviceInit()) || !tokensReady())) return false;
        const long needed = neededPins();
        if (!askPins(prompt, needed)) {
            // A file that was altered looks like a wrong password.
            if (!refused || !offerFormerFiles()) return false;
            refused = false;
            crvCtx->removePINs();
            continue;
        }
        const KeyManagerResult result = initProfile();
        if (result == kKmOk) return settleRights();
        if (result == kKmNoSeed) return seedAndReopen();
        refused = refused || result == kKmWrongPassword;
        if (isDamaged(result) && offerFormerFiles()) {
            crvCtx->removePINs();
            continue;
        }
        // Where nothing was asked, trying again by itself would only block a card.
        if (!isWrongPassword(result) || needed == 0) return false;
        crvCtx->removePINs();
    }
}

}  // namespace crv
