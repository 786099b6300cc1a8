#include "db/database.h"
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

}  // namespace
