#include "db/db_lock.h"

#include <array>
#include <stdexcept>
#include <utility>

#include "misc/bytes.h"
#include "misc/exceptions.h"
#include "misc/file_ops.h"
#include "misc/logger.h"

namespace crv {

namespace {

/// The first octets of the lock file: these letters and the mark.
constexpr std::string_view markLetters = "CRVMARK";
constexpr size_t markSize = markLetters.size() + 1;

}  // namespace

const char* nameOf(DbMark mark) {
    switch (mark) {
        case DbMark::none:
            return "none";
        case DbMark::creating:
            return "creating";
        case DbMark::changing:
            return "changing";
        case DbMark::swapping:
            return "swapping";
    }
    return "unknown";
}

DbLock::DbLock(std::string path) : semaphore_(std::move(path)) {}

DbLock::~DbLock() {
    depth_ = depth_ > 1 ? 1 : depth_;
    release();
}

DbMark DbLock::readMark() const {
    std::array<char, markSize> octets{};
    const ssize_t n = readUpTo(semaphore_.descriptor(), octets.data(), octets.size(), 0);
    if (n != static_cast<ssize_t>(markSize) || std::string_view(octets.data(), markSize - 1) != markLetters) {
        return DbMark::none;
    }
    const auto mark = static_cast<DbMark>(octets.back());
    return mark >= DbMark::none && mark <= DbMark::swapping ? mark : DbMark::changing;
}

bool DbLock::writeMark(DbMark mark) const {
    const std::string octets = std::string(markLetters) + static_cast<char>(mark);
    return writeAll(semaphore_.descriptor(), octets.data(), octets.size(), 0);
}

bool DbLock::mend(DbMark mark) {
    logLine(LogLevel::warning, std::string("database left while ") + nameOf(mark) + ", mending: " + path());
    const bool mended = mender_ && mender_(mark) && writeMark(DbMark::none);
    logLine(mended ? LogLevel::warning : LogLevel::error, (mended ? "mended: " : "not mended: ") + path());
    return mended;
}

DbLock::Result DbLock::acquire(int mode) {
    if (depth_ > 0) {
        if (mode_ == sharedLock && mode != sharedLock) return Result::notHad;
        ++depth_;
        return Result::ok;
    }
    for (int asked = mode;;) {
        if (semaphore_.p(asked) == 0) return asked == mode ? Result::notHad : Result::needsMending;
        const DbMark mark = readMark();
        if (mark == DbMark::none && asked == mode) break;
        if (mark != DbMark::none && asked != sharedLock && !mend(mark)) {
            semaphore_.v();
            return Result::needsMending;
        }
        // Mended by us or by somebody else: look again under the lock that was wanted.
        asked = mark != DbMark::none && asked == sharedLock ? static_cast<int>(exclusiveLock) : mode;
        semaphore_.v();
    }
    mode_ = mode;
    depth_ = 1;
    mark_ = DbMark::none;
    spoilt_ = false;
    return Result::ok;
}

void DbLock::release() {
    if (depth_ == 0 || --depth_ > 0) return;
    if (mark_ != DbMark::none && !spoilt_ && !writeMark(DbMark::none)) {
        logLine(LogLevel::error, "mark not cleared: " + path());
    }
    mark_ = DbMark::none;
    semaphore_.v();
}

bool DbLock::beginChange() {
    return mark_ != DbMark::none || setMark(DbMark::changing);
}

bool DbLock::setMark(DbMark mark) {
    VTEST(depth_ > 0 && mode_ != sharedLock, "src/db/db_lock");
    if (!writeMark(mark)) return false;
    mark_ = mark;
    return true;
}

DbGuard::DbGuard(DbLock& lock, int mode) : lock_(&lock) {
    switch (lock.acquire(mode)) {
        case DbLock::Result::ok:
            return;
        case DbLock::Result::notHad:
            throw std::runtime_error("FileSemaphore::p: blad zajecia semafora");
        case DbLock::Result::needsMending:
            throw std::runtime_error("Baza danych wymaga naprawy: " + lock.path());
    }
}

}  // namespace crv
