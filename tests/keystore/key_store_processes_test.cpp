// Several processes and sudden ends: the security file is whole at every instant and nobody's keys are lost.
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <random>

#include "config/config_oids.h"
#include "key_store_session.h"
#include "keystore/security_file.h"
#include "misc/file_semaphore.h"

namespace crv::test {
namespace {

constexpr const char* kPasswords[] = {kPassword, kOtherPassword};

/// CRV_TEST_ROUNDS multiplies the rounds.
int rounds(int ordinary) {
    const char* factor = std::getenv("CRV_TEST_ROUNDS");
    return ordinary * (factor ? std::atoi(factor) : 1);
}

/// Runs the action in a process of its own; its answer is the exit status.
template <class Action>
pid_t inChild(Action action) {
    const pid_t child = ::fork();
    if (child == 0) ::_exit(action());
    return child;
}

/// The exit status, or the negative number of the signal that ended the child.
int statusOf(pid_t child) {
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

/// Changes the password back and forth for ever, once it has told that it is logged in.
int changeForEver(const std::string& path, int now, int tell) {
    Session session(path, kPasswords[now]);
    if (session.login() != kKmOk || ::write(tell, "!", 1) != 1) return 1;
    for (;;) {
        now = 1 - now;
        FileSemaphore lock(path + ".lck");
        if (!lock.p(kExclusiveLock) || session.keys.changePin({}, SecretText(kPasswords[now])) != kKmOk) return 2;
    }
}

using SlowKeyStoreTest = KeyStoreTest;

TEST_F(SlowKeyStoreTest, AKilledSaveLeavesAFileThatOpens) {
    create({{KeyType::Signing, "ec"}});
    const auto start = std::chrono::steady_clock::now();
    ASSERT_EQ(keys.changePin({}, SecretText(kPassword)), kKmOk);
    const std::chrono::duration<double, std::micro> oneSave = std::chrono::steady_clock::now() - start;
    std::uniform_real_distribution<> moment(0, 3 * oneSave.count());
    std::mt19937 random(std::random_device{}());
    int now = 0, changed = 0;
    int pipe[2];
    ASSERT_EQ(::pipe(pipe), 0);
    for (int i = 0; i < rounds(200); ++i) {
        const pid_t child = inChild([&] { return changeForEver(path, now, pipe[1]); });
        char told = 0;
        pollfd telling{pipe[0], POLLIN, 0};
        ASSERT_TRUE(::poll(&telling, 1, 30000) == 1 && ::read(pipe[0], &told, 1) == 1) << "no log-in";
        ::usleep(static_cast<useconds_t>(moment(random)));
        ::kill(child, SIGKILL);
        ASSERT_EQ(statusOf(child), -SIGKILL) << "ended by itself";
        const std::string octets = readFile(path);
        LoadedSecurityFile file;
        const auto opens = [&](int which) {
            return readSecurityFile(asBytes(octets), SecretText(kPasswords[which]), true, file) == kKmOk;
        };
        if (!opens(now)) {
            now = 1 - now;
            ++changed;
            ASSERT_TRUE(opens(now)) << "round " << i;
        }
        ASSERT_TRUE(file.keys.size() == 1 && file.seed && file.configuration);
    }
    EXPECT_GT(changed, 0) << "the saves were never reached";
}

/// Logs in, changes an option and a trust point of its own, saves; between the two holds no lock, so that the other
/// process comes in between.
int changeMany(const std::string& path, long option, const char* trustPoint, int count) {
    for (int i = 1; i <= count; ++i) {
        Session session(path);
        {
            FileSemaphore lock(path + ".lck");
            if (!lock.p(kExclusiveLock) || session.login() != kKmOk) return 1;
        }
        if (session.record().getIntOpt(option) != i - 1) return 2;
        session.editRecord().setIntOpt(option, i);
        const CertPtr point = testCert(trustPoint);
        const KeyManagerResult changed =
            i % 2 == 1 ? session.keys.addTrustedCA(point) : session.keys.delTrustedCA(point, kUsers);
        FileSemaphore lock(path + ".lck");
        if (changed != kKmOk || !lock.p(kExclusiveLock) || session.keys.saveConfiguration() != kKmOk) return 3;
    }
    return 0;
}

TEST_F(SlowKeyStoreTest, TwoProcessesLoseNothingOfEachOther) {
    ASSERT_EQ(session.create(), kKmOk);
    session.editRecord().setIntOpt(kOptConnectTimeout, 0);
    session.editRecord().setIntOpt(kOptTslNetLoadTimeoutSec, 0);
    ASSERT_EQ(keys.addNewKey(KeyType::Signing, sharedKey("ec")), kKmOk);
    const int count = rounds(101);
    const pid_t one = inChild([&] { return changeMany(path, kOptConnectTimeout, "ca", count); });
    const pid_t two = inChild([&] { return changeMany(path, kOptTslNetLoadTimeoutSec, "ca_ec", count); });
    EXPECT_EQ(statusOf(one), 0);
    EXPECT_EQ(statusOf(two), 0);
    ASSERT_EQ(session.login(), kKmOk);
    EXPECT_EQ(session.record().getIntOpt(kOptConnectTimeout), count);
    EXPECT_EQ(session.record().getIntOpt(kOptTslNetLoadTimeoutSec), count);
    EXPECT_EQ(keys.trustedPoints().size(), count % 2 == 1 ? 2u : 0u);
    EXPECT_TRUE(keys.hasKey(KeyType::Signing));
}

}  // namespace
}  // namespace crv::test
