#include "db/database.h"

#include "db/table_mend.h"
#include "db/table_rebuild.h"
#include "db/table_test_base.h"
#include "misc/exceptions.h"
#include "support/faulty_file_ops.h"
#include "support/message_of.h"

using namespace crv;
using namespace crv::test;

namespace {

constexpr IndexDesc page4k(int16_t keyLen) {
    return {keyLen, 4096};
}

class Table : public testing::Test {
  protected:
    void make(const std::vector<IndexDesc>& descs) {
        ASSERT_EQ(table.create(name, static_cast<int>(descs.size()), descs.data()), dbOk);
        ASSERT_EQ(table.open(name), dbOk);
    }
    void expectSound() { EXPECT_EQ(problemsOf(name), ""); }

    FaultyFileOps unsynced;
    const ScopedFileOps fast{unsynced};
    const TempDir dir;
    const std::string name = dir.file("ab");
    DataBase table;
};

TEST(TableFormat, KeysOfAPage) {
    for (const auto& [keyLen, keys] : {std::pair<int16_t, int>{17, 122}, {41, 70}, {129, 28}, {130, 26}}) {
        EXPECT_EQ(maxKeysOf(page4k(keyLen)), keys);
    }
    EXPECT_EQ(maxKeysOf({0, 4096}), 0);
    EXPECT_EQ(maxKeysOf({41, -1}), 0);
}

TEST_F(Table, ElevenIndexesAreRefusedByBothFiles) {
    const std::vector<IndexDesc> eleven(11, page4k(17));
    const auto message = [&](auto&& file) { return messageOf([&] { (void)file.create(name, 11, eleven.data()); }); };
    EXPECT_EQ(message(IndexFile()), "Assertion idxNumb <= MAX_INDEX failed in src/db/indxuser");
    EXPECT_EQ(message(DataFile()), "Assertion idxNumb <= MAX_INDEX failed in src/db/datafile");
    make({page4k(17)});
    EXPECT_EQ(messageOf([&] { table.selectIndex(1); }), "Assertion idx < numIdx failed in src/db/indxuser");
}

TEST_F(Table, SeventyFirstKeySplitsInto36And35) {
    make({page4k(41)});
    for (int i = 100; i < 171; ++i) ASSERT_NE(add(table, {std::to_string(i)}, ""), 0);
    IndexFile& index = table.indexFile();
    const int64_t first = index.root(0).first, last = index.root(0).last;
    EXPECT_EQ(index.pageAt(0, first)->count, 36);
    EXPECT_EQ(index.pageAt(0, last)->count, 35);
    EXPECT_EQ(index.pageAt(0, index.root(0).root)->key(1), "135");
    EXPECT_EQ(bodyAt(table), "") << "the cursor rests on the new record";
    EXPECT_EQ(table.skip(1), dbNoRecord);
}

TEST_F(Table, NewEqualKeyGoesFirstAndSeekFindsIt) {
    make({page4k(17)});
    add(table, {"B"}, "old"), add(table, {"A"}, "a"), add(table, {"B"}, "new");
    EXPECT_EQ(table.seek("B"), dbOk);
    EXPECT_EQ(bodyAt(table), "new");
    EXPECT_EQ(table.skip(1), dbOk);
    EXPECT_EQ(bodyAt(table), "old");
    EXPECT_EQ(table.seek("AA"), dbGreater);
    EXPECT_EQ(table.seek("C"), dbNoRecord);
    EXPECT_EQ(bodyAt(table), "old") << "beyond the end the cursor is on the last record";
    EXPECT_EQ(table.skip(-3), dbNoRecord);
    EXPECT_EQ(bodyAt(table), "old") << "a skip too far leaves the cursor";
    EXPECT_EQ(table.skip(-2), dbOk);
    EXPECT_EQ(bodyAt(table), "a");
}

TEST_F(Table, RemovedOnlyRecordLeavesItsEntry) {
    make({page4k(17)});
    add(table, {"x"}, "body");
    EXPECT_EQ(table.remove(), dbOk);
    EXPECT_EQ(table.top(), dbNoRecord);
    EXPECT_EQ(table.bottom(), dbNoRecord);
    EXPECT_EQ(table.seek("x"), dbNoRecord);
    EXPECT_EQ(table.recNo(), dbNoRecord);
    EXPECT_EQ(table.remove(), dbNoRecord);
    EXPECT_EQ(table.update({}), dbNoRecord);
    EXPECT_EQ(table.setRec(56), dbError);
    EXPECT_EQ(table.lastError(), DataBase::Error::data);
    EXPECT_EQ(table.indexFile().insertions(), 1);
    IndexFile& index = table.indexFile();
    std::string key;
    int64_t recNo = 0;
    EXPECT_EQ(index.top(), dbOk);
    EXPECT_EQ(index.data(key, recNo), dbOk);
    EXPECT_EQ(recNo, 56);
}

TEST_F(Table, UpdateFitsTheFirstLength) {
    make({page4k(17)});
    const int64_t recNo = add(table, {"k"}, "12345");
    EXPECT_EQ(table.update(asBytes("123456")), dbTooLong);
    EXPECT_EQ(bodyAt(table), "12345");
    EXPECT_EQ(table.update(asBytes("xy")), dbOk);
    EXPECT_EQ(bodyAt(table), "xy");
    EXPECT_EQ(table.update(asBytes("vwxyz")), dbOk) << "the capacity stays";
    EXPECT_EQ(bodyAt(table), "vwxyz");
    EXPECT_EQ(table.dataFile().update(recNo, asBytes("123456")), dbTooLong);
    EXPECT_EQ(table.dataFile().remove(recNo), dbOk);
    EXPECT_EQ(table.dataFile().update(recNo, {}), dbDeleted);
    TableRecord record;
    EXPECT_EQ(table.dataFile().data(recNo, record, false), dbDeleted);
    EXPECT_EQ(table.dataFile().data(recNo, record, true), dbDeleted);
    EXPECT_EQ(asText(record.body), "vwxyz");
}

TEST_F(Table, KeysThatDoNotFitChangeNothing) {
    make({page4k(17), page4k(5)});
    EXPECT_NE(add(table, {"1234567890123456", "1234"}, ""), 0);
    const std::string idx = readFile(name + ".idx"), dta = readFile(name + ".dta");
    EXPECT_EQ(add(table, {"a", "12345"}, "x"), 0);
    EXPECT_EQ(add(table, {"a"}, "x"), 0);
    EXPECT_EQ(readFile(name + ".idx"), idx);
    EXPECT_EQ(readFile(name + ".dta"), dta);
    const std::string zero(
        "1\0"
        "23456789",
        10);
    EXPECT_NE(add(table, {zero, zero}, "z"), 0) << "a key ends at its zero octet";
    EXPECT_EQ(table.seek(std::string("1\0other", 7)), dbOk);
    expectSound();
}

TEST_F(Table, RebuildCountsLiveRecordsFromTheStart) {
    make({tinyDesc(17)});
    for (const char* key : {"c", "b", "a"}) add(table, {key}, "body");
    ASSERT_EQ(table.remove(), dbOk);
    ASSERT_EQ(table.skip(1), dbOk);
    ASSERT_EQ(table.update(asBytes("u")), dbOk);
    ASSERT_EQ(table.rebuild(name), dbOk);
    EXPECT_FALSE(std::filesystem::exists(dir.file("a#.idx")) || std::filesystem::exists(dir.file("a#.dta")));
    ASSERT_EQ(table.open(name), dbOk);
    EXPECT_EQ(table.skip(1), dbOk);
    EXPECT_EQ(table.recNo(), 56);
    EXPECT_EQ(table.skip(-1), dbOk);
    EXPECT_EQ(table.update(asBytes("uu")), dbTooLong) << "the length in use is the new capacity";
    EXPECT_EQ(checkTable(name).deleted, 0);
    expectSound();
}

TEST_F(Table, OneObjectSeesWhatAnotherWroteBetweenItsOpenings) {
    make({tinyDesc(17)});
    DataBase other;
    ASSERT_EQ(other.open(name), dbOk);
    for (int i = 0; i < 200; ++i) {
        DataBase& writer = i % 2 == 0 ? table : other;
        DataBase& reader = i % 2 == 0 ? other : table;
        reader.close();
        ASSERT_NE(add(writer, {std::to_string(i)}, std::to_string(i)), 0);
        writer.close();
        if (i == 100) {
            ASSERT_EQ(writer.rebuild(name), dbOk);
        }
        ASSERT_EQ(reader.open(name), dbOk);
        ASSERT_EQ(reader.seek(std::to_string(i)), dbOk);
        EXPECT_EQ(bodyAt(reader), std::to_string(i));
    }
    other.close();
    expectSound();
}

TEST_F(Table, GoldenFilesAreEqualOctetForOctet) {
    struct Row {
        const char* descs;
        std::vector<IndexDesc> table;
        int records;
        bool batch;
    };
    for (const Row& row : {Row{"17:164", {tinyDesc(17)}, 300, false},
                           {"41:4096,129:4096,41:4096", {page4k(41), page4k(129), page4k(41)}, 400, true},
                           {"17:4096,130:4096", {page4k(17), page4k(130)}, 500, false},
                           {"5:116,129:612", {tinyDesc(5), tinyDesc(129)}, 250, true}}) {
        const uint64_t seed = seedOf();
        SCOPED_TRACE("CRV_TEST_SEED=" + std::to_string(seed));
        std::mt19937_64 random(seed);
        DbLock lock(dir.file("l"));
        const DbGuard guard(lock, exclusiveLock);
        DataBase ours;
        ours.bindLock(&lock);
        ASSERT_EQ(ours.create(name, static_cast<int>(row.table.size()), row.table.data()), dbOk);
        ASSERT_EQ(ours.open(name), dbOk);
        if (row.batch) ours.beginBatch();
        std::string operations;
        for (int i = 0; i < row.records; ++i) {
            std::vector<std::string> keys;
            std::string joined;
            for (size_t k = 0; k < row.table.size(); ++k) {
                keys.push_back(std::to_string(random() % (k == 0 ? 1000 : 20)));
                joined += (k == 0 ? "" : ",") + keys.back();
            }
            const int64_t recNo = add(ours, keys, std::string(i % 5, 'z'));
            ASSERT_NE(recNo, 0);
            operations += "i " + joined + " ";
            for (int b = 0; b < i % 5; ++b) operations += "7a";
            operations += "\n";
            if (i % 10 == 3) {
                ASSERT_EQ(ours.update(asBytes("q")), dbOk);
                operations += "u " + std::to_string(recNo) + " 71\n";
            }
            if (i % 9 == 1) {
                ASSERT_EQ(ours.remove(), dbOk);
                operations += "d " + std::to_string(recNo) + "\n";
            }
        }
        ours.close();
        writeFile(dir.file("ops"), operations);
        shell("python3 " CRV_SOURCE_DIR "/tests/db/golden.py " + dir.file("golden") + " " + row.descs + " < " +
              dir.file("ops"));
        EXPECT_TRUE(readFile(name + ".dta") == readFile(dir.file("golden.dta"))) << row.descs;
        EXPECT_TRUE(readFile(name + ".idx") == readFile(dir.file("golden.idx"))) << row.descs;
        EXPECT_EQ(problemsOf(dir.file("golden")), "");
    }
}

/// A table and the same thing as multimaps, driven by the same random operations.
class Model {
  public:
    Model(std::string name, std::vector<IndexDesc> descs, uint64_t seed)
        : name_(std::move(name)), lock_(name_ + ".lck"), descs_(std::move(descs)), maps_(descs_.size()), random_(seed) {
        EXPECT_EQ(lock_.acquire(exclusiveLock), DbLock::Result::ok);
        table_.bindLock(&lock_);
        EXPECT_EQ(table_.create(name_, static_cast<int>(descs_.size()), descs_.data()), dbOk);
        EXPECT_EQ(table_.open(name_), dbOk);
    }

