#include "misc/atomic_write.h"

#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <new>
#include <vector>

#include "misc/file_ops.h"
#include "misc/logger.h"

namespace crv {

namespace {

constexpr int kMaxLinks = 40;
constexpr int kMaxTries = 1000;
constexpr mode_t kSecretMode = 0600;
constexpr mode_t kCommonMode = 0644;
/// Seconds; writing a whole file takes a moment.
constexpr std::time_t kStaleAfter = 60;
constexpr mode_t kPermissionBits = 0777;

WriteResult failed(WriteStep step) {
    return {step, errno};
}

/// Follows symbolic links by hand, so that a link whose target does not exist yet leads to the target's name.
bool resolve(std::string& path) {
    for (int i = 0; i < kMaxLinks; ++i) {
        struct stat info {};
        if (fileOps().lstat(path, &info) != 0) return errno == ENOENT;
        if (!S_ISLNK(info.st_mode)) return true;
        std::string target;
        if (fileOps().readlink(path, target) != 0) return false;
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

bool setRights(int fd, const struct stat* old, WriteMode mode) {
    mode_t rights = mode == WriteMode::KeepOrCommon ? kCommonMode : kSecretMode;
    if (old) {
        if (mode != WriteMode::Secret) rights = old->st_mode & kPermissionBits;
        // Without the right to give the file away it stays ours; a group that we cannot set must not gain rights.
        if (fileOps().fchown(fd, old->st_uid, old->st_gid) != 0 &&
            fileOps().fchown(fd, static_cast<uid_t>(-1), old->st_gid) != 0) {
            rights &= ~static_cast<mode_t>(S_IRWXG);
        }
    }
    return fileOps().fchmod(fd, rights) == 0;
}

/// Pipes and devices take the octets as they come; a regular file is cut to its new length and synced.
WriteResult writeInto(const std::string& path, ByteView content, mode_t mode, bool regular) {
    const FileDescriptor fd(fileOps().open(path, regular ? O_WRONLY | O_CREAT : O_WRONLY, mode));
    if (!fd.valid()) return failed(WriteStep::Open);
    if (!writeAll(fd.get(), content.data(), content.size(), regular ? 0 : -1)) return failed(WriteStep::Write);
    if (!regular) return {};
    if (fileOps().ftruncate(fd.get(), static_cast<int64_t>(content.size())) != 0 || fileOps().fsync(fd.get()) != 0) {
        return failed(WriteStep::Write);
    }
    return {};
}

bool folderRefuses(int error) {
    return error == EACCES || error == EPERM || error == EROFS;
}

WriteResult write(std::string path, ByteView content, const WriteOptions& options) {
    if (!resolve(path)) return failed(WriteStep::Open);
    struct stat info {};
    const bool exists = fileOps().stat(path, &info) == 0;
    const mode_t newMode = options.mode == WriteMode::KeepOrCommon ? kCommonMode : kSecretMode;
    if (exists && !S_ISREG(info.st_mode)) return writeInto(path, content, newMode, false);

    TemporaryFile temporary(folderOf(path));
    if (!temporary.exists()) {
        if (options.inPlaceFallback && folderRefuses(errno)) return writeInto(path, content, newMode, true);
        return failed(WriteStep::Open);
    }
    if (!setRights(temporary.fd(), exists ? &info : nullptr, options.mode) ||
        !writeAll(temporary.fd(), content.data(), content.size(), 0) || fileOps().fsync(temporary.fd()) != 0 ||
        !temporary.renameTo(path)) {
        return failed(WriteStep::Write);
    }
    if (!syncFolder(folderOf(path))) logLine(LogLevel::Warning, "folder not synced after writing " + path);
    return {};
}

}  // namespace

std::string folderOf(const std::string& path) {
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? "./" : path.substr(0, slash + 1);
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
        return write(path, content, options);
    } catch (const std::exception&) {  // no memory for a path
        return {WriteStep::Write, ENOMEM};
    }
}

}  // namespace crv
