// What is left of the certificate store when a writer dies, when the disk fills, and when several share it.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <random>

#include "cert_pool.h"
#include "db/table_test_base.h"
#include "db_sql/crt_db.h"
#include "db_sql/crt_keys.h"
#include "support/power_cut_file_ops.h"
#include "support/shared_memory.h"

using namespace crv;
using namespace crv::test;

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

/// What a writer says about each certificate before and after each operation; in shared memory.
enum Told : char { kUntouched, kChanging, kStored, kRemoved };
using Tale = std::shared_ptr<std::atomic<char>[]>;

Tale newTale() {
    return sharedMemory<std::atomic<char>>(certPool().size());
}

struct Base {
    DbManager manager;
    CrtDb db{manager};
    explicit Base(const std::string& directory, bool sync = false) {
        DbConfig config;
        config.db = directory;
        manager.init(config);
        manager.setSync(sync);
    }

    bool compact() {
        CrtStore::Removed counts;
        return manager.removeCerts([](ByteView) { return false; }, counts);
    }
    bool insert(const Tale& told, size_t i) {
        told[i] = kChanging;
        if (!db.insert(ByteView(certPool()[i]))) return false;
        told[i] = kStored;
        return true;
    }
    /// Imports some, inserts one by one, deletes, compacts, until it fails or has been through the pool.
    bool work(const Tale& told, size_t first = 0) {
        const size_t half = first + (certPool().size() - first) / 2;
        for (size_t i = first; i < certPool().size(); ++i) {
            if (i < half && i % 20 == 0) {
                if (!importTen(told, i)) return false;
                i += 9;
                continue;
            }
            if (!insert(told, i)) return false;
            if (i % 5 == 0 && !remove(told, i - i % 10)) return false;
            if (i % 50 == 49 && !compact()) return false;
        }
        return true;
    }
    bool importTen(const Tale& told, size_t from) {
        std::fill_n(&told[from], 10, kChanging);
        size_t at = from;
        const auto source = [&](ByteView& der) { return at < from + 10 && (der = certPool()[at++], true); };
        ImportProgress done;
        if (!db.insertMany(source, nullptr, nullptr, done)) return false;
        std::fill_n(&told[from], 10, kStored);
        return true;
    }
    bool remove(const Tale& told, size_t i) {
        CrtRecord record;
        if (told[i] != kStored || !makeCrtRecord(certPool()[i], record)) return true;
        told[i] = kChanging;
        for (int attempt = 0; attempt < 20 && told[i] != kRemoved; ++attempt) {
            CrtItemList list;
            if (!manager.findCertsByCrtHash(list, record.crtHash) || list.size() != 1) return false;
            // A compaction of another process may come in between: then another certificate has the id, or none.
            Bytes der;
            const bool same = manager.setCrtId(list[0].id) && manager.get(der) && der == certPool()[i];
            if (same && manager.deleteCert()) told[i] = kRemoved;
        }
        return told[i] == kRemoved;
    }
    /// Everything that was said to be there is found by every key, and nothing that is gone.
    void expectTold(const Tale& told) {
        size_t n = 0;
        EXPECT_TRUE(manager.countCerts(n)) << manager.lastFailure();
        for (size_t i = 0; i < certPool().size(); ++i) {
            CrtRecord record;
            ASSERT_TRUE(makeCrtRecord(certPool()[i], record));
            CrtItemList byHash, byField;
            EXPECT_TRUE(manager.findCertsByCrtHash(byHash, record.crtHash)) << manager.lastFailure();
            EXPECT_TRUE(told[i] != kStored || byHash.size() == 1) << "lost " << i;
            EXPECT_TRUE((told[i] != kUntouched && told[i] != kRemoved) || byHash.empty()) << "came back " << i;
            if (byHash.empty()) continue;
            const DnFld& last = record.dnFlds.back();
            EXPECT_TRUE(manager.findCertsBySbjDnFld(byField, last.type, last.value));
            EXPECT_NE(std::ranges::find(byField, byHash[0]), byField.end()) << "side record lost " << i;
        }
    }
};

/// Syncs cost more than all the rest and say nothing about a killed process.
struct CrtCrash : testing::Test {
    FaultyFileOps unsynced;
    ScopedFileOps fast{unsynced};
    std::unique_ptr<TempDir> dir;
    std::string path;
    Tale told;

