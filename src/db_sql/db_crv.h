// The file database of a profile: its directory, the set of files in it and their lock.
#pragma once

#include <array>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "db/db_lock.h"
#include "db_sql/db_layout.h"

namespace crv {

/// What isDbCreated() found; the values are the library's status codes.
enum class DbState : int {
    Complete = 0,
    Incomplete = 2,
    OtherVersion = 46,  ///< of an older format, or a version marker that is none
    Missing = 47,
    NoAccess = 49
};

/// Expands "~/" and ends the path with a slash. False for an empty path and for more than 255 characters.
[[nodiscard]] bool buildDBDirectory(const std::string& path, std::string& directory);

/// Copies one file of a database; throws StoreError with the texts of readFile and writeFile.
void copyDbFile(const std::string& from, const std::string& to);

class DbCrv {
  public:
    /// The files that a complete database has, in the order in which they are counted.
    static const std::array<std::string_view, 11> m_dbFileNames;

    /// Binds the object to a directory; nothing is read. Throws StoreError "DbCrv::connect. Blad wywolania
    /// funkcji: buildDBDirectory".
    void connect(const std::string& path);

    [[nodiscard]] const std::string& directory() const { return directory_; }
    [[nodiscard]] std::string pathOf(std::string_view name) const { return directory_ + std::string(name); }
    /// The path of the lock file.
    [[nodiscard]] std::string createSemaforeName() const { return pathOf(kLockFileName); }
    /// The lock that every store of this connection uses.
    [[nodiscard]] DbLock& lock() { return *lock_; }

    /// Called when a change was cut off and the indexes of the tables are sound again: makes the side records and CRL
    /// files agree with the certificates and the CRL index. Runs under the exclusive lock; false when it cannot.
    void setStoreMender(std::function<bool()> mender) { storeMender_ = std::move(mender); }

    /// Hears how far mending after a crash has come: it takes minutes where there are a million certificates.
    using MendProgress = std::function<void(int percent)>;
    void setMendProgress(MendProgress progress) { mendProgress_ = std::move(progress); }
    void reportMending(int percent) const {
        if (mendProgress_) mendProgress_(percent);
    }
    /// Making the indexes is so much of the whole, side records the rest.
    static constexpr int kIndexPercent = 40;

    /// How many files of the list exist; -1 when one cannot be reached.
    [[nodiscard]] int getFilesCount() const;
    /// Mends first what a crash left. Throws like DbGuard when that cannot be done.
    [[nodiscard]] DbState isDbCreated();
    /// The same from the files alone: takes no lock and mends nothing.
    [[nodiscard]] DbState stateOfFiles() const;
    /// Makes the directory and every file; nothing to do for a complete database. Deletes what it made when it fails.
    /// Throws StoreError: "DbCrv::create. Blad tworzenia katalogu baz danych" (also when some files exist), or
    /// the text of the table or file that failed.
    void create();
    /// Copies every file of the list to another directory, which is made when missing.
    void copyDb(const std::string& destination);

    /// Mends the tables after a crash (DbLock::Mender): deletes files half made, makes the indexes anew, or ends a
    /// swap.
    [[nodiscard]] bool mend(DbMark mark, const std::vector<std::string>& names);

    /// Deletes side records whose certificate is not there; answers how many, or -1 on failure. Needs sound tables and
    /// the exclusive lock.
    [[nodiscard]] int64_t removeDangling();

  private:
    [[nodiscard]] bool mendChange();
    [[nodiscard]] bool holdsAnything() const;
    [[nodiscard]] bool hasLayout(const TableLayout& layout) const;
    void removeLeftovers(DbMark mark) const;
    [[nodiscard]] bool mendCrls();
    void makeFiles();
    void removeFiles();

    std::string directory_;
    std::unique_ptr<DbLock> lock_;
    std::function<bool()> storeMender_;
    MendProgress mendProgress_;
};

}  // namespace crv
