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
        ASSERT_EQ(table.create(name, static_cast<int>(descs.size()), descs.data()), kDbOk);
        ASSERT_EQ(table.open(name), kDbOk);
    }
    void expectSound() { EXPECT_EQ(problemsOf(name), ""); }

    FaultyFileOps unsynced;
    const ScopedFileOps fast{unsynced};
    const TempDir dir;
    const std::string name = dir.file("ab");
    DataBase table;
};

TEST_F(Table, ElevenIndexesAndImpossiblePagesAreRefused) {
    const std::vector<IndexDesc> eleven(11, page4k(17));
    const auto message = [&](auto&& file) { return messageOf([&] { (void)file.create(name, 11, eleven.data()); }); };
    EXPECT_EQ(message(IndexFile()), "Assertion idxNumb <= MAX_INDEX failed in src/db/indxuser");
    EXPECT_EQ(message(DataFile()), "Assertion idxNumb <= MAX_INDEX failed in src/db/datafile");
    for (const IndexDesc& desc : {IndexDesc{0, 4096}, {41, -1}}) EXPECT_EQ(table.create(name, 1, &desc), kDbError);
    make({page4k(17)});
    EXPECT_EQ(messageOf([&] { table.selectIndex(1); }), "Assertion idx < numIdx failed in src/db/indxuser");
}

TEST_F(Table, RemovedOnlyRecordIsNowhere) {
    make({page4k(17)});
    add(table, {"x"}, "body");
    EXPECT_EQ(table.remove(), kDbOk);
    EXPECT_EQ(table.top(), kDbNoRecord);
    EXPECT_EQ(table.bottom(), kDbNoRecord);
    EXPECT_EQ(table.seek("x"), kDbNoRecord);
    int64_t number = 0;
    EXPECT_EQ(table.recNo(number), kDbNoRecord);
    EXPECT_EQ(table.remove(), kDbNoRecord);
    EXPECT_EQ(table.update({}), kDbNoRecord);
    EXPECT_EQ(table.setRec(56), kDbError);
    EXPECT_EQ(table.lastError(), DataBase::Error::Data);
}

TEST_F(Table, UpdateFitsTheFirstLengthAndAfterARebuildTheLengthInUse) {
    make({tinyDesc(17)});
    for (const char* key : {"c", "b", "a"}) add(table, {key}, "12345");
    for (const auto& [body, answer, kept] :
         {std::tuple("123456", kDbTooLong, "12345"), {"xy", kDbOk, "xy"}, {"vwxyz", kDbOk, "vwxyz"}}) {
        EXPECT_EQ(table.update(asBytes(body)), answer) << body;
        EXPECT_EQ(bodyAt(table), kept);
    }
    DataFile& data = table.dataFile();
    int64_t recNo = 0;
    ASSERT_EQ(table.recNo(recNo), kDbOk);
    EXPECT_EQ(table.remove(), kDbOk);
    EXPECT_EQ(data.update(recNo, {}), kDbDeleted);
    TableRecord record;
    EXPECT_EQ(data.data(recNo, record, false), kDbDeleted);
    EXPECT_EQ(data.data(recNo, record, true), kDbDeleted);
    EXPECT_EQ(asText(record.body), "vwxyz");
    ASSERT_EQ(table.skip(1), kDbOk);
    ASSERT_EQ(table.update(asBytes("u")), kDbOk);
    ASSERT_EQ(rebuildTable(table, name), kDbOk);
    EXPECT_FALSE(std::filesystem::exists(dir.file("a#.idx")) || std::filesystem::exists(dir.file("a#.dta")));
    ASSERT_EQ(table.open(name), kDbOk);
    EXPECT_EQ(table.skip(1), kDbOk) << "an opened table stands at the top";
    EXPECT_EQ(table.skip(-1), kDbOk);
    EXPECT_EQ(table.update(asBytes("uu")), kDbTooLong);
    EXPECT_EQ(checkTable(name).deleted, 0);
}

TEST_F(Table, KeysThatDoNotFitChangeNothing) {
    make({page4k(17), page4k(5)});
    EXPECT_NE(add(table, {"1234567890123456", "1234"}, ""), 0);
    const std::string idx = readFile(name + ".idx"), dta = readFile(name + ".dta");
    EXPECT_EQ(add(table, {"a", "12345"}, "x"), 0);
    EXPECT_EQ(add(table, {"a"}, "x"), 0);
    EXPECT_EQ(readFile(name + ".idx"), idx);
    EXPECT_EQ(readFile(name + ".dta"), dta);
    const std::string zero("1\0other", 7);
    EXPECT_NE(add(table, {zero, zero}, "z"), 0) << "a key ends at its zero octet";
    EXPECT_EQ(table.seek("1"), kDbOk);
    EXPECT_EQ(table.seek(std::string("1\0another", 9)), kDbOk);
}

