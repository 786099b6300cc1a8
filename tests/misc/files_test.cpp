#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <thread>

#include "misc/atomic_write.h"
#include "misc/exceptions.h"
#include "misc/file.h"
#include "misc/no_oop.h"
#include "misc/whole_file.h"
#include "support/faulty_file_ops.h"
#include "support/message_of.h"
#include "support/temp_dir.h"

using namespace crv;
namespace fs = std::filesystem;

namespace {

int modeOf(const std::string& path) {
    struct stat info {};
    EXPECT_EQ(::stat(path.c_str(), &info), 0);
    return info.st_mode & 0777;
}

TEST(AtomicWrite, EveryStopLeavesTheOldOrTheNewContentAndNoTemporary) {
    for (int n = 0;; ++n) {
        const test::TempDir dir;
        const std::string path = dir.file("f");
        test::writeFile(path, "old content");
        test::FaultyFileOps ops;
        ops.changesLeft = n;
        ops.tearLast = true;
        WriteResult result;
        {
            const ScopedFileOps use(ops);
            result = writeFileAtomically(path, asBytes("new"));
        }
        EXPECT_EQ(test::readFile(path), result ? "new" : "old content") << n;
        if (result) {
            EXPECT_EQ(std::distance(fs::directory_iterator(dir.path()), {}), 1);
            EXPECT_GE(n, 3);
            break;
        }
        EXPECT_EQ(result.failed, n == 0 ? WriteStep::open : WriteStep::write);
    }
}

TEST(AtomicWrite, FailuresKeepTheOldFileAndRemoveTheTemporary) {
    const test::TempDir dir;
    const std::string path = dir.file("f");
    test::writeFile(path, "old");
    test::FaultyFileOps ops;
    const ScopedFileOps use(ops);
    ops.failSync = true;
    EXPECT_EQ(writeFileAtomically(path, asBytes("longer")).error, EIO);
    EXPECT_EQ(test::readFile(path), "old");
    EXPECT_EQ(std::distance(fs::directory_iterator(dir.path()), {}), 1);
    ops.failSync = false;
    ops.shortTransfer = 1;
    EXPECT_TRUE(writeFileAtomically(path, asBytes("longer")));
    EXPECT_EQ(toBytes(asBytes("longer")), readFile(path));
}

TEST(AtomicWrite, ModesFollowTheRule) {
    const test::TempDir dir;
    struct Row {
        WriteMode mode;
        int old, expected;
    };
    for (const Row row : {Row{WriteMode::secret, 0, 0600},
                          {WriteMode::secret, 0644, 0600},
                          {WriteMode::keepOrSecret, 0, 0600},
                          {WriteMode::keepOrSecret, 0664, 0664},
                          {WriteMode::keepOrCommon, 0, 0644},
                          {WriteMode::keepOrCommon, 0640, 0640}}) {
        const std::string path = dir.file("m");
        fs::remove(path);
        if (row.old != 0) {
            test::writeFile(path, "");
            ASSERT_EQ(::chmod(path.c_str(), static_cast<mode_t>(row.old)), 0);
        }
        EXPECT_TRUE(writeFileAtomically(path, asBytes("x"), {row.mode, false}));
        EXPECT_EQ(modeOf(path), row.expected);
    }
}

TEST(AtomicWrite, FollowsLinksAndWritesPipesDirectly) {
    const test::TempDir dir;
    fs::create_directory(dir.path() / "sub");
    fs::create_symlink("sub/target", dir.file("link"));
    fs::create_symlink("link", dir.file("link2"));
    EXPECT_TRUE(writeFileAtomically(dir.file("link2"), asBytes("first")));
    EXPECT_TRUE(writeFileAtomically(dir.file("link2"), asBytes("second")));
    EXPECT_TRUE(fs::is_symlink(dir.file("link2")) && fs::is_symlink(dir.file("link")));
    EXPECT_EQ(test::readFile(dir.file("sub/target")), "second");
    fs::create_symlink("loop", dir.file("loop"));
    EXPECT_EQ(writeFileAtomically(dir.file("loop"), {}).error, ELOOP);

    const std::string pipe = dir.file("pipe");
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    std::string got;
    std::thread reader([&] { got = test::readFile(pipe); });
    EXPECT_TRUE(writeFileAtomically(pipe, asBytes("through")));
    reader.join();
    EXPECT_EQ(got, "through");
    EXPECT_TRUE(fs::is_fifo(pipe));
    EXPECT_EQ(writeFileAtomically(dir.file("sub"), {}).failed, WriteStep::open);
}

TEST(AtomicWrite, RewritesInPlaceOnlyWhenAskedTo) {
    const test::TempDir dir;
    const std::string path = dir.file("f");
    test::writeFile(path, "something long");
    test::FaultyFileOps ops;
    ops.denyNewFiles = true;
    const ScopedFileOps use(ops);
    EXPECT_EQ(writeFileAtomically(path, asBytes("new")).error, EACCES);
    EXPECT_EQ(test::readFile(path), "something long");
    EXPECT_TRUE(writeFileAtomically(path, asBytes("new"), {WriteMode::keepOrCommon, true}));
    EXPECT_EQ(test::readFile(path), "new");
}

TEST(WholeFile, TextsOfItsFailures) {
    const test::TempDir dir;
    const std::string missing = dir.file("no/such");
    EXPECT_EQ(test::messageOf([&] { readFile(missing); }), "readFile(): Blad otwarcia bliku: " + missing);
    EXPECT_EQ(test::messageOf([&] { readFile(dir.path()); }), "readFile: blad odczytu pliku");
    EXPECT_EQ(test::messageOf([&] { readFile("/dev/zero", 100000); }), "readFile: blad odczytu pliku");
    EXPECT_EQ(test::messageOf([&] { writeFile(missing, {}); }), "writeFile: blad otwarcia pliku: " + missing);
    test::FaultyFileOps full;
    full.room = 0;
    const ScopedFileOps use(full);
    EXPECT_EQ(test::messageOf([&] { writeFile(dir.file("f"), asBytes("x")); }), "writeFile: blad zapisy pliku");
}

TEST(WholeFile, DirectoryPathIsMadeWithItsParents) {
    const test::TempDir dir;
    EXPECT_TRUE(createDirectoryPath(dir.file("a/b//c/")) && createDirectoryPath(dir.file("a/b")));
    EXPECT_TRUE(fs::is_directory(dir.file("a/b/c")));
    test::writeFile(dir.file("plain"), "");
    EXPECT_FALSE(createDirectoryPath(dir.file("plain")));
    EXPECT_FALSE(createDirectoryPath(dir.file("plain/x")));
    EXPECT_FALSE(createDirectoryPath(""));
}

TEST(File, StatusTellsWhatFailed) {
    const test::TempDir dir;
    File file;
    char octet = 0;
    EXPECT_FALSE(file.readAt(0, &octet, 1));
    EXPECT_EQ(file.status(), FileStatus::notOpen);
    EXPECT_FALSE(file.open(dir.file("missing")));
    EXPECT_FALSE(file.open(dir.path()));
    ASSERT_TRUE(file.create(dir.file("f")));
    EXPECT_EQ(file.allocate(10), 0);
    EXPECT_EQ(file.append(asBytes("abc")), 10);
    EXPECT_TRUE(file.readAt(12, &octet, 1) && octet == 'c');
    EXPECT_FALSE(file.readAt(13, &octet, 1));
    EXPECT_EQ(file.status(), FileStatus::ioFailure);
}

TEST(File, ParkedDescriptorIsTakenBackOnlyForTheSameFile) {
    const test::TempDir dir;
    const std::string path = dir.file("f");
    File file;
    ASSERT_TRUE(file.create(path));
    file.park();
    test::writeFile(path, "longer now");
    ASSERT_TRUE(file.open(path));
    EXPECT_TRUE(file.reused());
    EXPECT_EQ(file.length(), 10);
    file.park();
    test::writeFile(dir.file("g"), "other");
    fs::rename(dir.file("g"), path);
    ASSERT_TRUE(file.open(path));
    EXPECT_FALSE(file.reused());
    EXPECT_EQ(file.length(), 5);
}

TEST(NoOop, DigestTextIsNotHexadecimal) {
    const Bytes digest{0x0A, 0xFF, 0x30};
    EXPECT_EQ(codeDigest(digest), "0:??30");
    char buffer[6] = {'x', 'x', 'x', 'x', 'x', 'x'};
    codeDigest(digest.data(), 2, buffer, 4);
    EXPECT_EQ(std::string(buffer, 6), "0:??xx");
    EXPECT_EQ(test::messageOf([&] { codeDigest(digest.data(), 3, buffer, 5); }),
              "Assertion dstLen >= 2*digestLen failed in src/misc/no_oop");
}

TEST(NoOop, RecordNumbers) {
    EXPECT_EQ(recNoEncode(56), "00000038");
    EXPECT_EQ(recNoEncode(0x123456789ABCL), "123456789ABC");
    struct Row {
        const char* text;
        std::optional<int64_t> value;
    };
    for (const Row& row : {Row{"00000038", 56},
                           {"7fffffffffffffff", INT64_MAX},
                           {"8000000000000000", {}},
                           {"fffffffffffffffff", {}},
                           {"", {}},
                           {"xyz", {}},
                           {"-1", {}}}) {
        EXPECT_EQ(recNoDecode(row.text), row.value) << row.text;
    }
}

}  // namespace
