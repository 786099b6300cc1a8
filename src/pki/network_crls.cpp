// NetworkManager fetches CRLs.
#include <algorithm>
#include <ctime>
#include <map>
#include <set>

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

/// Seconds before one that was asked for in the background is asked for again, whatever came of it.
constexpr int64_t kBackgroundPause = 600;

struct CodeRow {
    int verified;
    int told;
    const char* why;
};
/// What the verification of a CRL says, as fetching tells it.
constexpr CodeRow kCrlCodes[] = {
    {ECRV_CRTSIGN, ECRV_CRL_INV_SIGN, "its signature is wrong"},
    {ECRV_CRTNOTFOUND, ECRV_CRL_PATH_BUILD_ERROR, "no trusted certificate of who signed it"},
    {ECRV_PATH_VER_ERR, ECRV_CRL_PATH_BUILD_ERROR, "the path of who signed it"},
    {ECRV_INV_CRL_FMT, ECRV_INV_CRL_FMT, "malformed, or with an unknown critical extension"}};

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
        CertList path;
        code = revocation_->verify(crl, now, extra, &path);
        const CertList trusted = manager_->trustPoints();
        for (const CertPtr& one : path)
            if (code == 0 && keep && !contains(trusted, *one)) addCertToNetStore(encodingOf(*one));
    }
    if (code != 0) {
        const auto* row = std::ranges::find(kCrlCodes, code, &CodeRow::verified);
        if (row == std::end(kCrlCodes))
            return {ECRV_CRL_VERIF_ERR, "the CRL does not verify (" + std::to_string(code) + ")"};
        return {row->told, std::string("the CRL does not verify: ") + row->why};
    }
    if (revocation_->isOutdated(crl.der())) return {ECRV_OLD_CRL, "older than the stored one, by its number or time"};
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
        // One that verifies is worth keeping, whose ever it is; several errands may have waited for it.
        const bool known = !keep || std::ranges::find(crls_, *der) != crls_.end();
        const NetVerdict own = isTheirs || !known ? judgeCrl(*crl, wish, keep) : NetVerdict();
        verdict = isTheirs ? own : NetVerdict{ECRV_SRV_BAD_CA, "a CRL of " + crl->issuerText};
        if (own.code != 0) continue;
        any = any || isTheirs;
        if (!keep) continue;
        addCRLToNetStore(*der);
        const auto at = static_cast<size_t>(std::ranges::find(crls_, *der) - crls_.begin());
        if (isTheirs) {
            rememberFetch(wish, attempt, at);
        } else if (!attempt.server.empty()) {
            times_.push_back({crlTimeName(attempt.server), at});
        }
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
    for (const CertPtr& one : wish.subjects) {
        if (const auto& points = manager_->cache().facts(one)->distributionPoints)
            sources.addUris(errand.attempts, *one, points->uris(), object);
    }
    errand.judge = [this, kept = std::move(wish)](const NetAttempt& attempt, FetchResult& result) {
        return judgeCrls(kept, attempt, result, true);
    };
    return errand;
}

/// Whichever source gave it, the authority's own servers need not be asked again before their time is over.
void NetworkManager::rememberFetch(const CrlWish& wish, const NetAttempt& attempt, size_t crl) {
    asked_[nameKey(wish.authority->subject())].succeeded = std::time(nullptr);
    if (!attempt.server.empty()) times_.push_back({crlTimeName(attempt.server), crl});
    const CrvProfile* profile = context_->configuration().profile();
    if (!profile) return;
    for (const SrvParams& one : profile->getSrvListForCa(CRVSRV_USAGE_CRL, encodedName(wish.authority->subject())))
        times_.push_back({crlTimeName(one.name), crl});
}

int64_t NetworkManager::lastFetch(const std::string& server) {
    const std::string name = crlTimeName(server);
    int64_t time = 0;
    if (!manager_->database().getNetCertTime(name, time)) time = 0;
    const auto now = fetched_.find(name);
    return now == fetched_.end() ? time : std::max(time, now->second);
}

