// Verbs on certificates: those of the database and the user, and trust points.
#include <algorithm>
#include <cstdlib>
#include <ctime>

#include "asn/x509/signed_certificate.h"
#include "crvctl/secrets.h"
#include "crvctl/show.h"
#include "crvctl/texts.h"
#include "crvctl/verbs.h"
#include "crvctl/verbs_net.h"
#include "misc/hex.h"
#include "misc/path.h"
#include "ops/installation.h"
#include "ops/path_advice.h"
#include "ops/trust.h"
#include "pki/cert_file_reader.h"

namespace crv::ctl {
namespace {

constexpr const char* kFlagNames[] = {"key-store", "user", "qualified", "additional"};

void listCerts(Run& run, const CertSelector& selector) {
    Session session = openDatabase(run);
    const bool der = run.call.has("der");
    eachCert(session, [&](int64_t, const SignedCertificate& certificate, ByteView) {
        if (selector.matches(certificate)) run.out.item(certFields(certificate, der));
        return true;
    });
}

CertPtr certOfRole(Session& session, const std::string& role) {
    CertPtr certificate = role == "sign" ? session.keys().signingCertificate() : session.keys().encryptionCertificate();
    if (!certificate) throw OpError(OpFault::ObjectMissing, "--role " + role);
    return certificate;
}

/// The certificate that the options mean: of a file, of a key of the user, of the database.
CertPtr chosenCert(const Run& run, std::optional<Session>& session) {
    if (const auto file = run.call.value("file")) {
        const CertList list = certsOfFile(*file);
        if (list.size() > 1) throw OpError(OpFault::Ambiguous, *file);
        return list.front();
    }
    if (const auto role = run.call.value("role")) {
        session.emplace(openReading(run));
        return certOfRole(*session, *role);
    }
    const CertSelector selector = selectorOf(run.call);
    if (selector.empty()) throw CallError("missing", "--sha256, --serial, --subject, --email, --role, --file");
    session.emplace(openDatabase(run));
    return findOne(*session, selector);
}

void showFields(Run& run, const SignedCertificate& certificate) {
    for (auto& [key, value] : certFields(certificate, run.call.has("der"))) run.out.field(key, value);
}

/// The trust point that the options mean.
TrustPoint chosenTrustPoint(const Run& run, Session& session) {
    const CertSelector selector = selectorOf(run.call);
    if (selector.empty()) throw CallError("missing", "--sha256, --serial, --subject");
    const std::vector<TrustPoint> points = session.keys().trustedPoints();
    CertList list;
    for (const TrustPoint& point : points) list.push_back(point.certificate);
    const CertPtr found = findOne(session, selector, &list);
    return *std::ranges::find(points, found->fingerprint(KcHashAlgo::Sha256),
                              [](const TrustPoint& p) { return p.certificate->fingerprint(KcHashAlgo::Sha256); });
}

std::string nameOf(const SignedCertificate& certificate) {
    return hexOf(certificate.fingerprint(KcHashAlgo::Sha256));
}

const char* refusalText(CrtRefusal refusal) {
    switch (refusal) {
        case CrtRefusal::EmailTooLong:
            return "its e-mail address is longer than 128 characters";
        case CrtRefusal::KeyIdUnfit:
            return "its key identifier is unfit";
        case CrtRefusal::TooManyFields:
            return "its name has more than 1000 fields";
        default:
            return "";
    }
}

constexpr struct {
    const char* name;
    bool PathOptions::*option;
    bool value;
} kPathFlags[] = {{"explicit-policy", &PathOptions::explicitPolicy, true},
                  {"inhibit-mapping", &PathOptions::inhibitMapping, true},
                  {"inhibit-any-policy", &PathOptions::inhibitAnyPolicy, true},
                  {"no-deltas", &PathOptions::useDeltas, false},
                  {"constrained-trust-point", &PathOptions::constrainedTrustPoint, true}};

PathOptions pathOptions(const Call& call) {
    PathOptions options;
    options.time = call.has("at") ? timeFrom(*call.value("at")) : std::time(nullptr);
    options.revocation = revocationOf(call);
    const std::string usage = call.value("usage").value_or("");
    if (usage == "sign") options.anyKeyUsage = 1U << KeyUsage::kDigitalSignature | 1U << KeyUsage::kNonRepudiation;
    if (usage == "decrypt") options.keyUsage = 1U << KeyUsage::kKeyEncipherment;
    options.extendedUsages = identifiersOf(call, "ext-usage");
    options.policies = identifiersOf(call, "policy");
    for (const auto& row : kPathFlags)
        if (call.has(row.name)) options.*row.option = row.value;
    if (const auto depth = call.value("depth")) options.depth = std::stoul(*depth);
    return options;
}

std::string rfc4514(const std::string& text) {
    const auto name = DistinguishedName::fromText(text);
    return name ? name->rfc4514() : text;
}

/// A certificate of a path with its own verdict.
Fields stepFields(const PathStep& step, bool der) {
    static constexpr const char* kStates[] = {"good", "revoked", "unknown", "unusable"};
    const CrtStatus& status = step.status;
    const bool byOcsp = status.source.ocsp;
    const bool byCrl = status.source.thisUpdate != 0 && !byOcsp;
    Fields fields = certFields(*step.certificate, der);
    fields.insert(
        fields.end(),
        {{"status", step.asked ? kStates[static_cast<size_t>(status.state)] : "not-asked"},
         {"statusReason", status.state == CrtStatus::State::Revoked ? crlReasonName(status.reason) : status.text},
         {"statusClause", status.clause},
         {"revokedAt", status.revokedAt != 0 ? timeOf(status.revokedAt) : Value()},
         {"statusSource", byOcsp  ? Value("ocsp")
                          : byCrl ? Value("crl")
                                  : Value()},
         {"responder", byOcsp ? Value(rfc4514(status.source.issuer)) : Value()},
         {"ocspIssued", byOcsp ? timeOf(status.source.thisUpdate) : Value()},
         {"ocspAge", byOcsp ? Value(status.source.age) : Value()},
         {"crlIssuer", byOcsp ? "" : rfc4514(status.source.issuer)},
         {"crlNumber", status.source.number},
         {"deltaNumber", status.source.delta},
         {"crlIssued", byCrl ? timeOf(status.source.thisUpdate) : Value()},
         {"crlAge", byCrl ? Value(status.source.age) : Value()},
         {"algorithm", step.algorithm},
         {"weakness", step.weakness}});
    return fields;
}

/// A path that was tried and what became of it.
Fields candidateFields(const PathVerdict& tried) {
    Values names;
    for (const CertPtr& one : tried.certs) names.emplace_back(one->subject().rfc4514());
    const PathAdvice advice = adviceOn(tried);
    return {{"path", std::move(names)},
            {"verdict", codeName(tried.code)},
            {"failedAt", tried.good() ? Value() : Value(tried.failedAt)},
            {"clause", tried.clause},
            {"reason", tried.reason},
            {"mend", advice.command},
            {"mendAbout", advice.about}};
}

/// Paths that are listed at most; a hostile web has more than anybody reads.
constexpr size_t kMaxTried = 100;

struct Trials {
    std::vector<PathVerdict> listed{};
    size_t omitted = 0;  // trials beyond those
};

/// Lists every path once, in the order of trial.
std::function<void(const PathVerdict&)> collectIn(Trials& trials) {
    return [&trials](const PathVerdict& verdict) {
        const auto same = [&](const PathVerdict& one) {
            return one.certs == verdict.certs && one.code == verdict.code && one.failedAt == verdict.failedAt;
        };
        if (std::ranges::any_of(trials.listed, same)) return;
        if (trials.listed.size() < kMaxTried) {
            trials.listed.push_back(verdict);
        } else {
            ++trials.omitted;
        }
    };
}

void showTrials(Run& run, const Trials& trials) {
    Values candidates;
    for (const PathVerdict& one : trials.listed) candidates.emplace_back(candidateFields(one));
    run.out.field("candidates", std::move(candidates));
    run.out.field("candidatesOmitted", trials.omitted);
}

void showVerdict(Run& run, const PathVerdict& verdict) {
    Values policies;
    for (const ASNobjectId& one : verdict.policies) policies.emplace_back(one.text());
    run.out.field("good", verdict.good());
    run.out.field("verdict", codeName(verdict.code));
    run.out.field("reason", verdict.reason);
    run.out.field("clause", verdict.clause);
    run.out.field("failedAt", verdict.good() ? Value() : Value(verdict.failedAt));
    run.out.field("exhausted", verdict.exhausted);
    run.out.field("policies", std::move(policies));
}

}  // namespace

void certList(Run& run) {
    listCerts(run, {});
}

void certSearch(Run& run) {
    const CertSelector selector = selectorOf(run.call);
    if (selector.empty()) throw CallError("missing", "--sha256, --serial, --subject, --email");
    listCerts(run, selector);
    if (run.out.count() == 0) run.out.no(ECRV_CRTNOTFOUND);
}

void certShow(Run& run) {
    std::optional<Session> session;
    showFields(run, *chosenCert(run, session));
}

void certImport(Run& run) {
    const std::string path = run.call.operand(0);
    CertFileReader reader = certFileReader(path);
    Session session = openDatabase(run);
    ImportProgress done;
    const auto next = [&](ByteView& der) { return nextCert(reader, path, der); };
    const auto refused = [&](size_t index, CrtRefusal refusal) {
        run.out.warn("a certificate was not stored", std::to_string(index + 1) + ": " + tr(refusalText(refusal)));
    };
    const auto goOn = [](const ImportProgress&) { return !processEnding(); };
    if (run.mode.dryRun) {
        for (ByteView der; next(der) && makeCert(der);) ++done.stored;
    } else if (!session.context().certificateManager.db().insertMany(next, goOn, refused, done)) {
        session.failDatabase();
    }
    stopIfEnding();
    if (done.handled() == 0) throw OpError(OpFault::BadFile, path);
    if (done.unreadable || reader.stoppedEarly()) run.out.warn("the rest of the file is no certificate", path);
    run.out.change("import", "certificates", std::to_string(done.handled()));
    if (run.mode.dryRun) return;
    run.out.field("stored", done.stored);
    run.out.field("present", done.present);
    run.out.field("refused", done.refused);
}

void certExport(Run& run) {
    const std::string path = run.call.operand(0);
    const ExportTarget target = targetOf(run, path);
    std::optional<Session> session;
    if (run.call.has("all")) {
        session.emplace(openDatabase(run));
        exportPieces(target, *run.profile().profile, [&](const ContentSink& put) {
            bool any = false;
            eachCert(*session, [&](int64_t, const SignedCertificate&, ByteView der) { return any = true, put(der); });
            if (!any) throw OpError(OpFault::ObjectMissing);
            return true;
        });
    } else {
        const CertPtr one = chosenCert(run, session);
        exportFile(target, *run.profile().profile, encodingOf(*one));
    }
    run.out.change("write", "certificates", path);
}

void certInstall(Run& run) {
    static constexpr const char* kQuestions[] = {"", "The certificate is not valid yet. Install it?",
                                                 "The certificate has expired. Install it?",
                                                 "The key has a valid certificate. Put the newer one in its place?"};
    Session session = openChanging(run);
    session.demandDatabase();
    const auto confirm = [&](InstallDoubt doubt, const SignedCertificate& certificate) {
        run.confirm(kQuestions[static_cast<size_t>(doubt)], certificate.subject().rfc4514());
        return true;
    };
    const auto store = [&](const CertList& list) {
        CrtDb database = session.context().certificateManager.db();
        const auto insert = [&](const CertPtr& one) { return run.mode.dryRun || database.insert(*one); };
        if (!std::ranges::all_of(list, insert)) session.failDatabase();
        return true;
    };
    const auto keep = [&] { return save(run, session), true; };
    const Installation done =
        installCertificates(session.keys(), certsOfFile(run.call.operand(0)), {confirm, store, keep});
    demandKeys(done.refusal);
    for (const CertPtr& one : done.certificates) {
        run.out.change("install", "certificate", nameOf(*one));
        if (!stillWaits(session.keys(), *one)) continue;
        run.out.warn("the certificate allows nothing of what the key in use does, which stays in use", nameOf(*one));
    }
}

void certDelete(Run& run) {
    const CertSelector selector = selectorOf(run.call);
    if (selector.empty()) throw CallError("missing", "--sha256, --serial, --subject, --email");
    Session session = openDatabase(run);
    const CertPtr certificate = findOne(session, selector);
    run.confirm("Delete the certificate from the database?", certificate->subject().rfc4514());
    run.out.change("remove", "certificate", nameOf(*certificate));
    if (run.mode.dryRun) return;
    int64_t id = 0;
    eachCert(session, [&](int64_t at, const SignedCertificate&, ByteView der) {
        if (std::ranges::equal(der, encodingOf(*certificate))) id = at;
        return id == 0;
    });
    DbManager& database = session.context().dbManager;
    Bytes shown;
    if (id == 0 || !database.setCrtId(id) || !database.get(shown) || !database.deleteCert()) session.failDatabase();
}

namespace {

/// What a time stamp says of the clock; empty when that is right, or nobody can say.
std::string clockDoubt(Run& run) {
    constexpr const char* kNotCompared = "the clock was not compared with a time stamp";
    const auto servers = run.profile().profile->getServerIterator(CRVSRV_USAGE_TIME_STAMP).servers;
    if (servers.empty() || run.call.has("offline") || run.call.has("now")) return {};
    try {
        Session session = openForNetwork(run);
        TimeStampFacts stamp;
        const NetReport report = session.context().networkManager.timeStampTest(servers.front(), goesOn, stamp);
        stopIfEnding();
        if (report.code != 0) {
            run.out.warn(kNotCompared, report.url + " " + report.cause);
        } else if (std::abs(stamp.difference) > kMostClockDifference) {
            const std::string about = std::get<std::string>(timeOf(stamp.genTime).held);
            run.out.warn("the clock differs from a time stamp by more than five minutes", about);
            return " (" + servers.front().name + ": " + about + ")";
        }
    } catch (const OpError& error) {
        // The trust points, to which the stamp's signature must lead, are in the key store.
        if (error.fault() != OpFault::SecretMissing) throw;
        run.out.warn(kNotCompared, error.what());
    }
    return {};
}

}  // namespace

void certPurge(Run& run) {
    const std::string doubt = clockDoubt(run);
    Session session = openDatabase(run);
    const auto now = run.call.value("now");
    const int64_t time = now ? timeFrom(*now) : std::time(nullptr);
    size_t expired = 0;
    eachCert(session, [&](int64_t, const SignedCertificate& certificate, ByteView) {
        const auto end = certificate.tbs.validity.notAfter.seconds();
        expired += end && *end < time;
        return true;
    });
    if (!now) run.confirm("Is this the right time?", std::get<std::string>(timeOf(time).held) + doubt);
    run.out.change("purge", "certificates", std::to_string(expired));
    if (run.mode.dryRun) return;
    CrtStore::Removed removed;
    if (!session.context().certificateManager.removeCertsOverTime(time, removed)) session.failDatabase();
    run.out.field("removed", removed.removed);
    run.out.field("remaining", removed.remaining);
}

void certVerify(Run& run) {
    PathOptions options = pathOptions(run.call);
    Trials trials;
    if (run.call.has("explain")) options.onPath = collectIn(trials);
    Session session = openReading(run);
    session.demandDatabase();
    CertPtr certificate;
    CertList extra;
    if (!run.call.operands.empty()) {
        extra = certsOfFile(run.call.operand(0));
        certificate = extra.front();
    } else if (const auto role = run.call.value("role")) {
        certificate = certOfRole(session, *role);
    } else {
        const CertSelector selector = selectorOf(run.call);
        if (selector.empty()) throw CallError("missing", "FILE, --sha256, --serial, --subject, --email, --role");
        certificate = findOne(session, selector);
    }
    std::optional<RevocationManager::MoreCrls> fetched;
    // The network tells of the present only.
    if (options.revocation == RevocationCheck::Required && !run.call.has("offline") && !run.call.has("at")) {
        session.unlock();
        for (const NetReport& report :
             session.context().networkManager.refreshStatus(certificate, extra, StatusAsking::WhatIsMissing, goesOn))
            if (report.code != 0) run.out.warn("not fetched", report.url + " " + report.cause);
        NetworkManager& network = session.context().networkManager;
        for (const Bytes& one : network.netStoreCerts()) extra.push_back(makeCert(one));
        CrlFactsList lists;
        for (const Bytes& one : network.netStoreCrls()) lists.push_back(CrlFacts::make(one));
        fetched.emplace(session.context().revocationManager, std::move(lists));
        try {
            session.storeFetched();
        } catch (const OpError& error) {
            // The verdict goes by what came, stored or not.
            if (error.fault() != OpFault::DatabaseFailed) throw;
            run.out.warn("what was fetched could not be stored", error.what());
        }
        options.time = std::time(nullptr);
    }
    const auto verdict = session.context().certificateManager.buildPath(certificate, options, extra);
    showVerdict(run, verdict);
    run.out.field("at", timeOf(options.time));
    if (run.call.has("explain")) showTrials(run, trials);
    for (const PathStep& step : verdict.steps) run.out.item(stepFields(step, run.call.has("der")));
    if (!verdict.good()) run.out.no(verdict.code);
}

void certCheck(Run& run) {
    const PathOptions options = pathOptions(run.call);
    Session session = openReading(run);
    session.demandDatabase();
    const bool wholly = !run.call.has("bad"), der = run.call.has("der");
    size_t checked = 0, bad = 0;
    CertList list;
    if (!run.call.operands.empty()) list = certsOfFile(run.call.operand(0));
    judgeCerts(session, run.call.operands.empty() ? nullptr : &list, options,
               [&](const SignedCertificate& certificate, const PathVerdict& verdict) {
                   ++checked;
                   bad += !verdict.good();
                   if (verdict.good() && !wholly) return;
                   Fields fields = certFields(certificate, der);
                   fields.insert(fields.end(), {{"good", verdict.good()},
                                                {"verdict", codeName(verdict.code)},
                                                {"reason", verdict.reason},
                                                {"clause", verdict.clause}});
                   run.out.item(std::move(fields));
               });
    run.out.field("checked", checked);
    run.out.field("bad", bad);
    run.out.field("at", timeOf(options.time));
    if (bad != 0) run.out.no(ECRV_PATH_VER_ERR);
}

void trustList(Run& run) {
    Session session = openReading(run);
    for (const TrustPoint& point : session.keys().trustedPoints()) {
        Fields fields = certFields(*point.certificate, run.call.has("der"));
        fields.emplace(fields.begin(), "source", kFlagNames[static_cast<size_t>(point.flag)]);
        run.out.item(std::move(fields));
    }
}

void trustAdd(Run& run) {
    const CertList list = certsOfFile(run.call.operand(0));
    if (list.size() > 1) throw OpError(OpFault::Ambiguous, run.call.operand(0));
    Session session = openChanging(run);
    if (!mayAddTrust(session.access())) throw OpError(OpFault::NoSigningCertificate, session.profile().name());
    demandKeys(addTrustPoint(session.access(), list.front(), [&] {
        run.confirm("The certificate has expired. Trust it?", list.front()->subject().rfc4514());
        return true;
    }));
    save(run, session);
    run.out.change("add", "trust", nameOf(*list.front()));
}

void trustRemove(Run& run) {
    Session session = openChanging(run);
    const TrustPoint point = chosenTrustPoint(run, session);
    if (!isRemovable(point)) demandKeys(kKmNotOnThisMedium);
    run.confirm("Trust this authority no longer?", point.certificate->subject().rfc4514());
    demandKeys(removeTrustPoint(session.access(), point));
    save(run, session);
    run.out.change("remove", "trust", nameOf(*point.certificate));
}

void trustExport(Run& run) {
    Session session = openReading(run);
    const TrustPoint point = chosenTrustPoint(run, session);
    exportFile(targetOf(run, run.call.operand(0)), session.profile(), encodingOf(*point.certificate));
    run.out.change("write", "certificates", run.call.operand(0));
}

}  // namespace crv::ctl