TEST_F(Table, OneObjectSeesWhatAnotherWroteBetweenItsOpenings) {
    make({tinyDesc(17)});
    DataBase other;
    DataBase *writer = &table, *reader = &other;
    ASSERT_EQ(other.open(name), kDbOk);
    for (int i = 0; i < 200; ++i, std::swap(writer, reader)) {
        reader->close();
        ASSERT_NE(add(*writer, {std::to_string(i)}, std::to_string(i)), 0);
        writer->close();
        if (i == 100) {
            ASSERT_EQ(rebuildTable(*writer, name), kDbOk);
        }
        ASSERT_EQ(reader->open(name), kDbOk);
        ASSERT_EQ(reader->seek(std::to_string(i)), kDbOk);
        EXPECT_EQ(bodyAt(*reader), std::to_string(i));
    }
}

TEST_F(Table, InsertionsOfALongBatchThatWaitAreFoundAndOrderedAsIfMadeAtOnce) {
    make({tinyDesc(17), tinyDesc(9), {41, 4096}});
    DbLock lock(name + ".lck");
    ASSERT_EQ(lock.acquire(kExclusiveLock), DbLock::Result::Ok);
    table.bindLock(&lock);
    table.beginBatch();
    std::mt19937_64 random(seedOf());
    std::multimap<std::string, std::string> orders[3];
    const auto expectOrder = [&](int index) {
        table.selectIndex(index);
        auto expected = orders[index].begin();
        for (int at = table.top(); at == kDbOk; at = table.skip(1), ++expected) {
            ASSERT_NE(expected, orders[index].end());
            ASSERT_EQ(bodyAt(table), expected->second) << "index " << index;
        }
        EXPECT_EQ(expected, orders[index].end());
    };
    for (int i = 0; i < 3000; ++i) {
        const std::string body = std::to_string(i);
        const std::vector<std::string> keys{std::to_string(random() % 2000), std::string(random() % 9, 'k'),
                                            "prefix__" + body};
        ASSERT_NE(add(table, keys, body), 0);
        for (int k = 0; k < 3; ++k) orders[k].emplace_hint(orders[k].lower_bound(keys[k]), keys[k], body);
        const int index = static_cast<int>(random() % 3);
        table.selectIndex(index);
        if (random() % 50 == 0) {
            ASSERT_EQ(bodyAt(table), body) << "the cursor rests on the new entry";
        }
        if (i % 1000 == 700) expectOrder(index);
    }
    ASSERT_EQ(table.endBatch(), kDbOk);
    for (int index = 0; index < 3; ++index) expectOrder(index);
    table.close();
    table.bindLock(nullptr);
    EXPECT_EQ(problemsOf(name), "");
}

/// A table and the same thing as multimaps, driven by the same random operations.
class Model {
  public:
    Model(std::string name, std::vector<IndexDesc> descs, uint64_t seed)
        : name_(std::move(name)), lock_(name_ + ".lck"), descs_(std::move(descs)), maps_(descs_.size()), random_(seed) {
        EXPECT_EQ(lock_.acquire(kExclusiveLock), DbLock::Result::Ok);
        table_.bindLock(&lock_);
        EXPECT_EQ(table_.create(name_, static_cast<int>(descs_.size()), descs_.data()), kDbOk);
        EXPECT_EQ(table_.open(name_), kDbOk);
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
        if (random_() % 5 == 0 && (rebuilt_ || records_.size() > 500)) rebuild();
    }

    void finish() {
        if (!rebuilt_) expectGolden();
        table_.close();
        EXPECT_EQ(problemsOf(name_), "");
    }

  private:
    /// Another program makes the same files of the operations, as long as every key was inserted one by one.
    void expectGolden() {
        table_.close();
        const std::string golden = name_ + ".golden", operations = name_ + ".ops";
        writeFile(operations, operations_);
        std::string arguments = golden;
        for (const IndexDesc& d : descs_)
            arguments += " " + std::to_string(d.keyLen) + ":" + std::to_string(d.pageSize);
        EXPECT_EQ(shell("python3 " CRV_SOURCE_DIR "/tests/db/golden.py " + arguments + " < " + operations), "");
        for (const char* part : {".dta", ".idx"})
            EXPECT_TRUE(readFile(name_ + part) == readFile(golden + part)) << part;
    }

    /// Records of an index in table order: by key, newest first.
    using Order = std::multimap<std::string, int64_t>;

    std::string randomKey(size_t i) {
        std::string key = std::to_string(random_() % (i == 0 ? 400 : 12));
        if (random_() % 8 == 0) key.assign(descs_[i].keyLen - 1, static_cast<char>('a' + random_() % 3));
        if (random_() % 16 == 0) key = "\xF0" + key.substr(1);
        return key;
    }

