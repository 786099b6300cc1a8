#include "crvconfd/screens/key_gen.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>

#include "asn/x509/sign_algo.h"
#include "config/configuration_manager.h"
#include "crvconfd/engines/pick_list.h"
#include "crvconfd/engines/screen.h"
#include "crvconfd/screens/file_prompt.h"
#include "crvconfd/session/context.h"
#include "crvconfd/session/messages.h"
#include "crvconfd/session/prot_cfg.h"
#include "crvconfd/toolkit/toolkit.h"
#include "keystore/crt_request.h"
#include "keystore/key_pairing.h"
#include "misc/ascii.h"
#include "misc/atomic_write.h"
#include "misc/path.h"
#include "ops/key_plan.h"

namespace crv {

namespace {

constexpr int kValueColumn = 28;
constexpr int kFormatColumn = 55;
constexpr int kOptionColumn = 74;
constexpr int kParamsRow = 5;
/// With all choices and the keys below them.
constexpr int kParamsScreen = 15;
constexpr size_t kLongestRequestName = 254;
constexpr const char* kRequestSaved = "Zgłoszenie certyfikacyjne zostało zapisane.";

constexpr CodeText kKeyGenTexts[] = {
    {kKmNoMemory, "Brak pamięci"},
    {kKmOpenFailed, "Błąd otwarcia pliku bezpieczeństwa"},
    {kKmWriteFailed, "Błąd zapisu pliku bezpieczeństwa"},
    {kKmReadFailed, "Błąd odczytu pliku bezpieczeństwa"},
    {kKmBadFormat, "Błędny format pliku bezpieczeństwa !!!"},
    {kKmWrongPassword, "Błędne hasło/PIN lub naruszona integralność pliku bezpieczeństwa"},
    {kKmRsaFailed, "Błąd RSA"},
    {kKmEkdNotFound, "Karta EKD nie została znaleziona"},
    {kKmCardNotFound, "Karta nieznaleziona"},
    {kKmCardError, "Błąd przy komunikacji z kartą"},
    {kKmCardBlocked, "Karta zablokowana"},
    {kKmCardFileSystem, "Błąd tworzenia systemu plików karty"},
    {kKmTokenKeyNotFound, "Nie znaleziono klucza do podpisu"},
    {kKmNoDecryptionPin, "Brak PINu do klucza deszyfrującego !!!"},
    {kKmRoleTaken, "Wykryto wiele kluczy spełniających warunki profilu !!!"},
    {kKmConfigurationSignature, "Zapisana na karcie konfiguracja nie weryfikuje się"},
    {kKmNoSeed, "Brak ziarna !!!"},
    {kKmNoSigningKeyPin, "Brak PINu klucza do podpisywania"},
    {kKmWrongSigningKeyPin, "Błędny PIN klucza do podpisywania"},
    {kKmHashNotSupported,
     "Skonfigurowana funkcja skrótu nie jest wspierana z aktualnym algorytmem klucza asymetrycznego do podpisywania."},
    {kKmPkcs11NotInitialised, "Błąd podczas inicjowania biblioteki PKCS#11"},
    {kKmPkcs11Init, "Błąd podczas inicjowania biblioteki PKCS#11"},
    {kKmGenerationFailed, "Błąd procesu generowania kluczy"},
    {kKmLockFailed, kLockFailedText},
    {kKmLockGivenUp, kGivenUpText},
    {kKmReadOnly, kReadOnlyText, true},
    {kKmForeignFile, kForeignFileText, true},
    {kKmPasswordNotText, kPasswordNotTextText, true},
    {kKmKeyTooShort, "Klucze o długości mniejszej niż 2048 bitów nie są wspierane !!!"},
    {kKmAlgorithmNotSupported, "Nieobsługiwany algorytm w certyfikowanej wersji biblioteki!!!"},
};

const char* titleOf(KeyType usage) {
    switch (usage) {
        case KeyType::Signing:
            return "Generowanie klucza do podpisów";
        case KeyType::Encryption:
            return "Generowanie klucza do szyfrowania";
        case KeyType::Both:
            return "Generowanie klucza do podpisów i szyfrowania";
    }
    return nullptr;
}

KeyGenParams paramsFor(KeyType usage) {
    KeyGenParams params;
    const bool all = usage == KeyType::Signing;
    params.title = titleOf(usage);
    params.offersDsa = params.offersEcdsa = params.offersRsaPss = all;
    // A hash chosen for another scheme gives way to the scheme's own default.
    params.defaultHash = [](KeyScheme scheme) {
        const KcHashAlgo chosen = cfgManager->record().getHashAlgo(scheme);
        return isHashSupported(scheme, chosen) ? chosen : CRVCfgFile().getHashAlgo(scheme);
    };
    params.hash = params.defaultHash(params.signScheme);
    if (const auto limits = keyManager->keyLimits(usage)) params.limitTo(limits->minBits, limits->maxBits);
    return params;
}

/// A label with its shortcut marked, or, while a list is open, without the mark.
void drawLabel(int row, const char* label, bool marked) {
    if (marked) return displColText(row, 1, "%s", label);
    std::string plain(label);
    std::erase(plain, '~');
    displText(row, 1, "%s", plain.c_str());
}

const char* yesNo(bool yes) {
    return yes ? "TAK" : "NIE";
}

bool shownAlways(const KeyGenParams&) {
    return true;
}
bool isEcdsa(const KeyGenParams& params) {
    return params.keyScheme == KeyScheme::Ecdsa;
}
bool isPss(const KeyGenParams& params) {
    return params.keyScheme == KeyScheme::RsaPss;
}

/// A key that is tied to RSA-PSS cannot sign its request otherwise, so one of the two gives way.
void toggleSha1(KeyGenParams& params) {
    params.sha1RsaRequest = !params.sha1RsaRequest;
    if (params.sha1RsaRequest) params.forceAlgorithm = false;
}

void toggleForced(KeyGenParams& params) {
    params.forceAlgorithm = !params.forceAlgorithm;
    if (params.forceAlgorithm) params.sha1RsaRequest = false;
}

/// A choice: where it stands, what it shows and what its key does.
struct Choice {
    char key;
    int row;
    const char* label;
    int column;  ///< of the value
    std::string (*value)(const KeyGenParams& params);
    void (*change)(KeyGenParams& params);
    bool (*shown)(const KeyGenParams& params) = shownAlways;
    bool (*open)(const KeyGenParams& params) = shownAlways;  ///< otherwise shown without the shortcut, and not obeyed
};

const Choice kChoices[] = {
    {'a', 3, "~Algorytm klucza:", kValueColumn, [](const auto& params) -> std::string { return params.schemeName(); },
     OnSelectKeyAlgo, shownAlways, [](const auto& params) { return params.schemes().size() > 1; }},
    {'d', 4, "~Długość klucza w bitach:", kValueColumn,
     [](const auto& params) { return std::to_string(params.keyLength); }, OnSelectKeyLength,
     [](const auto& params) { return !isEcdsa(params); }},
    {'d', 4, "~Dziedzina dla ECDSA:", kValueColumn,
     [](const auto& params) -> std::string { return params.curveName(); }, OnSelectKeyLength, isEcdsa},
    {'p', 6, "Algorytm ~podpisu:", kValueColumn,
     [](const auto& params) -> std::string { return params.signAlgoText(); }, selectSignScheme},
    {'f', 9, "~Format pliku tworzonego zgłoszenia certyfikacyjnego:", kFormatColumn,
     [](const auto& params) -> std::string { return params.pem ? "tekstowy (PEM)" : "binarny (DER)"; },
     [](auto& params) { params.pem = !params.pem; }},
    {'b', 10, "Zapisz parametry domeny krzywej eliptycznej ~bezpośrednio:", kOptionColumn,
     [](const auto& params) -> std::string { return yesNo(params.explicitDomain || !params.curveHasOid()); },
     [](auto& params) { params.explicitDomain = !params.explicitDomain; }, isEcdsa,
     [](const auto& params) { return params.curveHasOid(); }},
    {'r', 10, "Do podpisu zgłoszenia użyj algorytmu SHA-1 ~RSA-PKCS#1 (niezalecane):", kOptionColumn,
     [](const auto& params) -> std::string { return yesNo(params.sha1RsaRequest); }, toggleSha1, isPss},
    {'u', 11, "Wymuś ~używanie podanego algorytmu do podpisu:", kOptionColumn,
     [](const auto& params) -> std::string { return yesNo(params.forceAlgorithm); }, toggleForced, isPss},
};

struct End {
    char key;
    const char* label;
    KeyGenCommand command;
};

constexpr End kEnds[] = {
    {'g', "~Generuj", KeyGenCommand::Generate},
    {'w', "~Wyjście", KeyGenCommand::Leave},
};

/// Below the choices on every screen.
int paramsFooterRow() {
    return std::max<int>(BottomRow{20}, 13);
}

void drawEnds() {
    std::string footer;
    for (const End& end : kEnds) footer.append(footer.empty() ? "" : "   ").append(end.label);
    displCentColText(paramsFooterRow(), "%s", footer.c_str());
}

/// Shows a list over the options. The index chosen, or -1.
int chooseFrom(const KeyGenParams& params, const std::vector<std::string>& items, size_t selected) {
    constexpr int kBelow = 8;  // rows from the last of the longest list to the footer, and above the list
    ShowKeyGenMenu(params, true);
    return pickFromList({kParamsRow, paramsFooterRow() - kBelow, true}, items, static_cast<int>(selected));
}

/// What can be chosen now, with its keys.
KeyRows keyGenKeys(const KeyGenParams& params) {
    KeyRows rows;
    const auto add = [&rows](char key, std::string label) {
        std::erase(label, '~');
        rows.emplace_back(std::string(1, asciiUpper(key)), std::move(label));
    };
    for (const Choice& choice : kChoices)
        if (choice.shown(params) && choice.open(params)) add(choice.key, choice.label);
    for (const End& end : kEnds) add(end.key, end.label);
    rows.emplace_back("F1, ?", "ta pomoc");
    return rows;
}

void selectCurve(KeyGenParams& params) {
    std::vector<std::string> items;
    size_t selected = 0;
    for (const EcCurve& curve : ecCurves()) {
        if (curve.id == params.curve) selected = items.size();
        items.emplace_back(curve.name);
    }
    const int index = chooseFrom(params, items, selected);
    if (index < 0) return;
    params.curve = ecCurves()[static_cast<size_t>(index)].id;
    params.explicitDomain = false;
}

/// Runs the screen; false when the user leaves it.
bool runScreen(KeyGenParams& params) {
    for (;;) {
        ShowKeyGenMenu(params, false);
        const int key = getScreenKey();
        if (isHelp(key)) showKeys(keyGenKeys(params));
        const KeyGenCommand command = ProcessKeyGenCommand(key, params);
        if (command != KeyGenCommand::Stay) return command == KeyGenCommand::Generate;
    }
}

void drawWaiting(const KeyGenParams& params, const std::string& passed = {}) {
    clrToEol(kMessageRow, 0);
    if (params.keyScheme == KeyScheme::Ecdsa) {
        displText(kMessageRow, 0, "Proszę czekać, trwa generowanie klucza %s...", params.schemeName());
    } else {
        displText(kMessageRow, 0, "Proszę czekać, trwa generowanie klucza %s (%u %s)...%s", params.schemeName(),
                  params.keyLength, "bitów", passed.c_str());
    }
    refreshScr();
}

/// Counts the seconds behind the waiting text: a token says nothing while it generates, and cannot be stopped.
std::function<bool()> countSeconds(const KeyGenParams& params) {
    const auto begin = std::chrono::steady_clock::now();
    return [&params, begin, shown = std::chrono::seconds(0)]() mutable {
        const auto passed = std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - begin);
        if (passed > shown) drawWaiting(params, " " + std::to_string(passed.count()) + " s");
        shown = passed;
        return true;
    };
}

/// Generates the key and saves it under the lock of the security file. Escape stops the generation.
KeyManagerResult generate(KeyType usage, const KeyGenParams& params, bool successor) {
    drawWaiting(params);
    // Those do not stop it.
    dropTypedKeys();
    const bool forced = isPss(params) && params.forceAlgorithm;
    const KeyPlan plan{usage,        params.keyScheme,      params.keyLength,
                       params.curve, params.explicitDomain, forced ? params.hash : KcHashAlgo::None,
                       successor};
    const auto stoppable = [] { return waitForKeyOrTimeout(0) != kKeyEscape; };
    return generateKey(keyStoreAccess(), plan, params.token ? countSeconds(params) : stoppable);
}

CrtRequestParams requestOf(const KeyGenParams& params) {
    CrtRequestParams request;
    request.format = params.pem ? RequestFormat::Pem : RequestFormat::Der;
    const bool pss = params.keyScheme == KeyScheme::RsaPss;
    const bool plain = pss && params.sha1RsaRequest;
    request.scheme = plain ? KeyScheme::Rsa : params.signScheme;
    request.hash = plain ? KcHashAlgo::Sha1 : params.hash;
    if (pss && params.forceAlgorithm) request.forcedPss = params.hash;
    return request;
}

/// Writes the request; a failure is shown and false.
bool writeRequest(const TypedFile& file, const Bytes& request) {
    if (!mayWrite(file)) return false;
    const WriteResult written = writeFileAtomically(file.path, request, {WriteMode::KeepOrCommon, true});
    if (written) {
        note("Zapisano zgłoszenie: " + file.path);
        return true;
    }
    showWriteFailure(written, file.typed);
    return false;
}

/// Asks for a file until the request is written or the user gives up: the key is saved, so the request can be made
/// again.
void saveRequest(KeyType usage, const CrtRequestParams& params,
                 const char* done = "Klucz został poprawnie wygenerowany i zapisany.") {
    Bytes request;
    const KeyManagerResult result = prepareCrtRequest(*keyManager, usage, params, request);
    if (result == kKmCancelled) return;  // no PIN for a card that was put in again
    if (result != kKmOk) return showCode(kKeyGenTexts, result);
    for (;;) {
        const auto file = askForFile("Podaj nazwę pliku zgłoszenia certyfikacyjnego: ", false, kLongestRequestName);
        if (!file) return;
        if (!file->typed.empty() && writeRequest(*file, request)) break;
    }
    displCentInfo(kMessageRow, done, 2);
}

/// For a key that is there: its own scheme, with the hash that `configured` names where it goes with it.
CrtRequestParams requestAgain(KeyType use, const StoredKey& key, KeyScheme scheme,
                              const std::optional<AlgorithmIdentifier>& configured) {
    KeyGenParams params = paramsFor(use);
    params.offersDsa = params.offersEcdsa = params.offersRsaPss = true;
    params.chooseScheme(scheme);
    if (params.keyScheme != KeyScheme::Ecdsa) params.chooseLength(key.key->publicKey().bits());
    const auto how = readSignAlgorithm(configured.value_or(AlgorithmIdentifier()));
    if (how && how->scheme == params.signScheme) params.hash = how->hash;
    return requestOf(params);
}

/// Tells the authority whose the new key is.
void askForSignature(CrtRequestParams& request) {
    request.successor = true;
    request.signedByKeyInUse =
        keyManager->signingKey() &&
        displCentQuestion(kMessageRow, "Podpisać zgłoszenie także dotychczasowym kluczem (t/n)?") == 1;
}

void saveSuccessorRequest(KeyType use, const StoredKey& successor) {
    const auto algorithm = successorAlgorithm(successor);
    const auto how = algorithm ? readSignAlgorithm(*algorithm) : std::nullopt;
    CrtRequestParams request =
        requestAgain(use, successor, how ? how->scheme : successor.key->publicKey().scheme(), algorithm);
    askForSignature(request);
    saveRequest(use, request, kRequestSaved);
}

/// Tries to save a key that was generated and could not be saved, as often as the user wants it. True when it is saved;
/// otherwise it stays until the user gives it up.
bool saveUnsaved() {
    while (keyManager->unsavedKey()) {
        if (!askOfLoss("Wygenerowany klucz nie został zapisany. Zapisać go teraz (t/n)?")) {
            if (askOfLoss("Czy na pewno porzucić wygenerowany klucz (t/n)?")) keyManager->dropUnsavedKey();
            return false;
        }
        const KeyManagerResult result = saveUnsavedKey(keyStoreAccess());
        clrToEol(kMessageRow, 0);
        if (result != kKmOk && result != kKmCancelled) showCode(kKeyGenTexts, result);
    }
    return true;
}

/// Whether a token can make such a key; says why not.
bool tokenTakes(const KeyLimits& limits, KeyType usage) {
    const KeyRole role = roleOf(usage);
    const char* refusal = tokenRefusal({limits.generates, limits.signs, limits.decrypts},
                                       shares(role, KeyRole::Signing), shares(role, KeyRole::Encryption));
    if (refusal) errInfo(kMessageRow, "%s", refusal);
    return !refusal;
}

bool mayGenerate(KeyType usage) {
    const auto limits = keyManager->keyLimits(usage);
    if (cfgManager->keyMedium() != KeyMedium::File && !limits) {
        errInfo(kMessageRow, "Funckja niedostępna dla aktualnego nośnika");
        return false;
    }
    if (!keyManager->hasKey(usage)) return !limits || tokenTakes(*limits, usage);
    errInfo(kMessageRow, "Klucz dla danego zastosowania już istnieje i nie może zostać nadpisany");
    if (displCentQuestion(kMessageRow, "Zapisać zgłoszenie dla istniejącego klucza (t/n)?") == 1)
        saveRequestAgain(usage);
    return false;
}

}  // namespace

