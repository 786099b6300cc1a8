#include "crvconfd/screens/db_browser.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>

#include "asn/x509/signed_certificate.h"
#include "crvconfd/engines/form.h"
#include "crvconfd/engines/list_search.h"
#include "crvconfd/engines/polish_letters.h"
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
// Of the least screen; a wider one's columns go to the two names, three to the subject for two to the issuer.
constexpr int kNameWidth = 29;
constexpr int kIssuerWidth = 21;
constexpr int kRowWidth = 77;
constexpr size_t kDateWidth = 10;
constexpr long kMostDays = 36500;

size_t pageRows() {
    return static_cast<size_t>(kFooterRow - kFirstRow - 1);
}

/// Beside the least screen; fewer than none on a narrower terminal.
int moreColumns() {
    return shownColumns() - kScreenColumns;
}
size_t issuerWidth() {
    constexpr int kNarrow = 8;
    const int wide = kIssuerWidth + moreColumns() * 2 / 5;
    if (moreColumns() >= 0) return static_cast<size_t>(wide);
    // Many certificates have the same issuer; subjects are to be told apart.
    return static_cast<size_t>(std::min((kNameWidth + kIssuerWidth + moreColumns()) / 3, kNarrow));
}
size_t nameWidth() {
    return static_cast<size_t>(kNameWidth + kIssuerWidth + moreColumns()) - issuerWidth();
}

std::string certRow(const Bytes& der) {
    const CertPtr certificate = makeCert(der);
    if (!certificate) return "? nieczytelny certyfikat";
    return std::string(1, endMark(certificate->tbs.validity, std::time(nullptr))) + " " +
           fitText(shortName(certificate->subject()), nameWidth()) + " " +
           fitText(shortName(certificate->issuer()), issuerWidth()) + " " +
           dateLine(certificate->tbs.validity.notAfter) + " " + standingWord(currentState(certificate));
}

