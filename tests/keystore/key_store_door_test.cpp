// Opening and saving under the lock: waiting, giving up, what has no lock.
#include "keystore/key_store_door.h"

#include <future>
#include <thread>

#include "key_store_session.h"
#include "profiles/profile_kinds.h"

namespace crv::test {
namespace {

struct KeyStoreDoorTest : KeyStoreTest {
    KeyStoreAccess access(LockWait wait = {}) { return {session.context.configuration(), keys, std::move(wait)}; }
    /// Answers the operation while another thread holds the lock until `turns` questions whether to wait on.
    KeyManagerResult whileLocked(int turns, bool givesUp, const std::function<KeyManagerResult(LockWait)>& operation) {
        FileSemaphore other(path + ".lck");
        std::thread holder;
        std::promise<void> held, release;
        holder = std::thread([&] {
            EXPECT_TRUE(other.p(kExclusiveLock));
            held.set_value();
            release.get_future().wait();
            other.v();
        });
        held.get_future().wait();
        const KeyManagerResult result = operation({[&] { ++begun; },
                                                   [&] {
                                                       if (--turns > 0) return true;
                                                       if (turns == 0 && !givesUp) release.set_value();
                                                       return !givesUp;
                                                   }});
        if (givesUp) release.set_value();
        holder.join();
        return result;
    }
    int begun = 0;
};

TEST_F(KeyStoreDoorTest, WaitsForTheLockAndGivesUpWhenToldSo) {
    create();
    const auto open = [&](LockWait wait) { return openKeyStore(access(std::move(wait)), OpenMode::LogIn, false); };
    const auto save = [&](LockWait wait) { return saveKeyStore(access(std::move(wait))); };
    const auto change = [&](LockWait wait) {
        return changeKeyStorePassword(access(std::move(wait)), SecretText(kOtherPassword));
    };
    EXPECT_EQ(whileLocked(3, false, open), kKmOk);
    const std::string before = readFile(path);
    EXPECT_EQ(whileLocked(2, true, save), kKmLockGivenUp);
    EXPECT_EQ(whileLocked(2, true, change), kKmLockGivenUp);
    EXPECT_EQ(readFile(path), before);
    EXPECT_EQ(begun, 3);
    EXPECT_EQ(changeKeyStorePassword(access(), SecretText(kOtherPassword)), kKmOk);
    EXPECT_TRUE(session.context.pins.at(PinSlot::SigningToken) == SecretText(kOtherPassword)) << "the old one is gone";
    EXPECT_EQ(saveKeyStore(access()), kKmOk);
}

TEST_F(KeyStoreDoorTest, OnlyAKeyStoreThatIsAFileIsLocked) {
    create();
    std::filesystem::create_directory(path + ".lck");
    bool asked = false;
    EXPECT_EQ(openKeyStore(access({{}, [&] { return asked = true; }}), OpenMode::LogIn, false), kKmLockFailed);
    EXPECT_FALSE(asked) << "waiting would not help";
    session.context.configuration().setProfile(std::make_unique<MemoryProfile>());
    EXPECT_EQ(openKeyStore(access(), OpenMode::LogIn, false, [] { return false; }), kKmCancelled);
    EXPECT_EQ(openKeyStore(access(), OpenMode::LogIn, false), kKmOk);
}

TEST_F(KeyStoreDoorTest, AnotherProgramsFileIsOursOnlyWhenItIsAdopted) {
    session.setPin("zażółć gęślą");
    std::filesystem::copy(dataFile("openssl_new.p12"), path);
    const std::string before = readFile(path);
    ASSERT_EQ(openKeyStore(access(), OpenMode::LogIn, false), kKmOk);
    EXPECT_TRUE(keys.isForeign() && keys.isReadOnly() && keys.signingKey());
    EXPECT_EQ(saveKeyStore(access()), kKmReadOnly);
    EXPECT_EQ(changeKeyStorePassword(access(), SecretText(kOtherPassword)), kKmReadOnly);
    EXPECT_EQ(readFile(path), before);
    writeFile(path + ".orig", "an older one");
    ASSERT_EQ(openKeyStore(access(), OpenMode::AdoptForeign, false), kKmOk);
    EXPECT_FALSE(keys.isForeign() || keys.isReadOnly());
    EXPECT_EQ(readFile(path + ".orig"), "an older one");
    EXPECT_EQ(readFile(path + ".orig.2"), before);
    EXPECT_EQ(std::filesystem::status(path + ".orig.2").permissions(), std::filesystem::perms(0600));
    // The authority is none of ours until somebody says so, however often the file is opened.
    for (int i = 0; i < 2; ++i) {
        EXPECT_TRUE(keys.trustedPoints().empty());
        ASSERT_EQ(openKeyStore(access(), OpenMode::LogIn, false), kKmOk);
    }
    ASSERT_EQ(keys.addTrustedCA(keys.trustCandidates().at(0)), kKmOk);
    ASSERT_EQ(saveKeyStore(access()), kKmOk);
    ASSERT_EQ(openKeyStore(access(), OpenMode::LogIn, false), kKmOk);
    EXPECT_TRUE(keys.trustCandidates().empty());
    EXPECT_EQ(keys.trustedPoints().size(), 1u);
}

}  // namespace
}  // namespace crv::test