void ShowKeyGenMenu(const KeyGenParams& params, bool listOpen) {
    clrScr(kParamsScreen);
    displHeader(0, "%s", params.titleText());
    displText(2, 1, "Wybierz parametry generowanego klucza i wciśnij 'G':");
    displText(8, 1, "Opcje:");
    for (const Choice& choice : kChoices) {
        if (!choice.shown(params)) continue;
        drawLabel(choice.row, choice.label, !listOpen && choice.open(params));
        // Where both have no room, the value goes over the label's end.
        const std::string value = choice.value(params);
        const int last = shownColumns() - static_cast<int>(columnsOf(value)) - 1;
        if (last < choice.column) clrToEol(choice.row, last - 1);
        displText(choice.row, std::min(choice.column, last), "%s", value.c_str());
    }
    if (listOpen) {
        displCentText(paramsFooterRow(), " Wybór: klawisze nawigacyjne, spacja, +, -; Esc,W: koniec, Enter: zatwierdź");
    } else {
        drawEnds();
    }
}

void OnSelectKeyAlgo(KeyGenParams& params) {
    const auto schemes = params.schemes();
    if (schemes.size() < 2) return;
    std::vector<std::string> items;
    size_t selected = 0;
    for (const KeyScheme scheme : schemes) {
        if (scheme == params.keyScheme) selected = items.size();
        items.emplace_back(signAlgoName(scheme, KcHashAlgo::None));
    }
    const int index = chooseFrom(params, items, selected);
    if (index >= 0) params.chooseScheme(schemes[static_cast<size_t>(index)]);
}

