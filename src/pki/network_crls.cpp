// NetworkManager fetches CRLs.
#include <algorithm>
#include <ctime>

#include "asn/x509/signed_certificate.h"
#include "config/config_oids.h"
#include "config/configuration_manager.h"
#include "config/context_services.h"
#include "corvane/crverrors.h"
#include "pki/cert_file_reader.h"
#include "pki/crl_facts.h"
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

std::string timeName(const std::string& server) {
    return "CRL:" + server;
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

/// Whether a CRL verifies and is not older than what is stored.
NetVerdict NetworkManager::judgeCrl(ByteView der) {
    const int64_t now = std::time(nullptr);
    const CrlFactsPtr crl = CrlFacts::make(toBytes(der));
    if (!crl) return {ECRV_INV_CRL_FMT, "malformed CRL"};
    if (crl->thisUpdate > now) return {ECRV_CRL_NOT_VALID_YET, "issued later than now"};
    if (crl->nextUpdate && *crl->nextUpdate < now) return {ECRV_OLD_CRL, "out of date"};
    if (const int code = revocation_->verify(der, now); code != 0) {
        const auto* row = std::ranges::find(kCrlCodes, code, &CodeRow::verified);
        return {row == std::end(kCrlCodes) ? ECRV_CRL_VERIF_ERR : row->told,
                "the CRL does not verify (" + std::to_string(code) + ")"};
    }
    return {};
}

NetVerdict NetworkManager::judgeCrls(const SignedCertificate& authority, const NetAttempt& attempt, FetchResult& result,
                                     bool keep) {
    NetVerdict verdict{ECRV_TCP_PROT, "what came is no CRL"};
    AuthorityCrls last;
    static_cast<void>(revocation_->lastCrls(authority, last));
    bool any = false;
    for (Bytes& value : result.values) {
        const auto der = crlFromFile(value);
        SignedCertRevList list;
        if (!der || !list.readExactly(*der, ASN_FLAG_CONST)) continue;
        if (!(list.issuer() == authority.subject()) && !list.issuingDistributionPoint()) {
            verdict = {ECRV_SRV_BAD_CA, "a CRL of " + list.issuer().text()};
            continue;
        }
        verdict = judgeCrl(*der);
        if (verdict.code != 0) continue;
        const auto& stored = list.baseCrlNumber() ? last.delta : last.complete;
        if (stored && stored->isVerified() && !list.issuingDistributionPoint() &&
            stored->issued() > list.thisUpdate().value_or(0)) {
            verdict = {ECRV_OLD_CRL, "older than the stored one"};
            continue;
        }
        any = true;
        if (keep) addCRLToNetStore(*der);
    }
    if (!any) return verdict;
    if (keep && !attempt.server.empty()) fetched_.push_back(timeName(attempt.server));
    return {};
}

NetErrand NetworkManager::crlErrand(NetSources& sources, const SignedCertificate& authority) {
    NetErrand errand;
    errand.name = authority.subject().text();
    errand.notFound = ECRV_SRV_NO_CRL;
    errand.attempts =
        sources.servers(CRVSRV_USAGE_CRL, encodedName(authority.subject()), crlObject(authority.subject()));
    errand.judge = [this, kept = manager_->cache().certificate(encodingOf(authority))](const NetAttempt& attempt,
                                                                                       FetchResult& result) {
        return judgeCrls(*kept, attempt, result, true);
    };
    return errand;
}

bool NetworkManager::isDue(const SignedCertificate& authority) {
    const int64_t now = std::time(nullptr);
    const CrvProfile* profile = context_->configuration().profile();
    if (!profile) return false;
    for (const SrvParams& server :
         profile->getServerIterator(CRVSRV_USAGE_CRL, encodedName(authority.subject())).servers) {
        int64_t last = 0;
        if (server.periodSeconds <= 0 || !manager_->database().getNetCertTime(timeName(server.name), last)) continue;
        if (now - last >= server.periodSeconds || last > now) return true;
    }
    AuthorityCrls stored;
    if (!revocation_->lastCrls(authority, stored)) return false;
    const auto& complete = stored.complete;
    return !complete || !complete->isVerified() || complete->expires().value_or(0) < now;
}

std::vector<NetErrand> NetworkManager::crlErrands(const CertList& authorities, bool onlyDue) {
    NetSources sources(*context_, *manager_);
    std::vector<NetErrand> errands;
    if (sources.networkIsOff() || sources.option(kOptDontGetCrlFromNet) != 0) return errands;
    std::vector<Bytes> names;
    for (const CertPtr& one : authorities) {
        Bytes name = nameKey(one->subject());
        if (std::ranges::find(names, name) != names.end()) continue;  // keys of one authority have its name
        names.push_back(std::move(name));
        if (onlyDue && !isDue(*one)) continue;
        NetErrand errand = crlErrand(sources, *one);
        if (!errand.attempts.empty()) errands.push_back(std::move(errand));
    }
    return errands;
}

NetReports NetworkManager::fetchCrls(const CertList& authorities, bool onlyDue, const NetProgress& progress) {
    NetSources sources(*context_, *manager_);
    if (sources.networkIsOff()) return {{"CRL", ECRV_TCP_NO_SRV, "the network is switched off (option 18)"}};
    if (sources.option(kOptDontGetCrlFromNet) != 0)
        return {{"CRL", ECRV_TCP_NO_SRV, "CRLs are not to be fetched (option 16)"}};
    NetReports reports = go(crlErrands(authorities, onlyDue), progress);
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
    std::vector<NetErrand> errands = crlErrands(authorities(), true);
    return errands.empty() ? nullptr : std::make_unique<CrlRun>(std::move(errands));
}

}  // namespace crv
