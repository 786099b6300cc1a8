#include "crvconfd/screens/trusted_points.h"

#include <algorithm>

#include "config/configuration_manager.h"
#include "crvconfd/engines/screen.h"
#include "crvconfd/screens/cert_view.h"
#include "crvconfd/screens/certificate_prompt.h"
#include "crvconfd/screens/crt_text.h"
#include "crvconfd/session/context.h"
#include "crvconfd/session/messages.h"
#include "crvconfd/session/prot_cfg.h"
#include "crvconfd/toolkit/toolkit.h"
#include "ops/trust.h"
#include "pki/revocation_manager.h"

namespace crv {

namespace {

/// With a name of a few lines, which begins on the row.
constexpr int kTrustRows = 13, kNameRow = 7;
constexpr const char* kPlace = "src/crvconfd/trstpnts";

constexpr CodeText kAddTexts[] = {
    {kKmNoMemory, "Brak pamięci"},
    {kKmNoCaCertificate, "Wskazany certyfikat nie jest certyfikatem urzędu ds. certyfikatów."},
    {kKmBadSignature, "Niepoprawny podpis pod certyfikatem"},
    {kKmCardError, "Błąd zapisu autocertyfikatu urzędu na karcie kryptograficznej"},
    {kKmPkcs11NotInitialised, "Nie zainicjowany interfejs PKCS#11"},
    {kKmTrustPointExists, "Wskazane zaświadczenie certyfikacyjne punktu zaufania już istnieje."},
    {kKmTrustPointRefused, "Niedopuszczalny punkt zaufania"},
    {kKmAlgorithmNotSupported, "Nieobsługiwany algorytm podpisu lub klucza certyfikatu"},
};

constexpr CodeText kDeleteTexts[] = {
    {kKmNotOnThisMedium, "Funkcja nie zaimplementowana na danym nośniku kluczy"},
    {kKmNoMemory, "Brak pamięci"},
    {kKmCardError, "Błąd usuwania autocertyfikatu urzędu z karty kryptograficznej"},
    {kKmPkcs11NotInitialised, "Nie zainicjowany interfejs PKCS#11"},
};

/// Saves the change with the waiting text; then shows that it is done. False when it was not.
bool saveChange(const char* done) {
    clrToEol(kMessageRow, 0);
    displText(kMessageRow, 0, "%s",
              cfgManager->keyMedium() == KeyMedium::Token ? "Czekaj, trwa zapis ustawień na karcie..."
                                                          : "Czekaj, trwa zapis ustawień...");
    if (!writeProtCfg()) return false;
    clrToEol(kMessageRow, 0);
    displCentInfo(kMessageRow, done, 2);
    return true;
}

/// What is an authority and yet no root gets another answer than what is no authority.
void showAddFailure(KeyManagerResult result, const SignedCertificate& certificate) {
    if (result == kKmNoCaCertificate && certificate.isCaCrt()) {
        errInfo(kMessageRow, "To urząd pośredni (certyfikat nie jest samowystawiony), podaj urząd główny");
    } else {
        showCode(kAddTexts, result, kPlace);
    }
}

/// So many that all lines of the name find their place above the footer.
int trustRows(const TrustPointList& list, size_t index) {
    if (list.empty()) return kTrustRows;
    const auto lines = std::ssize(list[index].certificate->subject().lines(dnDisplay()));
    return std::clamp(kNameRow + static_cast<int>(lines) + kScreenRows - kFooterRow.ofLeast, kTrustRows, kScreenRows);
}

std::string crlText(const CrlIndexEntry& crl) {
    const std::string number = crl.crlNumber ? crl.crlNumber->decimal() : "bez numeru";
    std::string text = number + " z " + dateLine(crl.thisUpdate);
    if (crl.nextUpdate) text += ", do " + dateLine(*crl.nextUpdate);
    return text;
}

}  // namespace

TrustPointList readTrustedPoints() {
    return keyManager->trustedPoints();
}

void displayCRLInfo(int row, int col, const SignedCertificate& authority) {
    AuthorityCrls crls;
    if (!revManager->lastCrls(authority, crls)) return displText(row, col, "Błąd bazy danych");
    if (!crls.complete && !crls.delta) return displText(row, col, "brak");
    if (crls.complete) displText(row++, col, "%s", crlText(*crls.complete).c_str());
    if (crls.delta) displText(row, col, "przyrost %s", crlText(*crls.delta).c_str());
}

void displayTP(const TrustPointList& list, size_t index) {
    clrScr(trustRows(list, index));
    displHeader(0, "Punkty zaufania");
    if (list.empty()) return displText(2, 1, "Brak punktów zaufania");
    const std::string position = std::to_string(index + 1) + "/" + std::to_string(list.size());
    {
        const AttrGuard header(kAttrHeader);
        displText(0, shownColumns() - static_cast<int>(position.size()), "%s", position.c_str());
    }
    const SignedCertificate& certificate = *list[index].certificate;
    displText(2, 0, "Rodzaj:");
    displText(2, 8, "Zwykły");
    displText(3, 0, "Skrót z klucza:");
    displText(3, 16, "%s ", hexText(certificate.computeKeyIdentifierSha1Hash()).c_str());
    displText(4, 0, "Ostatnie listy uniewaznień:");
    displayCRLInfo(4, 28, certificate);
    displText(6, 0, "Identyfikator wyróżniający punktu zaufania:");
    displayDN(kNameRow, certificate.subject());
}

namespace {

/// The screen over a list and a position in it; an addition or a deletion reads the list again.
ScreenOps trustPointOps(TrustPointList& list, size_t& index) {
    const auto reread = [&list, &index](bool changed) {
        if (!changed) return;
        list = readTrustedPoints();
        index = 0;
    };
    return {
        .draw = [&] { displayTP(list, index); },
        .actions = {{'d', "~Dodaj", false, [reread](size_t) { reread(OnTrustedPointAdd()); }},
                    {'u', "~Usuń", true, [&, reread](size_t) { reread(OnTrustedPointDel(list, index)); }},
                    {'n', "~Następny", true, [&](size_t) { ++index; }, [&] { return index + 1 < list.size(); }},
                    {'p', "~Poprzedni", true, [&](size_t) { --index; }, [&] { return index > 0; }},
                    {'c', "Sz~czegóły", true, [&](size_t) { OnTrustedPointShow(list, index); }},
                    {'s', "Zapi~sz", true, [&](size_t) { OnTrustedPointSave(list, index); }}},
        .hasItems = [&] { return !list.empty(); },
        .escapeLeaves = false,
        .leastRows = kTrustRows,
    };
}

}  // namespace

void displayMenu(size_t index, size_t count) {
    TrustPointList list(count);
    drawLabels(trustPointOps(list, index));
}

bool OnTrustedPointAdd() {
    if (!mayAddTrust(keyStoreAccess())) {
        errInfo(kMessageRow, "Do zmiany konfiguracji wymagany jest certyfikat i klucz do podpisywania");
        return false;
    }
    const CertPtr certificate = askForCertificate();
    if (!certificate) return false;
    const KeyManagerResult result = addTrustPoint(keyStoreAccess(), certificate, [] {
        return displCentQuestion(kMessageRow,
                                 "Zaświadczenie certyfikacyjne jest przeterminowane, czy chcesz kontynuować (t/n)?") ==
               1;
    });
    if (result == kKmCancelled) return false;
    if (result == kKmOk) {
        if (saveChange("Punkt zaufania poprawnie dodany")) showSummary("Dodany punkt zaufania", {certificate});
    } else {
        showAddFailure(result, *certificate);
    }
    return result == kKmOk;
}

bool OnTrustedPointDel(const TrustPointList& list, size_t index) {
    if (displCentQuestion(kMessageRow, "Czy na pewno chcesz usunąć punkt zaufania (t/n)?") == 0) return false;
    const TrustPoint& point = list.at(index);
    if (!isRemovable(point)) {
        errInfo(kMessageRow, "Wskazany punkt zaufania nie może zostać usunięty.");
        return false;
    }
    const KeyManagerResult result = removeTrustPoint(keyStoreAccess(), point);
    if (result == kKmOk) {
        static_cast<void>(saveChange("Punkt zaufania usunięty"));
    } else {
        showCode(kDeleteTexts, result, kPlace);
    }
    return result == kKmOk;
}

void OnTrustedPointSave(const TrustPointList& list, size_t index) {
    saveCertificateToFile(*list.at(index).certificate);
}

void OnTrustedPointShow(const TrustPointList& list, size_t index) {
    showCertificate(*list.at(index).certificate, "Szczegóły certyfikatu punktu zaufania " + std::to_string(index + 1) +
                                                     "/" + std::to_string(list.size()));
}

void OnTrustedPoints() {
    TrustPointList list = readTrustedPoints();
    size_t index = 0;
    runScreen(trustPointOps(list, index));
}

std::vector<CaChoice> trustPointChoices() {
    std::vector<CaChoice> choices;
    for (const TrustPoint& point : readTrustedPoints()) {
        CaChoice choice{point.certificate->subject().text(), {}};
        if (point.certificate->subject().writeToVector(choice.dn)) choices.push_back(std::move(choice));
    }
    return choices;
}

}  // namespace crv
