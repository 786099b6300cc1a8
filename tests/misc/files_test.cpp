#include <grp.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <thread>

#include "misc/atomic_write.h"
#include "misc/file.h"
#include "misc/whole_file.h"
#include "support/faulty_file_ops.h"
#include "support/message_of.h"
#include "support/temp_dir.h"

namespace crv::test {
namespace {

namespace fs = std::filesystem;

struct Files : testing::Test {
    static auto names(const TempDir& of) { return std::distance(fs::directory_iterator(of.path()), {}); }

    TempDir dir;
    std::string path = dir.file("f");
};

using AtomicWrite = Files;

TEST_F(AtomicWrite, EveryStopLeavesTheOldOrTheNewContentAndNoTemporary) {
    WriteResult result{WriteStep::Open};
    for (int n = 0; !result; ++n) {
        const TempDir fresh;
        writeFile(fresh.file("f"), "old content");
        FaultyFileOps ops;
        ops.changesLeft = n;
        ops.tearLast = true;
        const ScopedFileOps use(ops);
        result = writeFileAtomically(fresh.file("f"), asBytes("new"));
        EXPECT_EQ(readFile(fresh.file("f")), result ? "new" : "old content") << n;
        if (result) {
            EXPECT_TRUE(n >= 3 && names(fresh) == 1) << n;
        } else {
            EXPECT_EQ(result.failed, n == 0 ? WriteStep::Open : WriteStep::Write);
        }
    }
}

TEST_F(AtomicWrite, FailuresKeepTheOldFileAndRemoveTheTemporary) {
    writeFile(path, "something long");
    FaultyFileOps failing, foreign, slow;
    failing.failSync = foreign.denyNewFiles = true;
    slow.shortTransfer = 1;
    const WriteOptions inPlace{WriteMode::KeepOrCommon, true};
    const std::tuple<FaultyFileOps&, WriteOptions, int> cases[] = {
        {failing, {}, EIO}, {foreign, {}, EACCES}, {foreign, inPlace, 0}, {slow, {}, 0}};
    for (const auto& [ops, options, error] : cases) {
        const ScopedFileOps use(ops);
        EXPECT_EQ(writeFileAtomically(path, asBytes("new"), options).error, error);
        EXPECT_EQ(readFile(path), error == 0 ? "new" : "something long");
        EXPECT_EQ(names(dir), 1);
    }
}

TEST_F(AtomicWrite, AFileSystemWithoutModesIsTakenAsItIs) {
    struct NoModes : FileOps {
        int fchmod(int, mode_t) override { return errno = EPERM, -1; }
    } ops;
    const ScopedFileOps use(ops);
    for (const auto& [mode, written] : {std::pair{0600, true}, {0640, false}}) {
        writeFile(path, "old");
        fs::permissions(path, fs::perms(mode));
        EXPECT_EQ(bool(writeFileAtomically(path, asBytes("new"), {WriteMode::KeepOrSecret, false})), written) << mode;
    }
}

TEST_F(AtomicWrite, ModesFollowTheRule) {
    using enum WriteMode;
    const std::tuple<WriteMode, mode_t, mode_t> cases[] = {
        {Secret, 0, 0600},       {Secret, 0644, 0600},       {KeepOrSecret, 0, 0600}, {KeepOrSecret, 0664, 0664},
        {KeepOrCommon, 0, 0644}, {KeepOrCommon, 0640, 0640}, {Private, 0, 0600},      {Private, 0664, 0600}};
    for (const auto& [mode, old, expected] : cases) {
        fs::remove(path);
        constexpr uid_t kOwner = 12345;
        const bool given =
            old != 0 && (writeFile(path, ""), ::chown(path.c_str(), kOwner, kOwner)) == 0;  // only by root
        if (old != 0) fs::permissions(path, static_cast<fs::perms>(old));
        EXPECT_TRUE(writeFileAtomically(path, asBytes("x"), {mode, false}));
        EXPECT_EQ(fs::status(path).permissions(), fs::perms(expected)) << static_cast<int>(mode) << ' ' << old;
        struct stat info {};
        ASSERT_EQ(::stat(path.c_str(), &info), 0);
        EXPECT_EQ(info.st_uid, given && mode != Private ? kOwner : ::geteuid()) << static_cast<int>(mode) << ' ' << old;
    }
}

TEST_F(AtomicWrite, AKeyFileOfAGroupStaysItsOwnersForEveryMember) {
    constexpr uid_t kOwner = 4321, kMember = 4322;
    constexpr gid_t kGroup = 4400;
    if (::geteuid() != 0) GTEST_SKIP() << "needs several users";
    const auto asMember = [&](int64_t room) {
        const pid_t child = ::fork();
        if (child == 0) {
            FaultyFileOps ops;
            ops.room = room;
            const ScopedFileOps use(ops);
            const bool member = ::setgroups(1, &kGroup) == 0 && ::setgid(kMember) == 0 && ::setuid(kMember) == 0;
            ::_exit(member && writeFileAtomically(path, asBytes("by a member"), {WriteMode::Secret, false}) ? 0 : 1);
        }
        int status = -1;
        ::waitpid(child, &status, 0);
        return status == 0;
    };
    writeFile(path, "the owner's");
    ASSERT_EQ(::chown(path.c_str(), kOwner, kGroup) | ::chown(dir.path().c_str(), kOwner, kGroup), 0);
    fs::permissions(path, fs::perms(0660));
    fs::permissions(dir.path(), static_cast<fs::perms>(02770));
    for (const auto& [room, content] : {std::pair{int64_t{3}, "the owner's"}, {int64_t{9999}, "by a member"}}) {
        EXPECT_EQ(asMember(room), room > 3);
        EXPECT_EQ(readFile(path), content);
        EXPECT_EQ(names(dir), 1) << "the copy beside it is gone";
        struct stat info {};
        ASSERT_EQ(::stat(path.c_str(), &info), 0);
        EXPECT_EQ(std::tuple(info.st_uid, info.st_gid, info.st_mode & 07777), std::tuple(kOwner, kGroup, 0660u));
    }
    ASSERT_EQ(::setxattr(path.c_str(), "user.nota", "x", 1, 0), 0);
    EXPECT_TRUE(writeFileAtomically(path, asBytes("by root"), {WriteMode::Secret, false}));
    char note = 0;
    EXPECT_EQ(::getxattr(path.c_str(), "user.nota", &note, 1), 1);
}

TEST_F(AtomicWrite, FollowsLinksAndWritesPipesDirectly) {
    fs::create_directory(dir.path() / "sub");
    fs::create_symlink("sub/target", dir.file("link"));
    fs::create_symlink("link", dir.file("link2"));
    EXPECT_TRUE(writeFileAtomically(dir.file("link2"), asBytes("first")));
    EXPECT_TRUE(writeFileAtomically(dir.file("link2"), asBytes("second")));
    EXPECT_TRUE(fs::is_symlink(dir.file("link2")) && fs::is_symlink(dir.file("link")));
    EXPECT_EQ(readFile(dir.file("sub/target")), "second");
    constexpr uid_t kStranger = 4321;
    if (::lchown(dir.file("link2").c_str(), kStranger, kStranger) == 0) {  // only by root
        EXPECT_TRUE(writeFileAtomically(dir.file("link2"), asBytes("third")));
        fs::permissions(dir.path(), static_cast<fs::perms>(01777));
        EXPECT_EQ(writeFileAtomically(dir.file("link2"), {}).error, EACCES) << "where everybody may put links";
        EXPECT_EQ(readFile(dir.file("sub/target")), "third");
        fs::permissions(dir.path(), static_cast<fs::perms>(0700));
    }
    fs::create_symlink("loop", dir.file("loop"));
    EXPECT_EQ(writeFileAtomically(dir.file("loop"), {}).error, ELOOP);

    ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
    std::string got;
    std::thread reader([&] { got = readFile(path); });
    EXPECT_TRUE(writeFileAtomically(path, asBytes("through")));
    reader.join();
    EXPECT_EQ(got, "through");
    EXPECT_TRUE(fs::is_fifo(path));
    EXPECT_EQ(writeFileAtomically(dir.file("sub"), {}).failed, WriteStep::Open);
}

TEST_F(Files, FailuresHaveTheirTexts) {
    const std::string missing = dir.file("no/such"), unread = "readFile: blad odczytu pliku";
    EXPECT_EQ(messageOf([&] { crv::readFile(missing); }), "readFile(): Blad otwarcia bliku: " + missing);
    EXPECT_EQ(messageOf([&] { crv::readFile(dir.path()); }), unread);
    EXPECT_EQ(messageOf([&] { crv::readFile("/dev/zero", 100000); }), unread);
    EXPECT_EQ(messageOf([&] { crv::writeFile(missing, {}); }), "writeFile: blad otwarcia pliku: " + missing);
    FaultyFileOps full;
    full.room = 0;
    const ScopedFileOps use(full);
    EXPECT_EQ(messageOf([&] { crv::writeFile(path, asBytes("x")); }), "writeFile: blad zapisy pliku");
}

TEST_F(Files, DirectoryPathIsMadeWithItsParents) {
    EXPECT_TRUE(createDirectoryPath(dir.file("a/b//c/")) && createDirectoryPath(dir.file("a/b")));
    EXPECT_TRUE(fs::is_directory(dir.file("a/b/c")));
    writeFile(path, "");
    for (const std::string& bad : {path, path + "/x", std::string()}) EXPECT_FALSE(createDirectoryPath(bad)) << bad;
}

TEST_F(Files, StatusTellsWhatFailed) {
    File file;
    char octet = 0;
    EXPECT_FALSE(file.readAt(0, &octet, 1));
    EXPECT_EQ(file.status(), FileStatus::NotOpen);
    EXPECT_FALSE(file.open(dir.file("missing")) || file.open(dir.path()));
    ASSERT_TRUE(file.create(path));
    EXPECT_EQ(file.allocate(10), 0);
    EXPECT_EQ(file.append(asBytes("abc")), 10);
    EXPECT_TRUE(file.readAt(12, &octet, 1) && octet == 'c');
    EXPECT_FALSE(file.readAt(13, &octet, 1));
    EXPECT_EQ(file.status(), FileStatus::IoFailure);
}

TEST_F(Files, ParkedDescriptorIsTakenBackOnlyForTheSameFile) {
    File file;
    ASSERT_TRUE(file.create(path));
    for (const bool replaced : {false, true}) {
        file.park();
        writeFile(replaced ? dir.file("g") : path, replaced ? "other" : "longer now");
        if (replaced) fs::rename(dir.file("g"), path);
        ASSERT_TRUE(file.open(path));
        EXPECT_EQ(file.reused(), !replaced);
        EXPECT_EQ(file.length(), replaced ? 5 : 10);
    }
}

}  // namespace
}  // namespace crv::test
