// A database directory as crvdb looks at it: under the lock, without mending behind the user's back.
#pragma once

#include <map>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "db_sql/db_crl_files.h"
#include "db_sql/db_crv.h"

namespace crvdb {

/// Exit statuses.
enum Status : int { kSound = 0, kDamaged = 1, kUnusable = 2 };

/// What is wrong, said while it is found. The status is the worst of all.
class Findings {
  public:
    explicit Findings(std::ostream& out) : out_(&out) {}
    void add(const std::string& where, const std::string& what, Status status = kDamaged);
    [[nodiscard]] Status status() const { return status_; }

  private:
    std::ostream* out_;
    std::map<std::string, size_t> kinds_;
    Status status_ = kSound;
};

class Directory {
  public:
    /// Takes the shared lock for as long as the object lives. A directory without a lock file is read without one.
    /// Throws StoreError when there is no database or the lock cannot be had.
    explicit Directory(const std::string& path);

    void check(Findings& findings);
    void stat(std::ostream& out);
    /// Writes every record of a table. Throws StoreError for a name that is no table.
    void dump(const std::string& table, std::ostream& out);

  private:
    void checkFiles(Findings& findings) const;
    void checkTables(Findings& findings) const;
    void checkReferences(Findings& findings) const;
    void checkCertificates(Findings& findings) const;
    void checkSides(Findings& findings) const;
    void checkCrls(Findings& findings) const;
    static void checkCrlRows(const crv::CrlFileGuard& crls, const crv::CrlIndex& index, Findings& findings);

    crv::DbCrv db_;
    std::unique_ptr<crv::FileSemaphore> lock_;
    bool cutOff_ = false;  // the mark of a writer that died was found
};

/// Makes the tables anew from their data files under the exclusive lock and puts the other files right, saying what was
/// done. False when something could not be repaired.
bool repair(const std::string& path, std::ostream& out);

}  // namespace crvdb