    void step() {
        const auto what = random_() % 100;
        index_ = random_() % descs_.size();
        table_.selectIndex(static_cast<int>(index_));
        if (what < 45) return insert();
        if (what < 55) return change();
        if (what < 75) return seek();
        if (what < 95) return walk();
        if (what < 98) return reopen();
        if (random_() % 5 == 0) rebuild();
    }
    void finish() {
        table_.close();
        EXPECT_EQ(problemsOf(name_), "");
    }

  private:
    /// Records of an index in table order: by key, newest first.
    using Order = std::multimap<std::string, int64_t>;

    std::string randomKey(size_t i) {
        std::string key = std::to_string(random_() % (i == 0 ? 400 : 12));
        if (random_() % 8 == 0) key.assign(descs_[i].keyLen - 1, static_cast<char>('a' + random_() % 3));
        if (random_() % 16 == 0) key = "\xF0" + key.substr(1);
        return key;
    }

    void insert() {
        std::vector<std::string> keys;
        for (size_t i = 0; i < descs_.size(); ++i) keys.push_back(randomKey(i));
        const std::string body(random_() % 40, static_cast<char>(random_()));
        const int64_t recNo = add(table_, keys, body);
        ASSERT_NE(recNo, 0);
        for (size_t i = 0; i < keys.size(); ++i) maps_[i].insert(maps_[i].lower_bound(keys[i]), {keys[i], recNo});
        records_[recNo] = {keys, toBytes(asBytes(body))};
        expectAt(recNo);
    }

