// The certificates of the current profile's database: reading, importing, exporting, searching, checking.
#pragma once

#include <functional>
#include <string>

#include "db_sql/crt_db.h"
#include "pki/certificate_cache.h"
#include "pki/path_builder.h"

namespace crv {

/// What an import or export ended with.
enum class TransferEnd {
    Done,
    BadInput,  ///< at octets that are no certificate; what came before is stored
    Stopped,   ///< the caller stopped it
    NotOpened,
    NotRead,  ///< reading failed later on; what came before is stored
    NotWritten,
    Database  ///< the database failed (DbManager::lastCause)
};

/// One per library context, used by one thread at a time.
class CertificateManager {
  public:
    /// The trust points at the time of the call.
    using TrustSource = std::function<CertList()>;

    /// Binds the manager; all three live as long as it is used.
    void init(DbManager& database, CertificateCache& cache, TrustSource trustPoints);
    /// Who knows about revocation; without it paths are checked without.
    void setStatusSource(StatusSource status) { status_ = std::move(status); }
    [[nodiscard]] const StatusSource& statusSource() const { return status_; }
    /// Text of the algorithm policy at the time of the call; nothing means the default (see algorithm_policy.h).
    using PolicySource = std::function<std::optional<std::string>()>;
    void setAlgorithmPolicy(PolicySource policy) { policyText_ = std::move(policy); }
    /// The policy that holds now; null when its text cannot be read.
    [[nodiscard]] const AlgorithmPolicy* algorithms();

    [[nodiscard]] DbManager& database() const { return *database_; }
    [[nodiscard]] CrtDb db() const { return CrtDb(*database_); }
    [[nodiscard]] CertificateCache& cache() const { return *cache_; }
    [[nodiscard]] CertList trustPoints() const { return trustPoints_ ? trustPoints_() : CertList(); }

    /// The certificates of a file in any usual form (see CertFileReader), up to what is none. Throws
    /// StoreError when the file cannot be read.
    [[nodiscard]] CertList readCerts(const std::string& path);
    /// Stores every certificate of a file; progress may stop it and is told after each slice. done counts.
    TransferEnd importCerts(const std::string& path, const CrtDb::Progress& progress, ImportProgress& done,
                            const CrtDb::Refused& refused = nullptr);
    /// Writes every certificate of the database in its order, DER behind DER. The file appears when it is complete.
    /// error receives the errno of a file that cannot be opened or written.
    TransferEnd exportCerts(const std::string& path, size_t& count,
                            const std::function<bool(size_t written)>& progress = nullptr, int* error = nullptr);

    /// Removes the certificates that expired before the time and compacts the database. False when it fails.
    bool removeCertsOverTime(int64_t time, CrtStore::Removed& result) { return db().removeCertsOverTime(time, result); }

    /// Builds a path from the certificate to a trust point through `extra` and the database, and checks it.
    [[nodiscard]] PathVerdict buildPath(const CertPtr& certificate, const PathOptions& options,
                                        const CertList& extra = {});
    /// Hears the verdict on one of many; false ends the work.
    using VerdictSink = std::function<bool(size_t index, const PathVerdict& verdict)>;
    /// The same for many certificates in their order, all at the state in which the first finds the database. Their
    /// signatures are checked ahead by a thread a processor; everything else, the sink too, runs on the caller's.
    void buildPaths(const CertList& certificates, const PathOptions& options, const CertList& extra,
                    const VerdictSink& sink);
    /// Checks the given path, which runs from the certificate to a trust point, as it stands.
    [[nodiscard]] PathVerdict checkPath(const CertList& path, const PathOptions& options);
    /// The status at a time of a certificate on a path that was built; its options are those of the path but the time.
    [[nodiscard]] CrtStatus statusOnPath(const PathVerdict& path, size_t index, const PathOptions& options,
                                         const CertList& extra);
    /// The same at the cost of the caller's budget.
    [[nodiscard]] CrtStatus statusOnPath(const PathVerdict& path, size_t index, const PathOptions& options,
                                         const CertList& extra, WorkBudget& budget);

    /// What is asked in the course of another question: whom to trust, and the work that both may cost.
    struct SubQuestion {
        const CertList& trusted;
        const CertList& extra;
        WorkBudget& budget;
    };
    [[nodiscard]] PathVerdict buildPath(const CertPtr& certificate, const PathOptions& options,
                                        const SubQuestion& question);
    /// Certificates in the database and among the trust points that have the name as subject.
    [[nodiscard]] CertList findBySubject(const DistinguishedName& subject);

  private:
    [[nodiscard]] PathBuilder::IssuerSource issuersFrom(const CertList& extra);

    DbManager* database_ = nullptr;
    CertificateCache* cache_ = nullptr;
    TrustSource trustPoints_;
    StatusSource status_;
    PolicySource policyText_;
    std::optional<std::string> policyRead_;  // the text that `policy_` was made from
    std::optional<AlgorithmPolicy> policy_;
};

}  // namespace crv