void OnSelectKeyLength(KeyGenParams& params) {
    if (params.keyScheme == KeyScheme::Ecdsa) return selectCurve(params);
    auto lengths = params.lengths();
    if (params.token && lengths.size() > kShownTokenLengths) lengths.resize(kShownTokenLengths);
    if (lengths.empty()) return;
    std::vector<std::string> items;
    size_t selected = lengths.size();
    for (const unsigned length : lengths) {
        if (length == params.keyLength) selected = items.size();
        std::array<char, 12> text{};
        std::snprintf(text.data(), text.size(), "%5u", length);
        items.emplace_back(text.data());
    }
    const int index = chooseFrom(params, items, selected);
    if (index >= 0) params.chooseLength(lengths[static_cast<size_t>(index)]);
}

void selectSignScheme(KeyGenParams& params) {
    const auto algorithms = params.signAlgos();
    if (algorithms.empty()) return;
    std::vector<std::string> items;
    for (const SignAlgo& algorithm : algorithms) items.emplace_back(algorithm.name);
    const int index = chooseFrom(params, items, params.currentSignAlgo(algorithms));
    if (index < 0) return;
    params.signScheme = algorithms[static_cast<size_t>(index)].scheme;
    params.hash = algorithms[static_cast<size_t>(index)].hash;
}

