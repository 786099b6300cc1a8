// NetworkManager fetches CRLs.
#include <algorithm>
#include <ctime>

#include "asn/x509/signed_certificate.h"
#include "config/config_oids.h"
#include "config/configuration_manager.h"
#include "config/context_services.h"
#include "corvane/crverrors.h"
#include "pki/cert_file_reader.h"
#include "pki/crl_status.h"
#include "pki/network_manager.h"
#include "pki/network_objects.h"

namespace crv {

namespace {

struct CodeRow {
    int verified;
    int told;
};
/// What the verification of a CRL says, as fetching tells it.
constexpr CodeRow kCrlCodes[] = {{ECRV_CRTSIGN, ECRV_CRL_INV_SIGN},
                                 {ECRV_CRTNOTFOUND, ECRV_CRL_PATH_BUILD_ERROR},
                                 {ECRV_PATH_VER_ERR, ECRV_CRL_PATH_BUILD_ERROR},
                                 {ECRV_INV_CRL_FMT, ECRV_INV_CRL_FMT}};

NetReport nothingFetched(int code, const char* cause) {
    return {"CRL", code, cause};
}

}  // namespace

CertList NetworkManager::authorities() {
    CertList list = manager_->trustPoints();
    CrtItemList items;
    if (manager_->database().isDbCreated() == DbState::Complete)
        static_cast<void>(manager_->database().findCaCerts(items));
    for (const CrtItem& item : items) {
        CertPtr one = manager_->cache().certificate(item.der);
        if (one && one->isCaCrt() && !contains(list, *one)) list.push_back(std::move(one));
    }
    return list;
}

/// Whether a CRL verifies and is not older than what is stored. When it takes certificates that the database does not
/// have, they are kept, too: without them nobody could believe it later.
NetVerdict NetworkManager::judgeCrl(const CrlFacts& crl, const CrlWish& wish, bool keep) {
    const int64_t now = std::time(nullptr);
    if (crl.thisUpdate > now) return {ECRV_CRL_NOT_VALID_YET, "issued later than now"};
    if (crl.nextUpdate && *crl.nextUpdate < now) return {ECRV_OLD_CRL, "out of date"};
    int code = revocation_->verify(crl, now);
    if (code == ECRV_CRTNOTFOUND || code == ECRV_CRTSIGN) {
        CertList extra = wish.extra;
        extra.push_back(wish.authority);
        for (const Bytes& one : certificates_)
            if (CertPtr kept = makeCert(one)) extra.push_back(std::move(kept));
        code = revocation_->verify(crl, now, extra);
        for (const CertPtr& one : extra)
            if (code == 0 && keep && one->isCaCrt()) addCertToNetStore(encodingOf(*one));
    }
    if (code != 0) {
        const auto* row = std::ranges::find(kCrlCodes, code, &CodeRow::verified);
        return {row == std::end(kCrlCodes) ? ECRV_CRL_VERIF_ERR : row->told,
                "the CRL does not verify (" + std::to_string(code) + ")"};
    }
    if (revocation_->isOutdated(crl)) return {ECRV_OLD_CRL, "older than the stored one"};
    return {};
}

NetVerdict NetworkManager::judgeCrls(const CrlWish& wish, const NetAttempt& attempt, const FetchResult& result,
                                     bool keep) {
    NetVerdict verdict{ECRV_TCP_PROT, "what came is no CRL"};
    std::vector<Bytes> issuers{nameKey(wish.authority->subject())};
    for (const CertPtr& one : wish.subjects) {
        const std::vector<Bytes> more = crlIssuersOf(*manager_->cache().facts(one));
        issuers.insert(issuers.end(), more.begin(), more.end());
    }
    bool any = false;
    for (const Bytes& value : result.values) {
        auto der = crlFromFile(value);
        const CrlFactsPtr crl = der ? CrlFacts::make(*der) : nullptr;
        if (!crl) continue;
        const bool isTheirs = std::ranges::find(issuers, crl->issuer) != issuers.end();
        const NetVerdict foreign{ECRV_SRV_BAD_CA, "a CRL of " + crl->issuerText};
        // One about certificates of several authorities is worth keeping, whoever else's it is.
        verdict = isTheirs || crl->isIndirect() ? judgeCrl(*crl, wish, keep) : foreign;
        if (verdict.code != 0) continue;
        if (!isTheirs) verdict = foreign;
        any = any || isTheirs;
        if (!keep) continue;
        addCRLToNetStore(*der);
        const auto at = std::ranges::find(crls_, *der);
        if (!attempt.server.empty() && isTheirs)
            times_.push_back({crlTimeName(attempt.server), static_cast<size_t>(at - crls_.begin())});
    }
    return any ? NetVerdict() : verdict;
}

NetErrand NetworkManager::crlErrand(NetSources& sources, CrlWish wish) {
    NetErrand errand;
    const DistinguishedName& name = wish.authority->subject();
    const NetObject object = crlObject(name);
    errand.name = name.text();
    errand.notFound = ECRV_SRV_NO_CRL;
    errand.attempts = sources.servers(CRVSRV_USAGE_CRL, encodedName(name), object);
    for (const CertPtr& one : wish.subjects)
        if (const auto& points = manager_->cache().facts(one)->distributionPoints)
            sources.addUris(errand.attempts, *one, points->uris(), object);
    errand.judge = [this, kept = std::move(wish)](const NetAttempt& attempt, FetchResult& result) {
        return judgeCrls(kept, attempt, result, true);
    };
    return errand;
}

/// The shortest period of the authority's servers, from the last fetch from any of them: those behind the first are
/// not asked as long as it answers.
bool NetworkManager::isPeriodOver(const SignedCertificate& authority, int64_t now) {
    const CrvProfile* profile = context_->configuration().profile();
    if (!profile) return false;
    int64_t last = 0;
    long period = 0;
    for (const SrvParams& server :
         profile->getServerIterator(CRVSRV_USAGE_CRL, encodedName(authority.subject())).servers) {
        int64_t time = 0;
        if (!manager_->database().getNetCertTime(crlTimeName(server.name), time)) return false;
        last = std::max(last, time);
        if (server.periodSeconds > 0)
            period = period == 0 ? server.periodSeconds : std::min(period, server.periodSeconds);
    }
    return period > 0 && (now - last >= period || last > now);
}

bool NetworkManager::isDue(const SignedCertificate& authority) {
    const int64_t now = std::time(nullptr);
    if (isPeriodOver(authority, now)) return true;
    AuthorityCrls stored;
    if (!revocation_->lastCrls(authority, stored)) return false;
    const auto& complete = stored.complete;
    return !complete || !complete->isVerified() || complete->expires().value_or(0) < now;
}

/// `anySource`: whether there is a server or an address to ask for any of them.
std::vector<NetErrand> NetworkManager::crlErrands(const CertList& authorities, bool onlyDue, bool& anySource) {
    NetSources sources(*context_, *manager_);
    std::vector<NetErrand> errands;
    if (sources.networkIsOff() || sources.option(kOptDontGetCrlFromNet) != 0) return errands;
    CertList known = this->authorities();
    if (own_) {
        const CertList own = own_();
        known.insert(known.begin(), own.begin(), own.end());
    }
    std::vector<Bytes> names;
    for (const CertPtr& one : authorities) {
        Bytes name = nameKey(one->subject());
        if (std::ranges::find(names, name) != names.end()) continue;  // keys of one authority have its name
        names.push_back(std::move(name));
        if (onlyDue && !isDue(*one)) {
            anySource = true;
            continue;
        }
        CrlWish wish{one};
        for (const CertPtr& below : known)
            if (below->issuer() == one->subject() && !below->isSelfIssued()) wish.subjects.push_back(below);
        NetErrand errand = crlErrand(sources, std::move(wish));
        if (!errand.attempts.empty()) errands.push_back(std::move(errand));
    }
    anySource = anySource || !errands.empty();
    return errands;
}

NetReports NetworkManager::fetchCrls(const CertList& authorities, bool onlyDue, const NetProgress& progress) {
    NetSources sources(*context_, *manager_);
    if (sources.networkIsOff()) return {nothingFetched(ECRV_TCP_NO_SRV, "the network is switched off (option 18)")};
    if (sources.option(kOptDontGetCrlFromNet) != 0)
        return {nothingFetched(ECRV_TCP_NO_SRV, "CRLs are not to be fetched (option 16)")};
    if (authorities.empty()) {
        return {nothingFetched(ECRV_CRTNOTFOUND,
                               "no authority is known: add a trust point or import an authority's certificate")};
    }
    bool anySource = false;
    NetReports reports = go(crlErrands(authorities, onlyDue, anySource), progress);
    if (!anySource) return {nothingFetched(ECRV_TCP_NO_SRV, "no server of CRLs is set up for it: add one")};
    dropForeign(reports);
    return reports;
}

/// A server of any authority gives the CRL of one: that it is not another one's is no failure when it was of use.
void NetworkManager::dropForeign(NetReports& reports) const {
    const CrvProfile* profile = context_->configuration().profile();
    const auto isForeign = [&](const NetReport& report) {
        SrvParams server;
        return report.code == ECRV_SRV_BAD_CA && profile && profile->findSrv(report.server, &server) &&
               server.caDn.empty() && std::ranges::any_of(reports, [&](const NetReport& other) {
                   return other.code == 0 && other.server == report.server;
               });
    };
    NetReports kept;
    for (const NetReport& report : reports)
        if (!isForeign(report)) kept.push_back(report);
    reports = std::move(kept);
}

std::unique_ptr<CrlRun> NetworkManager::startDueCrls() {
    bool anySource = false;
    std::vector<NetErrand> errands = crlErrands(authorities(), true, anySource);
    return errands.empty() ? nullptr : std::make_unique<CrlRun>(std::move(errands));
}

}  // namespace crv
