#include "pki/network_manager.h"

#include <algorithm>
#include <ctime>
#include <set>
#include <utility>

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
/// In the test of a directory: it answers, and there is nobody of that name.
constexpr int kNobodyThere = -1;

/// Sets a flag for the length of the scope.
class Raised {
  public:
    explicit Raised(bool& flag) : flag_(flag), before_(std::exchange(flag, true)) {}
    Raised(const Raised&) = delete;
    Raised& operator=(const Raised&) = delete;
    ~Raised() { flag_ = before_; }

  private:
    bool& flag_;
    bool before_;
};

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
    // Certificates first: they verify the CRLs.
    auto refused = std::ranges::count_if(certificates_, std::not_fn(insertCert));
    std::set<std::string> open;
    for (size_t i = 0; i < crls_.size(); ++i) {
        if (insertCrl(crls_[i])) continue;
        ++refused;
        for (const FetchTime& time : times_)
            if (time.crl == i) open.insert(time.name);
    }
    std::set<std::string> names;
    for (const FetchTime& time : times_)
        if (!open.contains(time.name)) names.insert(time.name);
    for (const std::string& name : names) {
        fetched_[name] = std::time(nullptr);
        static_cast<void>(manager_->database().setNetCertTime(name));
    }
    clearNetStore();
    if (refused && context_) context_->addWarning(WARN_NET_STORE_NOT_MOVED);
}

void NetworkManager::clearNetStore() {
    certificates_.clear();
    crls_.clear();
    times_.clear();
}

void NetworkManager::beginProfile() {
    clearNetStore();
    fetched_.clear();
    asked_.clear();
}

NetReports NetworkManager::go(std::vector<NetErrand> errands, const NetProgress& progress) {
    NetRun run(std::move(errands));
    run.finish(progress);
    NetReports reports;
    for (const NetErrand& errand : run.errands()) reports.push_back(reportOf(errand));
    const auto failed = [](const NetReport& one) { return one.code != 0; };
    const auto last = std::find_if(reports.rbegin(), reports.rend(), failed);
    const std::string where = last == reports.rend() || last->url.empty() ? std::string() : last->url + ": ";
    context_->setDiagnosticText(last == reports.rend() ? std::string() : where + last->cause);
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
    const Raised judging(inOcsp_);
    const NetVerdict verdict = ocsp_.judge(asked, *kept, answer);
    if (verdict.code != 0 || answer.status.state == CrtStatus::State::Unknown) return std::nullopt;
    return answer.status;
}

std::optional<Bytes> NetworkManager::keptAnswer(const SignedCertificate& certificate, const SignedCertificate& issuer) {
    OcspCertId id;
    id.set(certificate, issuer);
    setCacheFolder();
    return cache_.find(id.encoded());
}

CrtStatus NetworkManager::status(const StatusQuestion& question) {
    CrtStatus byCrl = revocation_->answer(question);
    if (byCrl.state == CrtStatus::State::Revoked) return byCrl;
    const std::optional<CrtStatus> byOcsp = ocspFromCache(question);
    return byOcsp ? *byOcsp : byCrl;
}

/// The kept answer where it still holds and tells more than one that came: servers lag behind each other, and on a way
/// without TLS somebody may give an answer of before. A "revoked" is displaced by a later answer that tells the status
/// only. Where a later one tells none, what was good is not good any more.
std::optional<CrtStatus> NetworkManager::laterKept(const OcspQuestion& question, const CrtStatus& came) {
    setCacheFolder();
    const std::optional<Bytes> kept = cache_.find(question.id.encoded());
    if (!kept) return std::nullopt;
    OcspQuestion before = question;
    before.nonce.clear();
    OcspAnswer answer;
    if (ocsp_.judge(before, *kept, answer).code != 0) return std::nullopt;
    const bool revoked = answer.status.state == CrtStatus::State::Revoked;
    const bool silent = came.state == CrtStatus::State::Unknown;
    const int64_t thisUpdate = answer.status.source.thisUpdate;
    if (thisUpdate > came.source.thisUpdate || (revoked && (silent || thisUpdate == came.source.thisUpdate)))
        return answer.status;
    if (silent) cache_.remove(question.id.encoded());
    return std::nullopt;
}

