#include "ops/database_copy.h"

#include "db_sql/db_manager.h"
#include "misc/file_ops.h"
#include "ops/database_files.h"
#include "ops/database_server.h"
#include "ops/op_error.h"
#include "profiles/crv_profile.h"

namespace crv {

namespace {

constexpr size_t kBatch = 2048;

void demand(const DbManager& database, bool done) {
    stopIfEnding();
    if (!done) throw OpError(OpFault::DatabaseFailed, database.lastFailure());
}

void open(DbManager& database, const CrvProfile& profile, const OpMode& mode) {
    waitForDatabase(profile, mode);
    database.init(profile.dbConfig());
    const DbState state = database.isDbCreated();
    if (state == DbState::Missing) throw OpError(OpFault::DatabaseMissing, databaseName(profile));
    if (state == DbState::Complete) return;
    const std::string& text = database.lastFailure();
    throw OpError(OpFault::DatabaseFailed, text.empty() ? databaseName(profile) : text);
}

class DbCopy {
  public:
    DbCopy(DbManager& from, DbManager& to, bool dry, const std::function<void(const DbCopied&)>& progress)
        : from_(from), to_(to), dry_(dry), progress_(progress) {}

    DbCopied run() {
        demand(from_, from_.countCerts(done_.certificatesThere));
        copyCertificates();
        copyCrls();
        copyServers();
        return done_;
    }

  private:
    void copyCertificates() {
        while (readBatch()) demand(to_, storeBatch());
    }

    /// The certificates that follow the last one, which is read once more: where another stands in its place the table
    /// was compacted, and the walk begins anew; what was copied is there. Nothing is locked when this returns.
    bool readBatch() {
        const bool goesOn = last_.id > 0;
        CrtItemList page;
        demand(from_, from_.readForward(goesOn ? last_.id - 1 : 0, kBatch + 1, page));
        if (goesOn && (page.empty() || page.front() != last_)) {
            last_ = {};
            return readBatch();
        }
        if (goesOn) page.erase(page.begin());
        if (page.empty()) return false;
        last_ = page.back();
        for (CrtItem& item : page) batch_.push_back(std::move(item.der));
        return true;
    }

    /// An import ends at what is no certificate; here that one is left out.
    bool storeBatch() {
        for (size_t first = 0; first < batch_.size();) {
            ImportProgress part;
            const auto next = [&, at = first](ByteView& der) mutable {
                return at < batch_.size() && (der = batch_[at++], true);
            };
            const CrtDb::Progress goOn = [](const ImportProgress&) { return !processEnding(); };
            if (dry_) {
                part.stored = batch_.size();
            } else if (!CrtDb(to_).insertMany(next, goOn, nullptr, part)) {
                return false;
            }
            done_.certificates.stored += part.stored;
            done_.certificates.present += part.present;
            done_.certificates.refused += part.refused + (part.unreadable ? 1 : 0);
            stopIfEnding();
            first += part.handled() + (part.unreadable ? 1 : 0);
        }
        batch_.clear();
        tellProgress();
        return true;
    }

    void copyCrls() {
        CrlIndex index;
        demand(from_, from_.getCrlIndex(index));
        done_.crlsThere = index.size();
        for (const CrlIndexEntry& row : index) {
            Bytes der;
            tellProgress();
            if (!from_.getCrlByFileNum(row.fileNumber(), der)) {
                const StoreCause cause = from_.lastCause();
                demand(from_, cause == StoreCause::NotFound || cause == StoreCause::Damaged);
                ++done_.crlsLeftOut;
                continue;
            }
            const CrlInsert result = dry_ ? CrlInsert::Stored : to_.insertCrl(der, row.isVerified());
            demand(to_, result != CrlInsert::Failed);
            ++(result == CrlInsert::Stored ? done_.crls : done_.crlsPresent);
        }
        tellProgress();
    }

    void tellProgress() const {
        if (progress_) progress_(done_);
    }

    void copyServers() {
        SrvStore::Numbers numbers, there;
        demand(from_, from_.getLastImportNrs(numbers));
        demand(to_, to_.getLastImportNrs(there));
        for (const auto& [name, number] : numbers) {
            if (there.contains(name) && there[name] >= number) continue;
            demand(to_, dry_ || to_.setLastImportNr(name, number));
            ++done_.servers;
        }
    }

    DbManager &from_, &to_;
    bool dry_;
    const std::function<void(const DbCopied&)>& progress_;
    CrtItem last_;  // of the source
    std::vector<Bytes> batch_;
    DbCopied done_;
};

/// What is the same for two names of one database; empty where nobody can tell.
std::string identityOf(const CrvProfile& profile) {
    const DbConfig& config = profile.dbConfig();
    std::string directory;
    struct stat info {};
    if (connFactory(config).dbType == kDbKindPg) return serverIdentity(profile);
    if (connFactory(config).dbType != kDbKindFile || !buildDBDirectory(config.db, directory)) return {};
    if (fileOps().stat(directory, &info) != 0) return {};
    return std::to_string(info.st_dev) + ":" + std::to_string(info.st_ino);
}

}  // namespace

std::string databaseName(const CrvProfile& profile) {
    const DbConfig& config = profile.dbConfig();
    return connFactory(config).dbType == kDbKindFile ? config.db : profile.name() + " (" + config.type() + ")";
}

DbCopied copyDatabase(const CrvProfile& from, const CrvProfile& to, const OpMode& mode,
                      const std::function<void(const DbCopied&)>& progress) {
    if (from.dbConfig() == to.dbConfig()) throw OpError(OpFault::SameDatabase, to.name());
    DbManager source, target;
    open(source, from, mode);
    open(target, to, mode);
    const std::string place = identityOf(from);
    if (!place.empty() && place == identityOf(to)) throw OpError(OpFault::SameDatabase, to.name());
    return DbCopy(source, target, mode.dryRun, progress).run();
}

}  // namespace crv
