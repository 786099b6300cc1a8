#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "db/database.h"
#include "db/db_lock.h"
#include "db/table_mend.h"
#include "db/table_rebuild.h"
#include "db/table_test_base.h"
#include "misc/exceptions.h"
#include "support/faulty_file_ops.h"
#include "support/shared_memory.h"

using namespace crv;
using namespace crv::test;

namespace {

/// What a writer says about one key before and after each operation on it; lives in shared memory.
enum Told : char { kUntouched, kInserting, kInserted, kRemoving, kRemoved };
constexpr int kMaxKeys = 1600;

std::string keyOf(int i) {
    return std::to_string(i * 7919 % 10007);
}

/// One table with its lock, mended when its writer died.
class LockedTable {
  public:
    explicit LockedTable(const TempDir& dir) : name(dir.file("t")), lock(dir.file("db.lck")) {
        table.bindLock(&lock);
        lock.setMender([this](DbMark mark, const std::vector<std::string>&) {
            ++mended;
            return mark == DbMark::Swapping ? swapRebuilt(name) : mendTable(name);
        });
    }
    void create(const std::vector<IndexDesc>& descs) {
        ASSERT_EQ(table.create(name, static_cast<int>(descs.size()), descs.data()), kDbOk);
    }

    /// Steps i to the end of a writer's life: inserts, every third step deletes, now and then rebuilds. Stops at the
    /// first failure.
    void write(int from, int to, std::atomic<char>* told) {
        for (int i = from; i < to; ++i) {
            const DbGuard guard(lock, kExclusiveLock);
            if (table.open(name) != kDbOk || !insertSome(i, i % 10 == 5 ? std::min(4, to - i) : 1, told)) return;
            if (const int victim = i / 2; i % 3 == 0 && told[victim] == kInserted) {
                told[victim] = kRemoving;
                if (table.seek(keyOf(victim)) != kDbOk || table.remove() != kDbOk) return;
                told[victim] = kRemoved;
            }
            if (i % 20 == 19 && rebuildTable(table, name) != kDbOk) return;
            table.close();
        }
    }

    /// Inserts keys from i on, several as one batch, and moves i to the last one.
    bool insertSome(int& i, int count, std::atomic<char>* told) {
        const int from = i, end = i + count;
        if (count > 1) table.beginBatch();
        for (int k = from; k < end; ++k) {
            told[k] = kInserting;
            if (add(table, {keyOf(k), std::to_string(k % 5)}, std::string(k % 300, 'b')) == 0) return false;
        }
        if (table.endBatch() != kDbOk) return false;
        std::fill(told + from, told + end, kInserted);
        i = end - 1;
        return true;
    }

    /// The next one who opens: finds everything that the writer was told is there, and nothing that is gone.
    void expectMended(const std::atomic<char>* told, int count) {
        const std::string before = problemsOf(name);
        const bool wasSound = before.empty() && !std::filesystem::exists(rebuildName(name) + ".idx");
        const int mendedBefore = mended;
        const DbGuard guard(lock, kSharedLock);
        EXPECT_TRUE(wasSound || mended > mendedBefore) << "damage without a mark: " << before;
        EXPECT_EQ(problemsOf(name), "");
        ASSERT_EQ(table.open(name), kDbOk);
        for (int i = 0; i < count; ++i) {
            const int found = table.seek(keyOf(i));
            EXPECT_TRUE(found == kDbOk || told[i] != kInserted) << "lost " << i;
            EXPECT_TRUE(found != kDbOk || (told[i] != kUntouched && told[i] != kRemoved)) << "came back " << i;
        }
        table.close();
    }