    void enter(int64_t recNo, const TableRecord& record) {
        records_[recNo] = record;
        operations_ += "i";
        for (size_t i = 0; i < maps_.size(); ++i) {
            maps_[i].insert(maps_[i].lower_bound(record.keys[i]), {record.keys[i], recNo});
            operations_ += (i == 0 ? " " : ",") + record.keys[i];
        }
        operations_.append(" ").append(asText(record.body)).append("\n");
    }

    void insert() {
        TableRecord record;
        for (size_t i = 0; i < descs_.size(); ++i) record.keys.push_back(randomKey(i));
        record.body.assign(random_() % 40, static_cast<uint8_t>('a' + random_() % 26));
        const int64_t recNo = add(table_, record.keys, std::string(asText(record.body)));
        ASSERT_NE(recNo, 0);
        enter(recNo, record);
        expectAt(recNo);
    }

    void change() {
        if (records_.empty()) return;
        const auto any = records_.lower_bound(static_cast<int64_t>(random_() % (records_.rbegin()->first + 1)));
        const int64_t recNo = any->first;
        ASSERT_EQ(table_.setRec(recNo), kDbOk);
        if (random_() % 2 == 0) {
            Bytes& body = any->second.body;
            body.assign(body.size() / 2, 'u');
            ASSERT_EQ(table_.update(body), kDbOk);
            operations_ += "u " + std::to_string(recNo) + " " + std::string(asText(body)) + "\n";
            return expectAt(recNo);
        }
        ASSERT_EQ(table_.remove(), kDbOk);
        operations_ += "d " + std::to_string(recNo) + "\n";
        for (Order& order : maps_) std::erase_if(order, [&](const auto& e) { return e.second == recNo; });
        records_.erase(any);
        ASSERT_EQ(table_.setRec(recNo), kDbError);
    }

    void seek() {
        const std::string key = randomKey(index_);
        const Order& order = maps_[index_];
        const auto it = order.lower_bound(key);
        ASSERT_EQ(table_.seek(key), it == order.end() ? kDbNoRecord : it->first == key ? kDbOk : kDbGreater);
        if (!order.empty()) expectAt(it == order.end() ? order.rbegin()->second : it->second);
    }

    void walk() {
        const Order& order = maps_[index_];
        const bool fromTop = random_() % 2 == 0;
        ASSERT_EQ(fromTop ? table_.top() : table_.bottom(), order.empty() ? kDbNoRecord : kDbOk);
        if (order.empty()) return;
        auto it = fromTop ? order.begin() : std::prev(order.end());
        for (int i = 0; i < 6; ++i) {
            const int n = static_cast<int>(random_() % 41) - 20;
            const auto room = n < 0 ? std::distance(order.begin(), it) : std::distance(it, order.end()) - 1;
            ASSERT_EQ(table_.skip(n), std::abs(n) <= room ? kDbOk : kDbNoRecord) << n;
            if (std::abs(n) <= room) std::advance(it, n);
            expectAt(it->second);
        }
    }

    void reopen() {
        table_.close();
        ASSERT_EQ(table_.open(name_), kDbOk);
        if (random_() % 2 == 0) table_.beginBatch();
    }

    void rebuild() {
        if (!std::exchange(rebuilt_, true)) expectGolden();
        ASSERT_EQ(rebuildTable(table_, name_), kDbOk);
        ASSERT_EQ(table_.open(name_), kDbOk);
        // Records keep their file order, and equal keys are again in the order of the copy: newest first.
        for (Order& order : maps_) order.clear();
        int64_t recNo = 56;
        for (const auto& [old, record] : std::exchange(records_, {})) {
            enter(recNo, record);
            recNo += table_.dataFile().recordSize(static_cast<int64_t>(record.body.size()));
        }
    }

    void expectAt(int64_t recNo) {
        TableRecord record;
        int64_t number = 0;
        ASSERT_EQ(table_.recNo(number), kDbOk);
        ASSERT_EQ(number, recNo);
        ASSERT_EQ(table_.data(record), kDbOk);
        ASSERT_EQ(record, records_[recNo]);
    }

    std::string name_;
    DbLock lock_;
    std::vector<IndexDesc> descs_;
    DataBase table_;
    std::vector<Order> maps_;
    std::map<int64_t, TableRecord> records_;
    std::string operations_;
    bool rebuilt_ = false;
    std::mt19937_64 random_;
    size_t index_ = 0;
};

TEST(TableModel, RandomOperationsMatchMultimapsAndAnotherWriter) {
    const std::vector<std::vector<IndexDesc>> layouts{{tinyDesc(17), tinyDesc(41)},
                                                      {page4k(41), page4k(129), page4k(41)},
                                                      {page4k(17), page4k(130)},
                                                      {tinyDesc(5), tinyDesc(129)}};
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
