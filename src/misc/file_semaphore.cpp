#include "misc/file_semaphore.h"

#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <list>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "misc/exceptions.h"
#include "misc/file_ops.h"
#include "misc/logger.h"

namespace crv {

namespace {

struct Holder {
    const FileSemaphore* owner;
    std::thread::id thread;
    short type;
};

constexpr std::chrono::milliseconds kEndingCheckPeriod{100};
/// The wait for more than a shared lock: not the same in two processes, so that one of them gets on.
constexpr std::chrono::milliseconds kMoreWait{60'000}, kMoreWaitApart{20}, kMorePeriod{20};
constexpr int kMoreWaits = 1000;

std::atomic<bool> ending{false};
static_assert(std::atomic<bool>::is_always_lock_free, "set in signal handlers");

}  // namespace

/// One lock file of the process, opened once for all who ask: they get the lock in the strongest of their modes, so
/// that those of one thread do not exclude each other. Where locks belong to processes, closing any descriptor of the
/// file gives the lock back; so the descriptors close together, when nobody holds or asks for it any more.
struct LockedFile {
    FileId id;
    std::vector<FileDescriptor> descriptors;  // the last one is the best: writable when any is; none: the parent's
    bool writable = false;
    bool asking = false;  // a thread waits in the system for the lock
    short type = F_UNLCK;
    std::vector<Holder> holders;