    const std::string name;
    DbLock lock;
    DataBase table;
    int mended = 0;
};

TEST(CrashedTable, EveryStopOfAShortHistoryIsMended) {
    FaultyFileOps unsynced;
    const ScopedFileOps fast(unsynced);
    int mended = 0, histories = 0;
    for (const bool tear : {false, true}) {
        bool finished = false;
        for (int n = 0; !finished; ++n, ++histories) {
            const TempDir dir;
            LockedTable writer(dir), next(dir);
            writer.create({tinyDesc(17), tinyDesc(5)});
            std::vector<std::atomic<char>> told(41);
            FaultyFileOps dying;
            dying.changesLeft = n;
            dying.tearLast = tear;
            {
                const ScopedFileOps use(dying);
                try {
                    writer.write(0, 41, told.data());
                } catch (const StoreError&) {
                }
                writer.table.indexFile().drop();
                writer.table.dataFile().close();
            }
            next.expectMended(told.data(), 41);
            mended += next.mended;
            ASSERT_FALSE(HasFailure()) << "stopped after " << n << (tear ? ", torn" : "");
            finished = dying.changesLeft != 0;
        }
    }
    EXPECT_GT(mended, histories / 2);
}

TEST(CrashedTable, FullDiskLeavesAMarkOnlyWhereABatchWasLost) {
    for (const int count : {1, 20, 600}) {
        for (int64_t room = 40; room < 2500; room += 61) {
            FaultyFileOps full;
            const ScopedFileOps use(full);
            const TempDir dir;
            LockedTable writer(dir);
            writer.create({tinyDesc(17), tinyDesc(5)});
            std::vector<std::atomic<char>> told(800);
            writer.write(0, 100, told.data());
            full.room = room;
            bool inserted = false;
            {
                const DbGuard guard(writer.lock, kExclusiveLock);
                ASSERT_EQ(writer.table.open(writer.name), kDbOk);
                int at = 100;
                inserted = writer.insertSome(at, count, told.data());
                writer.table.close();
            }
            full.room = FaultyFileOps::kNever;
            writer.expectMended(told.data(), 120);
            EXPECT_EQ(writer.mended, count > 1 && !inserted ? 1 : 0) << room;
            if (inserted) break;
        }
    }
}

TEST(SlowCrashedTable, KilledWriterIsMendedByTheNext) {
    FaultyFileOps unsynced;
    const ScopedFileOps fast(unsynced);
    const int kills = rounds(300);
    std::mt19937_64 random(seedOf());
    const auto told = sharedMemory<std::atomic<char>>(kMaxKeys);
    int mended = 0, done = kMaxKeys;
    std::unique_ptr<TempDir> dir;
    for (int kill = 0; kill < kills && !HasFailure(); ++kill) {
        if (done > kMaxKeys / 2) {
            dir = std::make_unique<TempDir>();
            LockedTable(*dir).create({tinyDesc(17), {41, 4096}});
            std::fill_n(told.get(), kMaxKeys, kUntouched);
            done = 0;
        }
        const pid_t child = fork();
        if (child == 0) {
            LockedTable(*dir).write(done, kMaxKeys, told.get());
            _exit(0);
        }
        std::this_thread::sleep_for(std::chrono::microseconds(500 + random() % 8000));
        ::kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
        LockedTable next(*dir);
        while (done < kMaxKeys && told[done] != kUntouched) ++done;
        next.expectMended(told.get(), std::min(done + 1, kMaxKeys));
        mended += next.mended;
        // What was cut off is decided now; later rounds expect it to stay so.
        ASSERT_EQ(next.table.open(next.name), kDbOk);
        for (int i = 0; i < done; ++i) {
            if (told[i] != kInserting && told[i] != kRemoving) continue;
            told[i] = next.table.seek(keyOf(i)) == kDbOk ? kInserted : kRemoved;
        }
        next.table.close();
    }
    EXPECT_GT(mended, kills / 10);
}

TEST(SlowSharedTable, ProcessesShareADirectoryAndNobodyStarves) {
    using Clock = std::chrono::steady_clock;
    constexpr int kProcesses = 5, kWriters = 2;
    struct Life {
        int64_t count;
        Clock::duration longestWait;
    };
    const auto lives = sharedMemory<Life>(kProcesses);
    const TempDir dir;
    LockedTable(dir).create({tinyDesc(17), {41, 4096}});
    FaultyFileOps unsynced;
    const ScopedFileOps fast(unsynced);
    const auto end = Clock::now() + std::chrono::seconds(rounds(4));
    std::vector<pid_t> children;
    for (int p = 0; p < kProcesses; ++p) {
        children.push_back(fork());
        if (children.back() != 0) continue;
        LockedTable shared(dir);
        for (Life& life = lives[p]; Clock::now() < end; ++life.count) {
            const auto asked = Clock::now();
            const DbGuard guard(shared.lock, p < kWriters ? kExclusiveLock : kSharedLock);
            life.longestWait = std::max(life.longestWait, Clock::now() - asked);
            if (shared.table.open(shared.name) != kDbOk) _exit(1);
            if (p < kWriters) {
                const std::string key = std::to_string(p) + "-" + std::to_string(life.count);
                if (add(shared.table, {key, key}, "body of " + key) == 0) _exit(2);
                if (life.count % 500 == 499 && rebuildTable(shared.table, shared.name) != kDbOk) _exit(3);
            } else if (const std::string body = bodyAt(shared.table);
                       !body.starts_with("body of ") && body != "answer -1") {
                _exit(4);
            }
            shared.table.close();
        }
        _exit(0);
    }
    for (const pid_t child : children) {
        int status = 0;
        waitpid(child, &status, 0);
        EXPECT_EQ(status, 0) << "exit code " << WEXITSTATUS(status);
    }
    for (int p = 0; p < kProcesses; ++p) {
        EXPECT_GT(lives[p].count, 100) << p;
        EXPECT_LT(lives[p].longestWait, std::chrono::seconds(1)) << "process " << p << " starved";
    }
    EXPECT_EQ(problemsOf(dir.file("t")), "");
    EXPECT_EQ(checkTable(dir.file("t")).live, lives[0].count + lives[1].count);
}

}  // namespace
