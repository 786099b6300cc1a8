#include "misc/atomic_write.h"

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <new>
#include <vector>

#include "misc/exceptions.h"
#include "misc/file_ops.h"
#include "misc/logger.h"
#include "misc/secret.h"
#include "misc/whole_file.h"

namespace crv {

namespace {

constexpr int kMaxLinks = 40;
constexpr int kMaxTries = 1000;
constexpr mode_t kSecretMode = 0600;
constexpr mode_t kCommonMode = 0644;
/// Seconds; writing a whole file takes a moment.
constexpr std::time_t kStaleAfter = 60;
constexpr mode_t kPermissionBits = 0777;
constexpr mode_t kSharedBits = 0770;  // of keys: owner and group

WriteResult failed(WriteStep step) {
    return {step, errno};
}

/// In a folder where everybody may write, somebody else's link leads nowhere: it could be there to have a file of the
/// writer's overwritten. The folder's owner, who could do anything there, is believed.
bool mayFollow(const std::string& path, const struct stat& link) {
    if (link.st_uid == ::geteuid()) return true;
    struct stat folder {};
    if (fileOps().stat(folderOf(path) + ".", &folder) != 0) return false;
    if ((folder.st_mode & S_IWOTH) == 0 || folder.st_uid == link.st_uid) return true;
    errno = EACCES;
    return false;
}

/// Follows symbolic links by hand, so that a link whose target does not exist yet leads to the target's name.
bool resolve(std::string& path) {
    for (int i = 0; i < kMaxLinks; ++i) {
        struct stat info {};
        if (fileOps().lstat(path, &info) != 0) return errno == ENOENT;
        if (!S_ISLNK(info.st_mode)) return true;
        std::string target;
        if (!mayFollow(path, info) || fileOps().readlink(path, target) != 0) return false;
        path = !target.empty() && target[0] == '/' ? target : folderOf(path) + target;
    }
    errno = ELOOP;
    return false;
}

/// A file that disappears again unless it was kept.
class TemporaryFile {
  public:
    explicit TemporaryFile(const std::string& folder) {
        static std::atomic<unsigned> counter{0};
        for (int i = 0; i < kMaxTries && !fd_.valid(); ++i) {
            path_ = folder + ".crv-" + std::to_string(::getpid()) + "-" + std::to_string(counter++) + ".tmp";
            fd_.reset(fileOps().open(path_, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, kSecretMode));
            if (!fd_.valid() && errno != EEXIST) break;
        }
        exists_ = fd_.valid();
    }
    ~TemporaryFile() {
        const int saved = errno;
        if (exists_) fileOps().unlink(path_);
        errno = saved;
    }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    [[nodiscard]] bool exists() const { return exists_; }
    [[nodiscard]] int fd() const { return fd_.get(); }
    bool renameTo(const std::string& path) {
        if (fileOps().rename(path_, path) != 0) return false;
        exists_ = false;
        return true;
    }

  private:
    std::string path_;
    FileDescriptor fd_;
    bool exists_ = false;
};

/// A file system that knows no modes may refuse to set the one that it shows anyway.
bool setMode(int fd, mode_t rights) {
    struct stat now {};
    return fileOps().fchmod(fd, rights) == 0 ||
           (fileOps().fstat(fd, &now) == 0 && (now.st_mode & kPermissionBits) == rights);
}

bool setRights(int fd, const struct stat* old, WriteMode mode) {
    mode_t rights = mode == WriteMode::KeepOrCommon ? kCommonMode : kSecretMode;
    if (old && mode != WriteMode::Private) {
        rights = old->st_mode & kPermissionBits;
        // Without the right to give the file away it stays ours; a group that we cannot set must not gain rights.
        if (fileOps().fchown(fd, old->st_uid, old->st_gid) != 0 &&
            fileOps().fchown(fd, static_cast<uid_t>(-1), old->st_gid) != 0) {
            rights &= ~static_cast<mode_t>(S_IRWXG);
        }
    }
    return setMode(fd, rights);
}

/// Rights of keys that others could read were no choice, but those of a group that may write are.
mode_t secretMode(mode_t old) {
    const bool chosen = (old & S_IRWXO) == 0 || (old & S_IWGRP) != 0;
    return chosen ? old & kSharedBits : kSecretMode;
}

/// Whether a new file could take over all that says who may do what with the old one.
bool takesOver(int fd, const std::string& path, const struct stat& old) {
    struct stat now {};
    if (fileOps().fstat(fd, &now) != 0) return false;
    const bool same = now.st_uid == old.st_uid && now.st_gid == old.st_gid;
    return (same || fileOps().fchown(fd, old.st_uid, old.st_gid) == 0) && fileOps().copyAttributes(path, fd) == 0 &&
           setMode(fd, secretMode(old.st_mode));
}

/// Writes pieces one behind the other, small ones together.
class PieceWriter {
  public:
    PieceWriter(int fd, bool regular) : fd_(fd), regular_(regular) {}