    void beginAnew() {
        dir = std::make_unique<TempDir>();
        path = dir->file("base/");
        told = newTale();
        ASSERT_TRUE(Base(path).manager.createDb());
    }
    /// The next user finds everything mended.
    void expectMended() {
        Base(path).expectTold(told);
        ASSERT_EQ(problemsOfDatabase(path), "");
        ASSERT_FALSE(HasFailure());
    }
};
using SlowCrtCrash = CrtCrash;

TEST_F(CrtCrash, EveryStopOfAShortHistoryIsMended) {
    bool finished = false;
    for (int n = 0; !finished && !HasFailure(); n += 11) {
        SCOPED_TRACE("stopped after " + std::to_string(n));
        beginAnew();
        FaultyFileOps dying;
        dying.changesLeft = n;
        dying.tearLast = n % 2 == 0;
        {
            const ScopedFileOps use(dying);
            Base(path).work(told, certPool().size() - 45);
        }
        expectMended();
        finished = dying.changesLeft != 0;
        EXPECT_TRUE(!finished || n > 20 * 11);
    }
}

/// Everything that changes files, once or twice; tells how far it came.
void livesShortly(const std::string& path, const Tale& told, std::vector<Bytes>& crls) {
    Base base(path, true);
    if (!base.manager.createDb()) return;
    for (size_t i = 0; i < 6; ++i) {
        if (!base.insert(told, i)) return;
    }
    const MadeCert issuer = makeCert({.subject = {{"CN", "A"}}, .extensions = caExtensions()});
    const Bytes crl = makeCrl({}, issuer);
    if (base.manager.insertCrl(crl, true) != CrlInsert::Stored) return;
    crls.push_back(crl);
    // The second compaction's files are not those that the first one's mark told of.
    const bool compacted = base.remove(told, 2) && base.compact() && base.compact();
    if (compacted && base.manager.setNetCertTime("ldap")) base.insert(told, 6);
}

TEST_F(SlowCrtCrash, APowerCutAtAnyPointLosesNothingThatWasReported) {
    const uint64_t seed = seedOf();
    SCOPED_TRACE("CRV_TEST_SEED=" + std::to_string(seed));
    std::mt19937_64 random(seed);
    bool finished = false;
    for (int n = 0; !finished && !HasFailure(); ++n) {
        SCOPED_TRACE("cut after " + std::to_string(n));
        dir = std::make_unique<TempDir>();
        path = dir->path().string() + "/";
        told = newTale();
        std::vector<Bytes> crls, stored;
        PowerCutFileOps disk(path);
        disk.changesLeft = n;
        {
            const ScopedFileOps use(disk);
            livesShortly(path, told, crls);
        }
        finished = disk.changesLeft > 0;
        disk.cut(random);
        Base next(path);
        EXPECT_TRUE(next.manager.createDb()) << next.manager.lastFailure();
        for (size_t i = 0; i < 7; ++i) {
            CrtRecord record;
            CrtItemList found;
            ASSERT_TRUE(makeCrtRecord(certPool()[i], record));
            EXPECT_TRUE(next.manager.findCertsByCrtHash(found, record.crtHash)) << next.manager.lastFailure();
            EXPECT_TRUE(told[i] != kStored || found.size() == 1) << "lost " << i;
            EXPECT_TRUE(told[i] != kRemoved || found.empty()) << "came back " << i;
        }
        EXPECT_TRUE(next.manager.getAllCrls(stored)) << next.manager.lastFailure();
        EXPECT_TRUE(crls.empty() || stored == crls);
        EXPECT_TRUE(next.insert(told, 9)) << next.manager.lastFailure();
        EXPECT_EQ(problemsOfDatabase(path), "");
    }
}

