#include "crvconfd/screens/db_operations.h"

#include <array>
#include <cerrno>
#include <ctime>
#include <exception>
#include <new>

#include "asn/x509/signed_cert_rev_list.h"
#include "corvane/crvapi.h"
#include "crvconfd/engines/text_view.h"
#include "crvconfd/screens/file_prompt.h"
#include "crvconfd/screens/net_screens.h"
#include "crvconfd/session/context.h"
#include "crvconfd/session/messages.h"
#include "crvconfd/toolkit/toolkit.h"
#include "pki/revocation_manager.h"

namespace crv {

namespace {

constexpr const char* kNotOpened = "Błąd otwarcia pliku %s !!!";
constexpr const char* kNoMemory = "Brak pamięci !!!";
/// Of a question's reason, above the question.
constexpr BottomRow kReasonRow{22};
/// displCentInfo's measure of 4 seconds.
constexpr int kLong = 2;

constexpr CodeText kCrlTexts[] = {
    {static_cast<int>(CrlInsert::Stored), "Lista CRL poprawnie wczytana"},
    {static_cast<int>(CrlInsert::Malformed), "Niepoprawny format listy CRL"},
    {static_cast<int>(CrlInsert::Older), "Wczytywana lista CRL jest starsza niż znajdująca się w bazie danych."},
};

constexpr CodeText kRefusalTexts[] = {
    {static_cast<int>(CrtRefusal::EmailTooLong), "adres e-mail dłuższy niż 128 znaków"},
    {static_cast<int>(CrtRefusal::KeyIdUnfit), "niepoprawny identyfikator klucza"},
    {static_cast<int>(CrtRefusal::TooManyFields), "nazwa z ponad 1000 pól"},
};

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
void showFailure(TransferEnd end, const TypedFile& file, const char* databaseText, int error) {
    switch (end) {
        case TransferEnd::NotOpened:
            return showFileFailure(kNotOpened, file.typed, error);
        case TransferEnd::NotRead:
            return errInfo(kMessageRow, "Błąd odczytu pliku %s !!!", file.typed.c_str());
        case TransferEnd::NotWritten:
            return showFileFailure("Błąd zapisu pliku %s !!!", file.typed, error);
        default:
            return showDatabaseFailure(databaseText, kNoMemory);
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

bool wantedThoughUnverified(int code) {
    // The question takes its whole row.
    displText(kReasonRow, 0, "Przyczyna: %s", crvErrorTextAPI(nullptr, code));
    const bool wanted =
        displCentQuestion(kMessageRow,
                          "Wystąpił błąd weryfikacji listy CRL. Czy mimo to chcesz wczytać listę CRL(t/n)?") == 1;
    clrToEol(kReasonRow, 0);
    return wanted;
}

void insertCrl(ByteView der) {
    const CrlInsert result = revManager->insert(der);
    if (result == CrlInsert::Failed) return showDatabaseFailure();
    if (result != CrlInsert::DeviceFailed) return showCode(kCrlTexts, static_cast<int>(result));
    errInfo(kMessageRow, "Urządzenie tarvo zwróciło błąd aktualizacji listy CRL (%x)", revManager->deviceError());
}

void importCrl(const TypedFile& file) {
    Bytes der;
    if (!RevocationManager::readCrl(file.path, der))
        return showFileFailure("Błąd otwarcia pliku %s", file.typed, openError(file.path));
    if (SignedCertRevList crl; !crl.readExactly(der, ASN_FLAG_CONST))
        return errInfo(kMessageRow, "Błędny format listy CRL !!!");
    const int code = revManager->verify(der, std::time(nullptr));
    if (code == 0 || wantedThoughUnverified(code)) insertCrl(der);
}

/// What an import did, in one line.
std::string summaryOf(const ImportProgress& done, TransferEnd end) {
    std::string text = "Wczytano " + std::to_string(inDatabase(done)) + " certyfikatów.";
    if (done.refused > 0) text += " Odrzucono: " + std::to_string(done.refused) + ".";
    if (end == TransferEnd::Stopped) return text + " (przerwano)";
    if (done.handled() == 0) return text + " W pliku nie ma certyfikatu.";
    return end == TransferEnd::BadInput ? text + " Dalej w pliku nie ma certyfikatu." : text;
}

/// The certificates that the database did not take, as far as they are worth reading.
class Refusals {
  public:
    void add(size_t index, CrtRefusal refusal) {
        if (lines_.size() == kShown) return;
        addField(lines_, "Certyfikat nr " + std::to_string(index + 1) + ":",
                 findText(kRefusalTexts, static_cast<int>(refusal)));
    }
    void show(size_t count) {
        if (lines_.empty()) return;
        if (count > kShown) lines_.push_back("i jeszcze " + std::to_string(count - kShown));
        runTextView({"Odrzucone certyfikaty", std::move(lines_)});
    }

  private:
    static constexpr size_t kShown = 3;
    std::vector<std::string> lines_;
};

void importCertificates(const TypedFile& file) {
    ImportProgress done;
    Refusals refusals;
    (void)showImport(done);
    const auto refused = [&](size_t index, CrtRefusal refusal) { refusals.add(index, refusal); };
    const TransferEnd end = crtManager->importCerts(file.path, showImport, done, refused);
    if (isFailure(end)) showFailure(end, file, "Błąd bazy danych !!!", openError(file.path));
    if (!isFailure(end) || done.handled() > 0) showSummary(summaryOf(done, end));
    refusals.show(done.refused);
}

void exportCertificates(const TypedFile& file) {
    size_t count = 0;
    if (!file.path.empty() && !mayWrite(file)) return;
    int error = ENOENT;
    const TransferEnd end =
        file.path.empty() ? TransferEnd::NotOpened : crtManager->exportCerts(file.path, count, {}, &error);
    if (isFailure(end)) return showFailure(end, file, kDatabaseFailed, error);
    note("Zapisano plik: " + file.path);
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
    if (!dbManager->countCerts(count)) return showDatabaseFailure();
    if (count == 0) return errInfo(kMessageRow, "Brak certyfikatów w bazie danych");
    withFile("Podaj nazwą pliku do ktorego zapisać certyfikaty: ", true, exportCertificates);
}

void OnDbRebuild() {
    clrScr();
    displHeader(0, "Porządkowanie bazy certyfikatów");
    const std::time_t now = std::time(nullptr);
    compareClock(kReasonRow);
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
