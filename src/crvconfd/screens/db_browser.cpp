#include "crvconfd/screens/db_browser.h"

#include <ctime>

#include "asn/x509/signed_certificate.h"
#include "crvconfd/engines/form.h"
#include "crvconfd/engines/screen.h"
#include "crvconfd/screens/cert_view.h"
#include "crvconfd/screens/crt_text.h"
#include "crvconfd/screens/net_screens.h"
#include "crvconfd/session/context.h"
#include "crvconfd/session/messages.h"
#include "crvconfd/toolkit/toolkit.h"
#include "db_sql/db_manager.h"
#include "pki/certificate_search.h"

namespace crv {

namespace {

constexpr int kHeadingRow = 1;
constexpr size_t kPage = kFooterRow - kFirstRow - 1;
constexpr size_t kNameWidth = 29;
constexpr size_t kIssuerWidth = 21;
constexpr size_t kRowWidth = 77;
constexpr int64_t kSoon = 30 * 86400;
constexpr long kMostDays = 36500;

/// "!" for an expired certificate, "*" for one that expires within 30 days.
char markOf(const Validity& validity, int64_t now) {
    const auto end = validity.notAfter.seconds();
    if (!end) return '?';
    if (*end < now) return '!';
    return *end - now <= kSoon ? '*' : ' ';
}

std::string certRow(const Bytes& der) {
    const CertPtr certificate = makeCert(der);
    if (!certificate) return "? nieczytelny certyfikat";
    return std::string(1, markOf(certificate->tbs.validity, std::time(nullptr))) + " " +
           fitText(shortName(certificate->subject()), kNameWidth) + " " +
           fitText(shortName(certificate->issuer()), kIssuerWidth) + " " +
           dateLine(certificate->tbs.validity.notAfter) + " " + standingWord(currentState(certificate));
}

bool askForQuery(CertificateQuery& query) {
    long days = 0;
    const std::vector<FormField> fields{
        textField("Nazwa", query.subject),
        textField("E-mail", query.email),
        textField("Numer seryjny", query.serial),
        textField("Wystawca", query.issuer),
        numberField("Wygasające w ciągu dni", days, kMostDays),
    };
    const auto ready = [&] {
        if (days > 0) query.expiresWithinDays = static_cast<int>(days);
        query.time = std::time(nullptr);
        return true;
    };
    return runForm("Szukanie certyfikatów", fields, ready, {'s', "~Szukaj", nullptr, nullptr});
}

/// Shows how far a search is; false when the user stops it.
bool showProgress(size_t found, size_t looked) {
    displText(kMessageRow, 0, "Znaleziono certyfikatów: %zu (sprawdzono %zu), Esc: przerwij", found, looked);
    return waitForKeyOrTimeout(0) != kKeyEscape;
}

}  // namespace

bool DbBrowser::show(const CrtItemList& items, size_t selected) {
    if (items.empty()) return false;
    rows_.clear();
    for (const CrtItem& item : items) rows_.push_back({item.id, item.der, certRow(item.der)});
    selected_ = std::min(selected, rows_.size() - 1);
    return true;
}

bool DbBrowser::loadForward(int64_t after, size_t selected) {
    CrtItemList items;
    if (!source_.forward(after, kPage, items)) showDatabaseFailure();
    return show(items, selected);
}

void DbBrowser::loadLast() {
    CrtItemList items;
    if (!source_.backward(CrtSource::kBehindAll, kPage, items)) showDatabaseFailure();
    show(items, kPage);
}

void DbBrowser::reload() {
    const int64_t before = rows_.empty() ? 0 : rows_.front().id - 1;
    const size_t selected = selected_;
    rows_.clear();
    if (!loadForward(before, selected)) loadLast();
}

void DbBrowser::up() {
    if (selected_ > 0) {
        --selected_;
        return;
    }
    CrtItemList items;
    if (!source_.backward(rows_.front().id, 1, items) || items.empty()) return;
    rows_.insert(rows_.begin(), {items[0].id, items[0].der, certRow(items[0].der)});
    if (rows_.size() > kPage) rows_.pop_back();
}

void DbBrowser::down() {
    if (selected_ + 1 < rows_.size()) {
        ++selected_;
        return;
    }
    CrtItemList items;
    if (!source_.forward(rows_.back().id, 1, items) || items.empty()) return;
    rows_.push_back({items[0].id, items[0].der, certRow(items[0].der)});
    if (rows_.size() > kPage) {
        rows_.erase(rows_.begin());
    } else {
        ++selected_;
    }
}

void DbBrowser::pageDown() {
    if (!loadForward(rows_.back().id, selected_)) selected_ = rows_.size() - 1;
}

void DbBrowser::pageUp() {
    CrtItemList items;
    if (!source_.backward(rows_.front().id, kPage, items) || items.empty()) {
        selected_ = 0;
        return;
    }
    // The page is filled up from below, so that it has no hole at the beginning of the list.
    loadForward(items.front().id - 1, selected_);
}

void DbBrowser::drawRow(size_t index) const {
    const int row = kFirstRow + static_cast<int>(index);
    const std::string text = fitText(rows_[index].text, kRowWidth);
    if (index != selected_) return displText(row, 1, "%s", text.c_str());
    if (getSelectedAttr() == 0) return displText(row, 0, "[%s]", text.c_str());
    const AttrGuard selected(kAttrSelected);
    displText(row, 0, ">%s", text.c_str());
}

void DbBrowser::draw() const {
    if (source_.isSearch()) {
        displHeader(0, "Baza certyfikatów - znaleziono: %zu%s", source_.found(), stopped_ ? " (przerwano)" : "");
    } else {
        displHeader(0, "Baza certyfikatów");
    }
    if (rows_.empty()) {
        displText(kFirstRow, 1, "Brak certyfikatów");
    } else {
        displText(kHeadingRow, 3, "%s %s %s", fitText("Nazwa", kNameWidth).c_str(),
                  fitText("Wystawca", kIssuerWidth).c_str(), "Ważny do   Stan");
        for (size_t i = 0; i < rows_.size(); ++i) drawRow(i);
    }
    if (!rows_.empty()) displText(kMessageRow, 0, "! przeterminowany   * wygasa w ciągu 30 dni");
}

bool DbBrowser::current(SignedCertificate& certificate) const {
    if (certificate.readExactly(rows_[selected_].der, ASN_FLAG_CONST)) return true;
    errInfo(kMessageRow, "Błędny format certyfikatu");
    return false;
}

void DbBrowser::details() {
    SignedCertificate certificate;
    if (current(certificate)) showCertificate(certificate, "Certyfikat");
}

void DbBrowser::save() {
    SignedCertificate certificate;
    if (current(certificate)) saveCertificateToFile(certificate);
}

void DbBrowser::remove() {
    if (displCentQuestion(kMessageRow, "Czy na pewno chcesz usunąć certyfikat (t/n)?") == 0) return;
    const int64_t id = rows_[selected_].id;
    // After a compaction by another process the id may mean another certificate.
    Bytes der;
    const bool same = dbManager->setCrtId(id) && dbManager->get(der) && der == rows_[selected_].der;
    if (same && dbManager->deleteCert()) {
        source_.forget(id);
        displCentInfo(kMessageRow, "Certyfikat usunięty", 2);
    } else {
        showDatabaseFailure();
    }
    reload();
}

void DbBrowser::search() {
    CertificateQuery query;
    if (!askForQuery(query)) return;
    clrScr();
    displHeader(0, "Szukanie certyfikatów");
    std::vector<int64_t> ids;
    const SearchEnd end = searchCertificates(*dbManager, query, showProgress, ids);
    if (end == SearchEnd::Failed) return showDatabaseFailure();
    stopped_ = end == SearchEnd::Stopped;
    source_ = CrtSource(std::move(ids));
    rows_.clear();
    loadForward(0, 0);
}

void DbBrowser::fetch() {
    if (fetchCertificates()) reload();
}

void DbBrowser::showAll() {
    source_ = CrtSource();
    rows_.clear();
    loadForward(0, 0);
}

void DbBrowser::run() {
    loadForward(0, 0);
    const auto calling = [this](void (DbBrowser::*work)()) { return [this, work](size_t) { (this->*work)(); }; };
    const auto first = [this](size_t) { loadForward(0, 0); };
    const auto last = calling(&DbBrowser::loadLast);
    runScreen(
        {.draw = [this] { draw(); },
         .actions = {{'d', "~Dane", true, calling(&DbBrowser::details)},
                     {'u', "~Usuń", true, calling(&DbBrowser::remove)},
                     {'s', "Zapi~sz", true, calling(&DbBrowser::save)},
                     {'p', "~Początek", true, first},
                     {'k', "~Koniec", true, last},
                     {'r', "Pobie~rz", false, calling(&DbBrowser::fetch)},
                     {'z', "S~zukaj", false, calling(&DbBrowser::search)},
                     {'b', "Cała ~baza", false, calling(&DbBrowser::showAll), [this] { return source_.isSearch(); }},
                     {kKeyEnter, nullptr, true, calling(&DbBrowser::details)},
                     {kKeyUp, nullptr, true, calling(&DbBrowser::up)},
                     {kKeyDown, nullptr, true, calling(&DbBrowser::down)},
                     {kKeyPageUp, nullptr, true, calling(&DbBrowser::pageUp)},
                     {kKeyPageDown, nullptr, true, calling(&DbBrowser::pageDown)},
                     {kKeyHome, nullptr, true, first},
                     {kKeyEnd, nullptr, true, last}},
         .hasItems = [this] { return !rows_.empty(); },
         .gap = "  "});
}

}  // namespace crv
