#include "pki/certificate_manager.h"
#include "misc/exceptions.h"

#include <algorithm>
#include <new>
#include <utility>

#include "asn/x509/signed_certificate.h"
#include "misc/atomic_write.h"
#include "pki/cert_file_reader.h"

namespace crv {

namespace {

/// Certificates from one report of progress to the next.
constexpr size_t kExportStep = 256;

TransferEnd databaseFailure(const DbManager& database) {
    return database.outOfMemory() ? TransferEnd::NoMemory : TransferEnd::Database;
}

}  // namespace

void CertificateManager::init(DbManager& database, CertificateCache& cache, TrustSource trustPoints) {
    database_ = &database;
    cache_ = &cache;
    trustPoints_ = std::move(trustPoints);
}

CertList CertificateManager::readCerts(const std::string& path) {
    CertFileReader reader = CertFileReader::open(path);
    CertList list;
    for (ByteView der; reader.next(der);) {
        CertPtr certificate = makeCert(der);
        if (!certificate) break;
        list.push_back(std::move(certificate));
    }
    return list;
}

TransferEnd CertificateManager::importCerts(const std::string& path, const CrtDb::Progress& progress,
                                            ImportProgress& done, const CrtDb::Refused& refused) {
    std::optional<CertFileReader> reader;
    try {
        reader = CertFileReader::open(path);
    } catch (const StoreError&) {
        return TransferEnd::NotOpened;
    }
    bool stopped = false;
    const auto step = [&](const ImportProgress& now) {
        stopped = progress && !progress(now);
        return !stopped;
    };
    const auto next = [&](ByteView& der) { return reader->next(der); };
    if (!db().insertMany(next, step, refused, done)) return databaseFailure(*database_);
    if (stopped) return TransferEnd::Stopped;
    return done.unreadable || reader->stoppedEarly() ? TransferEnd::BadInput : TransferEnd::Done;
}

TransferEnd CertificateManager::exportCerts(const std::string& path, size_t& count,
                                            const std::function<bool(size_t written)>& progress) {
    Bytes content;
    bool stopped = false;
    count = 0;
    const auto take = [&](int64_t, ByteView der) {
        content.insert(content.end(), der.begin(), der.end());
        stopped = ++count % kExportStep == 0 && progress && !progress(count);
        return !stopped;
    };
    // In one go: a compaction by another process in between would move certificates past us.
    if (!database_->visitCerts(take)) return databaseFailure(*database_);
    if (stopped) return TransferEnd::Stopped;
    const WriteResult written = writeFileAtomically(path, content, {WriteMode::KeepOrCommon, /*inPlaceFallback=*/true});
    if (written) return TransferEnd::Done;
    return written.failed == WriteStep::Open ? TransferEnd::NotOpened : TransferEnd::NotWritten;
}

CertList CertificateManager::findBySubject(const DistinguishedName& subject) {
    CertList list;
    for (const CertPtr& one : trustPoints()) {
        if (one->subject() == subject) list.push_back(one);
    }
    const CertList trusted = list;
    CrtItemList items;
    static_cast<void>(db().findBySubject(items, subject));  // without the database the trust points remain
    for (const CrtItem& item : items) {
        CertPtr one = cache_->certificate(item.der);
        if (one && !contains(trusted, *one)) list.push_back(std::move(one));
    }
    return list;
}

CertPath CertificateManager::buildPath(const CertPtr& certificate, const PathOptions& options, const CertList& extra) {
    const auto issuers = [&](const SignedCertificate& of) {
        CertList list = extra;
        const CertList stored = findBySubject(of.issuer());
        list.insert(list.end(), stored.begin(), stored.end());
        return list;
    };
    return PathBuilder(*cache_, trustPoints(), issuers, status_).build(certificate, options);
}

}  // namespace crv
