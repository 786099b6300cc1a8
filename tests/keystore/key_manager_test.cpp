// Opening, saving and closing a key store of a file profile.
#include "keystore/key_manager.h"

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstddef>
#include <set>

#include "asn/x509/sign_algo.h"
#include "config/config_oids.h"
#include "corvane/crvprofile.h"
#include "key_store_session.h"
#include "misc/exceptions.h"
#include "support/faulty_file_ops.h"
#include "support/shared_memory.h"

namespace crv::test {
namespace {

namespace fs = std::filesystem;

/// Fails the opening of one path, or all reading when there is none.
struct RefusingFileOps : FileOps {
    explicit RefusingFileOps(std::string name) : path(std::move(name)) {}
    int open(const std::string& name, int flags, mode_t mode) override {
        return name == path ? (errno = EACCES, -1) : FileOps::open(name, flags, mode);
    }
    ssize_t pread(int fd, void* buffer, size_t size, int64_t at) override {
        return path.empty() ? (errno = EIO, -1) : FileOps::pread(fd, buffer, size, at);
    }

    std::string path;
    ScopedFileOps scope{*this};
};

using KeyManagerTest = KeyStoreTest;

TEST_F(KeyManagerTest, CreatesAFileForItsOwnerAndOpensItAgain) {
    create();
    EXPECT_TRUE(keys.isLoggedIn());
    EXPECT_FALSE(keys.hasAnyKey());
    EXPECT_EQ(keys.signingKeyType(), KeyScheme::None);
    ASSERT_EQ(keys.addNewKey(KeyType::Encryption, sharedKey("rsa1")), kKmOk);
    EXPECT_TRUE(keys.hasKey(KeyType::Encryption) && keys.hasKey(KeyType::Both));
    EXPECT_FALSE(keys.hasKey(KeyType::Signing));
    EXPECT_THROW((void)keys.addNewKey(KeyType::Both, sharedKey("rsa2")), VtestException);
    session.editRecord().setIntOpt(kOptConnectTimeout, 77);
    ASSERT_EQ(keys.addNewKey(KeyType::Signing, sharedKey("rsa2")), kKmOk);
    EXPECT_EQ(keys.signingKeyType(), KeyScheme::Rsa);
    session.editRecord().setSignaturaAlgorithmIdentifier(*signAlgorithm(KeyScheme::RsaPss, KcHashAlgo::Sha256));
    ASSERT_EQ(keys.saveConfiguration(), kKmOk);
    EXPECT_EQ(fs::status(path).permissions(), fs::perms::owner_read | fs::perms::owner_write);

    Session other(path);
    for (int i = 0; i < 2; ++i) {
        const std::string before = readFile(path);
        ASSERT_EQ(other.login(), kKmOk);
        EXPECT_NE(readFile(path), before) << "every log-in stores a fresh seed";
        EXPECT_TRUE(other.keys.isLoggedIn());
        EXPECT_EQ(other.record().getIntOpt(kOptConnectTimeout), 77);
        EXPECT_EQ(other.keys.signingKey()->keyId(), testKey("rsa2").keyId());
        EXPECT_EQ(other.keys.encryptionKey()->keyId(), testKey("rsa1").keyId());
        EXPECT_EQ(other.keys.signingKeyType(), KeyScheme::RsaPss);
    }
    other.keys.deinitProfile();
    EXPECT_FALSE(other.keys.isLoggedIn() || other.keys.hasAnyKey());
    EXPECT_EQ(other.record().getIntOpt(kOptConnectTimeout), 30);
    EXPECT_EQ(other.login(), kKmCancelled) << "the PINs are gone";
}

TEST_F(KeyManagerTest, LogInFailsWithItsCodeAndForgetsEverything) {
    create();
    const std::string good = readFile(path);
    const std::tuple<const char*, std::function<void(Session&)>, KeyManagerResult> cases[] = {
        {"wrong password", [](Session& s) { s.setPin("Zażółć-1235"); }, kKmWrongPassword},
        {"wrong PIN", [](Session& s) { s.context.pinAnswer = kPinWrong; }, kKmWrongPassword},
        {"cancelled", [](Session& s) { s.context.pins.clear(); }, kKmCancelled},
        {"no path", [](Session& s) { s.profile().setAttr(CRVPROFILE_ATTR_PKCS12_FILE, "", 0); }, kKmOpenFailed},
        {"no file", [&](Session&) { fs::remove(path); }, kKmOpenFailed},
        {"folder", [&](Session&) { fs::create_directory(path); }, kKmReadFailed},
        {"pipe", [&](Session&) { fs::remove(path), ::mkfifo(path.c_str(), 0600); }, kKmReadFailed},
        {"empty", [&](Session&) { fs::remove(path), writeFile(path, ""); }, kKmBadFormat},
        {"truncated", [&](Session&) { writeFile(path, good.substr(0, good.size() / 2)); }, kKmBadFormat},
    };
    for (const auto& [what, prepare, result] : cases) {
        SCOPED_TRACE(what);
        Session s(path);
        prepare(s);
        EXPECT_EQ(s.login(), result);
        EXPECT_FALSE(s.keys.isLoggedIn() || s.keys.hasAnyKey());
        EXPECT_THROW((void)s.keys.saveConfiguration(), VtestException);
    }
    writeFile(path, good);
    for (const auto& [refused, result] : {std::pair{path, kKmOpenFailed}, {std::string(), kKmReadFailed}}) {
        const RefusingFileOps ops(refused);
        EXPECT_EQ(Session(path).login(), result);
    }
}

TEST_F(KeyManagerTest, AHeldFileIsKeptInTheProfile) {
    create();
    const std::string octets = readFile(path);
    Session held("");
    EXPECT_EQ(held.create(), kKmOpenFailed) << "neither path nor octets";
    held.profile().setAttr(CRVPROFILE_ATTR_SFT_FILE_BYTES, octets);
    ASSERT_EQ(held.login(), kKmOk);
    std::string after;
    held.profile().getAttr(CRVPROFILE_ATTR_SFT_FILE_BYTES, after);
    EXPECT_NE(after, octets);
    held.profile().setAttr(CRVPROFILE_ATTR_SFT_FILE_BYTES, std::string("no PFX"));
    EXPECT_EQ(held.login(), kKmBadFormat);
}

TEST_F(KeyManagerTest, AFileWithoutSecretsNeedsAnotherSourceOfSeed) {
    session.profile().setAttr(CRVPROFILE_ATTR_IGNORE_SFT_FILE, 1);
    session.editRecord().setIntOpt(kOptConnectTimeout, 77);
    create({{KeyType::Signing, "ec"}});
    const std::string before = readFile(path);
    EXPECT_EQ(session.login(), kKmOk);
    EXPECT_EQ(readFile(path), before) << "no seed, so nothing to store";
    EXPECT_EQ(session.record().getIntOpt(kOptConnectTimeout), 77) << "what was set stays";
    Session s(path);
    SecretArray<8> octets;
    {
        const RefusingFileOps ops("/dev/urandom");
        ASSERT_EQ(s.login(), kKmNoSeed);
    }
    EXPECT_FALSE(s.keys.isLoggedIn());
    EXPECT_EQ(s.keys.rbgFill(octets), kKmNoSeed);
    EXPECT_EQ(s.keys.saveConfiguration(), kKmNoSeed);
    EXPECT_THROW((void)s.keys.addNewKey(KeyType::Encryption, sharedKey("rsa1")), VtestException) << "not logged in";
    ASSERT_EQ(s.keys.rbgInit(asBytes("keys typed by the user")), kKmOk);
    ASSERT_EQ(s.keys.saveConfiguration(), kKmOk);
    ASSERT_EQ(s.login(), kKmOk);
    EXPECT_TRUE(s.keys.hasKey(KeyType::Signing)) << "mended without losing the contents";
    EXPECT_EQ(s.record().getIntOpt(kOptConnectTimeout), 30);
}

TEST_F(KeyManagerTest, GeneratorsRunOnBeyondTheirCycleAndNeverRepeatALogIn) {
    Session s(path, kPassword, 3);
    ASSERT_EQ(s.create(), kKmOk);
    const std::string octets = readFile(path);
    std::set<Bytes> seen;
    const auto draw = [&](int times) {
        for (SecretArray<32> next; times-- > 0; seen.insert(toBytes(next))) ASSERT_EQ(s.keys.rbgFill(next), kKmOk);
    };
    draw(10);
    for (int i = 0; i < 3; ++i) {
        writeFile(path, octets);
        ASSERT_EQ(s.login(), kKmOk);
        draw(1);
    }
    const RefusingFileOps ops("/dev/urandom");
    draw(10);  // the stored seed is source enough
    EXPECT_EQ(seen.size(), 23u);
}

TEST_F(KeyManagerTest, AForkedProcessDrawsOctetsOfItsOwn) {
    create();
    const auto drawn = sharedMemory<uint8_t>(32);
    const pid_t child = fork();
    if (child == 0) _exit(keys.rbgFill({drawn.get(), 32}));
    int status = -1;
    waitpid(child, &status, 0);
    ASSERT_EQ(status, kKmOk);
    Bytes ours(32);
    ASSERT_EQ(keys.rbgFill(ours), kKmOk);
    EXPECT_NE(ours, Bytes(drawn.get(), drawn.get() + 32));
}

TEST_F(KeyManagerTest, ThePasswordChangesOnlyWhenAskedAndAnotherOneIsNotOverwritten) {
    create();
    const std::string before = readFile(path);
    // A cleaned PIN is one of zero bytes: it must never become the password.
    for (const std::string& wrong : {std::string(kOtherPassword), std::string(11, '\0')})
        EXPECT_EQ(keys.saveKey(SecretText(wrong), 0), kKmWrongPassword);
    EXPECT_EQ(readFile(path), before);
    ASSERT_EQ(keys.changePin(SecretText("whatever"), SecretText(kPassword)), kKmOk);
    EXPECT_NE(readFile(path), before) << "the same password, but fresh salts";
    Session other(path);
    ASSERT_EQ(other.login(), kKmOk);
    ASSERT_EQ(other.keys.changePin({}, SecretText(kOtherPassword)), kKmOk);
    EXPECT_EQ(other.keys.saveConfiguration(), kKmOk) << "the cached PIN is the new one";
    EXPECT_EQ(Session(path).login(), kKmWrongPassword);
    EXPECT_EQ(Session(path, kOtherPassword).login(), kKmOk);

    const std::string theirs = readFile(path);
    EXPECT_EQ(keys.saveConfiguration(), kKmWriteFailed) << "a file under another password";
    EXPECT_EQ(Session(path).create(), kKmWriteFailed) << "a new file meets one that somebody else made meanwhile";
    EXPECT_EQ(readFile(path), theirs);
    fs::remove(path);
    EXPECT_EQ(keys.saveConfiguration(), kKmOk) << "vanished: written anew";
    EXPECT_EQ(Session(path).login(), kKmOk);
}

TEST_F(KeyManagerTest, TwoSessionsKeepEachOthersChanges) {
    const auto setPolicies = [](Session& s, std::initializer_list<std::pair<const char*, const char*>> list) {
        CRVCfgFile::Policies policies;
        for (const auto& [id, note] : list) policies.add({*ASNobjectId::fromText(id), note});
        s.editRecord().setPolicies(policies);
    };
    create();
    setPolicies(session, {{"1.1", "both leave"}, {"1.2", "a changes"}, {"1.3", "b deletes"}});
    ASSERT_EQ(keys.addTrustedCA(testCert("ca_ec")), kKmOk);
    session.editRecord().setIntOpt(kOptConnectTimeout, 1);
    ASSERT_EQ(keys.saveConfiguration(), kKmOk);

    Session a(path), b(path), c(path);
    ASSERT_EQ(a.login(), kKmOk);
    ASSERT_EQ(b.login(), kKmOk);
    ASSERT_EQ(a.keys.addNewKey(KeyType::Signing, sharedKey("rsa1")), kKmOk);
    ASSERT_EQ(a.keys.addTrustedCA(testCert("ca")), kKmOk);
    setPolicies(a, {{"1.1", "both leave"}, {"1.2", "changed"}, {"1.3", "b deletes"}, {"1.4", "of a"}});
    ASSERT_EQ(a.keys.saveConfiguration(), kKmOk);
    ASSERT_EQ(b.keys.installUserCrt(testCert("sign")), kKmNoKeyForCertificate) << "not seen yet";
    ASSERT_EQ(b.keys.delTrustedCA(testCert("ca_ec"), kUsers), kKmOk);
    b.editRecord().setIntOpt(kOptTslNetLoadTimeoutSec, 3);
    setPolicies(b, {{"1.1", "both leave"}, {"1.2", "a changes"}, {"1.5", "of b"}});
    ASSERT_EQ(b.keys.addNewKey(KeyType::Both, sharedKey("rsa2")), kKmOk);
    ASSERT_EQ(b.keys.installUserCrt(testCert("sign")), kKmRoleTaken) << "its own key came last, so it signs";
    a.editRecord().setIntOpt(kOptConnectTimeout, 2);
    ASSERT_EQ(a.keys.saveConfiguration(), kKmOk);

    ASSERT_EQ(c.login(), kKmOk);
    ASSERT_EQ(c.keys.keys().size(), 2u);
    EXPECT_EQ(c.keys.signingKey()->keyId(), testKey("rsa2").keyId());
    EXPECT_EQ(c.keys.keys()[1].role, KeyRole::Further);
    EXPECT_EQ(c.record().getIntOpt(kOptConnectTimeout), 2);
    EXPECT_EQ(c.record().getIntOpt(kOptTslNetLoadTimeoutSec), 3);
    std::string policies;
    for (const PolicyIdAndNote& policy : c.record().getPolicies())
        policies.append(policy.policyId.text()).append(" ").append(policy.noteText()).append(", ");
    EXPECT_EQ(policies, "1.1 both leave, 1.2 changed, 1.4 of a, 1.5 of b, ");
    const auto points = c.keys.trustedPoints();
    ASSERT_EQ(points.size(), 1u);
    EXPECT_TRUE(contains({points[0].certificate}, *testCert("ca")));
    EXPECT_EQ(points[0].flag, TrustPointFlag::User);
}

/// Lets the kernel refuse getrandom(2) from now on.
bool refuseGetrandom() {
    sock_filter filter[] = {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
                            BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_getrandom, 0, 1),
                            BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | ENOSYS),
                            BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)};
    const sock_fprog program{std::size(filter), filter};
    return ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 && ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

