// After a log-out and after a failed log-in nothing secret is left anywhere in the process's memory.
#include "key_store_session.h"
#include "keystore/security_file.h"
#include "support/faulty_file_ops.h"
#include "support/memory_scan.h"

namespace crv::test {
namespace {

struct KeyStoreMemoryTest : KeyStoreTest {
    std::vector<Needle> needles;

    /// Makes a file with keys that no other test knows and notes its secrets. They stay in the context's PIN cache
    /// only.
    void SetUp() override {
#ifdef __SANITIZE_ADDRESS__
        GTEST_SKIP() << "the sanitizer's shadow is too large to search";
#endif
        const SecretText password = freshPassword();
        session.setPin(password.c_str());
        create();
        for (const KeyType use : {KeyType::Signing, KeyType::Encryption}) {
            const auto key = PrivateKey::generateRsa(2048, 65537, keys.random());
            ASSERT_EQ(keys.addNewKey(use, std::make_shared<const PrivateKey>(key)), kKmOk);
            noteKey(needles, use == KeyType::Signing ? "signing" : "encryption", key);
        }
        LoadedSecurityFile file;
        ASSERT_EQ(readSecurityFile(asBytes(readFile(path)), password, true, file), kKmOk);
        needles.emplace_back("seed", *file.seed);
        notePassword(needles, password);
    }
};

TEST_F(KeyStoreMemoryTest, HoldsNothingAfterLogOut) {
    const std::string before = found(needles);
    for (const char* name : {"password", "seed", "signing key's numbers at 400", "encryption key's octets at 700"})
        ASSERT_NE(before.find(name), std::string::npos) << "the search does not find the " << name;
    ASSERT_EQ(session.login(), kKmOk);
    keys.deinitProfile();
    EXPECT_EQ(found(needles), "");
}

TEST_F(KeyStoreMemoryTest, HoldsNothingAfterAFailedLogIn) {
    {
        FaultyFileOps ops;
        ops.failSync = true;
        const ScopedFileOps scope(ops);
        ASSERT_EQ(session.login(), kKmWriteFailed) << "everything was deciphered by then";
    }
    session.context.removePINs();
    EXPECT_EQ(found(needles), "");

    SecretText wrong = freshPassword();
    const Needle needle("wrong password", wrong.bytes());
    session.setPin(wrong.c_str());
    ASSERT_EQ(session.login(), kKmWrongPassword);
    session.context.removePINs();
    wrong.clear();
    EXPECT_EQ(found({needle}), "");
}

}  // namespace
}  // namespace crv::test