/// What orders a certificate: names as people sort them in Polish, moments by their seconds.
std::string sortKey(CrtOrder order, const Bytes& der) {
    const CertPtr certificate = makeCert(der);
    if (!certificate) return {};
    if (order == CrtOrder::Expiry) {
        std::array<char, 24> digits{};
        const auto end = certificate->tbs.validity.notAfter.seconds();
        std::snprintf(digits.data(), digits.size(), "%020lld", static_cast<long long>(end.value_or(0)));
        return digits.data();
    }
    return polishSortKey(shortName(order == CrtOrder::Subject ? certificate->subject() : certificate->issuer()));
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

/// The ids of all certificates, or of those that were found, by a column; where it is the same, in the order of the
/// records. Nothing when the user stops or the database fails, which has been said.
std::optional<std::vector<int64_t>> sortedCertificates(CrtOrder order,
                                                       const std::optional<std::vector<int64_t>>& found) {
    constexpr size_t kAtOnce = 512;
    const CrtSource source = found ? CrtSource(*found) : CrtSource();
    std::vector<std::pair<std::string, int64_t>> rows;
    int64_t last = CrtSource::kFirst;
    for (CrtItemList items;; items.clear()) {
        const bool read =
            rows.empty() ? source.from(CrtSource::kFirst, kAtOnce, items) : source.forward(last, kAtOnce, items);
        if (!read) {
            showDatabaseFailure();
            return std::nullopt;
        }
        if (items.empty()) break;
        for (const CrtItem& item : items) rows.emplace_back(sortKey(order, item.der), item.id);
        last = items.back().id;
        displText(kMessageRow, 0, "Sortowanie certyfikatów: %zu, Esc: przerwij", rows.size());
        if (waitForKeyOrTimeout(0) == kKeyEscape) return std::nullopt;
    }
    std::ranges::stable_sort(rows, {}, &std::pair<std::string, int64_t>::first);
    std::vector<int64_t> ids;
    for (const auto& row : rows) ids.push_back(row.second);
    return ids;
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

bool DbBrowser::loaded(bool read, const CrtItemList& items, size_t selected) {
    if (!read) showDatabaseFailure();
    return show(items, selected);
}

bool DbBrowser::loadFrom(int64_t id, size_t selected) {
    CrtItemList items;
    return loaded(source_.from(id, page_, items), items, selected);
}

bool DbBrowser::loadForward(int64_t after, size_t selected) {
    CrtItemList items;
    return loaded(source_.forward(after, page_, items), items, selected);
}

void DbBrowser::loadLast() {
    CrtItemList items;
    loaded(source_.backward(CrtSource::kBehindAll, page_, items), items, page_);
}

void DbBrowser::reload() {
    const int64_t first = rows_.empty() ? CrtSource::kFirst : rows_.front().id;
    const size_t selected = selected_;
    rows_.clear();
    if (!loadFrom(first, selected)) loadLast();
}

void DbBrowser::fitPage() {
    const bool wider = page_ != 0 && columns_ != shownColumns();
    if (page_ == pageRows() && !wider) return;
    page_ = pageRows();
    columns_ = shownColumns();
    if (rows_.empty()) return;
    // The row under the cursor stays.
    const size_t first = selected_ < page_ ? 0 : selected_ - page_ + 1;
    loadFrom(rows_[first].id, selected_ - first);
}

void DbBrowser::up() {
    if (selected_ > 0) {
        --selected_;
        return;
    }
    CrtItemList items;
    if (!source_.backward(rows_.front().id, 1, items) || items.empty()) return;
    rows_.insert(rows_.begin(), {items[0].id, items[0].der, certRow(items[0].der)});
    if (rows_.size() > page_) rows_.pop_back();
}

void DbBrowser::down() {
    if (selected_ + 1 < rows_.size()) {
        ++selected_;
        return;
    }
    CrtItemList items;
    if (!source_.forward(rows_.back().id, 1, items) || items.empty()) return;
    rows_.push_back({items[0].id, items[0].der, certRow(items[0].der)});
    if (rows_.size() > page_) {
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
    if (!source_.backward(rows_.front().id, page_, items) || items.empty()) {
        selected_ = 0;
        return;
    }
    // The page is filled up from below, so that it has no hole at the beginning of the list.
    loadFrom(items.front().id, selected_);
}

void DbBrowser::drawRow(size_t index) const {
    const int row = kFirstRow + static_cast<int>(index);
    const int width = kRowWidth + moreColumns();
    const std::string text = fitText(rows_[index].text, static_cast<size_t>(width));
    if (index != selected_) return displLine(row, 1, text);
    if (getSelectedAttr() == 0) return displLine(row, 0, "[" + text + "]");
    const AttrGuard selected(kAttrSelected);
    displLine(row, 0, ">" + text);
}

void DbBrowser::draw() const {
    if (found_) {
        displHeader(0, "Baza certyfikatów - znaleziono: %zu%s", found_->size(), stopped_ ? " (przerwano)" : "");
    } else {
        displHeader(0, "Baza certyfikatów");
    }
    if (rows_.empty()) {
        displText(kFirstRow, 1, "Brak certyfikatów");
    } else {
        const auto heading = [this](const char* text, CrtOrder order) {
            return std::string(text) + (order_ == order ? " v" : "");
        };
        displText(kHeadingRow, 3, "%s %s %s Stan", fitText(heading("Nazwa", CrtOrder::Subject), nameWidth()).c_str(),
                  fitText(heading("Wystawca", CrtOrder::Issuer), issuerWidth()).c_str(),
                  fitText(heading("Ważny do", CrtOrder::Expiry), kDateWidth).c_str());
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
        if (found_) std::erase(*found_, id);
        rows_.erase(rows_.begin() + static_cast<ptrdiff_t>(selected_));
        displCentInfo(kMessageRow, "Certyfikat usunięty", 2);
    } else {
        showDatabaseFailure();
    }
    if (rows_.empty()) return loadLast();
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
    found_ = std::move(ids);
    sortBy(order_);
}

void DbBrowser::sort() {
    sortBy(order_ == CrtOrder::Expiry ? CrtOrder::Record : static_cast<CrtOrder>(static_cast<int>(order_) + 1));
}

void DbBrowser::sortBy(CrtOrder order) {
    auto ids = found_;
    if (order != CrtOrder::Record) {
        clrScr();
        displHeader(0, "Sortowanie certyfikatów");
        ids = sortedCertificates(order, found_);
        if (!ids && !found_) order = CrtOrder::Record;
    }
    order_ = order;
    source_ = ids ? CrtSource(std::move(*ids)) : CrtSource();
    rows_.clear();
    loadFrom(CrtSource::kFirst, 0);
}

void DbBrowser::fetch() {
    if (fetchCertificates()) reload();
}

void DbBrowser::showAll() {
    found_.reset();
    stopped_ = false;
    sortBy(order_);
}

void DbBrowser::run() {
    fitPage();
    loadFrom(CrtSource::kFirst, 0);
    const auto calling = [this](void (DbBrowser::*work)()) { return [this, work](size_t) { (this->*work)(); }; };
    const auto first = [this](size_t) { loadFrom(CrtSource::kFirst, 0); };
    const auto last = calling(&DbBrowser::loadLast);
    runScreen(
        {.draw =
             [this] {
                 fitPage();
                 draw();
             },
         .actions = {{'d', "~Dane", true, calling(&DbBrowser::details)},
                     {'u', "~Usuń", true, calling(&DbBrowser::remove)},
                     {'s', "Zapi~sz", true, calling(&DbBrowser::save)},
                     {'p', "~Początek", true, first},
                     {'k', "~Koniec", true, last},
                     {'r', "Pobie~rz", false, calling(&DbBrowser::fetch)},
                     {'z', "S~zukaj", false, calling(&DbBrowser::search)},
                     {ListSearch::kKey, nullptr, false, calling(&DbBrowser::search)},
                     {'o', "S~ortuj", true, calling(&DbBrowser::sort)},
                     {'b', "Cała ~baza", false, calling(&DbBrowser::showAll), [this] { return found_.has_value(); }},
                     {kKeyEnter, nullptr, true, calling(&DbBrowser::details)},
                     {kKeyUp, nullptr, true, calling(&DbBrowser::up)},
                     {kKeyDown, nullptr, true, calling(&DbBrowser::down)},
                     {kKeyPageUp, nullptr, true, calling(&DbBrowser::pageUp)},
                     {kKeyPageDown, nullptr, true, calling(&DbBrowser::pageDown)},
                     {kKeyHome, nullptr, true, first},
                     {kKeyEnd, nullptr, true, last}},
         .hasItems = [this] { return !rows_.empty(); },
         .gap = "  ",
         .rowInUse = [this] { return kFirstRow + static_cast<int>(selected_); },
         .leastRows = kFewestRows});
}

}  // namespace crv