    int64_t any() {
        if (records_.empty()) return 0;
        const auto it = records_.lower_bound(static_cast<int64_t>(random_() % (records_.rbegin()->first + 1)));
        return it->first;
    }

    void change() {
        const int64_t recNo = any();
        if (recNo == 0) return;
        ASSERT_EQ(table_.setRec(recNo), dbOk);
        TableRecord& record = records_[recNo];
        if (random_() % 2 == 0) {
            record.body.resize(record.body.size() / 2);
            ASSERT_EQ(table_.update(record.body), dbOk);
            return expectAt(recNo);
        }
        ASSERT_EQ(table_.remove(), dbOk);
        for (Order& order : maps_) std::erase_if(order, [&](const auto& e) { return e.second == recNo; });
        records_.erase(recNo);
        ASSERT_EQ(table_.setRec(recNo), dbError);
    }

    void seek() {
        const std::string key = randomKey(index_);
        const Order& order = maps_[index_];
        const auto it = order.lower_bound(key);
        const int answer = table_.seek(key);
        if (it == order.end()) {
            ASSERT_EQ(answer, dbNoRecord);
            if (!order.empty()) expectAt(order.rbegin()->second);
        } else {
            ASSERT_EQ(answer, it->first == key ? dbOk : dbGreater);
            expectAt(it->second);
        }
    }