TEST_F(KeyManagerTest, NoKeyIsGeneratedWithoutFreshRandomnessOfTheSystem) {
    create();
    const auto generate = [&](const char* refused) {
        const pid_t child = fork();
        if (child == 0) {
            const RefusingFileOps ops(refused);
            if (!refuseGetrandom()) _exit(99);
            _exit(keys.generateECDsaUserKey(KeyType::Signing, kDefaultCurve, false));
        }
        int status = -1;
        waitpid(child, &status, 0);
        return WEXITSTATUS(status);
    };
    EXPECT_EQ(generate("/dev/urandom"), kKmNoSeed);
    EXPECT_EQ(generate("/dev/null"), kKmOk) << "the device serves instead";
}

TEST_F(KeyManagerTest, EveryFailingWriteLeavesFileAndMemoryAlone) {
    create({{KeyType::Signing, "ec"}});
    const std::string before = readFile(path);
    const std::pair<const char*, std::function<bool(FaultyFileOps&, int)>> faults[] = {
        {"stop after n changes", [](FaultyFileOps& o, int n) { return o.changesLeft = n, n < 3; }},
        {"torn write", [](FaultyFileOps& o, int n) { return o.changesLeft = n, o.tearLast = true, n < 3; }},
        {"full disk", [](FaultyFileOps& o, int n) { return o.room = n * 500, n < 2; }},
        {"failing sync", [](FaultyFileOps& o, int n) { return o.failSync = true, n < 1; }},
    };
    for (const auto& [what, set] : faults) {
        for (int n = 0;; ++n) {
            FaultyFileOps ops;
            if (!set(ops, n)) break;
            const ScopedFileOps scope(ops);
            const KeyManagerResult result = keys.addNewKey(KeyType::Encryption, sharedKey("rsa2"));
            EXPECT_TRUE(result == kKmWriteFailed || result == kKmOpenFailed) << what << ' ' << n << ": " << result;
            EXPECT_EQ(readFile(path), before);
            EXPECT_FALSE(keys.hasKey(KeyType::Encryption)) << "a key that was not saved is dropped";
        }
    }
    EXPECT_EQ(Session(path).login(), kKmOk);
}

