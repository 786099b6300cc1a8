#include "db_sql/crt_db.h"

#include <algorithm>

#include "asn/x509/signed_certificate.h"
#include "db_sql/crt_keys.h"
#include "db_sql/crt_records_ahead.h"

namespace crv {

namespace {

using Filter = std::function<bool(const SignedCertificate&)>;

/// Leaves out the certificates behind `first` that the filter does not want, and those that cannot be parsed.
void keepIf(CrtItemList& list, size_t first, const Filter& wanted) {
    const auto refused = [&](const CrtItem& item) {
        SignedCertificate certificate;
        return !certificate.readExactly(item.der, ASN_FLAG_CONST) || !wanted(certificate);
    };
    list.erase(std::remove_if(list.begin() + static_cast<std::ptrdiff_t>(first), list.end(), refused), list.end());
}

void count(ImportProgress& done, InsertResult result) {
    switch (result) {
        case InsertResult::Stored:
            ++done.stored;
            break;
        case InsertResult::Present:
            ++done.present;
            break;
        case InsertResult::Refused:
            ++done.refused;
            break;
    }
}

}  // namespace

bool CrtDb::insert(ByteView der, InsertResult* result) {
    CrtRecord record;
    return makeCrtRecord(der, record) && manager_->insertCert(record, result);
}

bool CrtDb::insert(const SignedCertificate& certificate, InsertResult* result) {
    const Bytes der = certificate.encoded();
    CrtRecord record;
    makeCrtRecord(certificate, der, record);
    return manager_->insertCert(record, result);
}

bool CrtDb::insertBatch(std::span<const CrtRecord> batch, size_t first, const Progress& progress,
                        const Refused& refused, ImportProgress& done, bool& stopped) {
    for (size_t at = 0; at < batch.size() && !stopped;) {
        const auto end = std::chrono::steady_clock::now() + kSliceTime;
        std::vector<InsertOutcome> outcomes;
        size_t handled = 0;
        if (!manager_->insertCerts(
                batch.subspan(at), [&] { return std::chrono::steady_clock::now() >= end; }, outcomes, handled)) {
            return false;
        }
        for (size_t i = 0; i < handled; ++i) {
            count(done, outcomes[i].result);
            if (refused && outcomes[i].result == InsertResult::Refused) refused(first + at + i, outcomes[i].refusal);
        }
        at += handled;
        stopped = progress && !progress(done);
    }
    return true;
}

bool CrtDb::insertMany(const Source& next, const Progress& progress, const Refused& refused, ImportProgress& done) {
    done = {};
    CrtRecordsAhead ahead(next);
    bool stopped = false;
    do {
        const std::span<const CrtRecord> batch = ahead.next();
        if (batch.empty()) break;
        if (!insertBatch(batch, done.handled(), progress, refused, done, stopped)) return false;
    } while (!stopped);
    done.unreadable = ahead.unreadable() && !stopped;
    return true;
}

bool CrtDb::findBySubject(CrtItemList& list, const DistinguishedName& subject) {
    const DbHash hash = dnHash(subject), former = dnHash(subject, NameFolding::Ascii);
    if (!manager_->findCertsBySbjDnHash(list, hash)) return false;
    // Certificates stored before names were folded in Unicode stand under the other hash.
    return former == hash || manager_->findCertsBySbjDnHash(list, former);
}

bool CrtDb::findByIssuerAndSerNum(CrtItemList& list, const DistinguishedName& issuer, const ASNinteger& serialNumber) {
    const size_t first = list.size();
    if (!manager_->findCertsBySerNumHash(list, serNumHash(serialNumber))) return false;
    keepIf(list, first, [&](const SignedCertificate& certificate) { return certificate.issuer() == issuer; });
    return true;
}

bool CrtDb::findBySubjectAndKeyId(CrtItemList& list, const DistinguishedName& subject, ByteView keyId) {
    const size_t first = list.size();
    if (!manager_->findCertsByKeyIdHash(list, keyId)) return false;
    keepIf(list, first, [&](const SignedCertificate& certificate) { return certificate.subject() == subject; });
    return true;
}

bool CrtDb::findByKeyUsage(CrtItemList& list, const DistinguishedName& subject, uint32_t usage, int64_t time) {
    const size_t first = list.size();
    if (!findBySubject(list, subject)) return false;
    keepIf(list, first, [&](const SignedCertificate& certificate) {
        const std::optional<KeyUsage> allowed = certificate.keyUsage();
        return certificate.isValidAt(time) && (!allowed || (allowed->namedBits() & usage) == usage);
    });
    return true;
}

}  // namespace crv
