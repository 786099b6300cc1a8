#include "pki/network_manager.h"

#include <algorithm>
#include <ctime>

#include "asn/known_oids.h"
#include "asn/x509/ext_distribution.h"
#include "asn/x509/signed_certificate.h"
#include "config/config_oids.h"
#include "config/configuration_manager.h"
#include "config/context_services.h"
#include "config/warning_codes.h"
#include "corvane/crverrors.h"
#include "crypto/random_bridge.h"
#include "db_sql/db_crv.h"
#include "pki/network_objects.h"

namespace crv {

namespace {

/// Octets that a test stamps, and the hash over them.
constexpr size_t kTestOctets = 32;

NetReport reportOf(const NetErrand& errand) {
    return {errand.name, errand.verdict.code, errand.verdict.cause, errand.url, errand.server, errand.size};
}

NetReport refusal(std::string name, int code, std::string cause) {
    return {std::move(name), code, std::move(cause)};
}

NetReport networkIsOffReport(std::string name) {
    return refusal(std::move(name), ECRV_TCP_NO_SRV, "the network is switched off (option 18)");
}

}  // namespace

NetReports CrlRun::reports() {
    NetReports reports;
    for (const NetErrand& errand : run_.errands()) reports.push_back(reportOf(errand));
    return reports;
}

void NetworkManager::init(ContextServices& context, CertificateManager& certificates, RevocationManager& revocation) {
    context_ = &context;
    manager_ = &certificates;
    revocation_ = &revocation;
    ocsp_.init(certificates, revocation);
    stamps_.init(certificates);
    certificates.setStatusSource([this](const StatusQuestion& question) { return status(question); });
}

bool NetworkManager::add(std::vector<Bytes>& store, ByteView item) {
    if (std::ranges::any_of(store, [item](const Bytes& kept) { return std::ranges::equal(kept, item); })) return false;
    store.push_back(toBytes(item));
    return true;
}

void NetworkManager::moveFromNetStoreToDB(const std::function<bool(ByteView)>& insertCert,
                                          const std::function<bool(ByteView)>& insertCrl) {
    const auto refused = std::ranges::count_if(certificates_, std::not_fn(insertCert)) +
                         std::ranges::count_if(crls_, std::not_fn(insertCrl));
    for (const std::string& name : fetched_) static_cast<void>(manager_->database().setNetCertTime(name));
    clearNetStore();
    if (refused && context_) context_->addWarning(WARN_NET_STORE_NOT_MOVED);
}

void NetworkManager::clearNetStore() {
    certificates_.clear();
    crls_.clear();
    fetched_.clear();
}

NetReports NetworkManager::go(std::vector<NetErrand> errands, const NetProgress& progress) {
    NetRun run(std::move(errands));
    run.finish(progress);
    NetReports reports;
    for (const NetErrand& errand : run.errands()) reports.push_back(reportOf(errand));
    const auto last = std::ranges::find_if(reports, [](const NetReport& one) { return one.code != 0; });
    if (last != reports.end())
        context_->setDiagnosticText(last->url.empty() ? last->cause : last->url + ": " + last->cause);
    return reports;
}

NetReport NetworkManager::goOne(NetErrand errand, const NetProgress& progress) {
    std::vector<NetErrand> one;
    one.push_back(std::move(errand));
    return go(std::move(one), progress).front();
}

// OCSP

void NetworkManager::setCacheFolder() {
    std::string folder;
    const CrvProfile* profile = context_->configuration().profile();
    if (!profile || profile->dbConfig().type() != kDbKindFile || !buildDBDirectory(profile->dbConfig().db, folder))
        folder.clear();
    cache_.setFolder(folder);
}

std::optional<CrtStatus> NetworkManager::ocspFromCache(const StatusQuestion& question) {
    if (inOcsp_ || context_->configuration().record().getIntOpt(kOptUseOcsp) == 0) return std::nullopt;
    setCacheFolder();
    if (!cache_.mayHold()) return std::nullopt;
    const CertificateFacts& issuer = *question.path[question.index + 1];
    const OcspQuestion asked = ocsp_.question(question.path[question.index]->certificate, keyOf(issuer, {}),
                                              issuer.certificate, question.options.time, false);
    const std::optional<Bytes> kept = cache_.find(asked.id.encoded());
    if (!kept) return std::nullopt;
    OcspAnswer answer;
    inOcsp_ = true;
    const NetVerdict verdict = ocsp_.judge(asked, *kept, answer);
    inOcsp_ = false;
    if (verdict.code != 0 || answer.status.state == CrtStatus::State::Unknown) return std::nullopt;
    return answer.status;
}

CrtStatus NetworkManager::status(const StatusQuestion& question) {
    CrtStatus byCrl = revocation_->answer(question);
    if (byCrl.state == CrtStatus::State::Revoked) return byCrl;
    const std::optional<CrtStatus> byOcsp = ocspFromCache(question);
    return byOcsp ? *byOcsp : byCrl;
}

NetErrand NetworkManager::ocspErrand(NetSources& sources, const OcspQuestion& question, CrtStatus* status) {
    NetErrand errand;
    const NetObject object = OcspClient::object(question);
    errand.name = question.certificate->subject().text();
    errand.attempts = sources.servers(CRVSRV_USAGE_OCSP, encodedName(question.issuer->subject()), object);
    if (const auto access = question.certificate->extensions().get<InfoAccess>(OID_PE_AUTHORITY_INFO_ACCESS))
        sources.addUris(errand.attempts, access->uris(OID_AD_OCSP), object);
    errand.judge = [this, question, status](const NetAttempt&, FetchResult& result) {
        OcspAnswer answer;
        inOcsp_ = true;
        NetVerdict verdict = result.values.empty() ? NetVerdict{ECRV_TCP_PROT, "OCSP: an empty answer"}
                                                   : ocsp_.judge(question, result.values.front(), answer);
        inOcsp_ = false;
        if (verdict.code != 0) return verdict;
        if (status) *status = answer.status;
        if (answer.status.state == CrtStatus::State::Unknown) return NetVerdict{ECRV_TCP_PROT, answer.status.text};
        setCacheFolder();
        cache_.store(question.id.encoded(), result.values.front(), answer.keeps);
        return verdict;
    };
    return errand;
}

NetReport NetworkManager::ocspStatus(const CertPtr& certificate, const CertPtr& issuer, const NetProgress& progress,
                                     CrtStatus& status) {
    NetSources sources(*context_, *manager_);
    const std::string name = certificate->subject().text();
    if (sources.networkIsOff()) return networkIsOffReport(name);
    if (sources.option(kOptUseOcsp) == 0) return refusal(name, ECRV_TCP_NO_SRV, "OCSP is switched off (option 38)");
    const WorkingKey key = keyOf(*manager_->cache().facts(issuer), {});
    return goOne(ocspErrand(sources, ocsp_.question(certificate, key, issuer, std::time(nullptr), true), &status),
                 progress);
}

NetReports NetworkManager::refreshStatus(const CertPtr& certificate, const CertList& extra,
                                         const NetProgress& progress) {
    NetSources sources(*context_, *manager_);
    if (sources.networkIsOff()) return {networkIsOffReport(certificate->subject().text())};
    const PathOptions options{std::time(nullptr), 0, RevocationCheck::None};
    NetReports reports;
    CertList known = extra;
    PathVerdict path = manager_->buildPath(certificate, options, known);
    if (path.code == ECRV_CRTNOTFOUND) {
        CertList issuers;
        reports.push_back(fetchIssuers(certificate, progress, issuers));
        known.insert(known.end(), issuers.begin(), issuers.end());
        path = manager_->buildPath(certificate, options, known);
    }
    FactsList facts;
    for (const CertPtr& one : path.certs) facts.push_back(manager_->cache().facts(one));
    WorkBudget budget(options.limits);
    const auto now = [&](size_t i) { return status({facts, i, known, options, budget}); };
    std::vector<NetErrand> errands;
    for (size_t i = 0; i + 1 < facts.size() && path.good(); ++i) {
        const CrtStatus at = now(i);
        if (sources.option(kOptUseOcsp) == 0 || at.state == CrtStatus::State::Revoked || at.source.ocsp) continue;
        const WorkingKey key = keyOf(*facts[i + 1], {});
        errands.push_back(
            ocspErrand(sources, ocsp_.question(path.certs[i], key, path.certs[i + 1], options.time, true), nullptr));
        if (errands.back().attempts.empty()) errands.pop_back();
    }
    const auto run = [&] {
        for (NetReport& report : go(std::move(errands), progress)) reports.push_back(std::move(report));
        errands.clear();
    };
    if (!errands.empty()) run();
    for (size_t i = 0; i + 1 < facts.size() && path.good() && sources.option(kOptDontGetCrlFromNet) == 0; ++i) {
        const CrtStatus at = now(i);
        if (at.state == CrtStatus::State::Good || at.state == CrtStatus::State::Revoked) continue;
        NetErrand errand = crlErrand(sources, *path.certs[i + 1]);
        const NetObject object = crlObject(path.certs[i + 1]->subject());
        if (const auto& points = facts[i]->distributionPoints) sources.addUris(errand.attempts, points->uris(), object);
        if (!errand.attempts.empty()) errands.push_back(std::move(errand));
    }
    if (!errands.empty()) run();
    return reports;
}

// Time stamps

NetErrand NetworkManager::stampErrand(NetAttempts attempts, const TimeStampReq& request, TimeStampFacts& facts) const {
    NetErrand errand;
    errand.name = "TSA";
    errand.attempts = std::move(attempts);
    errand.judge = [this, request, &facts](const NetAttempt&, FetchResult& result) {
        if (result.values.empty()) return NetVerdict{ECRV_TCP_PROT, "time stamp: an empty answer"};
        return stamps_.judge(request, result.values.front(), std::time(nullptr), facts);
    };
    return errand;
}

NetReport NetworkManager::timeStamp(KcHashAlgo hash, ByteView digest, const NetProgress& progress,
                                    TimeStampFacts& facts) {
    NetSources sources(*context_, *manager_);
    const TimeStampReq request = TimeStampClient::request(hash, digest);
    NetAttempts attempts = sources.servers(CRVSRV_USAGE_TIME_STAMP, {}, TimeStampClient::object(request));
    const char* none = attempts.empty() ? "no server is set up for it" : "the network is switched off (option 18)";
    if (attempts.empty() || sources.networkIsOff()) return refusal("TSA", ECRV_TS_NO_SERVER_DEF, none);
    const bool several = attempts.size() > 1;
    NetReport report = goOne(stampErrand(std::move(attempts), request, facts), progress);
    const bool told = report.code == 0 || report.code == ECRV_ACTION_CANCELLED;
    if (!told && several) {
        report.code = ECRV_TS_ALL_SERVERS_FAIL;
    } else if (!told && report.code != ECRV_TS_VERIF && report.code != ECRV_TS_REJECTED) {
        report.code = ECRV_TS_NETWORK_FAIL;
    }
    return report;
}

NetReport NetworkManager::timeStampTest(const SrvParams& server, const NetProgress& progress, TimeStampFacts& facts) {
    NetSources sources(*context_, *manager_);
    if (sources.networkIsOff()) return networkIsOffReport(server.name);
    Bytes octets(kTestOctets);
    if (!systemRandom(octets)) return refusal(server.name, ECRV_TS_REQ_SIGN, "no random octets");
    const TimeStampReq request = TimeStampClient::request(KcHashAlgo::Sha256, hashOf(KcHashAlgo::Sha256, octets));
    NetErrand errand = stampErrand({sources.of(server, TimeStampClient::object(request))}, request, facts);
    errand.name = server.name;
    return goOne(std::move(errand), progress);
}

// Tests of servers

CertPtr NetworkManager::authorityOf(const SrvParams& server) {
    const CertList known = authorities();
    DistinguishedName name;
    if (server.caDn.empty()) return known.empty() ? nullptr : known.front();
    if (!name.readExactly(server.caDn)) return nullptr;
    const auto found = std::ranges::find_if(known, [&](const CertPtr& one) { return one->subject() == name; });
    return found == known.end() ? nullptr : *found;
}

NetErrand NetworkManager::ocspTest(NetSources& sources, const SrvParams& server) {
    NetErrand errand;
    const CertPtr authority = authorityOf(server);
    if (!authority) {
        errand.verdict = {ECRV_CRTNOTFOUND, "no certificate of the authority to ask about"};
        return errand;
    }
    // About a number that need not have been given out: the answer is to be signed by who may, whatever it says.
    const OcspQuestion question =
        ocsp_.question(authority, keyOf(*manager_->cache().facts(authority), {}), authority, std::time(nullptr), true);
    errand.attempts.push_back(sources.of(server, OcspClient::object(question)));
    errand.judge = [this, question](const NetAttempt&, FetchResult& result) {
        OcspAnswer answer;
        if (result.values.empty()) return NetVerdict{ECRV_TCP_PROT, "OCSP: an empty answer"};
        return ocsp_.judge(question, result.values.front(), answer);
    };
    return errand;
}

NetErrand NetworkManager::testErrand(const SrvParams& server, ServerUsage usage, TimeStampFacts& facts) {
    NetSources sources(*context_, *manager_);
    NetErrand errand;
    if (usage == CRVSRV_USAGE_OCSP) return ocspTest(sources, server);
    if (usage == CRVSRV_USAGE_TIME_STAMP) {
        const TimeStampReq request = TimeStampClient::request(KcHashAlgo::Sha256, Bytes(kTestOctets));
        return stampErrand({sources.of(server, TimeStampClient::object(request))}, request, facts);
    }
    const CertPtr authority = authorityOf(server);
    if (usage == CRVSRV_USAGE_CERTIFICATES) {
        const NetObject object = certObject({.email = {}, .name = "test"});
        errand.attempts.push_back(sources.of(server, object));
        errand.notFound = ECRV_RECCRT;
        errand.judge = [](const NetAttempt&, FetchResult&) { return NetVerdict(); };
        return errand;
    }
    if (!authority) {
        errand.verdict = {ECRV_CRTNOTFOUND, "no certificate of an authority whose CRL could be asked for"};
        return errand;
    }
    errand.attempts.push_back(sources.of(server, crlObject(authority->subject())));
    errand.notFound = ECRV_SRV_NO_CRL;
    errand.judge = [this, authority, any = server.caDn.empty()](const NetAttempt& attempt, FetchResult& result) {
        NetVerdict verdict;
        // A server of any authority: one of them issued what it gives.
        for (const CertPtr& one : any ? authorities() : CertList{authority}) {
            verdict = judgeCrls(*one, attempt, result, false);
            if (verdict.code != ECRV_SRV_BAD_CA) break;
        }
        return verdict;
    };
    return errand;
}

NetReports NetworkManager::testServer(const SrvParams& server, const NetProgress& progress,
                                      std::optional<TimeStampFacts>& stamp) {
    static constexpr struct {
        ServerUsage usage;
        const char* name;
    } kUsages[] = {{CRVSRV_USAGE_CERTIFICATES, "certificates"},
                   {CRVSRV_USAGE_CRL, "crl"},
                   {CRVSRV_USAGE_OCSP, "ocsp"},
                   {CRVSRV_USAGE_TIME_STAMP, "time-stamp"}};
    NetReports reports;
    if (NetSources(*context_, *manager_).networkIsOff()) return {networkIsOffReport(server.name)};
    for (const auto& [usage, name] : kUsages) {
        if ((server.usage & usage) == 0) continue;
        TimeStampFacts facts;
        NetErrand errand = testErrand(server, usage, facts);
        errand.name = server.name;
        NetReport report = goOne(std::move(errand), progress);
        // A directory that answers that there is no such person works.
        if (usage == CRVSRV_USAGE_CERTIFICATES && report.code == ECRV_RECCRT) report.code = 0;
        if (usage == CRVSRV_USAGE_TIME_STAMP && report.code == 0) stamp = facts;
        report.name = name;
        reports.push_back(std::move(report));
    }
    return reports;
}

}  // namespace crv
