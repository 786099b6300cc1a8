// Locks among objects, threads and processes, and what goes wrong below them.
#include "misc/file_semaphore.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <future>
#include <thread>

#include "misc/file_ops.h"
#include "support/faulty_file_ops.h"
#include "support/message_of.h"
#include "support/temp_dir.h"

namespace crv::test {
namespace {

class Lock : public testing::Test {
  protected:
    /// Whether another program could take the lock now. (A forked child would inherit a registry of locks that it does
    /// not hold.)
    [[nodiscard]] bool freeForProcess(int mode) const {
        const std::string type = mode == kSharedLock ? "LOCK_SH" : "LOCK_EX";
        int status = 0;
        return shell("python3 -c 'import fcntl; fcntl.lockf(open(\"" + path + "\", \"r+b\"), fcntl." + type +
                         " | fcntl.LOCK_NB)'",
                     &status)
                   .find("BlockingIOError") == std::string::npos;
    }
    [[nodiscard]] bool freeForThread(int mode) const {
        return std::async(std::launch::async, [&] { return FileSemaphore(path).pCond(mode) == 1; }).get();
    }

    TempDir dir;
    std::string path = dir.file("l");
    FileSemaphore semaphore{path};
};

TEST_F(Lock, ModesExcludeAmongProcessesAndThreads) {
    for (const int mode : {kSharedLock, kExclusiveLock}) {
        ASSERT_EQ(semaphore.p(mode), 1);
        EXPECT_EQ(semaphore.p(mode), 0) << "one object, one lock";
        for (const int other : {kSharedLock, kExclusiveLock}) {
            const bool together = mode == kSharedLock && other == kSharedLock;
            EXPECT_EQ(freeForProcess(other), together) << mode << other;
            EXPECT_EQ(freeForThread(other), together) << mode << other;
        }
        EXPECT_EQ(semaphore.v(), 1);
        EXPECT_EQ(semaphore.v(), 0);
        EXPECT_TRUE(freeForProcess(kExclusiveLock));
    }
}

TEST_F(Lock, OneOfTwoHoldersLeavesItToTheOther) {
    ASSERT_EQ(semaphore.p(kSharedLock), 1);
    {
        FileSemaphore inner(dir.file("../" + dir.path().filename().string() + "/l"));
        ASSERT_EQ(inner.p(kExclusiveLock), 1);
        EXPECT_FALSE(freeForProcess(kSharedLock));
    }
    EXPECT_TRUE(freeForProcess(kSharedLock));
    EXPECT_FALSE(freeForProcess(kExclusiveLock)) << "closing the inner one must not drop the outer lock";
}

TEST_F(Lock, WaitsForTheOtherThread) {
    std::atomic<int> inside{0}, most{0}, done{0};
    const auto work = [&] {
        for (int i = 0; i < 200; ++i) {
            FileSemaphore own(path);
            ASSERT_EQ(own.p(kExclusiveLock), 1);
            most = std::max<int>(most, ++inside);
            std::this_thread::yield();
            --inside;
        }
        ++done;
    };
    std::thread a(work), b(work), c(work);
    a.join(), b.join(), c.join();
    EXPECT_EQ(done, 3);
    EXPECT_EQ(most, 1);
}

/// Does something before each lock, and interrupts the call when that answers true.
class DisturbedLocks : public FileOps {
  public:
    std::function<bool()> interrupts;
    int lock(int fd, short type, bool wait) override {
        if (!interrupts()) return FileOps::lock(fd, type, wait);
        errno = EINTR;
        return -1;
    }
};

TEST_F(Lock, AnInterruptedWaitGoesOnUntilTheProcessEnds) {
    int interruptions = 3;
    DisturbedLocks ops;
    ops.interrupts = [&] { return interruptions-- > 0; };
    const ScopedFileOps use(ops);
    EXPECT_EQ(semaphore.p(kExclusiveLock), 1);
    const auto endDuringAWait = [&] {
        FileSemaphore other(dir.file("other"));
        ops.interrupts = [&, left = 3]() mutable { return setProcessEnding(), left-- > 0; };
        return other.p(kExclusiveLock);
    };
    EXPECT_EXIT(_exit(endDuringAWait() == 0 ? 7 : 8), testing::ExitedWithCode(7), "");
}

TEST_F(Lock, OfADeletedFileIsNoLock) {
    DisturbedLocks ops;
    // Between the opening and the lock, once.
    ops.interrupts = [&, left = 1]() mutable { return left-- == 1 && unlink(path.c_str()) != 0; };
    const ScopedFileOps use(ops);
    ASSERT_EQ(semaphore.p(kExclusiveLock), 1);
    EXPECT_FALSE(freeForProcess(kSharedLock));
}

TEST_F(Lock, OfAFileThatCannotBeWrittenServesReaders) {
    writeFile(path, "");
    FaultyFileOps ops;
    ops.denyWriting = true;
    const ScopedFileOps use(ops);
    EXPECT_EQ(semaphore.p(kExclusiveLock), 0);
    EXPECT_EQ(semaphore.p(kSharedLock), 1);
    EXPECT_FALSE(freeForProcess(kExclusiveLock));
    ops.denyWriting = false;
    FileSemaphore more(path);
    EXPECT_EQ(more.pCond(kExclusiveLock), 1) << "by a descriptor that writes, past the lock of the one that reads";
    EXPECT_FALSE(freeForProcess(kSharedLock));
    EXPECT_EQ(more.v(), 1);
    EXPECT_TRUE(freeForProcess(kSharedLock));
    EXPECT_FALSE(freeForProcess(kExclusiveLock));
}

/// Locks as systems have them that do not know those of open files.
class LocksOfProcess : public FaultyFileOps {
  public:
    int lock(int fd, short type, bool) override {
        struct flock area {};
        area.l_type = type;
        return ::fcntl(fd, F_SETLK, &area);
    }
    [[nodiscard]] bool locksBelongToProcess() const override { return true; }
};

TEST_F(Lock, OfTheProcessOutlivesItsOtherDescriptors) {
    writeFile(path, "");
    LocksOfProcess ops;
    const ScopedFileOps use(ops);
    ops.denyWriting = true;
    ASSERT_EQ(semaphore.p(kSharedLock), 1);
    ops.denyWriting = false;
    EXPECT_EQ(FileSemaphore(path).pCond(kExclusiveLock), 1);
    EXPECT_FALSE(freeForProcess(kExclusiveLock));
}

TEST_F(Lock, OutlivesOtherDescriptorsOfTheProcess) {
    ASSERT_EQ(semaphore.p(kExclusiveLock), 1);
    FileOps other;  // as of another copy of the code
    const int fd = other.open(path, O_RDWR);
    EXPECT_NE(other.lock(fd, F_RDLCK, false), 0);
    other.close(fd);
    EXPECT_FALSE(freeForProcess(kSharedLock));
}

TEST_F(Lock, IsNeitherReleasedNorKeptByAForkedProcess) {
    ASSERT_EQ(semaphore.p(kExclusiveLock), 1);
    const auto child = [&] { return FileSemaphore(path).pCond(kSharedLock) == 0 && semaphore.v() == 1 ? 7 : 8; };
    EXPECT_EXIT(_exit(child()), testing::ExitedWithCode(7), "");
    EXPECT_FALSE(freeForProcess(kSharedLock)) << "it was the child's v()";
    EXPECT_EQ(semaphore.v(), 1);
    int open[2];
    ASSERT_EQ(::pipe(open), 0);
    const pid_t holder = ::fork();
    if (holder == 0) {
        static_cast<void>(semaphore.p(kExclusiveLock));
        const bool stays = ::fork() == 0 && ::close(open[1]) == 0;
        ::_exit(stays && ::read(open[0], open, 1) < 0 ? 1 : 0);
    }
    ::waitpid(holder, nullptr, 0);
    EXPECT_TRUE(freeForProcess(kExclusiveLock)) << "the holder is dead, its child is not";
    ::close(open[0]), ::close(open[1]);
}

TEST_F(Lock, BelongsToWhomeverItsFileBelongs) {
    constexpr uid_t kOwner = 4321;
    if (::geteuid() != 0) GTEST_SKIP() << "needs several users";
    const std::string file = dir.file("f");
    writeFile(file, "");
    ASSERT_EQ(::chown(file.c_str(), kOwner, kOwner) | ::chown(dir.path().c_str(), kOwner, kOwner), 0);
    std::filesystem::permissions(file, std::filesystem::perms(0640));
    const auto rights = [&] {
        struct stat info {};
        return ::stat(path.c_str(), &info) == 0 ? std::pair(info.st_uid, info.st_mode & 0777) : std::pair(~0u, 0u);
    };
    const auto asOwner = [&] {
        const pid_t child = ::fork();
        if (child == 0)
            ::_exit(::setgid(kOwner) == 0 && ::setuid(kOwner) == 0 ? FileSemaphore(path, false, file).pCond(1) : 2);
        int status = -1;
        ::waitpid(child, &status, 0);
        return WEXITSTATUS(status) == 1;
    };
    writeFile(path, "");
    std::filesystem::permissions(path, std::filesystem::perms(0644));
    EXPECT_TRUE(asOwner()) << "root left it behind";
    EXPECT_EQ(rights(), std::pair(kOwner, 0640u));
    std::filesystem::remove(path);
    ASSERT_EQ(FileSemaphore(path, false, file).p(kExclusiveLock), 1);
    EXPECT_EQ(rights(), std::pair(kOwner, 0640u)) << "root's gets the same";
    std::filesystem::remove(path);
    std::filesystem::create_symlink(file, path);
    EXPECT_EQ(FileSemaphore(path, false, file).pCond(kExclusiveLock), 0);
}

TEST_F(Lock, GuardsSayWhatFailed) {
    FileSemaphore disabled("/no/such/folder/l", true), broken("/no/such/folder/l"), tooLong(std::string(256, 'x'));
    EXPECT_EQ(messageOf([&] { SemGuard(disabled, kExclusiveLock).release(); }), "");
    for (FileSemaphore* bad : {&broken, &tooLong}) {
        EXPECT_EQ(messageOf([&] { const SemGuard guard(*bad, kExclusiveLock); }),
                  "FileSemaphore::p: blad zajecia semafora");
    }
    SemGuard guard(semaphore, kSharedLock);
    EXPECT_EQ(semaphore.v(), 1);
    EXPECT_EQ(messageOf([&] { guard.release(); }), "FileSemaphore::v: blad zwolnienia semafora");
}

}  // namespace
}  // namespace crv::test
