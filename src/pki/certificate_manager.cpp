#include "pki/certificate_manager.h"
#include "misc/exceptions.h"

#include <algorithm>
#include <new>
#include <utility>

#include "asn/x509/signed_certificate.h"
#include "corvane/crverrors.h"
#include "misc/atomic_write.h"
#include "pki/cert_file_reader.h"
#include "pki/signatures_ahead.h"

namespace crv {

namespace {

/// Certificates from one report of progress to the next.
constexpr size_t kExportStep = 256;
/// Certificates whose signatures are checked ahead in one go.
constexpr size_t kVerdictStep = 256;

PathFault unreadablePolicy() {
    return {ECRV_PATH_VER_ERR, "", "the algorithm policy of the configuration cannot be read"};
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
    bool stopped = false, unread = false;
    const auto step = [&](const ImportProgress& now) {
        stopped = progress && !progress(now);
        return !stopped;
    };
    const auto next = [&](ByteView& der) {
        try {
            return reader->next(der);
        } catch (const StoreError&) {
            unread = true;
            return false;
        }
    };
    if (!db().insertMany(next, step, refused, done)) return TransferEnd::Database;
    if (stopped) return TransferEnd::Stopped;
    if (unread) return TransferEnd::NotRead;
    return done.unreadable || reader->stoppedEarly() ? TransferEnd::BadInput : TransferEnd::Done;
}

TransferEnd CertificateManager::exportCerts(const std::string& path, size_t& count,
                                            const std::function<bool(size_t written)>& progress, int* error) {
    count = 0;
    TransferEnd end = TransferEnd::Done;
    const ContentSource certificates = [&](const ContentSink& put) {
        const auto take = [&](int64_t, ByteView der) {
            if (!put(der)) return false;
            if (++count % kExportStep == 0 && progress && !progress(count)) end = TransferEnd::Stopped;
            return end == TransferEnd::Done;
        };
        // In one go: a compaction by another process in between would move certificates past us.
        if (!database_->visitCerts(take)) end = TransferEnd::Database;
        return end == TransferEnd::Done;
    };
    const WriteResult written = writePiecesAtomically(path, certificates, {WriteMode::KeepOrCommon, true});
    if (written || written.failed == WriteStep::Content) return end;
    if (error) *error = written.error;
    return written.failed == WriteStep::Open ? TransferEnd::NotOpened : TransferEnd::NotWritten;
}

CertList CertificateManager::findBySubject(const DistinguishedName& subject) {
    CertList list;
    const Bytes key = nameKey(subject);
    for (const CertPtr& one : trustPoints())
        if (cache_->facts(one)->subject == key) list.push_back(one);
    const CertList trusted = list;
    CrtItemList items;
    static_cast<void>(db().findBySubject(items, subject));  // without the database the trust points remain
    for (const CrtItem& item : items) {
        CertPtr one = cache_->certificate(item.der);
        if (one && !contains(trusted, *one)) list.push_back(std::move(one));
    }
    return list;
}

CrtStatus CertificateManager::statusOnPath(const PathVerdict& path, size_t index, const PathOptions& options,
                                           const CertList& extra) {
    WorkBudget budget(options.limits);
    return statusOnPath(path, index, options, extra, budget);
}

CrtStatus CertificateManager::statusOnPath(const PathVerdict& path, size_t index, const PathOptions& options,
                                           const CertList& extra, WorkBudget& budget) {
    if (!status_) return {};
    FactsList facts;
    for (const CertPtr& one : path.certs) facts.push_back(cache_->facts(one));
    return status_({facts, index, extra, options, budget});
}

const AlgorithmPolicy* CertificateManager::algorithms() {
    std::optional<std::string> text = policyText_ ? policyText_() : std::nullopt;
    if (!text) text = AlgorithmPolicy::kDefault;
    if (text != policyRead_) policy_ = AlgorithmPolicy::fromText(*text);
    policyRead_ = std::move(text);
    return policy_ ? &*policy_ : nullptr;
}

PathBuilder::IssuerSource CertificateManager::issuersFrom(const CertList& extra) {
    return [this, &extra](const SignedCertificate& certificate) {
        CertList list = extra;
        const CertList stored = findBySubject(certificate.issuer());
        list.insert(list.end(), stored.begin(), stored.end());
        return list;
    };
}

PathVerdict CertificateManager::buildPath(const CertPtr& certificate, const PathOptions& options,
                                          const SubQuestion& question) {
    const AlgorithmPolicy* policy = algorithms();
    if (!policy) return verdictOn({cache_->facts(certificate)}, unreadablePolicy(), 0);
    const PathValidator validator(*cache_, *policy, status_, question.extra);
    PathBuilder builder(*cache_, question.trusted, issuersFrom(question.extra), validator);
    return builder.build(certificate, options, question.budget);
}

void CertificateManager::buildPaths(const CertList& certificates, const PathOptions& options, const CertList& extra,
                                    const VerdictSink& sink) {
    const AlgorithmPolicy* policy = algorithms();
    if (!policy) {
        size_t i = 0;
        const auto tell = [&](const CertPtr& one) {
            return sink(i++, verdictOn({cache_->facts(one)}, unreadablePolicy(), 0));
        };
        static_cast<void>(std::ranges::all_of(certificates, tell));
        return;
    }
    std::map<Bytes, CertList> known;  // by the issuer's name as it is encoded
    const auto issuers = [&, find = issuersFrom(extra)](const SignedCertificate& certificate) {
        const auto [at, fresh] = known.try_emplace(certificate.issuer().encoded());
        if (fresh) at->second = find(certificate);
        return at->second;
    };
    const PathValidator validator(*cache_, *policy, status_, extra);
    PathBuilder builder(*cache_, trustPoints(), issuers, validator);
    SignaturesAhead ahead(*cache_);
    const auto beginSlice = [&](size_t from) {
        std::vector<SignaturesAhead::Task> tasks;
        for (size_t i = from; i < std::min(from + kVerdictStep, certificates.size()); ++i) {
            const FactsPtr facts = cache_->facts(certificates[i]);
            if (const FactsPtr issuer = builder.likelyIssuer(*facts)) tasks.push_back({facts, keyOf(*issuer, {})});
        }
        ahead.begin(std::move(tasks));
    };
    const uint64_t state = WorkBudget::nextQuestion();
    beginSlice(0);
    for (size_t i = 0; i < certificates.size(); ++i) {
        if (i % kVerdictStep == 0) {
            beginSlice(i + kVerdictStep);
            ahead.finish();
        }
        WorkBudget budget(options.limits, state);
        if (!sink(i, builder.build(certificates[i], options, budget))) return;
    }
}

PathVerdict CertificateManager::buildPath(const CertPtr& certificate, const PathOptions& options,
                                          const CertList& extra) {
    WorkBudget budget(options.limits);
    return buildPath(certificate, options, {trustPoints(), extra, budget});
}

PathVerdict CertificateManager::checkPath(const CertList& path, const PathOptions& options) {
    FactsList facts;
    for (const CertPtr& one : path) facts.push_back(cache_->facts(one));
    if (path.empty() || !contains(trustPoints(), *path.back()))
        return verdictOn(facts, {ECRV_CRTNOTFOUND, "6.1.1 (d)", "the path ends at no trust point"}, 0);
    if (path.size() > options.depth)
        return verdictOn(facts, {ECRV_PATH_VER_ERR, "6.1", "more certificates than the depth allows"}, 0);
    const AlgorithmPolicy* policy = algorithms();
    if (!policy) return verdictOn(facts, unreadablePolicy(), 0);
    WorkBudget budget(options.limits);
    return PathValidator(*cache_, *policy, status_, path).validate(facts, options, budget);
}

}  // namespace crv
