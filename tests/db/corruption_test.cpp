#include <cstring>

#include "db/data_scan.h"
#include "db/table_mend.h"
#include "db/table_rebuild.h"
#include "db/table_test_base.h"
#include "support/faulty_file_ops.h"

using namespace crv;
using namespace crv::test;

namespace {

constexpr int64_t kAbsurd[] = {0,         -1,       1, 11, 57, 2049, 0x7FFF, 0x12344322, INT32_MAX, int64_t{1} << 40,
                               INT64_MAX, INT64_MIN};

/// Uses a table in every way; comes to an end whatever the files hold. Answers how many calls failed.
int exercise(const std::string& name) {
    int errors = 0;
    const auto note = [&](int answer) { return errors += answer == kDbError, answer; };
    DataBase table;
    if (note(table.open(name)) != kDbOk) return errors;
    TableRecord record;
    for (int i = 0; i < table.indexFile().numIndexes(); ++i) {
        table.selectIndex(i);
        for (const int direction : {1, -1}) {
            int answer = note(direction > 0 ? table.top() : table.bottom());
            while (answer == kDbOk) {
                note(table.data(record));
                answer = note(table.skip(direction));
            }
        }
        for (const char* key : {"", "3", "zzz"}) note(table.seek(key));
        note(table.setRec(56));
    }
    note(table.update(asBytes("u")));
    int64_t recNo = 0;
    std::vector<std::string_view> keys(static_cast<size_t>(table.dataFile().numIndexes()), "5");
    for (int i = 0; i < 6; ++i) note(table.insert(keys, asBytes("new"), recNo));
    note(table.remove());
    table.close();
    return errors;
}

class DamagedTable : public testing::Test {
  protected:
    DamagedTable() {
        const IndexDesc descs[] = {tinyDesc(17), tinyDesc(5)};
        DataBase table;
        EXPECT_EQ(table.create(good, 2, descs), kDbOk);
        EXPECT_EQ(table.open(good), kDbOk);
        for (int i = 0; i < 60; ++i) add(table, {std::to_string(i * 37 % 60), std::to_string(i % 4)}, "body");
        EXPECT_EQ(table.remove(), kDbOk);
        table.close();
        idx = readFile(good + ".idx");
        dta = readFile(good + ".dta");
    }
    void write(const std::string& index, const std::string& data) {
        std::filesystem::remove(bad + ".idx");
        std::filesystem::remove(bad + ".dta");
        writeFile(bad + ".idx", index);
        writeFile(bad + ".dta", data);
    }
    static std::string with(std::string octets, size_t at, int64_t value, size_t size) {
        std::memcpy(octets.data() + at, &value, size);
        return octets;
    }
    static int64_t numberAt(const std::string& octets, size_t at) {
        int64_t value = 0;
        std::memcpy(&value, octets.data() + at, 8);
        return value;
    }
    bool sound() { return checkTable(bad).problems.empty(); }