TEST_F(CrtCrash, LostSideRecordsAreMadeAgainAndForeignOnesDropped) {
    for (int row = 0; row < 6; ++row) {
        const TableLayout* side = std::array{&dnTb, &caTb, &addIdxTb}[static_cast<size_t>(row % 3)];
        const bool byTool = row >= 3;
        SCOPED_TRACE(std::string(side->file) + (byTool ? " by the tool" : " by the next user"));
        beginAnew();
        for (size_t i = 0; i < 40; ++i) ASSERT_TRUE(Base(path).insert(told, i));
        // The table is emptied but for a record of a certificate that is not there.
        DataBase table;
        const std::string name = path + std::string(side->file);
        ASSERT_EQ(table.create(name, side->numIndexes, side->descs.data()), kDbOk);
        ASSERT_EQ(table.open(name), kDbOk);
        const std::vector<std::string> keys{"00000001", "nkey", "hash"};
        ASSERT_NE(add(table, {keys.begin(), keys.begin() + side->numIndexes}, ""), 0);
        table.close();
        int status = 0;
        if (!byTool) test::writeFile(path + "netCertTime.dta", "");
        byTool ? (void)shell(CRV_BIN_DIR "/crvdb repair " + path, &status)
               : test::writeFile(path + "db.lck", "CRVMARK2\n");
        EXPECT_EQ(status, 0);
        CrtItemList cas;
        EXPECT_TRUE(Base(path).manager.findCaCerts(cas));
        EXPECT_EQ(cas.size(), 5U);
        expectMended();
    }
}

TEST_F(CrtCrash, ADamagedBitCostsARepairNoCertificate) {
    beginAnew();
    for (size_t i = 0; i < 40; ++i) ASSERT_TRUE(Base(path).insert(told, i));
    std::filesystem::copy(path, dir->file("good"));
    CrtItemList all;
    ASSERT_TRUE(Base(path).manager.readForward(0, 40, all));
    const auto third = static_cast<size_t>(all[2].id), last = static_cast<size_t>(all[39].id);
    const size_t body = third + 32 + 41 + 129 + 41, name = asText(all[2].der).find("Firma");
    // Keys end at their first zero octet; what is damaged behind it belongs to nobody.
    const std::string sides = test::readFile(path + "addidx.dta");
    const auto whole = std::ranges::find_if(certPool(), [&](const Bytes& der) {
        CrtRecord record;
        return makeCrtRecord(der, record) && asText(record.keyId).find('\0') == std::string_view::npos &&
               asText(record.crtHash).find('\0') == std::string_view::npos;
    });
    CrtRecord chosen;
    ASSERT_TRUE(whole - certPool().begin() < 40 && makeCrtRecord(*whole, chosen));
    const size_t hash = sides.find(asText(chosen.crtHash)), keyId = sides.find(asText(chosen.keyId));
    ASSERT_EQ(hash, keyId + 41);
    struct Row {
        const char* what;
        const char* table;
        size_t octet;
        int bit;
        int left = 0;  // status of the repair
        bool cutOff = false;
    };
    for (const Row& row : {Row{"capacity leads past others", "certific", third + 25, 4},
                           {"capacity leads past the end", "certific", third + 26, 5},
                           {"capacity of the last one", "certific", last + 24, 3},
                           {"length", "certific", third + 17, 0},
                           {"length beyond the capacity", "certific", third + 18, 0},
                           {"magic", "certific", third + 9, 2},
                           {"magic of the last one", "certific", last + 9, 2},
                           {"mark of deletion", "certific", third + 1, 6},
                           {"key", "certific", third + 40, 1},
                           {"key of a field", "dnfld", 56 + 32 + 17 + 3, 1},
                           {"key of the identifiers", "addidx", keyId + 3, 1},
                           {"hash", "addidx", hash + 3, 1},
                           {"name", "certific", body + name, 1, 1},
                           {"signature", "certific", body + all[2].der.size() - 1, 1, 1},
                           {"deleted", "certific", third, 0},
                           {"deleted by a change that was cut off", "certific", third, 0, 0, true}}) {
        SCOPED_TRACE(row.what);
        std::filesystem::remove_all(path);
        std::filesystem::copy(dir->file("good"), path);
        const std::string file = path + row.table + ".dta";
        std::string octets = test::readFile(file);
        octets[row.octet] = static_cast<char>(octets[row.octet] ^ 1 << row.bit);
        test::writeFile(file, octets);
        if (row.cutOff) test::writeFile(path + "db.lck", "CRVMARK2\n");
        if (row.cutOff) told[2] = kRemoved;
        int status = 0;
        static_cast<void>(shell(CRV_BIN_DIR "/crvdb check " + path, &status));
        EXPECT_EQ(status, 1) << "the check finds it";
        const std::string said = shell(CRV_BIN_DIR "/crvdb repair " + path, &status);
        EXPECT_EQ(status, row.left) << said;
        const bool replaced = row.table == std::string("certific") && row.left == 0 && !row.cutOff;
        EXPECT_TRUE(!replaced || test::readFile(file + ".bak") == octets);
        if (row.left != 0) {
            EXPECT_NE(said.find("certific: not the certificate that was stored"), std::string::npos);
            Base base(path);
            Bytes damaged;
            EXPECT_TRUE(base.insert(told, 2)) << "the intact one is stored beside it";
            EXPECT_TRUE(base.manager.setCrtId(all[2].id) && base.manager.get(damaged) && base.manager.deleteCert());
        }
        expectMended();
    }
}

