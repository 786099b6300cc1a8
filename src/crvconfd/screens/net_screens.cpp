#include "crvconfd/screens/net_screens.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>

#include "asn/asn_time.h"
#include "asn/x509/signed_certificate.h"
#include "config/configuration_manager.h"
#include "context/crvctx.h"
#include "corvane/crvapi.h"
#include "crvconfd/engines/form.h"
#include "crvconfd/engines/text_view.h"
#include "crvconfd/screens/crt_text.h"
#include "crvconfd/screens/verdict_text.h"
#include "crvconfd/session/context.h"
#include "crvconfd/session/messages.h"
#include "crvconfd/toolkit/toolkit.h"
#include "ops/database_files.h"
#include "ops/op_error.h"

namespace crv {

namespace {

using IdleClock = std::chrono::steady_clock;

constexpr size_t kFetchNameWidth = 40;
constexpr std::chrono::seconds kNextLook{60};
/// After failures, and when the database is held by another program.
constexpr std::chrono::seconds kAfterFailure{600}, kAfterBusy{5};
/// Nobody is to be kept from typing by more than this.
constexpr OpMode kAtOnce{.dryRun = false, .waitSeconds = 0.0};

struct UseText {
    const char* use;
    const char* text;
};
constexpr UseText kUseTexts[] = {
    {"certificates", "Certyfikaty:"}, {"crl", "Listy CRL:"}, {"ocsp", "OCSP:"}, {"time-stamp", "Znacznik czasu:"}};

std::string outcomeText(const NetReport& report) {
    const std::string size = " (" + std::to_string(report.size) + " B)";
    if (report.code == 0) return "poprawnie" + size;
    return std::string(crvErrorTextAPI(nullptr, report.code)) + (report.cause.empty() ? "" : " " + report.cause);
}

void addReport(std::vector<std::string>& lines, const std::string& label, const NetReport& report) {
    addField(lines, label, outcomeText(report));
    if (!report.url.empty()) addField(lines, "", report.url);
}

void addStamp(std::vector<std::string>& lines, const TimeStampFacts& stamp) {
    addField(lines, "Czas:", timeText(stamp.genTime) + " UTC");
    if (stamp.accuracy) addField(lines, "Dokładność:", std::to_string(*stamp.accuracy) + " us");
    addField(lines, "Zegar lokalny:", (stamp.difference < 0 ? "" : "+") + std::to_string(stamp.difference) + " s");
    addField(lines, "Wystawca znacznika:", stamp.authority);
    addField(lines, "Polityka:", stamp.policy);
}

/// Stores what was fetched; false, after a message, when the database does not take it.
bool storeAll() {
    if (netManager->isNetStoreEmpty()) return true;
    crvCtx->state.warnings.clear();
    crvCtx->moveFromNetStoreToDB();
    if (crvCtx->state.warnings.empty()) return true;
    showDatabaseFailure();
    return false;
}

NetReport stopped() {
    return {.name = {}, .code = ECRV_ACTION_CANCELLED, .cause = "stopped"};
}

bool wasStopped(const NetReports& reports) {
    return std::ranges::any_of(reports, [](const NetReport& one) { return one.code == ECRV_ACTION_CANCELLED; });
}

}  // namespace

bool showFetch(const FetchProgress& progress) {
    clrToEol(kMessageRow, 0);
    const std::string name = progress.name.substr(0, bytesWithin(progress.name, kFetchNameWidth));
    displText(kMessageRow, 0, "Pobieranie: %s %llu kB, Esc przerywa", name.c_str(),
              static_cast<unsigned long long>(progress.received / 1000));
    return !escapePressed();
}

void testServer(const SrvParams& server) {
    std::optional<TimeStampFacts> stamp;
    if (!showFetch({.name = server.name})) return clrToEol(kMessageRow, 0);
    const NetReports reports = netManager->testServer(server, showFetch, stamp);
    clrToEol(kMessageRow, 0);
    if (wasStopped(reports)) return;
    std::vector<std::string> lines;
    for (const NetReport& report : reports) {
        const auto* row = std::ranges::find_if(kUseTexts, [&](const UseText& one) { return report.name == one.use; });
        addReport(lines, row == std::end(kUseTexts) ? report.name : row->text, report);
    }
    if (stamp) addStamp(lines, *stamp);
    runTextView({"Test serwera " + server.name, std::move(lines)});
}

void fetchAllCrls() {
    // In a database that fails there may be authorities of which nobody would hear.
    const DbState state = dbManager->isDbCreated();
    if (state != DbState::Missing && state != DbState::Complete) return showDatabaseFailure();
    if (!showFetch({.name = "CRL"})) return clrToEol(kMessageRow, 0);
    const NetReports reports = netManager->fetchCrls(netManager->authorities(), false, showFetch);
    clrToEol(kMessageRow, 0);
    // What came before the stop is as good as the rest.
    if (!storeAll() || wasStopped(reports)) return;
    std::vector<std::string> lines;
    for (const NetReport& report : reports) addReport(lines, report.name, report);
    runTextView({"Pobieranie list CRL", std::move(lines)});
}

bool fetchCertificates() {
    CertQuery query;
    const std::vector<FormField> fields{textField("Nazwa", query.name), textField("E-mail", query.email)};
    const auto ready = [&] {
        if (!query.name.empty() || !query.email.empty()) return true;
        errInfo(kMessageRow, "Podaj nazwę albo adres e-mail");
        return false;
    };
    if (!runForm("Pobieranie certyfikatów z serwerów", fields, ready, {'r', "Pobie~rz", nullptr, nullptr}))
        return false;
    CertList found;
    const bool begun = showFetch({.name = query.email.empty() ? query.name : query.email});
    const NetReport report = begun ? netManager->fetchCerts(query, showFetch, found) : stopped();
    clrToEol(kMessageRow, 0);
    if (!storeAll() || report.code == ECRV_ACTION_CANCELLED) return false;
    std::vector<std::string> lines;
    addReport(lines, "Serwery:", report);
    for (const CertPtr& one : found) addField(lines, "Certyfikat:", shortName(one->subject()));
    runTextView({"Pobrane certyfikaty", std::move(lines)});
    return !found.empty();
}

std::vector<std::string> statusNow(const SignedCertificate& certificate) {
    NetReports reports{stopped()};
    if (showFetch({.name = shortName(certificate.subject())}))
        reports = netManager->refreshStatus(makeCert(certificate.encoded()), {}, StatusAsking::Anew, showFetch);
    clrToEol(kMessageRow, 0);
    static_cast<void>(storeAll());
    std::vector<std::string> lines = verdictLines(certificate);
    for (const NetReport& report : reports) addReport(lines, "Z sieci:", report);
    return lines;
}

void compareClock(int row) {
    const auto servers = boundProfile().getServerIterator(CRVSRV_USAGE_TIME_STAMP).servers;
    if (servers.empty()) return;
    TimeStampFacts stamp;
    if (!showFetch({.name = servers.front().name})) return clrToEol(kMessageRow, 0);
    const NetReport report = netManager->timeStampTest(servers.front(), showFetch, stamp);
    clrToEol(kMessageRow, 0);
    if (report.code != 0) return displText(row, 0, "Nie porównano zegara: %s", crvErrorTextAPI(nullptr, report.code));
    if (std::abs(stamp.difference) > kMostClockDifference) {
        displText(row, 0, "Zegar systemowy różni się od znacznika czasu (%s UTC) o %lld s!",
                  timeText(stamp.genTime).c_str(), static_cast<long long>(stamp.difference));
    }
}

// CRLs in the background

namespace {

CrlKeeper* keeper = nullptr;

/// Whether no other program holds the database.
bool isDatabaseFree() {
    try {
        waitForDatabase(boundProfile(), kAtOnce);
        return true;
    } catch (const OpError&) {
        return false;
    }
}

}  // namespace

struct CrlKeeper::Work {
    std::unique_ptr<CrlRun> run;
    IdleClock::time_point next{};
};

CrlKeeper::CrlKeeper() : work_(std::make_unique<Work>()) {
    keeper = this;
}

CrlKeeper::~CrlKeeper() {
    keeper = nullptr;
}

void CrlKeeper::idle() {
    if (keeper) keeper->step();
}

void CrlKeeper::step() {
    if (IdleClock::now() < work_->next) return;
    try {
        work_->next = IdleClock::now() + advance();
    } catch (const std::exception& error) {
        // Nobody asked for it: the menu goes on. What came is fetched again.
        work_->run.reset();
        netManager->clearNetStore();
        work_->next = IdleClock::now() + kAfterFailure;
        note(std::string("Nie pobrano list CRL: ") + error.what());
        displText(kMessageRow, 0, "Nie pobrano list CRL: %s", error.what());
    }
}

/// The time to the next step.
std::chrono::seconds CrlKeeper::advance() {
    constexpr std::chrono::seconds kGoesOn{0};
    if (!isDatabaseFree()) return kAfterBusy;
    if (!work_->run) work_->run = netManager->startDueCrls();
    if (!work_->run) return kNextLook;
    if (!work_->run->advance()) return kGoesOn;
    work_->run.reset();
    if (netManager->isNetStoreEmpty()) return kNextLook;
    crvCtx->state.warnings.clear();
    crvCtx->moveFromNetStoreToDB();
    if (!crvCtx->state.warnings.empty()) {
        note("Pobranych list CRL nie zapisano: " + crvCtx->dbManager.lastFailure());
        displText(kMessageRow, 0, "Pobranych list CRL nie zapisano: %s", crvCtx->dbManager.lastFailure().c_str());
    }
    crvCtx->state.warnings.clear();
    return kNextLook;
}

}  // namespace crv