NetErrand NetworkManager::ocspErrand(NetSources& sources, const OcspQuestion& question, CrtStatus* status) {
    NetErrand errand;
    const NetObject object = OcspClient::object(question);
    errand.name = question.certificate->subject().text();
    errand.attempts = sources.servers(CRVSRV_USAGE_OCSP, encodedName(question.issuer->subject()), object);
    if (const auto access = question.certificate->extensions().get<InfoAccess>(OID_PE_AUTHORITY_INFO_ACCESS))
        sources.addUris(errand.attempts, *question.certificate, access->uris(OID_AD_OCSP), object);
    errand.judge = [this, question, status](const NetAttempt&, FetchResult& result) {
        OcspAnswer answer;
        const Raised judging(inOcsp_);
        NetVerdict verdict = result.values.empty() ? NetVerdict{ECRV_TCP_PROT, "OCSP: an empty answer"}
                                                   : ocsp_.judge(question, result.values.front(), answer);
        if (verdict.code != 0) return verdict;
        const std::optional<CrtStatus> kept = laterKept(question, answer.status);
        if (status) *status = kept ? *kept : answer.status;
        if (kept) return verdict;
        if (answer.status.state == CrtStatus::State::Unknown) return NetVerdict{ECRV_TCP_PROT, answer.status.text};
        cache_.store(question.id.encoded(), result.values.front(), answer.keeps);
        return verdict;
    };
    return errand;
}

/// One asking for the status of a certificate and of those above it.
struct NetworkManager::StatusWork {
    NetSources sources;
    StatusAsking asking;
    CertList known;  // beside the database's
    PathOptions options{std::time(nullptr), 0, RevocationCheck::None};
    PathVerdict path{};
    FactsList facts{};
    std::vector<bool> answered{};  // by OCSP, now
    NetReports reports{};

    void add(const NetReports& more) { reports.insert(reports.end(), more.begin(), more.end()); }
    [[nodiscard]] bool isStopped() const {
        return std::ranges::any_of(reports, [](const NetReport& one) { return one.code == ECRV_ACTION_CANCELLED; });
    }
    /// How many have an issuer on a good path.
    [[nodiscard]] size_t count() const { return path.good() ? facts.size() - 1 : 0; }
};

void NetworkManager::findPath(StatusWork& work, const CertPtr& certificate, const NetProgress& progress) {
    work.path = manager_->buildPath(certificate, work.options, work.known);
    if (work.path.code == ECRV_CRTNOTFOUND) {
        CertList issuers;
        work.add({fetchIssuersFrom(work.sources, certificate, progress, issuers)});
        work.known.insert(work.known.end(), issuers.begin(), issuers.end());
        work.path = manager_->buildPath(certificate, work.options, work.known);
    }
    for (const CertPtr& one : work.path.certs) work.facts.push_back(manager_->cache().facts(one));
    work.answered.resize(work.facts.size());
}

void NetworkManager::askOcsp(StatusWork& work, const NetProgress& progress) {
    std::vector<NetErrand> errands;
    std::vector<size_t> about;
    for (size_t i = 0; i < work.count() && work.sources.option(kOptUseOcsp) != 0; ++i) {
        WorkBudget budget(work.options.limits);
        const CrtStatus now = status({work.facts, i, work.known, work.options, budget});
        const bool known = now.state == CrtStatus::State::Revoked || now.source.ocsp;
        if (known && work.asking != StatusAsking::Anew) continue;
        const WorkingKey key = keyOf(*work.facts[i + 1], {});
        NetErrand errand = ocspErrand(
            work.sources, ocsp_.question(work.path.certs[i], key, work.path.certs[i + 1], work.options.time, true),
            nullptr);
        if (errand.attempts.empty()) continue;
        errands.push_back(std::move(errand));
        about.push_back(i);
    }
    if (errands.empty()) return;
    const NetReports reports = go(std::move(errands), progress);
    for (size_t i = 0; i < reports.size(); ++i) work.answered[about[i]] = reports[i].code == 0;
    work.add(reports);
}