    /// The step that failed: the source, or the writing, whose errno is kept.
    WriteStep take(const ContentSource& source) {
        const bool whole = source([this](ByteView piece) { return put(piece); });
        if (whole && error_ == 0) flush();
        if (error_ == 0) return whole ? WriteStep::None : WriteStep::Content;
        errno = error_;
        return WriteStep::Write;
    }
    [[nodiscard]] int64_t length() const { return length_; }

  private:
    static constexpr size_t kTogether = size_t{1} << 18;

    bool put(ByteView piece) {
        if (held_.size() + piece.size() > kTogether) flush();
        if (piece.size() > kTogether) {
            write(piece);
        } else {
            held_.insert(held_.end(), piece.begin(), piece.end());
        }
        return error_ == 0;
    }
    void flush() {
        write(held_);
        held_.clear();
    }
    void write(ByteView octets) {
        if (error_ != 0 || octets.empty()) return;
        if (!writeAll(fd_, octets.data(), octets.size(), regular_ ? length_ : -1)) error_ = errno;
        length_ += static_cast<int64_t>(octets.size());
    }

    int fd_;
    bool regular_;
    int error_ = 0;
    int64_t length_ = 0;
    SecretBytes held_;
};

ContentSource sourceOf(ByteView content) {
    return [content](const ContentSink& put) { return put(content); };
}

/// Pipes and devices take the octets as they come; a regular file is cut to its new length and synced. `hide` takes the
/// rights of others from an old one first.
WriteResult writeInto(const std::string& path, const ContentSource& source, mode_t mode, bool regular,
                      bool hide = false) {
    const FileDescriptor fd(fileOps().open(path, regular ? O_WRONLY | O_CREAT : O_WRONLY, mode));
    if (!fd.valid() || (hide && !setMode(fd.get(), mode))) return failed(WriteStep::Open);
    PieceWriter writer(fd.get(), regular);
    if (const WriteStep step = writer.take(source); step != WriteStep::None) return failed(step);
    if (!regular) return {};
    if (fileOps().ftruncate(fd.get(), writer.length()) != 0 || fileOps().fsync(fd.get()) != 0) {
        return failed(WriteStep::Write);
    }
    return {};
}

bool folderRefuses(int error) {
    return error == EACCES || error == EPERM || error == EROFS;
}

std::string copyOf(const std::string& path) {
    return path + ".crv-old";
}

/// Whether the octets are one SEQUENCE in DER, of the length that its header says.
bool isWholeSequence(ByteView octets) {
    constexpr uint8_t kSequence = 0x30;
    if (octets.size() < 2 || octets[0] != kSequence) return false;
    const size_t more = octets[1] < 0x80 ? 0 : octets[1] & 0x7FU;
    if (more > sizeof(size_t) || octets.size() < 2 + more) return false;
    size_t length = more == 0 ? octets[1] : 0;
    for (size_t i = 0; i < more; ++i) length = length << 8 | octets[2 + i];
    return length == octets.size() - 2 - more;
}

/// Whether a rewriting came to its middle: the disk takes whole sectors, in any order.
bool isTorn(ByteView now, ByteView before) {
    constexpr size_t kSector = 512;
    if (std::ranges::equal(now, before)) return false;
    if (!isWholeSequence(now)) return true;
    for (size_t at = 0; at < std::min(now.size(), before.size()); at += kSector) {
        const ByteView mine = now.subspan(at).first(std::min(kSector, now.size() - at));
        const ByteView old = before.subspan(at).first(std::min(kSector, before.size() - at));
        if (std::ranges::equal(mine, old)) return true;
    }
    return false;
}

/// Ends a rewriting that was cut off, and removes the copy that it left.
bool settleCopy(const std::string& path) {
    if (!fileExists(copyOf(path))) return true;
    const std::optional<Bytes> before = octetsBeforeCutOff(path, readFile(path));
    if (before && !writeInto(path, sourceOf(*before), kSecretMode, true)) return false;
    fileOps().unlink(copyOf(path));
    return true;
}

/// Over an old file that stays what it is. Its octets stand beside it while the new ones are on their way.
WriteResult rewrite(const std::string& path, const ContentSource& source, const struct stat& old) {
    Bytes before(static_cast<size_t>(old.st_size));
    const FileDescriptor in(fileOps().open(path, O_RDONLY | O_CLOEXEC));
    if (!in.valid() || readUpTo(in.get(), before.data(), before.size(), 0) != old.st_size)
        return failed(WriteStep::Open);
    const std::string copy = copyOf(path);
    TemporaryFile temporary(folderOf(path));
    if (!temporary.exists()) return failed(WriteStep::Open);
    // Whoever may read the file may put it back.
    struct stat like = old;
    like.st_mode &= ~static_cast<mode_t>(S_IRWXO);
    (void)setRights(temporary.fd(), &like, WriteMode::Secret);
    if (!writeAll(temporary.fd(), before.data(), before.size(), 0) || fileOps().fsync(temporary.fd()) != 0 ||
        !temporary.renameTo(copy) || !syncFolder(folderOf(path)))
        return failed(WriteStep::Write);
    WriteResult result = writeInto(path, source, kSecretMode, true);
    const bool begun = result.failed == WriteStep::Write || result.failed == WriteStep::Content;
    if (begun && !writeInto(path, sourceOf(before), kSecretMode, true)) return result;
    fileOps().unlink(copy);
    return result;
}

WriteResult replace(const std::string& path, const ContentSource& source, const struct stat* old,
                    const WriteOptions& options) {
    TemporaryFile temporary(folderOf(path));
    if (!temporary.exists()) {
        const mode_t newMode = options.mode == WriteMode::KeepOrCommon ? kCommonMode : kSecretMode;
        if (options.inPlaceFallback && folderRefuses(errno))
            return writeInto(path, source, newMode, true, options.mode == WriteMode::Private);
        return failed(WriteStep::Open);
    }
    if (old && options.mode == WriteMode::Secret) {
        if (!takesOver(temporary.fd(), path, *old)) return rewrite(path, source, *old);
    } else if (!setRights(temporary.fd(), old, options.mode)) {
        return failed(WriteStep::Write);
    }
    if (const WriteStep step = PieceWriter(temporary.fd(), true).take(source); step != WriteStep::None)
        return failed(step);
    if (fileOps().fsync(temporary.fd()) != 0 || !temporary.renameTo(path)) return failed(WriteStep::Write);
    if (!syncFolder(folderOf(path))) logLine(LogLevel::Warning, "folder not synced after writing " + path);
    return {};
}

WriteResult write(std::string path, const ContentSource& source, const WriteOptions& options) {
    if (!resolve(path)) return failed(WriteStep::Open);
    struct stat info {};
    const bool exists = fileOps().stat(path, &info) == 0;
    if (exists && !S_ISREG(info.st_mode)) return writeInto(path, source, kCommonMode, false);
    if (exists && options.mode == WriteMode::Secret && !settleCopy(path)) return failed(WriteStep::Write);
    return replace(path, source, exists ? &info : nullptr, options);
}

}  // namespace

std::string folderOf(const std::string& path) {
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? "./" : path.substr(0, slash + 1);
}

std::optional<Bytes> octetsBeforeCutOff(const std::string& path, ByteView now) {
    std::string target = path;
    if (!resolve(target) || !fileExists(copyOf(target))) return std::nullopt;
    try {
        Bytes before = readFile(copyOf(target));
        if (isTorn(now, before)) return before;
    } catch (const StoreError&) {  // somebody else's
        logLine(LogLevel::Warning, "cannot be read: " + copyOf(target));
    }
    return std::nullopt;
}

void removeStaleTemporaries(const std::string& folder) {
    std::vector<std::string> names;
    if (fileOps().list(folder, names) != 0) return;
    for (const std::string& name : names) {
        int process = 0, number = 0, end = 0;
        struct stat info {};
        const bool ours = std::sscanf(name.c_str(), ".crv-%d-%d.tmp%n", &process, &number, &end) == 2 &&
                          static_cast<size_t>(end) == name.size() && process > 0;
        if (!ours || (::kill(process, 0) == 0 || errno != ESRCH)) continue;
        const std::string path = folder + "/" + name;
        if (fileOps().lstat(path, &info) == 0 && std::time(nullptr) - info.st_mtime > kStaleAfter)
            fileOps().unlink(path);
    }
}

bool syncFolder(const std::string& folder) {
    const FileDescriptor fd(fileOps().open(folder, O_RDONLY | O_DIRECTORY));
    return fd.valid() && (fileOps().fsync(fd.get()) == 0 || errno == EINVAL);
}

bool copyRights(const std::string& from, const std::string& to) {
    struct stat info {};
    const FileDescriptor fd(fileOps().open(to, O_RDONLY));
    return fd.valid() && fileOps().stat(from, &info) == 0 && setRights(fd.get(), &info, WriteMode::KeepOrCommon);
}

WriteResult writeFileAtomically(const std::string& path, ByteView content, const WriteOptions& options) noexcept {
    try {
        return write(path, sourceOf(content), options);
    } catch (const std::exception&) {  // no memory for a path
        return {WriteStep::Write, ENOMEM};
    }
}

WriteResult writePiecesAtomically(const std::string& path, const ContentSource& source, const WriteOptions& options) {
    return write(path, source, options);
}

}  // namespace crv