KeyGenCommand ProcessKeyGenCommand(int key, KeyGenParams& params) {
    for (const End& end : kEnds)
        if (isLetter(key, end.key)) return end.command;
    const auto found = std::find_if(std::begin(kChoices), std::end(kChoices), [&](const Choice& choice) {
        return isLetter(key, choice.key) && choice.shown(params) && choice.open(params);
    });
    if (found != std::end(kChoices)) found->change(params);
    return KeyGenCommand::Stay;
}

void offerUnsavedKey() {
    const auto use = keyManager->unsavedKey();
    if (!use || !saveUnsaved()) return;
    if (const StoredKey* successor = keyManager->successorOf(*use)) return saveSuccessorRequest(*use, *successor);
    saveRequestAgain(*use);
}

void saveRequestAgain(KeyType usage) {
    const auto keys = keyManager->keys();
    const auto key = std::find_if(keys.begin(), keys.end(), [&](const StoredKey& one) {
        return usage == KeyType::Both ? one.role != KeyRole::Further : shares(one.role, roleOf(usage));
    });
    if (key == keys.end()) return;
    const KeyType use = static_cast<KeyType>(static_cast<int>(key->role) - 1);
    const KeyScheme scheme = use == KeyType::Encryption ? KeyScheme::Rsa : keyManager->signingKeyType();
    saveRequest(use, requestAgain(use, *key, scheme, cfgManager->record().getSignatureAlgorithmIdentifier()),
                kRequestSaved);
}