    [[nodiscard]] int fd() const { return descriptors.back().get(); }
};

namespace {

/// As far as that is permitted: others' lock files stay as they are.
void giveRights(int fd, const struct stat& now, const std::string& like) {
    constexpr mode_t kLockBits = 0666;
    struct stat wanted {};
    if (fileOps().stat(like, &wanted) != 0) return;
    if (now.st_uid != wanted.st_uid || now.st_gid != wanted.st_gid)
        static_cast<void>(fileOps().fchown(fd, wanted.st_uid, wanted.st_gid));
    if ((now.st_mode & kLockBits) != (wanted.st_mode & kLockBits))
        static_cast<void>(fileOps().fchmod(fd, wanted.st_mode & kLockBits));
}

/// Removes a lock file that the owner of the file cannot write, unless somebody holds the lock: then it is in use. Who
/// waits for the lock of the removed one sees that its name leads elsewhere, and opens the new one.
bool removeUnusable(const std::string& path, const std::string& like) {
    struct stat info {};
    if (fileOps().stat(like, &info) != 0 || info.st_uid != ::geteuid()) return false;
    const FileDescriptor fd(fileOps().open(path, O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
    return fd.valid() && fileOps().fstat(fd.get(), &info) == 0 && S_ISREG(info.st_mode) &&
           fileOps().lock(fd.get(), F_RDLCK, false) == 0 && fileOps().unlink(path) == 0;
}

struct Registry {
    std::mutex mutex;
    std::condition_variable changed;
    std::list<LockedFile> files;
    std::list<LockedFile> ofParent;  // what objects of a forked process still point to

    /// Never destroyed: threads may still lock while the process ends.
    static Registry& instance() {
        static Registry* const kRegistry = std::make_unique<Registry>().release();
        return *kRegistry;
    }

    /// A forked process shares the open files, and with them the locks. It closes them: neither may it release what its
    /// parent holds, nor keep it when the parent dies.
    void forgetParent() {
        for (LockedFile& file : files) file.descriptors.clear();
        ofParent.splice(ofParent.end(), files);
        std::construct_at(&changed);  // threads of the parent may wait for it
    }

    LockedFile* find(const struct stat& info) {
        const auto it =
            std::find_if(files.begin(), files.end(), [&](const LockedFile& f) { return f.id == FileId::of(info); });
        return it == files.end() ? nullptr : &*it;
    }

    LockedFile* findOrOpen(const std::string& path, short type, const std::string& like) {
        struct stat info {};
        LockedFile* known = !files.empty() && fileOps().stat(path, &info) == 0 ? find(info) : nullptr;
        if (known && (known->writable || type == F_RDLCK)) return known;
        const int flags = O_CLOEXEC | (like.empty() ? 0 : O_NOFOLLOW);
        bool writable = true;
        FileDescriptor fd(fileOps().open(path, O_RDWR | O_CREAT | flags, 0666));
        if (!fd.valid() && errno == EACCES && !like.empty() && removeUnusable(path, like))
            fd.reset(fileOps().open(path, O_RDWR | O_CREAT | flags, 0666));
        if (!fd.valid() && type == F_RDLCK) {
            writable = false;
            fd.reset(fileOps().open(path, O_RDONLY | flags));
        }
        if (!fd.valid() || fileOps().fstat(fd.get(), &info) != 0 || !S_ISREG(info.st_mode)) return nullptr;
        if (writable && !like.empty()) giveRights(fd.get(), info, like);
        LockedFile* file = find(info);
        return file ? addDescriptor(*file, std::move(fd), writable) : add(FileId::of(info), std::move(fd), writable);
    }

    LockedFile* add(FileId id, FileDescriptor fd, bool writable) {
        LockedFile fresh{};
        fresh.id = id;
        fresh.descriptors.push_back(std::move(fd));
        fresh.writable = writable;
        return &files.emplace_back(std::move(fresh));
    }

    /// Another descriptor of a file that is open: used from now on when it is better. Null when it cannot take over the
    /// lock of the one in use, which would exclude it; then everything stays as it was.
    static LockedFile* addDescriptor(LockedFile& file, FileDescriptor fd, bool writable) {
        if (fileOps().locksBelongToProcess()) return keepDescriptor(file, std::move(fd), writable);
        // Who asks with the one in use holds the lock with it later.
        if (!writable || file.writable || file.asking) return &file;
        file.descriptors.reserve(file.descriptors.size() + 1);
        if (file.type != F_UNLCK) {
            if (fileOps().lock(fd.get(), file.type, false) != 0) return nullptr;
            static_cast<void>(fileOps().lock(file.fd(), F_UNLCK, false));
        }
        // The old one stays open: who holds the lock may be reading through it.
        file.descriptors.push_back(std::move(fd));
        file.writable = true;
        return &file;
    }

    static LockedFile* keepDescriptor(LockedFile& file, FileDescriptor fd, bool writable) {
        try {
            file.descriptors.push_back(std::move(fd));
        } catch (const std::bad_alloc&) {
            // Closing it would give back every lock of this process on the file.
            static_cast<void>(fd.release());
            throw;
        }
        file.writable = file.writable || writable;
        return &file;
    }

    /// Room for one more holder: once the lock is held, nothing may fail any more.
    void makeRoom(LockedFile* file) {
        try {
            file->holders.reserve(file->holders.size() + 1);
        } catch (const std::bad_alloc&) {
            closeIfUnused(file);
            throw;
        }
    }

    void closeIfUnused(LockedFile* file) {
        if (!file->asking && file->holders.empty()) files.remove_if([&](const LockedFile& f) { return &f == file; });
    }
};

/// Before any other handler of this code, so that those run first when a fork begins: none of them waits for the
/// registry's mutex then.
[[gnu::constructor]] void watchForks() {
    pthread_atfork([] { Registry::instance().mutex.lock(); }, [] { Registry::instance().mutex.unlock(); },
                   [] {
                       Registry::instance().forgetParent();
                       Registry::instance().mutex.unlock();
                   });
}

bool conflicts(const LockedFile& file, short type) {
    const auto self = std::this_thread::get_id();
    return std::any_of(file.holders.begin(), file.holders.end(),
                       [&](const Holder& h) { return h.thread != self && (type == F_WRLCK || h.type == F_WRLCK); });
}

bool lockFile(int fd, short type, bool wait) {
    while (fileOps().lock(fd, type, wait) != 0) {
        if (errno != EINTR || processEnding()) return false;
    }
    return true;
}

/// Waits in a queue: readers that come one after another would else keep a writer out for ever. Programs that do not
/// know the queue are excluded as before, only without order.
bool lockInTurn(int fd, short type) {
    bool queued = false;
    while (!(queued = fileOps().gate(fd, true) == 0) && errno == EINTR && !processEnding()) {
    }
    const bool locked = !processEnding() && lockFile(fd, type, true);
    if (queued) fileOps().gate(fd, false);
    return locked;
}

/// Who waits for more than the shared lock that he holds, while another process does the same, waits for ever; the
/// system does not see it.
bool lockMore(int fd, short type) {
    const auto end = std::chrono::steady_clock::now() + kMoreWait + ::getpid() % kMoreWaits * kMoreWaitApart;
    while (!lockFile(fd, type, false)) {
        const bool busy = errno == EAGAIN || errno == EACCES;
        if (!busy || processEnding() || std::chrono::steady_clock::now() >= end) return false;
        std::this_thread::sleep_for(kMorePeriod);
    }
    return true;
}

bool leadsTo(const std::string& path, FileId id) {
    struct stat info {};
    return fileOps().stat(path, &info) == 0 && FileId::of(info) == id;
}

short strongest(const LockedFile& file) {
    if (file.holders.empty()) return F_UNLCK;
    const bool exclusive =
        std::any_of(file.holders.begin(), file.holders.end(), [](const Holder& h) { return h.type == F_WRLCK; });
    return exclusive ? F_WRLCK : F_RDLCK;
}

bool strongEnough(const LockedFile& file, short type) {
    return file.type == type || file.type == F_WRLCK;
}

}  // namespace

void setProcessEnding() noexcept {
    ending.store(true);
}

bool processEnding() noexcept {
    return ending.load();
}

FileSemaphore::FileSemaphore(std::string path, bool disabled, std::string like)
    : path_(std::move(path)), like_(std::move(like)), disabled_(disabled) {}

FileSemaphore::~FileSemaphore() {
    if (held() && v() == 0) logLine(LogLevel::Error, "lock not released: ", path_);
}

int FileSemaphore::p(int mode) {
    return acquire(mode, true);
}

int FileSemaphore::pCond(int mode) {
    return acquire(mode, false);
}

int FileSemaphore::acquire(int mode, bool wait) {
    if (disabled_) return 1;
    if (held() || path_.size() > kMaxPath) return 0;
    const short type = mode == kSharedLock ? F_RDLCK : F_WRLCK;
    Registry& registry = Registry::instance();
    std::unique_lock guard(registry.mutex);
    for (;;) {
        LockedFile* file = registry.findOrOpen(path_, type, like_);
        if (!file) return 0;
        if (file->asking || conflicts(*file, type)) {
            if (!wait || processEnding()) return registry.closeIfUnused(file), 0;
            registry.changed.wait_for(guard, kEndingCheckPeriod);
            continue;
        }
        registry.makeRoom(file);
        if (!strongEnough(*file, type)) {
            file->asking = true;
            // Who holds a shared lock already must not queue for more behind one who waits for its end.
            const int fd = file->fd();
            const bool more = file->type != F_UNLCK;
            guard.unlock();
            const bool locked = !wait ? lockFile(fd, type, false) : more ? lockMore(fd, type) : lockInTurn(fd, type);
            guard.lock();
            file->asking = false;
            registry.changed.notify_all();
            if (!locked) return registry.closeIfUnused(file), 0;
            file->type = type;
            // Somebody may have deleted the lock file while we waited: a lock on a nameless file excludes nobody.
            if (file->holders.empty() && !leadsTo(path_, file->id)) {
                registry.closeIfUnused(file);
                continue;
            }
        }
        file->holders.push_back({this, std::this_thread::get_id(), type});
        file_ = file;
        return 1;
    }
}

bool FileSemaphore::canBeOpened(int mode) const {
    if (disabled_) return true;
    if (path_.size() > kMaxPath) return false;
    Registry& registry = Registry::instance();
    const std::lock_guard guard(registry.mutex);
    LockedFile* file = registry.findOrOpen(path_, mode == kSharedLock ? F_RDLCK : F_WRLCK, like_);
    if (file) registry.closeIfUnused(file);
    return file != nullptr;
}

int FileSemaphore::v() {
    if (disabled_) return 1;
    if (!held()) return 0;
    Registry& registry = Registry::instance();
    const std::lock_guard guard(registry.mutex);
    LockedFile* file = std::exchange(file_, nullptr);
    if (file->descriptors.empty()) return 1;
    std::erase_if(file->holders, [&](const Holder& h) { return h.owner == this; });
    const short type = strongest(*file);
    bool released = true;
    if (type != file->type && !file->asking) {
        released = lockFile(file->fd(), type, false);
        if (released) file->type = type;
    }
    registry.closeIfUnused(file);
    registry.changed.notify_all();
    return released ? 1 : 0;
}

int FileSemaphore::descriptor() const {
    return file_ && !file_->descriptors.empty() ? file_->fd() : -1;
}

SemGuard::SemGuard(FileSemaphore& semaphore, int mode) : semaphore_(&semaphore) {
    if (semaphore.p(mode) == 0) throw StoreError(StoreCause::NotLocked, "FileSemaphore::p: blad zajecia semafora");
}

SemGuard::~SemGuard() {
    if (semaphore_ && semaphore_->v() == 0) logLine(LogLevel::Error, "lock not released: ", semaphore_->path());
}

void SemGuard::release() {
    FileSemaphore* semaphore = std::exchange(semaphore_, nullptr);
    if (semaphore && semaphore->v() == 0) {
        throw StoreError(StoreCause::Failed, "FileSemaphore::v: blad zwolnienia semafora");
    }
}

}  // namespace crv
