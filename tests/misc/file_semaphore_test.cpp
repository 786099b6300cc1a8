#include "misc/file_semaphore.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <thread>

#include "misc/file_ops.h"
#include "support/faulty_file_ops.h"
#include "support/message_of.h"
#include "support/temp_dir.h"

using namespace crv;
using namespace std::chrono_literals;

namespace {

/// Answers of pCond in another process: 1 or 0.
int otherProcess(const std::string& path, int mode) {
    const pid_t child = fork();
    if (child == 0) {
        // A fresh program image: the registry inherited from the parent describes locks that the child does not hold.
        const std::string type = mode == sharedLock ? "LOCK_SH" : "LOCK_EX";
        const std::string code = "import fcntl,sys\nf=open(sys.argv[1],'r+b')\ntry: fcntl.lockf(f,fcntl." + type +
                                 "|fcntl.LOCK_NB)\nexcept OSError: sys.exit(0)\nsys.exit(1)";
        execlp("python3", "python3", "-c", code.c_str(), path.c_str(), nullptr);
        _exit(99);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WEXITSTATUS(status);
}

int otherThread(const std::string& path, int mode) {
    int answer = -1;
    std::thread([&] {
        FileSemaphore semaphore(path);
        answer = semaphore.pCond(mode);
    }).join();
    return answer;
}

TEST(FileSemaphore, ModesExcludeAmongProcessesAndThreads) {
    const test::TempDir dir;
    const std::string path = dir.file("db.lck");
    for (const int mode : {sharedLock, exclusiveLock}) {
        FileSemaphore semaphore(path);
        ASSERT_EQ(semaphore.p(mode), 1);
        EXPECT_EQ(semaphore.p(mode), 0) << "one object, one lock";
        for (const int other : {sharedLock, exclusiveLock}) {
            const int expected = mode == sharedLock && other == sharedLock ? 1 : 0;
            EXPECT_EQ(otherProcess(path, other), expected) << mode << other;
            EXPECT_EQ(otherThread(path, other), expected) << mode << other;
        }
        EXPECT_EQ(semaphore.v(), 1);
        EXPECT_EQ(semaphore.v(), 0);
        EXPECT_EQ(otherProcess(path, exclusiveLock), 1);
    }
}

TEST(FileSemaphore, OneOfTwoHoldersLeavesTheLockToTheOther) {
    const test::TempDir dir;
    const std::string path = dir.file("l");
    FileSemaphore outer(path);
    ASSERT_EQ(outer.p(sharedLock), 1);
    {
        FileSemaphore inner(dir.file("../" + dir.path().filename().string() + "/l"));
        ASSERT_EQ(inner.p(exclusiveLock), 1);
        EXPECT_EQ(otherProcess(path, sharedLock), 0);
    }
    EXPECT_EQ(otherProcess(path, sharedLock), 1);
    EXPECT_EQ(otherProcess(path, exclusiveLock), 0) << "closing the inner one must not drop the outer lock";
}

TEST(FileSemaphore, WaitsForTheOtherThread) {
    const test::TempDir dir;
    const std::string path = dir.file("l");
    std::atomic<int> inside{0}, most{0}, done{0};
    auto work = [&] {
        for (int i = 0; i < 200; ++i) {
            FileSemaphore semaphore(path);
            ASSERT_EQ(semaphore.p(exclusiveLock), 1);
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

/// A system that interrupts every wait for a lock, until the process is being ended.
class InterruptedOps : public FileOps {
  public:
    int interruptions = 3;
    int lock(int fd, short type, bool wait) override {
        if (interruptions-- <= 0) return FileOps::lock(fd, type, wait);
        errno = EINTR;
        return -1;
    }
};

TEST(FileSemaphore, InterruptedWaitGoesOn) {
    const test::TempDir dir;
    InterruptedOps ops;
    const ScopedFileOps use(ops);
    FileSemaphore semaphore(dir.file("l"));
    EXPECT_EQ(semaphore.p(exclusiveLock), 1);
}

TEST(FileSemaphoreDeathTest, InterruptedWaitEndsWhenTheProcessDoes) {
    const test::TempDir dir;
    EXPECT_EXIT(
        {
            InterruptedOps ops;
            const ScopedFileOps use(ops);
            FileSemaphore semaphore(dir.file("l"));
            setProcessEnding();
            _exit(semaphore.p(exclusiveLock) == 0 ? 7 : 8);
        },
        testing::ExitedWithCode(7), "");
}

TEST(FileSemaphore, ReadOnlyLockFileServesReaders) {
    const test::TempDir dir;
    test::writeFile(dir.file("l"), "");
    test::FaultyFileOps ops;
    ops.denyWriting = true;
    const ScopedFileOps use(ops);
    FileSemaphore semaphore(dir.file("l"));
    EXPECT_EQ(semaphore.p(exclusiveLock), 0);
    EXPECT_EQ(semaphore.p(sharedLock), 1);
    EXPECT_EQ(otherProcess(dir.file("l"), exclusiveLock), 0);
}

/// Deletes the lock file between its opening and the lock, once.
class DeletingOps : public FileOps {
  public:
    std::string path;
    int lock(int fd, short type, bool wait) override {
        if (!path.empty()) unlink(std::exchange(path, ""));
        return FileOps::lock(fd, type, wait);
    }
};

TEST(FileSemaphore, LockOfADeletedFileIsNoLock) {
    const test::TempDir dir;
    DeletingOps ops;
    ops.path = dir.file("l");
    const ScopedFileOps use(ops);
    FileSemaphore semaphore(dir.file("l"));
    ASSERT_EQ(semaphore.p(exclusiveLock), 1);
    EXPECT_EQ(otherProcess(dir.file("l"), sharedLock), 0);
}

TEST(SemGuard, DisabledAlwaysSucceedsAndFailuresHaveTheirTexts) {
    const test::TempDir dir;
    FileSemaphore disabled("/no/such/folder/l", true), broken("/no/such/folder/l"), tooLong(std::string(256, 'x'));
    EXPECT_NO_THROW({
        SemGuard guard(disabled, exclusiveLock);
        guard.release();
    });
    for (FileSemaphore* semaphore : {&broken, &tooLong}) {
        EXPECT_EQ(test::messageOf([&] { const SemGuard guard(*semaphore, exclusiveLock); }),
                  "FileSemaphore::p: blad zajecia semafora");
    }
    FileSemaphore semaphore(dir.file("l"));
    SemGuard guard(semaphore, sharedLock);
    EXPECT_EQ(semaphore.v(), 1);
    EXPECT_EQ(test::messageOf([&] { guard.release(); }), "FileSemaphore::v: blad zwolnienia semafora");
}

}  // namespace
