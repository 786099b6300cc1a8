// After a log-out and after a failed log-in nothing secret is left anywhere in the process's memory.
#include <unistd.h>

#include <algorithm>
#include <fstream>

#include "key_store_session.h"
#include "keystore/security_file.h"
#include "support/faulty_file_ops.h"

namespace crv::test {
namespace {

constexpr uint8_t kMask = 0x5A;

/// A secret to look for, kept masked so that the search does not find itself.
struct Needle {
    std::string name;
    Bytes masked;

    Needle(std::string what, ByteView secret) : name(std::move(what)) {
        for (const uint8_t octet : secret) masked.push_back(octet ^ kMask);
    }
    [[nodiscard]] bool isIn(ByteView memory) const {
        return std::search(memory.begin(), memory.end(), masked.begin(), masked.end(),
                           [](uint8_t a, uint8_t b) { return (a ^ kMask) == b; }) != memory.end();
    }
};

/// The names of the needles that stand in writable memory of this process.
std::string found(const std::vector<Needle>& needles) {
    std::ifstream maps("/proc/self/maps");
    const FileDescriptor memory(::open("/proc/self/mem", O_RDONLY | O_CLOEXEC));
    std::string names, line;
    while (std::getline(maps, line)) {
        unsigned long from = 0, to = 0;
        char rights[5] = {};
        if (std::sscanf(line.c_str(), "%lx-%lx %4s", &from, &to, rights) != 3 || rights[1] != 'w') continue;
        Bytes region(to - from);
        (void)!::pread(memory.get(), region.data(), region.size(), static_cast<off_t>(from));
        for (const Needle& needle : needles)
            if (needle.isIn(region)) names += needle.name + " in " + line.substr(line.find_last_of(' ') + 1) + "; ";
        wipeMemory(region.data(), region.size());
    }
    return names;
}

/// A password that stands nowhere in the program.
SecretText freshPassword() {
    SecretArray<16> text;
    (void)systemRandom(text);
    for (uint8_t& octet : text) octet = static_cast<uint8_t>('A' + octet % 26);
    return SecretText(asText(text));
}

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
            noteKey(use == KeyType::Signing ? "signing" : "encryption", key);
        }
        LoadedSecurityFile file;
        ASSERT_EQ(readSecurityFile(asBytes(readFile(path)), password, true, file), kKmOk);
        needles.emplace_back("seed", *file.seed);
        needles.emplace_back("password", password.bytes());
        SecretBytes wide;
        for (const char c : password.view()) wide.insert(wide.end(), {0, static_cast<uint8_t>(c)});
        needles.emplace_back("UTF-16 password", wide);
    }
    /// Parts of the numbers d and p, as they are encoded and as libcrypto keeps them.
    void noteKey(const std::string& name, const PrivateKey& key) {
        const SecretBytes der = key.toPkcs8();
        for (const size_t at : {size_t{400}, size_t{700}}) {
            SecretBytes part(der.begin() + static_cast<long>(at), der.begin() + static_cast<long>(at + 24));
            needles.emplace_back(name + " key's octets at " + std::to_string(at), part);
            std::ranges::reverse(part);
            needles.emplace_back(name + " key's numbers at " + std::to_string(at), part);
        }
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
