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

/// The first octets of the lock file: these letters, the mark, and after it the names, each with this end.
constexpr std::string_view markLetters = "CRVMARK";
constexpr size_t markSize = markLetters.size() + 1;
constexpr char nameEnd = '/';
constexpr char namesEnd = '\n';

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

DbLock::State DbLock::readMark() const {
    std::string octets(markSize + maxNames, '\0');
    const ssize_t n = readUpTo(semaphore_.descriptor(), octets.data(), octets.size(), 0);
    if (n < static_cast<ssize_t>(markSize) || !octets.starts_with(markLetters)) return {};
    State state{static_cast<DbMark>(octets[markSize - 1]), {}};
    if (state.mark < DbMark::none || state.mark > DbMark::swapping) state.mark = DbMark::changing;
    if (state.mark == DbMark::none) return state;
    const std::string names = octets.substr(markSize, octets.find(namesEnd) - markSize);
    for (size_t at = 0, end = 0; (end = names.find(nameEnd, at)) != std::string::npos; at = end + 1) {
        state.names.push_back(names.substr(at, end - at));
    }
    return state;
}

bool DbLock::writeMark(const State& state) const {
    std::string octets = std::string(markLetters) + static_cast<char>(state.mark);
    for (const std::string& name : state.names) octets.append(name).append(1, nameEnd);
    octets += namesEnd;
    return octets.size() <= markSize + maxNames && writeAll(semaphore_.descriptor(), octets.data(), octets.size(), 0);
}

bool DbLock::mend(const State& state) {
    logLine(LogLevel::warning, std::string("database left while ") + nameOf(state.mark) + ", mending: " + path());
    const bool mended = mender_ && mender_(state.mark, state.names) && writeMark({});
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
        const State state = readMark();
        const bool marked = state.mark != DbMark::none;
        if (!marked && asked == mode) break;
        if (marked && asked != sharedLock && !mend(state)) {
            semaphore_.v();
            return Result::needsMending;
        }
        // Mended by us or by somebody else: look again under the lock that was wanted.
        asked = marked && asked == sharedLock ? static_cast<int>(exclusiveLock) : mode;
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
    if (mark_ != DbMark::none && !spoilt_ && !writeMark({})) {
        logLine(LogLevel::error, "mark not cleared: " + path());
    }
    mark_ = DbMark::none;
    semaphore_.v();
}

bool DbLock::beginChange() {
    return mark_ != DbMark::none || setMark(DbMark::changing);
}

bool DbLock::setMark(DbMark mark, const std::vector<std::string>& names) {
    VTEST(depth_ > 0 && mode_ != sharedLock, "src/db/db_lock");
    if (!writeMark({mark, names})) return false;
    // The disk must know of a swap before it sees the first new name.
    if (mark == DbMark::swapping && fileOps().fsync(semaphore_.descriptor()) != 0) {
        static_cast<void>(writeMark({mark_, {}}));
        return false;
    }
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
