#include "ops/certificates.h"

#include <algorithm>

#include "asn/x509/signed_certificate.h"
#include "misc/ascii.h"
#include "misc/hex.h"
#include "ops/export_file.h"
#include "ops/op_error.h"
#include "ops/session.h"
#include "pki/cert_file_reader.h"
#include "pki/certificate_search.h"

namespace crv {
namespace {

constexpr size_t kPage = 200;

bool sameHex(ByteView octets, const std::string& digits) {
    return equalIgnoreCase(toHex(octets), digits);
}

}  // namespace

bool CertSelector::empty() const {
    return sha256.empty() && serial.empty() && issuer.empty() && subject.empty() && email.empty();
}

bool CertSelector::matches(const SignedCertificate& certificate) const {
    if (!sha256.empty() && !sameHex(certificate.fingerprint(KcHashAlgo::Sha256), sha256)) return false;
    if (!serial.empty() && !sameHex(certificate.serialNumber().contents(), serial)) return false;
    CertificateQuery query;
    query.subject = subject;
    query.issuer = issuer;
    query.email = email;
    return query.matches(certificate);
}

void eachCert(DbManager& database, const std::function<bool(int64_t, const SignedCertificate&, ByteView)>& visit) {
    for (int64_t after = 0;;) {
        CrtItemList page;
        if (!database.readForward(after, kPage, page)) {
            stopIfEnding();
            throw OpError(OpFault::DatabaseFailed, database.lastFailure());
        }
        if (page.empty()) return;
        for (const CrtItem& item : page) {
            stopIfEnding();
            SignedCertificate certificate;
            if (certificate.readExactly(item.der, ASN_FLAG_CONST) && !visit(item.id, certificate, item.der)) return;
        }
        after = page.back().id;
    }
}

void eachCert(Session& session, const std::function<bool(int64_t, const SignedCertificate&, ByteView)>& visit) {
    eachCert(session.context().dbManager, visit);
}

CertPtr findOne(Session& session, const CertSelector& selector, const CertList* list) {
    CertPtr found;
    const auto take = [&](const SignedCertificate& certificate, ByteView der) {
        if (!selector.matches(certificate)) return true;
        if (found) throw OpError(OpFault::Ambiguous, certificate.subject().text());
        found = makeCert(der);
        return true;
    };
    if (list) {
        for (const CertPtr& certificate : *list) (void)take(*certificate, encodingOf(*certificate));
    } else {
        eachCert(session, [&](int64_t, const SignedCertificate& c, ByteView der) { return take(c, der); });
    }
    if (!found) throw OpError(OpFault::ObjectMissing);
    return found;
}

CertList certsOfFile(const std::string& path) {
    CertFileReader reader(importFile(path));
    CertList list;
    ByteView der;
    while (reader.next(der)) {
        if (const CertPtr certificate = makeCert(der)) {
            list.push_back(certificate);
        } else {
            break;
        }
    }
    if (list.empty()) throw OpError(OpFault::BadFile, path);
    return list;
}

}  // namespace crv