    FaultyFileOps unsynced;
    const ScopedFileOps fast{unsynced};
    const TempDir dir;
    const std::string good = dir.file("good"), bad = dir.file("bad");
    std::string idx, dta;
};

TEST_F(DamagedTable, AbsurdNumbersAreFoundAndDoNoHarm) {
    struct Field {
        const char* what;
        bool index;
        size_t at, size;
        bool checked = true;  // every other value is a fault that the check names
    };
    std::vector<Field> fields{{"number of indexes", true, 0, 8},
                              {"insertions", true, 8, 8, false},
                              {"data magic", false, 0, 8},
                              {"data number of indexes", false, 8, 2},
                              {"data key length", false, 10, 2},
                              {"data page size", false, 12, 2},
                              {"deleted flag", false, 56, 8, false},
                              {"record magic", false, 64, 8},
                              {"record length", false, 72, 8, false},
                              {"record capacity", false, 80, 8}};
    for (const size_t descriptor : {16, 56}) {
        for (const size_t at : {0, 8, 16, 24, 32, 34, 36}) {
            fields.push_back({"descriptor", true, descriptor + at, at < 32 ? size_t{8} : 2});
        }
    }
    for (const int64_t page : {numberAt(idx, 24), numberAt(idx, 32), numberAt(idx, 40)}) {
        for (size_t at = 0; at < 32; at += 8) fields.push_back({"page head", true, page + at, 8});
        // The record of an inner page's entry is a copy that nobody looks at.
        const bool leaf = numberAt(idx, page + 24) == kNowhere;
        fields.push_back({"record of an entry", true, static_cast<size_t>(page) + 32, 8, leaf});
        fields.push_back({"child of an entry", true, static_cast<size_t>(page) + 40, 8});
    }
    for (const Field& field : fields) {
        for (const int64_t value : kAbsurd) {
            const std::string& original = field.index ? idx : dta;
            const std::string changed = with(original, field.at, value, field.size);
            write(field.index ? changed : idx, field.index ? dta : changed);
            EXPECT_TRUE(changed == original || !field.checked || !sound()) << field.what << field.at << " " << value;
            exercise(bad);
            DataBase table;
            (void)rebuildTable(table, bad);
        }
    }
    write(with(idx, 16, 0x12344320, 8), dta);
    DataBase table;
    EXPECT_EQ(table.open(bad), kDbError);
    EXPECT_EQ(table.indexFile().status(), FileStatus::BadMagic);
    write(idx, with(dta, 10, 18, 2));
    EXPECT_EQ(table.open(bad), kDbError) << "longer keys than the index has";
    EXPECT_EQ(table.dataFile().status(), FileStatus::BadMagic);
}

TEST_F(DamagedTable, TruncationAnywhereIsAnError) {
    for (const bool index : {true, false}) {
        const std::string& whole = index ? idx : dta;
        for (size_t length = 0; length < whole.size(); length += index && length < 2048 ? 113 : 23) {
            const std::string part = whole.substr(0, length);
            write(index ? part : idx, index ? dta : part);
            EXPECT_FALSE(sound()) << index << " " << length;
            EXPECT_GT(exercise(bad), 0) << index << " " << length;
        }
    }
}

TEST_F(DamagedTable, RingOfLeavesEnds) {
    // All records deleted, and the last leaf leads to the first: a walk for a live record would never end.
    const int64_t first = numberAt(idx, 32), last = numberAt(idx, 40);
    std::string ring = with(with(idx, last + 8, first, 8), first + 16, last, 8), empty = dta;
    for (size_t at = 56; at < empty.size(); at += 32 + 22 + 4) empty[at] = 1;
    write(ring, dta);
    EXPECT_GT(exercise(bad), 0) << "nor would one past the live ones";
    DataBase table;
    for (const size_t link : {8, 16}) {
        write(with(idx, first + link, first, 8), dta);
        ASSERT_EQ(table.open(bad), kDbOk);
        EXPECT_EQ(table.top(), kDbOk);
        int steps = 0;
        while (table.skip(1) == kDbOk) ++steps;
        EXPECT_LT(steps, 60) << "a leaf that leads to itself is left at once";
        table.close();
    }
    write(ring, empty);
    ASSERT_EQ(table.open(bad), kDbOk);
    EXPECT_EQ(table.top(), kDbError);
    EXPECT_EQ(table.bottom(), kDbError);
    EXPECT_EQ(table.seek("3"), kDbError);
    EXPECT_FALSE(sound());
}

TEST_F(DamagedTable, LostIndexIsMadeAnewAndATornRecordCutOff) {
    const std::string torn = dta + dta.substr(56, 40);
    struct Row {
        const char* what;
        std::string index, data;
        int64_t insertions;  // the count does not fall as long as it can be read
    };
    for (const Row& row : {Row{"missing", "", dta, 59},
                           {"empty", "", dta, 59},
                           {"damaged", with(idx, 2048, 99, 8), dta, 60},
                           {"torn data", idx, torn, 60}}) {
        SCOPED_TRACE(row.what);
        write(row.index, row.data);
        if (row.what == std::string("missing")) std::filesystem::remove(bad + ".idx");
        EXPECT_FALSE(sound());
        ASSERT_TRUE(mendTable(bad));
        EXPECT_EQ(problemsOf(bad), "");
        EXPECT_EQ(readFile(bad + ".dta"), dta);
        const TableReport report = checkTable(bad);
        EXPECT_EQ(report.live, 59);
        EXPECT_EQ(report.insertions, row.insertions);
    }
    write(idx, torn);
    DataBase table;
    EXPECT_EQ(rebuildTable(table, bad), kDbOk);
    EXPECT_EQ(problemsOf(bad), "");
}

TEST_F(DamagedTable, DamageInTheMiddleIsBridgedOnlyWhenAskedFor) {
    const size_t record = 32 + 22 + 4, third = 56 + 2 * record;
    std::string damaged = dta;
    damaged.replace(third + 8, 100, std::string(100, '\xEE'));
    write(idx, damaged);
    DataBase table;
    EXPECT_FALSE(mendTable(bad));
    EXPECT_EQ(rebuildTable(table, bad), kDbError);
    EXPECT_EQ(readFile(bad + ".dta"), damaged);
    Salvaged found;
    std::string endless = dta;
    endless.replace(third + 32, 22, std::string(22, 'x'));
    write(idx, endless);
    EXPECT_TRUE(remakeIndexes(bad, MendExtent::Salvage, found));
    EXPECT_EQ(found.lost, 1) << "keys without an end";
    write(idx, damaged);
    ASSERT_TRUE(remakeIndexes(bad, MendExtent::Salvage, found));
    EXPECT_EQ(found.lost, 1);
    EXPECT_EQ(readFile(bad + ".dta"), damaged) << "the old file stays until the swap";
    ASSERT_TRUE(swapRebuilt(bad));
    EXPECT_EQ(problemsOf(bad), "");
    EXPECT_EQ(checkTable(bad).live, 59 - 2);
    ASSERT_EQ(table.open(bad), kDbOk);
    EXPECT_EQ(table.setRec(static_cast<int64_t>(56 + 4 * record)), kDbOk) << "numbers behind the damage stay";
}

}  // namespace