namespace {

/// From the screen of parameters to the saved request. A successor takes the place of the key in use later.
void generateBy(KeyGenParams params, KeyType usage, bool successor) {
    if (!runScreen(params)) return;
    // A key for whose request there is no signature would be generated in vain. RSA keys that are too short are refused
    // by the generation.
    if (!isHashSupported(params.signScheme, params.hash)) return showCode(kKeyGenTexts, kKmHashNotSupported);
    const KeyManagerResult result = generate(usage, params, successor);
    clrToEol(kMessageRow, 0);
    if (result != kKmOk) {
        if (result != kKmCancelled) showCode(kKeyGenTexts, result);
        if (!keyManager->unsavedKey() || !saveUnsaved()) return;
    }
    const std::string done = std::string("Klucz ") + params.schemeName() + " został poprawnie wygenerowany.";
    displCentInfo(kMessageRow, done.c_str(), 1);
    tellOfHistory();
    CrtRequestParams request = requestOf(params);
    if (successor) askForSignature(request);
    saveRequest(usage, request);
}

}  // namespace

void OnKeyReplace(KeyType usage) {
    if (cfgManager->keyMedium() != KeyMedium::File)
        return errInfo(kMessageRow, "Funckja niedostępna dla aktualnego nośnika");
    if (keyManager->unsavedKey()) return offerUnsavedKey();
    if (const StoredKey* successor = keyManager->successorOf(usage)) {
        errInfo(kMessageRow, "Nowy klucz już czeka na swój certyfikat");
        return saveSuccessorRequest(usage, *successor);
    }
    KeyGenParams params = paramsFor(usage);
    params.title = "Wymiana klucza";
    generateBy(params, usage, true);
}

void OnKeyGen(KeyType usage) {
    if (!mayGenerate(usage)) return;
    if (keyManager->unsavedKey()) return offerUnsavedKey();
    generateBy(paramsFor(usage), usage, false);
}

}  // namespace crv