    void walk() {
        const Order& order = maps_[index_];
        const bool fromTop = random_() % 2 == 0;
        ASSERT_EQ(fromTop ? table_.top() : table_.bottom(), order.empty() ? dbNoRecord : dbOk);
        if (order.empty()) return;
        auto it = fromTop ? order.begin() : std::prev(order.end());
        for (int i = 0; i < 6; ++i) {
            const int n = static_cast<int>(random_() % 41) - 20;
            const auto room = n < 0 ? std::distance(order.begin(), it) : std::distance(it, order.end()) - 1;
            ASSERT_EQ(table_.skip(n), std::abs(n) <= room ? dbOk : dbNoRecord) << n;
            if (std::abs(n) <= room) std::advance(it, n);
            expectAt(it->second);
        }
    }

    void reopen() {
        table_.close();
        ASSERT_EQ(table_.open(name_), dbOk);
        if (random_() % 2 == 0) table_.beginBatch();
    }

    void rebuild() {
        ASSERT_EQ(table_.rebuild(name_), dbOk);
        ASSERT_EQ(table_.open(name_), dbOk);
        // Records keep their file order, and equal keys are again in the order of the copy: newest first.
        std::map<int64_t, TableRecord> renumbered;
        for (Order& order : maps_) order.clear();
        int64_t recNo = 56;
        for (const auto& [old, record] : records_) {
            for (size_t i = 0; i < maps_.size(); ++i) {
                maps_[i].insert(maps_[i].lower_bound(record.keys[i]), {record.keys[i], recNo});
            }
            renumbered[recNo] = record;
            recNo += table_.dataFile().recordSize(static_cast<int64_t>(record.body.size()));
        }
        records_ = std::move(renumbered);
    }

    void expectAt(int64_t recNo) {
        TableRecord record;
        ASSERT_EQ(table_.recNo(), recNo);
        ASSERT_EQ(table_.data(record), dbOk);
        ASSERT_EQ(record, records_[recNo]);
    }

    std::string name_;
    DbLock lock_;
    std::vector<IndexDesc> descs_;
    DataBase table_;
    std::vector<Order> maps_;
    std::map<int64_t, TableRecord> records_;
    std::mt19937_64 random_;
    size_t index_ = 0;
};

TEST(TableModel, RandomOperationsMatchMultimaps) {
    const std::vector<std::vector<IndexDesc>> layouts{{tinyDesc(17), tinyDesc(41)},
                                                      {page4k(41), page4k(129), page4k(41)},
                                                      {page4k(17), page4k(130)},
                                                      {tinyDesc(129)}};
    FaultyFileOps unsynced;
    const ScopedFileOps use(unsynced);
    for (const auto& descs : layouts) {
        const uint64_t seed = seedOf();
        SCOPED_TRACE("CRV_TEST_SEED=" + std::to_string(seed));
        const TempDir dir;
        Model model(dir.file("t"), descs, seed);
        for (int i = 0; i < rounds(3000) && !testing::Test::HasFailure(); ++i) model.step();
        model.finish();
    }
}

}  // namespace