TEST_F(CrtCrash, InsertingAgainCompletesSideRecords) {
    beginAnew();
    Base base(path);
    ASSERT_TRUE(base.insert(told, 0));
    for (const TableLayout* side : {&dnTb, &addIdxTb}) {
        DataBase table;
        ASSERT_EQ(table.open(path + std::string(side->file)), kDbOk);
        ASSERT_EQ(table.remove(), kDbOk);
    }
    ASSERT_TRUE(base.insert(told, 0));
    expectMended();
}

TEST_F(CrtCrash, AFullDiskLosesNothingThatWasThere) {
    beginAnew();
    Base base(path);
    for (size_t i = 0; i < 60; ++i) ASSERT_TRUE(base.insert(told, i));
    for (int64_t room = 100; room < 200000; room += room < 20000 ? 1300 : 30000) {
        SCOPED_TRACE(room);
        {
            FaultyFileOps full;
            full.room = room;
            const ScopedFileOps use(full);
            base.insert(told, 60);
            base.compact();
        }
        base.expectTold(told);
        EXPECT_EQ(problemsOfDatabase(path), "");
        EXPECT_FALSE(std::filesystem::exists(path + "/certifi#.dta")) << "the disk stays full";
    }
}

double seconds(double otherwise) {
    const char* text = std::getenv("CRV_KILL_SECONDS");
    return text ? std::atof(text) : otherwise;
}

TEST_F(SlowCrtCrash, KilledWritersLoseNothingThatTheyReported) {
    std::mt19937 random(static_cast<unsigned>(time(nullptr)));
    const auto end = steady_clock::now() + milliseconds(static_cast<int>(seconds(12) * 1000));
    int kills = 0;
    for (; steady_clock::now() < end && !HasFailure(); ++kills) {
        beginAnew();
        const pid_t child = fork();
        if (child == 0) _exit(Base(path).work(told) ? 0 : 1);
        usleep(static_cast<useconds_t>(random() % 60000));
        kill(child, SIGKILL);
        int status = 0;
        waitpid(child, &status, 0);
        EXPECT_FALSE(WIFEXITED(status) && WEXITSTATUS(status) != 0) << "the writer failed";
        expectMended();
    }
    EXPECT_GT(kills, 5);
}

/// Inserts and removes its share of the pool; 0 when all went well.
int writeShare(const std::string& path, size_t share) {
    Base writer(path);
    const Tale told = newTale();
    for (size_t i = share; i + 10 < certPool().size(); i += 3) {
        if (!writer.insert(told, i)) return 2;
        if (i % 60 < 3 && !writer.compact()) return 3;
        if (i % 4 == 0 && !writer.remove(told, i)) return 4;
    }
    return 0;
}

TEST_F(SlowCrtCrash, ProcessesShareADatabase) {
    beginAnew();
    Base reader(path);
    for (size_t share = 0; share < 3; ++share) {
        if (fork() == 0) _exit(writeShare(path, share));
    }
    milliseconds longest{0};
    for (int running = 3; running > 0;) {
        const auto start = steady_clock::now();
        CrtItemList list;
        EXPECT_TRUE(reader.manager.readForward(0, 50, list)) << reader.manager.lastFailure();
        for (const CrtItem& item : list) EXPECT_EQ(std::ranges::count(certPool(), item.der), 1);
        longest = std::max(longest, std::chrono::duration_cast<milliseconds>(steady_clock::now() - start));
        int status = 0;
        if (waitpid(-1, &status, WNOHANG) <= 0) continue;
        EXPECT_EQ(status, 0) << "exit code " << WEXITSTATUS(status);
        --running;
    }
    EXPECT_LT(longest.count(), 1000) << "nobody starves";
    EXPECT_EQ(problemsOfDatabase(path), "");
    for (size_t i = 0; i + 10 < certPool().size(); ++i) told[i] = i % 4 == 0 ? kRemoved : kStored;
    reader.expectTold(told);
}

}  // namespace