/// As one who cannot give a new file the rights of the old one.
struct MemberFileOps : FaultyFileOps {
    int copyAttributes(const std::string&, int) override { return errno = EPERM, -1; }
};

TEST_F(KeyManagerTest, AFileRewrittenInPlaceOpensWhereverTheWriterDied) {
    create({{KeyType::Signing, "ec"}});
    const std::string before = readFile(path);
    std::set<bool> cutOff;
    bool died = true;
    for (int n = 0; died; ++n) {
        SCOPED_TRACE(n);
        writeFile(path, before);
        Session writer(path), reader(path), next(path);
        ASSERT_EQ(writer.login(), kKmOk);
        {
            MemberFileOps ops;
            ops.changesLeft = n / 2;
            ops.tearLast = n % 2 == 1;
            const ScopedFileOps scope(ops);
            died = writer.keys.addNewKey(KeyType::Encryption, sharedKey("rsa2")) != kKmOk;
        }
        const std::string left = readFile(path);
        ASSERT_EQ(reader.keys.initProfile(static_cast<int>(OpenMode::ReadOnly), false), kKmOk);
        EXPECT_EQ(readFile(path), left) << "reading changes nothing";
        cutOff.insert(reader.keys.wasCutOff());
        ASSERT_EQ(next.login(), kKmOk);
        EXPECT_EQ(next.keys.wasCutOff(), reader.keys.wasCutOff());
        EXPECT_TRUE(next.keys.hasKey(KeyType::Signing));
        EXPECT_FALSE(fs::exists(path + ".crv-old"));
        ASSERT_EQ(next.login(), kKmOk);
        EXPECT_FALSE(next.keys.wasCutOff());
    }
    EXPECT_EQ(cutOff.size(), 2u) << "the middle of a rewriting was met";
}

}  // namespace
}  // namespace crv::test
