#include "db/database.h"
#include "db/record_numbers.h"
#include "db/table_rebuild.h"
#include "db/table_test_base.h"
#include "support/faulty_file_ops.h"

using namespace crv;
using namespace crv::test;

namespace {

/// The bodies in the order of an index.
std::vector<std::string> walk(DataBase& table, int index) {
    std::vector<std::string> bodies;
    table.selectIndex(index);
    for (int at = table.top(); at == kDbOk; at = table.skip(1)) bodies.push_back(bodyAt(table));
    return bodies;
}

TEST(IndexBuilder, IndexesMadeAtOnceAreLikeThoseInsertedInto) {
    FaultyFileOps unsynced;
    const ScopedFileOps fast(unsynced);
    // Two keys a page, so that few records make deep trees; and pages of many keys.
    constexpr std::array kDescs{IndexDesc{24, 32 + 2 * 40}, IndexDesc{24, 32 + 4 * 40}, IndexDesc{24, 4096}};
    const std::array<std::string, 6> stems{"", "\xC5\xBB", "prefix__", "prefix__9", "prefix__prefix__", "prefiy"};
    for (const int count : {0, 1, 2, 3, 4, 5, 6, 7, 9, 10, 16, 26, 27, 28, 81, 500}) {
        SCOPED_TRACE(count);
        const TempDir dir;
        const std::string name = dir.file("ab");
        DataBase table;
        ASSERT_EQ(table.create(name, kDescs.size(), kDescs.data()), kDbOk);
        ASSERT_EQ(table.open(name), kDbOk);
        const auto addNth = [&](int i) {
            const std::string number = std::to_string(i * 7919 % 1009);
            const std::string& stem = stems[static_cast<size_t>(i) % stems.size()];
            ASSERT_NE(add(table, {number, stem + number.substr(0, 1), stem}, std::to_string(i)), 0);
        };
        for (int i = 0; i < count; ++i) addNth(i);
        std::array<std::vector<std::string>, kDescs.size()> expected;
        for (int i = 0; i < 3; ++i) expected[static_cast<size_t>(i)] = walk(table, i);
        ASSERT_EQ(rebuildTable(table, name), kDbOk);
        ASSERT_EQ(table.open(name), kDbOk);
        for (int i = 0; i < 3; ++i) EXPECT_EQ(walk(table, i), expected[static_cast<size_t>(i)]) << i;
        EXPECT_EQ(problemsOf(name), "");
        for (int i = count; i < 2 * count; ++i) addNth(i);
        table.close();
        EXPECT_EQ(problemsOf(name), "") << "full pages split like others";
    }
}

/// An index file of two indexes made of that many records, in so much memory.
FileStatus build(const std::string& path, int count, size_t memory) {
    constexpr std::array kDescs{IndexDesc{40, 4096}, IndexDesc{9, 32 + 2 * 25}};
    IndexFile index;
    EXPECT_EQ(index.create(path, kDescs.size(), kDescs.data()), kDbOk);
    EXPECT_EQ(index.open(path), kDbOk);
    IndexBuilder builder(index, memory);
    for (int i = 0; i < count; ++i) {
        const std::string number = std::to_string(int64_t{i} * 7919 % 1009);
        const std::string prefix(static_cast<size_t>(i) % 30, 'p');
        if (builder.add(std::array<std::string_view, 2>{prefix + number, number}, 56 + 100 * i) != kDbOk)
            return index.status();
    }
    return builder.finish() == kDbOk ? FileStatus::Ok : index.status();
}

TEST(IndexBuilder, LittleMemoryMakesTheSameFileAndAFullDiskIsTold) {
    FaultyFileOps ops;
    const ScopedFileOps fast(ops);
    const TempDir dir;
    const std::string whole = dir.file("whole.idx"), pieces = dir.file("pieces.idx");
    const size_t little = 6000;
    for (const int count : {1, 60, 700, 5000}) {
        ASSERT_EQ(build(whole, count, size_t{1} << 30), FileStatus::Ok);
        ASSERT_EQ(build(pieces, count, little), FileStatus::Ok);
        EXPECT_TRUE(readFile(whole) == readFile(pieces)) << count;
    }
    int failures = 0;
    for (int64_t room = 3000; room < 400000; room += 9973) {
        ops.room = room;
        const FileStatus status = build(pieces, 1000, little);
        EXPECT_FALSE(std::filesystem::exists(dir.file("pieces.run"))) << room;
        if (status == FileStatus::Ok) break;
        EXPECT_EQ(status, FileStatus::IoFailure) << room;
        ++failures;
    }
    EXPECT_GT(failures, 3);
}

TEST(RecordNumbers, KeepTheirPlacesWhateverTheGaps) {
    std::mt19937_64 random(seedOf());
    RecordNumbers numbers;
    std::vector<int64_t> expected;
    for (int64_t number = 56; expected.size() < 1000;
         number += 1 + static_cast<int64_t>(random() >> (20 + random() % 44)))
        numbers.add(expected.emplace_back(number));
    ASSERT_EQ(numbers.size(), expected.size());
    for (int i = 0; i < 3000; ++i) {
        const size_t place = i < 1000 ? static_cast<size_t>(i) : random() % expected.size();
        EXPECT_EQ(numbers.at(place), expected[place]);
        const int64_t wanted = expected[random() % expected.size()] + static_cast<int64_t>(random() % 2);
        const auto found = std::ranges::find(expected, wanted);
        const auto there = found == expected.end() ? std::nullopt : std::optional<size_t>(found - expected.begin());
        EXPECT_EQ(numbers.find(wanted), there) << wanted;
    }
}

}  // namespace
