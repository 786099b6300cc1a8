#include "crvconfd/screens/crl_browser.h"

#include <algorithm>
#include <ctime>

#include "asn/x509/signed_cert_rev_list.h"
#include "corvane/crvapi.h"
#include "crvconfd/engines/screen.h"
#include "crvconfd/engines/text_view.h"
#include "crvconfd/screens/crt_text.h"
#include "crvconfd/screens/file_prompt.h"
#include "crvconfd/screens/net_screens.h"
#include "crvconfd/screens/save_to_file.h"
#include "crvconfd/session/context.h"
#include "crvconfd/session/messages.h"
#include "crvconfd/toolkit/toolkit.h"
#include "db_sql/db_manager.h"
#include "pki/revocation_manager.h"

namespace crv {

namespace {

size_t crlIssuerWidth() {
    constexpr int kUsual = 26, kNarrowest = 14;
    return static_cast<size_t>(std::max(kUsual + shownColumns() - kScreenColumns, kNarrowest));
}
constexpr size_t kNumberWidth = 12;

/// A stored list and the octets that it refers to.
struct StoredCrl {
    Bytes der;
    SignedCertRevList list;

    [[nodiscard]] bool load(long number) {
        return dbManager->getCrlByFileNum(number, der) && list.readExactly(der, ASN_FLAG_CONST);
    }
};

std::string numberText(const CrlIndexEntry& entry) {
    return std::string(entry.isDelta() ? "+" : "") + (entry.crlNumber ? entry.crlNumber->decimal() : "-");
}

bool isExpired(const CrlIndexEntry& entry) {
    return entry.expires().value_or(INT64_MAX) < std::time(nullptr);
}

std::string crlRow(const CrlIndexEntry& entry) {
    StoredCrl crl;
    const std::string count = crl.load(entry.fileNumber()) ? std::to_string(crl.list.entryCount()) : "?";
    return std::string(isExpired(entry) ? "!" : " ") + (entry.isVerified() ? "  " : "? ") +
           fitText(shortName(entry.issuer), crlIssuerWidth()) + " " + fitText(numberText(entry), kNumberWidth) + " " +
           dateLine(entry.thisUpdate) + " " + (entry.nextUpdate ? dateLine(*entry.nextUpdate) : std::string(10, ' ')) +
           " " + count;
}

void addEntries(std::vector<std::string>& lines, const SignedCertRevList& list) {
    auto entries = list.entries();
    while (const RevokedCertificate* entry = entries.next()) {
        const auto revoked = entry->revokedAt();
        addField(lines, hexText(entry->userCertificate.contents()),
                 (revoked ? dateLine(Time(*revoked)) : std::string("?")) +
                     (entry->givesReason() ? std::string(", ") + crlReasonName(entry->reason()) : ""));
    }
}

}  // namespace

std::vector<std::string> CrlBrowser::items() {
    index_.clear();
    if (!dbManager->getCrlIndex(index_)) showDatabaseFailure();
    std::vector<std::string> rows;
    for (const CrlIndexEntry& entry : index_) rows.push_back(crlRow(entry));
    return rows;
}

void CrlBrowser::details(size_t index) const {
    const CrlIndexEntry& entry = index_[index];
    StoredCrl crl;
    if (!crl.load(entry.fileNumber())) return showDatabaseFailure();
    std::vector<std::string> lines;
    addField(lines, "Rodzaj:", entry.isDelta() ? "przyrost do listy nr " + entry.baseCrlNumber->decimal() : "pełna");
    const int code = revManager->verify(crl.der, std::time(nullptr));
    addField(lines, "Przy wczytaniu:", entry.isVerified() ? "zweryfikowana" : "NIEZWERYFIKOWANA");
    addField(lines, "Weryfikacja teraz:", code == 0 ? "poprawna" : crvErrorTextAPI(nullptr, code));
    addField(lines, "Wystawca:", nameLine(entry.issuer));
    addField(lines, "Wystawiona:", timeLine(crl.list.tbs.thisUpdate));
    addField(lines, "Następna:", crl.list.tbs.nextUpdate ? timeLine(*crl.list.tbs.nextUpdate) : "nie podano");
    addField(lines, "Algorytm podpisu:", signAlgorithmName(crl.list.signatureAlgorithm));
    addExtensions(lines, crl.list.extensions());
    addField(lines, "Unieważnione certyfikaty:", std::to_string(crl.list.entryCount()));
    addEntries(lines, crl.list);
    runTextView({"Lista CRL", std::move(lines)});
}

void CrlBrowser::save(size_t index) const {
    StoredCrl crl;
    if (!crl.load(index_[index].fileNumber())) return showDatabaseFailure();
    if (const auto file = askForFile("Podaj nazwę pliku listy CRL:"); file && !file->typed.empty())
        saveToFile(file->typed, crl.list);
}

void CrlBrowser::remove(size_t index) const {
    if (displCentQuestion(kMessageRow, "Czy na pewno chcesz usunąć listę CRL (t/n)?") == 0) return;
    if (!dbManager->deleteCrl(index_[index].fileNumber())) return showDatabaseFailure();
    displCentInfo(kMessageRow, "Lista CRL usunięta", 2);
}

void CrlBrowser::draw() const {
    displHeader(0, "Baza list CRL");
    if (!index_.empty()) displText(kMessageRow, 0, "! po terminie   ? niezweryfikowana   + przyrost (delta)");
}

void CrlBrowser::run() {
    runScreen({.draw = [this] { draw(); },
               .items = [this] { return items(); },
               .empty = "Brak list CRL",
               .actions = {{'d', "~Dane", true, [this](size_t index) { details(index); }},
                           {'u', "~Usuń", true, [this](size_t index) { remove(index); }},
                           {'s', "Zapi~sz", true, [this](size_t index) { save(index); }},
                           {'r', "Pobie~rz", false, [](size_t) { fetchAllCrls(); }}}});
}

}  // namespace crv
