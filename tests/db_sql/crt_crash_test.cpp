// What is left of the certificate store when a writer dies, when the disk fills, and when several share it.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <random>
#include <thread>

#include "cert_pool.h"
#include "db/database.h"
#include "db_sql/crt_db.h"
#include "db_sql/crt_keys.h"
#include "soundness.h"
#include "support/faulty_file_ops.h"
#include "support/temp_dir.h"

using namespace crv;
using namespace crv::test;

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

/// What a writer says about each certificate before and after each operation; in shared memory.
enum Told : char { untouched, changing, stored, removed };

struct Tale {
    std::atomic<char>* told;
    Tale() {
        void* memory = mmap(nullptr, certPool().size(), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        told = static_cast<std::atomic<char>*>(memory);
    }
    ~Tale() { munmap(told, certPool().size()); }
    Tale(const Tale&) = delete;
    Tale& operator=(const Tale&) = delete;
};

struct Base {
    DbManager manager;
    CrtDb db{manager};
    explicit Base(const std::string& directory) {
        DbConfig config;
        config.db = directory;
        manager.init(config);
        manager.setSync(false);
    }

    /// Imports some, inserts one by one, deletes, compacts, until it fails or has been through the pool.
    bool work(std::atomic<char>* told, size_t first = 0) {
        const size_t half = first + (certPool().size() - first) / 2;
        for (size_t i = first; i < certPool().size(); ++i) {
            told[i] = changing;
            if (i < half && i % 20 == 0) {
                if (!importSome(told, i)) return false;
                continue;
            }
            if (!db.insert(ByteView(certPool()[i]))) return false;
            told[i] = stored;
            if (i % 5 == 0 && !remove(told, i - i % 10)) return false;
            CrtStore::Removed counts;
            if (i % 50 == 49 && !manager.removeCerts([](ByteView) { return false; }, counts)) return false;
        }
        return true;
    }
    bool importSome(std::atomic<char>* told, size_t& i) {
        const size_t from = i;
        size_t at = from;
        for (; at < from + 10; ++at) told[at] = changing;
        at = from;
        ImportProgress done;
        if (!db.insertMany([&](ByteView& der) { return at < from + 10 && (der = certPool()[at++], true); }, nullptr,
                           nullptr, done)) {
            return false;
        }
        for (at = from; at < from + 10; ++at) told[at] = stored;
        i = from + 9;
        return true;
    }
    bool remove(std::atomic<char>* told, size_t i) {
        CrtRecord record;
        CrtItemList list;
        if (told[i] != stored || !makeCrtRecord(certPool()[i], record)) return true;
        told[i] = changing;
        for (int attempt = 0; attempt < 20 && told[i] != removed; ++attempt, list.clear()) {
            if (!manager.findCertsByCrtHash(list, record.crtHash) || list.size() != 1) return false;
            // A compaction of another process may come in between: then another certificate has the id, or none.
            Bytes der;
            const bool same = manager.setCrtId(list[0].id) && manager.get(der) && der == certPool()[i];
            if (same && manager.deleteCert()) told[i] = removed;
        }
        return told[i] == removed;
    }
    /// Everything that was said to be there is found by every key, and nothing that is gone.
    void expectTold(const std::atomic<char>* told) {
        size_t n = 0;
        EXPECT_TRUE(manager.countCerts(n)) << manager.lastFailure();
        for (size_t i = 0; i < certPool().size(); ++i) {
            CrtRecord record;
            ASSERT_TRUE(makeCrtRecord(certPool()[i], record));
            CrtItemList byHash, byField, bySerial;
            EXPECT_TRUE(manager.findCertsByCrtHash(byHash, record.crtHash)) << manager.lastFailure();
            EXPECT_TRUE(told[i] != stored || byHash.size() == 1) << "lost " << i;
            EXPECT_TRUE((told[i] != untouched && told[i] != removed) || byHash.empty()) << "came back " << i;
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
};
using SlowCrtCrash = CrtCrash;

TEST_F(CrtCrash, EveryStopOfAShortHistoryIsMended) {
    int histories = 0;
    for (int n = 0;; n += 11) {
        const TempDir dir;
        const std::string path = dir.file("base");
        ASSERT_TRUE(Base(path).manager.createDb());
        Tale tale;
        FaultyFileOps dying;
        dying.changesLeft = n;
        dying.tearLast = n % 2 == 0;
        {
            const ScopedFileOps use(dying);
            Base writer(path);
            writer.work(tale.told, certPool().size() - 45);
        }
        Base next(path);
        next.expectTold(tale.told);
        EXPECT_EQ(problemsOf(path + "/"), std::vector<std::string>());
        ASSERT_FALSE(testing::Test::HasFailure()) << "stopped after " << n;
        ++histories;
        if (dying.changesLeft != 0) break;
    }
    EXPECT_GT(histories, 20);
}

TEST_F(CrtCrash, LostSideRecordsAreMadeAgainAndForeignOnesDropped) {
    for (int row = 0; row < 6; ++row) {
        const TableLayout* side = std::array{&dnTb, &caTb, &addIdxTb}[static_cast<size_t>(row % 3)];
        const bool byTool = row >= 3;
        const TempDir dir;
        const std::string path = dir.file("base/");
        Tale tale;
        {
            Base writer(path);
            ASSERT_TRUE(writer.manager.createDb());
            for (size_t i = 0; i < 40; ++i) {
                ASSERT_TRUE(writer.db.insert(ByteView(certPool()[i])));
                tale.told[i] = stored;
            }
        }
        // The table is emptied but for a record of a certificate that is not there.
        DataBase table;
        const std::string name = path + std::string(side->file);
        ASSERT_EQ(table.create(name, side->numIndexes, side->descs.data()), dbOk);
        ASSERT_EQ(table.open(name), dbOk);
        const std::vector<std::string_view> keys{"00000001", "nkey", "hash"};
        int64_t recNo = 0;
        ASSERT_EQ(table.insert({keys.data(), static_cast<size_t>(side->numIndexes)}, {}, recNo), dbOk);
        table.close();
        int status = 0;
        if (byTool) {
            shell(CRV_BIN_DIR "/crvdb repair " + path, &status);
        } else {
            test::writeFile(path + "db.lck", "CRVMARK2\n");
        }
        EXPECT_EQ(status, 0);
        Base next(path);
        next.expectTold(tale.told);
        CrtItemList cas;
        EXPECT_TRUE(next.manager.findCaCerts(cas));
        EXPECT_EQ(cas.size(), 5U) << side->file;
        EXPECT_EQ(problemsOf(path), std::vector<std::string>()) << side->file;
    }
}

TEST_F(CrtCrash, AFullDiskLosesNothingThatWasThere) {
    const TempDir dir;
    const std::string path = dir.file("base");
    Tale tale;
    Base base(path);
    ASSERT_TRUE(base.manager.createDb());
    for (size_t i = 0; i < 60; ++i) {
        ASSERT_TRUE(base.db.insert(ByteView(certPool()[i])));
        tale.told[i] = stored;
    }
    for (int64_t room = 100; room < 20000; room += 1300) {
        {
            FaultyFileOps full;
            full.room = room;
            const ScopedFileOps use(full);
            tale.told[60] = changing;
            CrtStore::Removed counts;
            base.db.insert(ByteView(certPool()[60]));
            base.manager.removeCerts([](ByteView) { return false; }, counts);
        }
        base.expectTold(tale.told);
        EXPECT_EQ(problemsOf(path + "/"), std::vector<std::string>()) << room;
    }
}

double seconds(double otherwise) {
    const char* text = std::getenv("CRV_KILL_SECONDS");
    return text == nullptr ? otherwise : std::atof(text);
}

TEST_F(SlowCrtCrash, KilledWritersLoseNothingThatTheyReported) {
    std::mt19937 random(static_cast<unsigned>(time(nullptr)));
    const auto end = steady_clock::now() + milliseconds(static_cast<int>(seconds(12) * 1000));
    int kills = 0;
    static_cast<void>(certPool());
    while (steady_clock::now() < end) {
        const TempDir dir;
        const std::string path = dir.file("base");
        ASSERT_TRUE(Base(path).manager.createDb());
        Tale tale;
        const pid_t child = fork();
        if (child == 0) {
            Base writer(path);
            _exit(writer.work(tale.told) ? 0 : 1);
        }
        usleep(static_cast<useconds_t>(random() % 60000));
        kill(child, SIGKILL);
        int status = 0;
        waitpid(child, &status, 0);
        EXPECT_FALSE(WIFEXITED(status) && WEXITSTATUS(status) != 0) << "the writer failed";
        Base next(path);
        next.expectTold(tale.told);
        EXPECT_EQ(problemsOf(path + "/"), std::vector<std::string>());
        ASSERT_FALSE(HasFailure());
        ++kills;
    }
    RecordProperty("kills", kills);
    EXPECT_GT(kills, 5);
}

/// A process that inserts and removes its share; exits with 0 when all went well.
pid_t startWriter(const std::string& path, size_t share) {
    const pid_t child = fork();
    if (child != 0) return child;
    Base writer(path);
    std::vector<std::atomic<char>> told(certPool().size());
    for (size_t i = share; i + 10 < certPool().size(); i += 3) {
        if (!writer.db.insert(ByteView(certPool()[i]))) _exit(2);
        told[i] = stored;
        CrtStore::Removed counts;
        if (i % 60 < 3 && !writer.manager.removeCerts([](ByteView) { return false; }, counts)) _exit(3);
        if (i % 4 == 0 && !writer.remove(told.data(), i)) _exit(4);
    }
    _exit(0);
}

TEST_F(SlowCrtCrash, ProcessesShareADatabase) {
    const TempDir dir;
    const std::string path = dir.file("base");
    Base reader(path);
    ASSERT_TRUE(reader.manager.createDb());
    static_cast<void>(certPool());
    std::vector<pid_t> writers;
    for (size_t share = 0; share < 3; ++share) writers.push_back(startWriter(path, share));
    milliseconds longest{0};
    for (size_t running = writers.size(); running > 0;) {
        const auto start = steady_clock::now();
        CrtItemList list;
        EXPECT_TRUE(reader.manager.readForward(0, 50, list)) << reader.manager.lastFailure();
        for (const CrtItem& item : list) EXPECT_EQ(std::ranges::count(certPool(), item.der), 1);
        longest = std::max(longest, std::chrono::duration_cast<milliseconds>(steady_clock::now() - start));
        int status = 0;
        if (waitpid(-1, &status, WNOHANG) > 0) {
            EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
            --running;
        }
    }
    EXPECT_LT(longest.count(), 1000) << "nobody starves";
    EXPECT_EQ(problemsOf(path + "/"), std::vector<std::string>());
    Tale tale;
    for (size_t i = 0; i + 10 < certPool().size(); ++i) tale.told[i] = i % 4 == 0 ? removed : stored;
    reader.expectTold(tale.told);
}

}  // namespace
