#include "db/db_lock.h"

#include <array>
#include <utility>

#include "misc/atomic_write.h"
#include "misc/bytes.h"
#include "misc/exceptions.h"
#include "misc/file_ops.h"
#include "misc/logger.h"

namespace crv {

namespace {

/// The first octets of the lock file: these letters, the mark, and after it the names, each with this end.
constexpr std::string_view kMarkLetters = "CRVMARK";
constexpr size_t kMarkSize = kMarkLetters.size() + 1;
constexpr char kNameEnd = '/';
constexpr char kNamesEnd = '\n';

}  // namespace

const char* nameOf(DbMark mark) {
    switch (mark) {
        case DbMark::None:
            return "none";
        case DbMark::Creating:
            return "creating";
        case DbMark::Changing:
            return "changing";
        case DbMark::Swapping:
            return "swapping";
        case DbMark::ChangingCrls:
            return "changing CRLs";
    }
    return "unknown";
}

DbLock::DbLock(std::string path) : semaphore_(std::move(path)) {}

DbLock::~DbLock() {
    depth_ = depth_ > 1 ? 1 : depth_;
    release();
}

DbLock::State DbLock::readMark() const {
    // Mostly there is none, and the first octets say so.
    std::array<char, kMarkSize> first{};
    const int fd = semaphore_.descriptor();
    if (readUpTo(fd, first.data(), first.size(), 0) < static_cast<ssize_t>(first.size())) return {};
    const std::string_view mark(first.data(), first.size());
    if (!mark.starts_with(kMarkLetters) || mark.back() == static_cast<char>(DbMark::None)) return {};
    std::string octets(kMarkSize + kMaxNames, '\0');
    const ssize_t n = readUpTo(fd, octets.data(), octets.size(), 0);
    if (n < static_cast<ssize_t>(kMarkSize)) return {};
    State state{static_cast<DbMark>(octets[kMarkSize - 1]), {}};
    if (state.mark < DbMark::None || state.mark > DbMark::ChangingCrls) state.mark = DbMark::Changing;
    const std::string_view behind = std::string_view{octets}.substr(kMarkSize, static_cast<size_t>(n) - kMarkSize);
    const size_t end = behind.find(kNamesEnd);
    const std::string_view names = behind.substr(0, end);
    // The names stand twice (older versions: once, and the file ended behind them). A mark that was cut off was never
    // synced, so nothing has been renamed yet and the tables are those from before.
    const bool whole = end != std::string_view::npos &&
                       (behind.size() == end + 1 || behind.substr(end + 1).starts_with(behind.substr(0, end + 1)));
    if (state.mark == DbMark::Swapping && (!whole || names.empty())) return {DbMark::Changing, {}};
    for (size_t at = 0, next = 0; (next = names.find(kNameEnd, at)) != std::string_view::npos; at = next + 1) {
        state.names.emplace_back(names.substr(at, next - at));
    }
    return state;
}

bool DbLock::writeMark(const State& state) const {
    std::string names;
    for (const std::string& name : state.names) names.append(name).append(1, kNameEnd);
    names += kNamesEnd;
    std::string octets = std::string(kMarkLetters) + static_cast<char>(state.mark) + names;
    if (state.mark == DbMark::Swapping) octets += names;
    return octets.size() <= kMarkSize + kMaxNames && writeAll(semaphore_.descriptor(), octets.data(), octets.size(), 0);
}

/// A mark that comes back after a power cut costs a mending. But "swapping" would make the files of the next swap count
/// before they are whole.
bool DbLock::clearMark(DbMark mark) {
    return writeMark({}) && (mark != DbMark::Swapping || !sync_ || fileOps().fsync(semaphore_.descriptor()) == 0);
}

bool DbLock::mend(const State& state) {
    logLine(LogLevel::Warning, std::string("database left while ") + nameOf(state.mark) + ", mending: " + path());
    const bool mended = mender_ && mender_(state.mark, state.names) && (keepsMark_ || clearMark(state.mark));
    logLine(mended ? LogLevel::Warning : LogLevel::Error, (mended ? "mended: " : "not mended: ") + path());
    return mended;
}

DbLock::Result DbLock::acquire(int mode) {
    if (depth_ > 0) {
        if (mode_ == kSharedLock && mode != kSharedLock) return Result::NotHad;
        ++depth_;
        return Result::Ok;
    }
    DbMark found = DbMark::None;
    for (int asked = mode;;) {
        if (semaphore_.p(asked) == 0) return asked == mode ? Result::NotHad : Result::NeedsMending;
        bool marked = false, mended = true;
        keepsMark_ = false;
        try {
            const State state = readMark();
            found = state.mark;
            marked = found != DbMark::None;
            mended = !marked || asked == kSharedLock || mend(state);
        } catch (...) {  // memory ran out
            semaphore_.v();
            throw;
        }
        if (!mended) {
            semaphore_.v();
            return Result::NeedsMending;
        }
        if (asked == mode && (!marked || keepsMark_)) break;
        // Mended by us or by somebody else: look again under the lock that was wanted.
        asked = marked && asked == kSharedLock ? static_cast<int>(kExclusiveLock) : mode;
        semaphore_.v();
    }
    mode_ = mode;
    depth_ = 1;
    mark_ = found;
    spoilt_ = false;
    return Result::Ok;
}

DbLock::Result DbLock::acquireIfSound() {
    if (depth_ > 0) return acquire(kSharedLock);
    if (semaphore_.pCond(kSharedLock) == 0) return Result::NotHad;
    bool marked = true;
    try {
        marked = readMark().mark != DbMark::None;
    } catch (...) {  // memory ran out
        semaphore_.v();
        throw;
    }
    if (marked) {
        semaphore_.v();
        return Result::NeedsMending;
    }
    mode_ = kSharedLock;
    depth_ = 1;
    mark_ = DbMark::None;
    spoilt_ = false;
    return Result::Ok;
}

void DbLock::release() {
    if (depth_ == 0 || --depth_ > 0) return;
    if (mark_ != DbMark::None && !spoilt_ && !clearMark(mark_)) {
        logLine(LogLevel::Error, "mark not cleared: ", path());
    }
    mark_ = DbMark::None;
    semaphore_.v();
}

bool DbLock::beginChange(DbMark mark) {
    return (mark_ != DbMark::None && mark_ != DbMark::ChangingCrls) || mark_ == mark || setMark(mark);
}

bool DbLock::setMark(DbMark mark, const std::vector<std::string>& names) {
    VTEST(depth_ > 0 && mode_ != kSharedLock, "src/db/db_lock");
    if (!writeMark({mark, names})) return false;
    // The disk must know of a change before it sees the first octet of it.
    const bool synced = !sync_ || (fileOps().fsync(semaphore_.descriptor()) == 0 &&
                                   (mark != DbMark::Creating || syncFolder(folderOf(path()))));
    if (!synced) static_cast<void>(writeMark({mark_, {}}));
    if (synced) mark_ = mark;
    return synced;
}

DbGuard::DbGuard(DbLock& lock, int mode) : lock_(&lock) {
    switch (lock.acquire(mode)) {
        case DbLock::Result::Ok:
            return;
        case DbLock::Result::NotHad:
            throw StoreError(StoreCause::NotLocked, "FileSemaphore::p: blad zajecia semafora");
        case DbLock::Result::NeedsMending:
            throw StoreError(StoreCause::NeedsMending, "Baza danych wymaga naprawy: " + lock.path());
    }
}

}  // namespace crv
