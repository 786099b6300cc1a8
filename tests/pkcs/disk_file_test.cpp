#include "crvasn/disk_file.h"

#include <gtest/gtest.h>

#include "misc/memory_file.h"
#include "support/faulty_file_ops.h"
#include "support/temp_dir.h"

namespace crv::test {
namespace {

std::string readAll(GenericFile& in) {
    std::string out;
    int octet = in.get();
    for (; octet >= 0; octet = in.get()) out += static_cast<char>(octet);
    return octet == GenericFile::kFailed ? out + "<failed>" : out;
}

/// Hands out one octet a call, whatever is asked for, after an interruption.
class SlowOps : public FaultyFileOps {
  public:
    SlowOps() { shortTransfer = 1; }
    ssize_t read(int fd, void* buffer, size_t size) override {
        interrupted_ = !interrupted_;
        if (!interrupted_) return FaultyFileOps::read(fd, buffer, size);
        errno = EINTR;
        return -1;
    }

  private:
    bool interrupted_ = false;
};

TEST(GenericFiles, DiskFileSurvivesShortCallsAndTellsFailures) {
    TempDir dir;
    SlowOps ops;
    const ScopedFileOps scope(ops);
    {
        DiskFile out(dir.file("a"), DiskFile::Mode::Write);
        ASSERT_TRUE(out.write(asBytes("abc")) && out.write(asBytes("def")) && out.close());
    }
    DiskFile in(dir.file("a"), DiskFile::Mode::Read);
    EXPECT_TRUE(in.lookAhead(4));
    EXPECT_EQ(asText(in.window()).substr(0, 4), "abcd");
    EXPECT_EQ(in.skip(2), 2);
    EXPECT_EQ(in.position(), 2);
    EXPECT_EQ(readAll(in), "cdef");
    EXPECT_EQ(in.skip(1), 0);
    EXPECT_TRUE(in.seek(4));
    EXPECT_EQ(in.position(), 4);
    EXPECT_EQ(readAll(in), "ef");
    EXPECT_FALSE(in.write(asBytes("x")) && in.close()) << "opened for reading";

    ops.room = 2;
    DiskFile full(dir.file("b"), DiskFile::Mode::Write), none(dir.file("none"), DiskFile::Mode::Read);
    EXPECT_FALSE(full.write(asBytes("abc")) && full.close());
    EXPECT_EQ(full.error(), ENOSPC);
    EXPECT_FALSE(none.isOpen());
    EXPECT_EQ(none.error(), ENOENT);
    DiskFile folder(dir.path().string(), DiskFile::Mode::Read);
    EXPECT_EQ(readAll(folder), "<failed>");
}

TEST(GenericFiles, LookAheadCrossesTheEndOfABuffer) {
    TempDir dir;
    std::string octets;
    while (octets.size() < 100000) octets += std::to_string(octets.size());
    writeFile(dir.file("big"), octets);
    DiskFile in(dir.file("big"), DiskFile::Mode::Read);
    for (size_t at = 0; at + 7 <= octets.size(); at += 7) {
        ASSERT_TRUE(in.lookAhead(7) && in.position() == long(at));
        ASSERT_EQ(asText(in.window().first(7)), octets.substr(at, 7));
        in.consume(7);
    }
}

TEST(GenericFiles, SubRangeEndsWhereItShould) {
    TempDir dir;
    writeFile(dir.file("a"), "0123456789");
    DiskFile disk(dir.file("a"), DiskFile::Mode::Read);
    MemoryFile memory(asBytes("0123456789"));
    for (GenericFile* whole : std::initializer_list<GenericFile*>{&disk, &memory}) {
        ASSERT_EQ(whole->skip(2), 2);
        SubRangeFile range(*whole, 5);
        EXPECT_TRUE(range.lookAhead(3));
        EXPECT_EQ(readAll(range), "23456");
        SubRangeFile beyond(*whole, 50);
        EXPECT_EQ(readAll(beyond), "789");
        EXPECT_EQ(range.inMemory(), whole == &memory);
    }
    EXPECT_TRUE(memory.seek(9));
    EXPECT_EQ(readAll(memory), "9");
    EXPECT_FALSE(memory.seek(11));
    uint8_t room[3];
    SpanFile span(room);
    EXPECT_TRUE(span.write(asBytes("ab")));
    EXPECT_FALSE(span.write(asBytes("cd")));
    EXPECT_EQ(span.size(), 2U);
}

}  // namespace
}  // namespace crv::test