/// 0 where none has one.
long NetworkManager::shortestPeriod(const SignedCertificate& authority) const {
    const CrvProfile* profile = context_->configuration().profile();
    if (!profile) return 0;
    long period = 0;
    for (const SrvParams& server :
         profile->getServerIterator(CRVSRV_USAGE_CRL, encodedName(authority.subject())).servers) {
        if (server.periodSeconds > 0)
            period = period == 0 ? server.periodSeconds : std::min(period, server.periodSeconds);
    }
    return period;
}

/// Counted from the last fetch from any of the authority's servers: those behind the first are not asked as long as it
/// answers.
bool NetworkManager::isPeriodOver(const SignedCertificate& authority, int64_t now) {
    const long period = shortestPeriod(authority);
    if (period == 0) return false;
    int64_t last = asked_[nameKey(authority.subject())].succeeded;
    for (const SrvParams& server : context_->configuration()
                                       .profile()
                                       ->getServerIterator(CRVSRV_USAGE_CRL, encodedName(authority.subject()))
                                       .servers) {
        last = std::max(last, lastFetch(server.name));
    }
    return now - last >= period || last > now;
}

bool NetworkManager::isCurrent(const CrlIndexEntry& row, int64_t now) const {
    return !row.isDelta() && row.isVerified() && row.expires().value_or(0) >= now;
}

/// Of lists for a part of the authority's certificates each: due is the one that is of use to none of its certificates.
bool NetworkManager::isDue(const CrlWish& wish, bool partitioned) {
    const int64_t now = std::time(nullptr);
    if (partitioned) {
        return std::ranges::any_of(wish.subjects, [&](const CertPtr& one) {
            const CrtStatus status = revocation_->status(one, now);
            return status.state != CrtStatus::State::Good && status.state != CrtStatus::State::Revoked;
        });
    }
    if (isPeriodOver(*wish.authority, now)) return true;
    AuthorityCrls stored;
    CrlIndex index;
    if (!revocation_->lastCrls(*wish.authority, stored) || !manager_->database().getCrlIndex(index)) return false;
    if (stored.complete) return !isCurrent(*stored.complete, now);
    // Others may tell of its certificates (RFC 5280 5.2.5).
    std::vector<Bytes> issuers;
    for (const CertPtr& one : wish.subjects) {
        const std::vector<Bytes> more = crlIssuersOf(*manager_->cache().facts(one));
        issuers.insert(issuers.end(), more.begin(), more.end());
    }
    return std::ranges::none_of(index, [&](const CrlIndexEntry& row) {
        return isCurrent(row, now) && std::ranges::find(issuers, nameKey(row.issuer)) != issuers.end();
    });
}

/// A server of any authority that is no directory has one list: where it gave one and none of this authority is
/// stored, there is nothing to be had from it as long as others' are current. What it gives to those is kept in any
/// case.
void NetworkManager::leaveOutForeign(NetErrand& errand, const SignedCertificate& authority) {
    const CrvProfile* profile = context_->configuration().profile();
    AuthorityCrls own;
    CrlIndex index;
    const int64_t now = std::time(nullptr);
    if (!profile || !revocation_->lastCrls(authority, own) || own.complete || own.delta ||
        !manager_->database().getCrlIndex(index) ||
        std::ranges::none_of(index, [&](const CrlIndexEntry& row) { return isCurrent(row, now); })) {
        return;
    }
    std::erase_if(errand.attempts, [&](const NetAttempt& attempt) {
        SrvParams server;
        return !attempt.server.empty() && profile->findSrv(attempt.server, &server) && server.caDn.empty() &&
               server.type != CRVSRV_TYPE_LDAP && lastFetch(attempt.server) > 0;
    });
}

