// NetworkManager fetches certificates; what is asked for of servers.
#include <algorithm>
#include <ctime>

#include "asn/known_oids.h"
#include "asn/x509/ext_distribution.h"
#include "asn/x509/signed_certificate.h"
#include "asn/x509/signed_part.h"
#include "config/config_oids.h"
#include "config/context_services.h"
#include "corvane/crverrors.h"
#include "misc/ascii.h"
#include "pki/cert_file_reader.h"
#include "pki/network_manager.h"
#include "pki/network_objects.h"

namespace crv {

namespace {

/// Levels of issuers that are fetched.
constexpr int kMostLevels = 4;

NetVerdict tooManyCerts() {
    return {ECRV_TCP_PROT, "more than " + std::to_string(kCertLimits.maxValues) + " certificates"};
}

bool fits(const SignedCertificate& certificate, const CertQuery& query) {
    const auto same = [](const std::string& a, const std::string& b) { return equalIgnoreCase(a, b); };
    if (!query.email.empty()) {
        const auto addresses = certificate.emails();
        return std::ranges::any_of(addresses, [&](const std::string& one) { return same(one, query.email); });
    }
    const auto name = certificate.subject().find(OID_AT_COMMON_NAME);
    return name && same(*name, query.name);
}

}  // namespace

Bytes encodedName(const DistinguishedName& name) {
    return name.encoded();
}

FetchedCerts certificatesIn(const FetchResult& result) {
    FetchedCerts found;
    for (const Bytes& value : result.values) {
        CertFileReader reader(value);
        for (ByteView der; !found.tooMany && reader.next(der);) {
            CertPtr one = makeCert(der);
            if (!one) continue;
            found.tooMany = found.list.size() == kCertLimits.maxValues;
            if (!found.tooMany) found.list.push_back(std::move(one));
        }
    }
    return found;
}

NetObject crlObject(const DistinguishedName& authority) {
    return {kCrlLimits, "certificateRevocationList,authorityRevocationList,deltaRevocationList", authority.rfc4514()};
}

NetObject issuerObject(const DistinguishedName& authority) {
    return {kCertLimits, "cACertificate", authority.rfc4514()};
}

NetObject certObject(const CertQuery& query) {
    NetObject object{kCertLimits, "userCertificate"};
    const bool byEmail = !query.email.empty();
    const std::string& value = byEmail ? query.email : query.name;
    object.filter = std::string(byEmail ? "(mail=" : "(cn=") + escapedFilterValue(value) + ")";
    object.query = std::string(byEmail ? "email=" : "name=") + percentEncoded(value);
    return object;
}

/// `anybody`: whatever the servers give for the query is of whom it asks for.
NetReport NetworkManager::fetchPeople(const CertQuery& query, bool anybody, const NetProgress& progress,
                                      CertList& found) {
    NetSources sources(*context_, *manager_);
    NetErrand errand;
    errand.name = query.email.empty() ? query.name : query.email;
    if (sources.networkIsOff()) return {errand.name, ECRV_TCP_NO_SRV, "the network is switched off (option 18)"};
    errand.attempts = sources.servers(CRVSRV_USAGE_CERTIFICATES, {}, certObject(query));
    errand.notFound = ECRV_RECCRT;
    errand.judge = [&](const NetAttempt&, FetchResult& result) {
        FetchedCerts came = certificatesIn(result);
        if (came.tooMany) return tooManyCerts();
        for (CertPtr& one : came.list) {
            if ((!anybody && !fits(*one, query)) || contains(found, *one)) continue;
            addCertToNetStore(encodingOf(*one));
            found.push_back(std::move(one));
        }
        return found.empty() ? NetVerdict{ECRV_RECCRT, "no certificate of that name"} : NetVerdict();
    };
    return goOne(std::move(errand), progress);
}

NetReport NetworkManager::fetchCerts(const CertQuery& query, const NetProgress& progress, CertList& found) {
    return fetchPeople(query, false, progress, found);
}

NetReport NetworkManager::fetchRecipient(const std::string& email, const NetProgress& progress, CertList& found) {
    NetSources sources(*context_, *manager_);
    if (sources.option(kOptEncCrtFromNet) == 0)
        return {email, ECRV_TCP_NO_SRV, "recipients' certificates are not to be fetched (option 6)"};
    const bool anybody = sources.option(kOptDontCheckEmailInEncNetCrt) != 0;
    return fetchPeople({.email = email, .name = {}}, anybody, progress, found);
}

NetErrand NetworkManager::issuerErrand(NetSources& sources, const CertPtr& below, CertList& found, CertPtr& above) {
    NetErrand errand;
    const NetObject object = issuerObject(below->issuer());
    errand.name = below->issuer().text();
    errand.notFound = ECRV_CRTNOTFOUND;
    errand.attempts = sources.servers(CRVSRV_USAGE_CERTIFICATES, encodedName(below->issuer()), object);
    if (const auto access = below->extensions().get<InfoAccess>(OID_PE_AUTHORITY_INFO_ACCESS))
        sources.addUris(errand.attempts, *below, access->uris(OID_AD_CA_ISSUERS), object);
    errand.judge = [&, below](const NetAttempt&, FetchResult& result) {
        FetchedCerts came = certificatesIn(result);
        for (CertPtr& one : came.list) {
            const FactsPtr facts = manager_->cache().facts(manager_->cache().certificate(encodingOf(*one)));
            if (!(one->subject() == below->issuer()) || !facts->key() || !isKnownSignedBy(*below, *facts->key()))
                continue;
            addCertToNetStore(encodingOf(*one));
            if (!contains(found, *one)) found.push_back(one);
            above = std::move(one);
        }
        if (above) return NetVerdict();
        return came.tooMany ? tooManyCerts() : NetVerdict{ECRV_CRTNOTFOUND, "no certificate that made the signature"};
    };
    return errand;
}

NetReport NetworkManager::fetchIssuersFrom(NetSources& sources, const CertPtr& certificate, const NetProgress& progress,
                                           CertList& found) {
    NetReport report{certificate->subject().text()};
    CertPtr below = certificate;
    for (int level = 0; level < kMostLevels && !below->isSelfIssued(); ++level) {
        CertPtr above;
        report = goOne(issuerErrand(sources, below, found, above), progress);
        if (!above) break;
        below = above;
        if (manager_->buildPath(certificate, {std::time(nullptr), 0, RevocationCheck::None}, found).code !=
            ECRV_CRTNOTFOUND) {
            break;
        }
    }
    return report;
}

}  // namespace crv
