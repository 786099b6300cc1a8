// The lock of a database directory and the mark that tells a change cut off by a crash.
#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "misc/file_semaphore.h"

namespace crv {

/// What was going on under the exclusive lock; kept in the first octets of the lock file.
enum class DbMark : char {
    None = '0',
    Creating = '1',     ///< the files of the database are being made
    Changing = '2',     ///< records or pages are being written
    Swapping = '3',     ///< complete new files are being renamed over the old ones
    ChangingCrls = '4'  ///< CRL files are being written; older versions take it for a change of the tables, too
};

const char* nameOf(DbMark mark);

/// The lock "db.lck" that all stores of one connection share. Taking it looks at the mark first: a mark that is set
/// means that its writer died, and the mender is called under the exclusive lock before anybody goes on. Programs that
/// know nothing of the mark do no harm: the octets mean nothing to them.
///
/// acquire() nests: under a lock held already by this object it only counts. Used by one thread at a time.
class DbLock {
  public:
    enum class Result {
        Ok,
        NotHad,       ///< the lock cannot be taken
        NeedsMending  ///< the mark is set and mending failed or is not permitted to this user
    };
    /// Mends a database found with the mark; true when it is sound again. Runs under the exclusive lock. The names are
    /// those given with the mark.
    using Mender = std::function<bool(DbMark mark, const std::vector<std::string>& names)>;

    explicit DbLock(std::string path);
    /// Releases a lock still held.
    ~DbLock();
    DbLock(const DbLock&) = delete;
    DbLock& operator=(const DbLock&) = delete;

    /// Whether marks are on the disk before anything happens under them (the default); off only for measuring.
    void setSync(bool on) { sync_ = on; }
    [[nodiscard]] bool syncs() const { return sync_; }
    void setMender(Mender mender) { mender_ = std::move(mender); }
    /// For a mender that leaves the work to whoever gets the exclusive lock: the mark stays, as that of his change.
    void keepMark() { keepsMark_ = true; }

    /// Waits for the lock (LockMode). An exclusive one cannot be had under a shared one.
    [[nodiscard]] Result acquire(int mode);
    /// As acquire(kSharedLock), but neither waits nor mends: NotHad while somebody else changes the database.
    [[nodiscard]] Result acquireIfSound();
    /// Clears the mark, unless the change was spoilt, and releases the lock.
    void release();
    [[nodiscard]] bool held() const { return depth_ > 0; }

    /// Sets the mark when no mark is set yet, or one of CRL files only. Called before each write; needs the exclusive
    /// lock. Tables bound to the lock call it themselves.
    [[nodiscard]] bool beginChange(DbMark mark = DbMark::Changing);
    /// Sets a mark, replacing the present one, with the base names of the tables that it is about (file names; all
    /// together at most maxNames octets).
    [[nodiscard]] bool setMark(DbMark mark, const std::vector<std::string>& names = {});
    static constexpr size_t kMaxNames = 1000;
    /// A change failed half-way: the mark stays when the lock is released, so the next one who takes it mends.
    void spoil() { spoilt_ = true; }

    [[nodiscard]] const std::string& path() const { return semaphore_.path(); }

  private:
    struct State {
        DbMark mark = DbMark::None;
        std::vector<std::string> names;
    };
    [[nodiscard]] State readMark() const;
    [[nodiscard]] bool writeMark(const State& state) const;
    [[nodiscard]] bool clearMark(DbMark mark);
    [[nodiscard]] bool mend(const State& state);

    FileSemaphore semaphore_;
    Mender mender_;
    int mode_ = kSharedLock;
    int depth_ = 0;
    DbMark mark_ = DbMark::None;
    bool spoilt_ = false;
    bool keepsMark_ = false;
    bool sync_ = true;
};

/// A change in steps under the lock: the mark stays unless it came to its end, whatever ended it. The lock may be null.
class DbChange {
  public:
    explicit DbChange(DbLock* lock) : lock_(lock) {}
    ~DbChange() {
        if (lock_) lock_->spoil();
    }
    DbChange(const DbChange&) = delete;
    DbChange& operator=(const DbChange&) = delete;

    /// Answers whether it was done, as it is told.
    bool end(bool done) {
        if (done) lock_ = nullptr;
        return done;
    }

  private:
    DbLock* lock_;
};

/// Holds a database lock for a scope. The constructor throws StoreError: "FileSemaphore::p: blad zajecia
/// semafora", or "Baza danych wymaga naprawy: " and the path of the lock file.
class DbGuard {
  public:
    DbGuard(DbLock& lock, int mode);
    ~DbGuard() { lock_->release(); }
    DbGuard(const DbGuard&) = delete;
    DbGuard& operator=(const DbGuard&) = delete;

  private:
    DbLock* lock_;
};

}  // namespace crv
