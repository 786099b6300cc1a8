#include <gtest/gtest.h>

#include "misc/base64_file.h"
#include "misc/disk_file.h"
#include "misc/memory_file.h"
#include "misc/typed_pointer_list.h"
#include "support/faulty_file_ops.h"
#include "support/temp_dir.h"

namespace crv::test {
namespace {

std::string readAll(GenericFile& in) {
    std::string out;
    int octet = in.get();
    for (; octet >= 0; octet = in.get()) out += char(octet);
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
        DiskFile out(dir.file("a"), DiskFile::Mode::write);
        ASSERT_TRUE(out.write(asBytes("abc")) && out.write(asBytes("def")) && out.close());
    }
    DiskFile in(dir.file("a"), DiskFile::Mode::read);
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
    DiskFile full(dir.file("b"), DiskFile::Mode::write), none(dir.file("none"), DiskFile::Mode::read);
    EXPECT_FALSE(full.write(asBytes("abc")) && full.close());
    EXPECT_EQ(full.error(), ENOSPC);
    EXPECT_FALSE(none.isOpen());
    EXPECT_EQ(none.error(), ENOENT);
    DiskFile folder(dir.path().string(), DiskFile::Mode::read);
    EXPECT_EQ(readAll(folder), "<failed>");
}

TEST(GenericFiles, LookAheadCrossesTheEndOfABuffer) {
    TempDir dir;
    std::string octets;
    while (octets.size() < 100000) octets += std::to_string(octets.size());
    writeFile(dir.file("big"), octets);
    DiskFile in(dir.file("big"), DiskFile::Mode::read);
    for (size_t at = 0; at + 7 <= octets.size(); at += 7) {
        ASSERT_TRUE(in.lookAhead(7) && in.position() == long(at));
        ASSERT_EQ(asText(in.window().first(7)), octets.substr(at, 7));
        in.consume(7);
    }
}

TEST(GenericFiles, SubRangeEndsWhereItShould) {
    TempDir dir;
    writeFile(dir.file("a"), "0123456789");
    DiskFile disk(dir.file("a"), DiskFile::Mode::read);
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

TEST(Base64, BothWaysAndEveryMalformedText) {
    const std::pair<const char*, const char*> kRows[] = {
        {"", ""}, {"f", "Zg=="}, {"fo", "Zm8="}, {"foo", "Zm9v"}, {"foob", "Zm9vYg=="}, {"\xFF\xFE\xFD", "//79"}};
    for (const auto& [plain, coded] : kRows) {
        EXPECT_EQ(toBase64(asBytes(plain)), coded);
        EXPECT_EQ(asText(fromBase64(coded).value()), plain);
    }
    EXPECT_EQ(asText(*fromBase64(" Zm\r\n9v\t")), "foo");
    for (const char* bad : {"Z", "Zg", "Zg=", "Zg===", "Z===", "Zg=v", "Zg==Zg==", "Zm9v!", "Zm-v", "===="})
        EXPECT_FALSE(fromBase64(bad)) << bad;
}

TEST(Base64, PemBlocksOneAfterAnother) {
    const std::string octets(100, 'x'), one = toPem("A B", asBytes(octets));
    EXPECT_EQ(one.substr(0, 18), "-----BEGIN A B----");
    EXPECT_EQ(one.find('\n', 20), 20U + 64) << one;
    const std::string both = "text\r\n" + one + "between\n-----BEGIN C-----\r\nZg==\r\n-----END C-----";
    MemoryFile source(asBytes(both));
    std::string found, label;
    for (bool more = true; more;) {
        Base64Reader block(source, Base64Armour::pem);
        more = block.findBlock();
        if (more) found += block.label() + ":" + readAll(block) + "\n";
    }
    EXPECT_EQ(found, "A B:" + octets + "\nC:f\n");
    EXPECT_TRUE(fromPem(one, &label));
    EXPECT_EQ(label, "A B");
    for (const char* bad : {"", "-----BEGIN A-----\nZg==\n", "-----BEGIN A-----\nZg==\n-----END B-----\n",
                            "-----BEGIN A-----\nZg=\n-----END A-----\n", "-----BEGIN A-----"})
        EXPECT_FALSE(fromPem(bad)) << bad;
}

TEST(TypedPointerLists, OwnTheirElementsAndCopyThem) {
    TypedPointerList<std::string> list;
    std::string& first = list.emplace("a");
    for (int i = 0; i < 100; ++i) list.emplace("b");
    EXPECT_EQ(&first, &list[0]) << "elements keep their address";
    TypedPointerList<std::string> copy = list;
    copy[0] = "c";
    EXPECT_EQ(list[0], "a");
    copy.insert(1, std::make_unique<std::string>("d"));
    EXPECT_EQ(*copy.remove(0), "c");
    EXPECT_EQ(*copy.begin(), "d");
    copy = copy;  // NOLINT: self-assignment is what is tested
    EXPECT_EQ(std::count(copy.begin(), copy.end(), "b"), 100);
}

}  // namespace
}  // namespace crv::test