/// One for all that the authority issued where it has servers or one list; else one for each list that its certificates
/// name.
std::vector<NetworkManager::CrlWish> NetworkManager::crlWishes(NetSources& sources, const CertPtr& authority,
                                                               const CertList& known) {
    CrlWish all{authority};
    std::map<std::vector<std::string>, CrlWish> byPoints;
    for (const CertPtr& below : known) {
        if (!(below->issuer() == authority->subject()) || below->isSelfIssued()) continue;
        all.subjects.push_back(below);
        const auto& points = manager_->cache().facts(below)->distributionPoints;
        if (points) byPoints.try_emplace(points->uris(), CrlWish{authority}).first->second.subjects.push_back(below);
    }
    const DistinguishedName& name = authority->subject();
    const bool asked = sources.servers(CRVSRV_USAGE_CRL, encodedName(name), crlObject(name)).empty();
    if (byPoints.size() < 2 || !asked) return {std::move(all)};
    std::vector<CrlWish> wishes;
    for (auto& [uris, wish] : byPoints) wishes.push_back(std::move(wish));
    return wishes;
}

/// `anySource`: whether there is a server or an address to ask for any of them.
std::vector<NetErrand> NetworkManager::crlErrands(const CertList& authorities, CrlChoice choice, bool& anySource) {
    const NetSources options(*context_, *manager_);
    std::vector<NetErrand> errands;
    if (options.networkIsOff() || options.option(kOptDontGetCrlFromNet) != 0) return errands;
    CertList known = this->authorities();
    if (own_) {
        const CertList own = own_();
        known.insert(known.begin(), own.begin(), own.end());
    }
    const int64_t now = std::time(nullptr);
    std::set<Bytes> names;
    for (const CertPtr& one : authorities) {
        const Bytes name = nameKey(one->subject());
        if (!names.insert(name).second) continue;  // keys of one authority have its name
        Asked& before = asked_[name];
        const long period = shortestPeriod(*one);
        const int64_t pause = period > 0 ? std::min<int64_t>(period, kBackgroundPause) : kBackgroundPause;
        if (choice == CrlChoice::DueInBackground && before.started <= now && now - before.started < pause) continue;
        // The addresses that may be asked are counted for each: one with many leaves the others theirs.
        NetSources sources(*context_, *manager_);
        std::vector<CrlWish> wishes = crlWishes(sources, one, known);
        const bool partitioned = wishes.size() > 1;
        for (CrlWish& wish : wishes) {
            if (choice != CrlChoice::All && !isDue(wish, partitioned)) {
                anySource = true;
                continue;
            }
            NetErrand errand = crlErrand(sources, std::move(wish));
            anySource = anySource || !errand.attempts.empty();
            if (choice != CrlChoice::All) leaveOutForeign(errand, *one);
            if (errand.attempts.empty()) continue;
            before.started = now;
            errands.push_back(std::move(errand));
        }
    }
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
    const CrlChoice choice = onlyDue ? CrlChoice::Due : CrlChoice::All;
    NetReports reports = go(crlErrands(authorities, choice, anySource), progress);
    if (!anySource) return {nothingFetched(ECRV_TCP_NO_SRV, "no server of CRLs is set up for it: add one")};
    dropForeign(reports, onlyDue);
    return reports;
}

/// A server of any authority gives the CRL of one: that it is not another one's is no failure when it was of use, or
/// when nobody asked for that authority.
void NetworkManager::dropForeign(NetReports& reports, bool onlyDue) const {
    const CrvProfile* profile = context_->configuration().profile();
    const auto isForeign = [&](const NetReport& report) {
        SrvParams server;
        return report.code == ECRV_SRV_BAD_CA && profile && profile->findSrv(report.server, &server) &&
               server.caDn.empty() && (onlyDue || std::ranges::any_of(reports, [&](const NetReport& other) {
                                           return other.code == 0 && other.server == report.server;
                                       }));
    };
    NetReports kept;
    for (const NetReport& report : reports)
        if (!isForeign(report)) kept.push_back(report);
    reports = std::move(kept);
}

std::unique_ptr<CrlRun> NetworkManager::startDueCrls() {
    bool anySource = false;
    std::vector<NetErrand> errands = crlErrands(authorities(), CrlChoice::DueInBackground, anySource);
    return errands.empty() ? nullptr : std::make_unique<CrlRun>(std::move(errands));
}

}  // namespace crv
