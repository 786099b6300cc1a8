#include "ops/certificates.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "asn/x509/signed_certificate.h"
#include "crypto/kc_hash.h"
#include "misc/ascii.h"
#include "misc/exceptions.h"
#include "misc/file_ops.h"
#include "misc/hex.h"
#include "misc/path.h"
#include "misc/whole_file.h"
#include "ops/export_file.h"
#include "ops/op_error.h"
#include "ops/session.h"
#include "pki/certificate_search.h"

namespace crv {
namespace {

constexpr size_t kPage = 200;
/// Certificates that are judged at one state of the database.
constexpr size_t kJudgedPage = 2048;

bool sameHex(ByteView octets, const std::string& digits) {
    return equalIgnoreCase(toHex(octets), digits);
}

/// The database page by page; false from the visitor ends it.
void eachPage(DbManager& database, size_t size, const std::function<bool(const CrtItemList& page)>& visit) {
    CrtItemList page;
    for (int64_t after = 0;; after = page.back().id) {
        page.clear();
        if (!database.readForward(after, size, page)) {
            stopIfEnding();
            throw OpError(OpFault::DatabaseFailed, database.lastFailure());
        }
        if (page.empty() || !visit(page)) return;
    }
}

/// The certificates of the database with that serial number, by the index: none for what is no number. They stand under
/// the hash of the whole element as it was signed, so each form that its length may have is looked for.
CrtItemList withSerial(DbManager& database, const std::string& serial) {
    CrtItemList items;
    const auto octets = fromHex(serial);
    if (!octets || octets->empty()) return items;
    const size_t size = octets->size();
    for (size_t lengthOctets = 0; lengthOctets <= sizeof(uint32_t); ++lengthOctets) {
        if (size >> (lengthOctets == 0 ? 7 : 8 * lengthOctets) != 0) continue;
        Bytes element{ASNinteger::kTag, static_cast<uint8_t>(lengthOctets == 0 ? size : 0x80 + lengthOctets)};
        for (size_t i = lengthOctets; i-- > 0;) element.push_back(static_cast<uint8_t>(size >> 8 * i));
        element.insert(element.end(), octets->begin(), octets->end());
        if (!database.findCertsBySerNumHash(items, hashOf(KcHashAlgo::Sha1, element)))
            throw OpError(OpFault::DatabaseFailed, database.lastFailure());
    }
    return items;
}

/// The reader's words say no reason: the system is asked for it once more.
[[noreturn]] void failUnreadable(const std::string& path) {
    char octet = 0;
    const FileDescriptor file(fileOps().open(expandHome(path), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    const bool fails = !file.valid() || fileOps().read(file.get(), &octet, 1) < 0;
    throw OpError(OpFault::FileUnreadable, fails ? path + ": " + std::strerror(errno) : path);
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
    eachPage(database, kPage, [&](const CrtItemList& page) {
        return std::ranges::all_of(page, [&](const CrtItem& item) {
            stopIfEnding();
            SignedCertificate certificate;
            return !certificate.readExactly(item.der, ASN_FLAG_CONST) || visit(item.id, certificate, item.der);
        });
    });
}

void judgeCerts(Session& session, const CertList* list, const PathOptions& options,
                const std::function<void(const SignedCertificate&, const PathVerdict&)>& tell) {
    const auto judge = [&](const CertList& certificates, const CertList& extra) {
        session.context().certificateManager.buildPaths(certificates, options, extra,
                                                        [&](size_t index, const PathVerdict& verdict) {
                                                            stopIfEnding();
                                                            tell(*certificates[index], verdict);
                                                            return true;
                                                        });
    };
    if (list) return judge(*list, *list);
    eachPage(session.context().dbManager, kJudgedPage, [&](const CrtItemList& page) {
        CertList certificates;
        for (const CrtItem& item : page)
            if (CertPtr one = makeCert(item.der)) certificates.push_back(std::move(one));
        judge(certificates, {});
        return true;
    });
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
        for (const CrtItem& item : withSerial(session.context().dbManager, selector.serial)) {
            if (const CertPtr one = makeCert(item.der)) (void)take(*one, item.der);
        }
        if (found) return found;
        eachCert(session, [&](int64_t, const SignedCertificate& c, ByteView der) { return take(c, der); });
    }
    if (!found) throw OpError(OpFault::ObjectMissing);
    return found;
}

CertFileReader certFileReader(const std::string& path) {
    if (path == "-") return CertFileReader(importFile(path));
    if (!fileExists(expandHome(path))) throw OpError(OpFault::FileMissing, path);
    try {
        return CertFileReader::open(expandHome(path));
    } catch (const StoreError&) {
        failUnreadable(path);
    }
}

bool nextCert(CertFileReader& reader, const std::string& path, ByteView& der) {
    try {
        return reader.next(der);
    } catch (const StoreError&) {
        failUnreadable(path);
    }
}

CertList certsOfFile(const std::string& path) {
    CertFileReader reader = certFileReader(path);
    CertList list;
    ByteView der;
    while (nextCert(reader, path, der)) {
        list.push_back(makeCert(der));
        if (!list.back()) throw OpError(OpFault::BadFile, path + ": " + std::to_string(list.size()));
    }
    if (list.empty() || reader.stoppedEarly()) throw OpError(OpFault::BadFile, path);
    return list;
}

}  // namespace crv
