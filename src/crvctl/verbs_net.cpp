// Verbs that ask the network.
#include <algorithm>
#include <exception>

#include "asn/asn_time.h"
#include "asn/x509/signed_certificate.h"
#include "crvctl/show.h"
#include "crvctl/verbs.h"
#include "crvctl/verbs_net.h"

namespace crv::ctl {
namespace {

Fields reportFields(const NetReport& report) {
    return {{"verdict", codeName(report.code)},
            {"reason", report.cause},
            {"url", report.url},
            {"server", report.server},
            {"octets", report.size}};
}

/// The one certificate of a file, of an authority.
CertList authoritiesOf(const Run& run, Session& session) {
    if (const auto file = run.call.value("ca")) return certsOfFile(*file);
    // Without a database there are the trust points; in one that fails there may be more.
    const DbState state = session.context().dbManager.isDbCreated();
    if (state != DbState::Missing && state != DbState::Complete) session.failDatabase();
    return session.context().networkManager.authorities();
}

const char* useName(long usage) {
    return usage == CRVSRV_USAGE_TIME_STAMP ? "time-stamp" : "";
}

}  // namespace

bool goesOn(const FetchProgress&) {
    return !processEnding();
}

Session openForNetwork(const Run& run) {
    Session session = openReading(run);
    session.unlock();
    return session;
}

void crlRefresh(Run& run) {
    Session session = openForNetwork(run);
    session.demandDatabase();
    const NetReports reports =
        session.context().networkManager.fetchCrls(authoritiesOf(run, session), run.call.has("due"), goesOn);
    std::exception_ptr unstored;
    try {
        session.storeFetched();
    } catch (const OpError&) {
        unstored = std::current_exception();  // where each came from, or why not, is told all the same
    }
    for (const NetReport& report : reports) {
        Fields fields = reportFields(report);
        fields.emplace(fields.begin(), "authority", report.name);
        run.out.item(std::move(fields));
        if (report.code == 0 && !unstored) run.out.change("import", "crl", report.name);
        if (report.code != 0) run.out.no(report.code, OpStatus::Network);
    }
    if (unstored) std::rethrow_exception(unstored);
}

void certFetch(Run& run) {
    const CertQuery query{run.call.value("email").value_or(""), run.call.value("name").value_or("")};
    if (query.email.empty() == query.name.empty()) throw CallError("missing", "--email, --name");
    Session session = openForNetwork(run);
    session.demandDatabase();
    CertList found;
    const NetReport report = session.context().networkManager.fetchCerts(query, goesOn, found);
    session.storeFetched();
    for (auto& [key, value] : reportFields(report)) run.out.field(key, value);
    for (const CertPtr& one : found) {
        run.out.item(certFields(*one, run.call.has("der")));
        run.out.change("import", "certificate", hexOf(one->fingerprint(KcHashAlgo::Sha256)));
    }
    if (report.code != 0) run.out.no(report.code, OpStatus::Network);
}

void serverTest(Run& run) {
    const std::string name = run.call.operand(0);
    Session session = openForNetwork(run);
    SrvParams server;
    if (!session.profile().findSrv(name, &server)) throw OpError(OpFault::ServerMissing, name);
    std::optional<TimeStampFacts> stamp;
    const NetReports reports = session.context().networkManager.testServer(server, goesOn, stamp);
    stopIfEnding();
    for (const NetReport& report : reports) {
        Fields fields = reportFields(report);
        fields.emplace(fields.begin(), "use", report.name);
        const bool stamped = stamp && report.name == useName(CRVSRV_USAGE_TIME_STAMP);
        fields.emplace_back("time", stamped ? timeOf(stamp->genTime) : Value());
        fields.emplace_back("accuracy", stamped && stamp->accuracy ? Value(long{*stamp->accuracy}) : Value());
        fields.emplace_back("clockAhead", stamped ? Value(long{stamp->difference}) : Value());
        run.out.item(std::move(fields));
        if (report.code != 0) run.out.no(report.code, OpStatus::Network);
    }
}

}  // namespace crv::ctl
