#include "crvconfd/screens/db_operations.h"

#include <array>
#include <ctime>
#include <exception>
#include <new>

#include "asn/x509/signed_cert_rev_list.h"
#include "crvconfd/screens/file_prompt.h"
#include "crvconfd/session/context.h"
#include "crvconfd/session/messages.h"
#include "crvconfd/toolkit/toolkit.h"
#include "pki/revocation_manager.h"

namespace crv {

namespace {

constexpr const char* kNotOpened = "Błąd otwarcia pliku %s !!!";
constexpr const char* kDatabase = "Błąd bazy danych !!!";
constexpr const char* kNoMemory = "Brak pamięci !!!";
/// displCentInfo's measure of 4 seconds.
constexpr int kLong = 2;

constexpr CodeText kCrlTexts[] = {
    {kCrlNoMemory, "Brak pamięci"},
    {kCrlDatabase, "Błąd bazy danych"},
    {kCrlFormat, "Niepoprawny format listy CRL"},
    {kCrlOlder, "Wczytywana lista CRL jest starsza niż znajdująca się w bazie danych."},
};

bool escapePressed() {
    for (int key = waitForKeyOrTimeout(0); key != kNoKey; key = waitForKeyOrTimeout(0))
        if (key == kKeyEscape) return true;
    return false;
}

size_t inDatabase(const ImportProgress& progress) {
    return progress.stored + progress.present;
}

bool showImport(const ImportProgress& progress) {
    displText(kMessageRow, 0, "Trwa wczytywanie certyfikatów: %zu", inDatabase(progress));
    return !escapePressed();
}

void showSummary(const std::string& text) {
    displCentInfo(kMessageRow, text.c_str(), kLong);
}

/// The text of an end that is a failure; the name of the file is in it where it has a place.
void showFailure(TransferEnd end, const TypedFile& file, const char* databaseText) {
    switch (end) {
        case TransferEnd::NotOpened:
            return errInfo(kMessageRow, kNotOpened, file.typed.c_str());
        case TransferEnd::NotWritten:
            return errInfo(kMessageRow, "Błąd zapisu pliku %s !!!", file.typed.c_str());
        case TransferEnd::NoMemory:
            return errInfo(kMessageRow, "%s", kNoMemory);
        default:
            return errInfo(kMessageRow, "%s", databaseText);
    }
}

bool isFailure(TransferEnd end) {
    return end != TransferEnd::Done && end != TransferEnd::BadInput && end != TransferEnd::Stopped;
}

/// The local time as the question shows it.
std::string momentText(std::time_t time) {
    std::tm parts{};
    localtime_r(&time, &parts);
    std::array<char, 64> text{};
    std::strftime(text.data(), text.size(), "%Y.%m.%d %H:%M.%S ", &parts);
    return text.data();
}

void removeExpired(std::time_t now) {
    CrtStore::Removed result;
    if (!crtManager->removeCertsOverTime(now, result))
        return errInfo(kMessageRow, "Błąd przy usuwaniu przeterminowanych certyfikatów");
    showSummary("Usunięto " + std::to_string(result.removed) + " certyfikatów. Pozostało " +
                std::to_string(result.remaining) + " certyfikatów");
}

bool wantedThoughUnverified() {
    return displCentQuestion(kMessageRow,
                             "Wystąpił błąd weryfikacji listy CRL. Czy mimo to chcesz wczytać listę CRL(t/n)?") == 1;
}

void insertCrl(ByteView der) {
    const CrlInsertResult result = revManager->insert(der);
    if (result == kCrlDevice) {
        errInfo(kMessageRow, "Urządzenie tarvo zwróciło błąd aktualizacji listy CRL (%x)", revManager->deviceError());
    } else if (result == kCrlInserted) {
        errInfo(kMessageRow, "Lista CRL poprawnie wczytana");
    } else {
        showCode(kCrlTexts, result);
    }
}

void importCrl(const TypedFile& file) {
    Bytes der;
    if (!RevocationManager::readCrl(file.path, der))
        return errInfo(kMessageRow, "Błąd otwarcia pliku %s", file.typed.c_str());
    if (SignedCertRevList crl; !crl.readExactly(der, ASN_FLAG_CONST))
        return errInfo(kMessageRow, "Błędny format listy CRL !!!");
    if (revManager->verify(der, std::time(nullptr)) == 0 || wantedThoughUnverified()) insertCrl(der);
}

void importCertificates(const TypedFile& file) {
    ImportProgress done;
    (void)showImport(done);
    const TransferEnd end = crtManager->importCerts(file.path, showImport, done);
    if (isFailure(end)) return showFailure(end, file, kDatabase);
    showSummary("Wczytano " + std::to_string(inDatabase(done)) + " certyfikatów.");
}

void exportCertificates(const TypedFile& file) {
    size_t count = 0;
    if (!file.path.empty() && !mayWrite(file)) return;
    const TransferEnd end = file.path.empty() ? TransferEnd::NotOpened : crtManager->exportCerts(file.path, count);
    if (isFailure(end)) return showFailure(end, file, "Błąd bazy danych");
    errInfo(kMessageRow, "Zapisano certyfikaty w liczbie: %zu", count);
}

/// Works on a file that the user names; nothing after Escape.
void withFile(const char* prompt, bool word, void (*work)(const TypedFile&)) {
    const auto file = askForFile(prompt, word);
    if (!file) return;
    try {
        work(*file);
    } catch (const std::bad_alloc&) {
        errInfo(kMessageRow, "%s", kNoMemory);
    }
}

}  // namespace

void OnCrtImport() {
    withFile("Podaj nazwę pliku z certyfikatami: ", true, importCertificates);
}

void OnCrlImport() {
    withFile("Podaj nazwe pliku z lista CRL:", false, importCrl);
}

void OnAllCrtsExport() {
    size_t count = 0;
    if (!dbManager->countCerts(count)) return errInfo(kMessageRow, "Błąd bazy danych");
    if (count == 0) return errInfo(kMessageRow, "Brak certyfikatów w bazie danych");
    withFile("Podaj nazwą pliku do ktorego zapisać certyfikaty: ", true, exportCertificates);
}

void OnDbRebuild() {
    clrScr();
    displHeader(0, "Porządkowanie bazy certyfikatów");
    const std::time_t now = std::time(nullptr);
    const std::string question = "Czy czas systemowy: " + momentText(now) + " jest poprawny (t/n) ?";
    if (displCentQuestion(kMessageRow, question.c_str()) == 0) return;
    try {
        removeExpired(now);
    } catch (const std::exception& failure) {
        errInfo(kMessageRow, "%s", failure.what());
    } catch (const ScreenClosed&) {
        throw;
    } catch (...) {
        errInfo(kMessageRow, "Nieznany wyjątek");
    }
}

}  // namespace crv