void NetworkManager::askCrls(StatusWork& work, const NetProgress& progress) {
    std::vector<NetErrand> errands;
    for (size_t i = 0; i < work.count() && work.sources.option(kOptDontGetCrlFromNet) == 0; ++i) {
        WorkBudget budget(work.options.limits);
        const CrtStatus now = status({work.facts, i, work.known, work.options, budget});
        const bool known = now.state == CrtStatus::State::Good || now.state == CrtStatus::State::Revoked;
        if (work.answered[i] || (known && work.asking != StatusAsking::Anew)) continue;
        NetErrand errand = crlErrand(work.sources, {work.path.certs[i + 1], {work.path.certs[i]}, work.known});
        if (!errand.attempts.empty()) errands.push_back(std::move(errand));
    }
    if (!errands.empty()) work.add(go(std::move(errands), progress));
}

NetReports NetworkManager::refreshStatus(const CertPtr& certificate, const CertList& extra, StatusAsking asking,
                                         const NetProgress& progress) {
    StatusWork work{NetSources(*context_, *manager_), asking, extra};
    if (work.sources.networkIsOff()) return {networkIsOffReport(certificate->subject().text())};
    findPath(work, certificate, progress);
    if (!work.isStopped()) askOcsp(work, progress);
    if (!work.isStopped()) askCrls(work, progress);
    return work.reports;
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
    if (attempts.empty()) return refusal("TSA", ECRV_TS_NO_SERVER_DEF, "no server is set up for it");
    if (sources.networkIsOff()) return refusal("TSA", ECRV_TS_NETWORK_FAIL, "the network is switched off (option 18)");
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
        const Raised judging(inOcsp_);
        return ocsp_.judge(question, result.values.front(), answer);
    };
    return errand;
}

NetErrand NetworkManager::crlTest(NetSources& sources, const SrvParams& server) {
    NetErrand errand;
    const CertPtr authority = authorityOf(server);
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
            verdict = judgeCrls({one}, attempt, result, false);
            if (verdict.code != ECRV_SRV_BAD_CA) break;
        }
        return verdict;
    };
    return errand;
}

/// A directory that answers that there is nobody of that name works. A web server answers every wrong address so: it
/// has to show a certificate.
NetErrand NetworkManager::certTest(NetSources& sources, const SrvParams& server) {
    NetErrand errand;
    const CertList own = own_ ? own_() : CertList();
    const CertPtr authority = authorityOf(server);
    const CertPtr asked = own.empty() ? authority : own.front();
    const std::string name = asked ? asked->subject().find(OID_AT_COMMON_NAME).value_or("test") : "test";
    errand.attempts.push_back(sources.of(server, certObject({.email = {}, .name = name})));
    errand.notFound = server.type == CRVSRV_TYPE_LDAP ? kNobodyThere : ECRV_RECCRT;
    errand.judge = [name](const NetAttempt&, FetchResult& result) {
        if (!certificatesIn(result).list.empty()) return NetVerdict();
        return NetVerdict{ECRV_TCP_PROT, "what came for \"" + name + "\" holds no certificate"};
    };
    return errand;
}

NetErrand NetworkManager::testErrand(const SrvParams& server, ServerUsage usage) {
    NetSources sources(*context_, *manager_);
    switch (usage) {
        case CRVSRV_USAGE_OCSP:
            return ocspTest(sources, server);
        case CRVSRV_USAGE_CRL:
            return crlTest(sources, server);
        default:
            return certTest(sources, server);
    }
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
        NetReport report;
        if (usage == CRVSRV_USAGE_TIME_STAMP) {
            TimeStampFacts facts;
            report = timeStampTest(server, progress, facts);
            if (report.code == 0) stamp = facts;
        } else {
            NetErrand errand = testErrand(server, usage);
            errand.name = server.name;
            report = goOne(std::move(errand), progress);
            if (report.code == kNobodyThere) report = {report.name, 0, "", report.url, report.server, report.size};
        }
        report.name = name;
        reports.push_back(std::move(report));
        if (reports.back().code == ECRV_ACTION_CANCELLED) break;
    }
    return reports;
}

}  // namespace crv
