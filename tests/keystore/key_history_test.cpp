// Former files of a key store, and keys that take the place of others.
#include <algorithm>
#include <filesystem>
#include <map>
#include <random>
#include <set>

#include "asn/pkcs/certification_request.h"
#include "config/config_oids.h"
#include "key_store_session.h"
#include "keystore/crt_request.h"
#include "keystore/file_history.h"
#include "keystore/key_pairing.h"
#include "keystore/security_file.h"
#include "ops/op_error.h"
#include "ops/session.h"
#include "support/faulty_file_ops.h"

namespace crv::test {
namespace {

constexpr int kReadOnlyMode = static_cast<int>(OpenMode::ReadOnly);

using KeyHistoryTest = KeyStoreTest;

TEST_F(KeyHistoryTest, TheHistoryHoldsEveryFileOfBeforeThatAChangeReplaced) {
    const unsigned seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    const auto digest = [](const std::string& file) { return hashOf(KcHashAlgo::Sha256, asBytes(readFile(file))); };
    create({{KeyType::Signing, "ec"}});
    std::vector<Bytes> kept;
    for (const FormerFile& former : historyOf(path)) kept.push_back(digest(former.path));
    size_t most = 10;
    bool other = false;
    for (int i = 0; i < 60; ++i) {
        const Bytes before = digest(path);
        const unsigned what = random() % 4;
        if (what == 0) {
            ASSERT_EQ(session.login(), kKmOk) << "only the seed is new";
        } else if (what == 1) {
            other = !other;
            ASSERT_EQ(keys.changePin({}, SecretText(other ? kOtherPassword : kPassword)), kKmOk);
        } else {
            if (what == 3) most = random() % 12;
            session.editRecord().setStoreHistory(static_cast<long>(most));
            session.editRecord().setIntOpt(kOptConnectTimeout, i);
            ASSERT_EQ(keys.saveConfiguration(), kKmOk);
        }
        if (what != 0 && most > 0) {
            kept.push_back(before);
            if (kept.size() > most) kept.erase(kept.begin(), kept.end() - static_cast<long>(most));
        }
        std::vector<Bytes> found;
        for (const FormerFile& former : historyOf(path)) {
            found.push_back(digest(former.path));
            EXPECT_EQ(std::filesystem::status(former.path).permissions(),
                      std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
        }
        ASSERT_EQ(found, kept) << "step " << i << " of kind " << what;
    }
}

/// What a user does to a key store in any order, while writes fail anywhere, and what may never be lost by it.
struct Keeper {
    explicit Keeper(const TempDir& dir) : path(dir.file("keys.p12")), at(std::make_unique<Session>(path)) {
        EXPECT_EQ(at->create(), kKmOk);
    }

    /// Nobody says where the file went, and another one is made. What it alone held is gone.
    void lose() {
        if (dying) return;
        std::filesystem::remove(path);
        std::set<KeyId> left;
        for (const FormerFile& former : historyOf(path)) left.merge(std::set(keysIn(former.path).value()));
        std::erase_if(saved, [&](const KeyId& id) { return !left.contains(id); });
        at = std::make_unique<Session>(path, password.c_str());
        EXPECT_EQ(at->create(), kKmOk);
    }

    KeyManager& keys() { return at->keys; }
    unsigned below(size_t limit) { return static_cast<unsigned>(random() % limit); }
    void open(const std::string& with) {
        at = std::make_unique<Session>(path, with.c_str());
        password = with;
        EXPECT_TRUE(at->login() == kKmOk || dying);
    }

    /// A log-in with whatever opens the file, as a user would try.
    void openAny() {
        for (const char* one : {kPassword, kOtherPassword}) {
            at = std::make_unique<Session>(path, one);
            password = one;
            if (at->login() == kKmOk) return;
        }
        FAIL() << "no password opens the file";
    }

    void takeKey() {
        const PrivateKey key = PrivateKey::generateEc(kDefaultCurve, false, keys().random());
        // The operation may fail behind the write: then the key is there and nobody minds.
        if (keys().importKey(key, KeyRole::Signing, {}) == kKmOk) saved.insert(key.keyId());
    }
    void dropKey() {
        const auto all = keys().keys();
        if (all.empty()) return;
        const KeyId gone = all[below(all.size())].key->keyId();
        saved.erase(gone);
        static_cast<void>(keys().deleteKey(gone));
    }
    void changePassword() {
        const std::string next = password == kPassword ? kOtherPassword : kPassword;
        if (keys().changePin({}, SecretText(next)) == kKmOk) password = next;
    }
    void set() {
        at->editRecord().setIntOpt(kOptConnectTimeout, static_cast<long>(below(1000)));
        if (below(3) == 0) at->editRecord().setStoreHistory(static_cast<long>(below(4)));
        static_cast<void>(keys().saveConfiguration());
    }
    void restore() {
        const auto former = historyOf(path);
        if (former.empty()) return;
        const std::string name = former[below(former.size())].name;
        for (const char* one : {kPassword, kOtherPassword}) {
            try {
                restoreFormerFile(path, name, SecretText(one));
                return open(one);
            } catch (const OpError&) {  // the other password, or a fault
            }
        }
    }
    /// One that was opened long ago saves what it has.
    void saveOld() {
        if (!old) {
            old = std::make_unique<Session>(path, password.c_str());
            static_cast<void>(old->login());
            return;
        }
        if (old->keys.isLoggedIn()) static_cast<void>(old->keys.saveConfiguration());
        old.reset();
    }

    /// Keys of a file under whatever password; nothing when none opens it.
    const std::optional<std::set<KeyId>>& keysIn(const std::string& file) {
        const std::string octets = readFile(file);
        const auto [known, fresh] = read.try_emplace(octets);
        for (const char* one : {kPassword, kOtherPassword}) {
            LoadedSecurityFile loaded;
            if (!fresh || readSecurityFile(asBytes(octets), SecretText(one), false, loaded) != kKmOk) continue;
            known->second.emplace();
            for (const auto& key : loaded.keys) known->second->insert(key.key.keyId());
            break;
        }
        return known->second;
    }

    std::string path;
    std::mt19937 random{std::random_device()()};
    std::string password = kPassword;
    std::unique_ptr<Session> at, old;
    std::set<KeyId> saved;
    std::map<std::string, std::optional<std::set<KeyId>>> read;  ///< files by their octets
    bool dying = false;  ///< within a step whose writes fail from some moment on
};

TEST(KeyHistory, WhateverHappensEveryKeyIsInTheFileOrInAKeptOne) {
    constexpr std::pair<const char*, void (Keeper::*)()> kSteps[] = {
        {"take a key", &Keeper::takeKey}, {"delete a key", &Keeper::dropKey}, {"password", &Keeper::changePassword},
        {"setting", &Keeper::set},        {"restore", &Keeper::restore},      {"old session", &Keeper::saveOld},
        {"log in", &Keeper::openAny},     {"lose the file", &Keeper::lose},
    };
    const TempDir dir;
    Keeper keeper(dir);
    const unsigned seed = std::random_device()();
    keeper.random.seed(seed);
    std::string road = "seed " + std::to_string(seed) + ":";
    for (int i = 0; i < 100; ++i) {
        const auto& [name, step] = kSteps[keeper.below(std::size(kSteps))];
        const bool faulty = keeper.dying = keeper.below(3) == 0;
        road.append(" ").append(name).append(faulty ? "!" : "");
        {
            FaultyFileOps ops;
            if (faulty) ops.changesLeft = static_cast<int>(keeper.below(12));
            ops.tearLast = faulty && keeper.below(2) == 0;
            const ScopedFileOps scope(ops);
            if (!faulty || step != &Keeper::openAny) (keeper.*step)();
        }
        if (faulty) keeper.openAny();  // the process died
        const auto& now = keeper.keysIn(keeper.path);
        ASSERT_TRUE(now) << road;
        std::set<KeyId> reachable = *now;
        for (const FormerFile& former : historyOf(keeper.path)) {
            const auto& kept = keeper.keysIn(former.path);
            ASSERT_TRUE(kept) << former.name << road;
            reachable.insert(kept->begin(), kept->end());
        }
        ASSERT_TRUE(std::ranges::includes(reachable, keeper.saved)) << road;
    }
}

/// As if an authority had issued it; nobody looks at the signature here. Without a keyUsage it serves the key's role.
CertPtr certificateFor(const Signer& key, const char* like = "plain") {
    SignedCertificate certificate;
    EXPECT_TRUE(certificate.readExactly(asBytes(readFile(dataFile(std::string("crt_") + like + ".der")))));
    certificate.tbs.subjectPublicKeyInfo = SubjectPublicKeyInfo(key.publicKey());
    return makeCert(certificate.encoded());
}

struct Replacement {
    const char* name;
    KeyType use;
    const char* before;  ///< the key in use
    KeyScheme successor;
    KeyRole after;  ///< what the successor then does
};
constexpr Replacement kReplacements[] = {
    {"both, RSA by RSA", KeyType::Both, "rsa1", KeyScheme::Rsa, KeyRole::Both},
    {"both, RSA by ECDSA", KeyType::Both, "rsa1", KeyScheme::Ecdsa, KeyRole::Signing},
    {"signing, RSA by ECDSA", KeyType::Signing, "rsa1", KeyScheme::Ecdsa, KeyRole::Signing},
    {"signing, ECDSA by RSA-PSS", KeyType::Signing, "ec", KeyScheme::RsaPss, KeyRole::Signing},
    {"decryption, RSA by RSA", KeyType::Encryption, "rsa1", KeyScheme::Rsa, KeyRole::Encryption},
};

KeyManagerResult generateSuccessor(KeyManager& keys, const Replacement& how) {
    KeyGenHooks hooks;
    hooks.successor = true;
    constexpr unsigned kBits = 2048;
    return isRsa(how.successor) ? keys.generateRsaUserKey(how.use, 65537, kBits, how.successor, hooks)
                                : keys.generateECDsaUserKey(how.use, kDefaultCurve, false, hooks);
}

KeyManagerResult installFor(KeyManager& keys, const CertPtr& certificate) {
    const KeyManagerResult installed = keys.installUserCrt(certificate);
    return installed == kKmOk ? keys.saveConfiguration() : installed;
}

struct KeyReplacementTest : KeyStoreTest {
    /// Runs the steps with the process dying at each change of the disk in turn. After each death a reader must find
    /// the key that signs, certified, and one that decrypts where there was one.
    void dieEverywhere(const std::function<bool(Session&)>& steps, bool decrypts) {
        const std::string start = readFile(path);
        bool died = true;
        for (int n = 0; died; ++n) {
            SCOPED_TRACE(n);
            writeFile(path, start);
            Session writer(path), reader(path);
            {
                FaultyFileOps ops;
                const ScopedFileOps scope(ops);
                ASSERT_EQ(writer.login(), kKmOk);
                ops.changesLeft = n;
                died = !steps(writer);
            }
            ASSERT_EQ(reader.keys.initProfile(kReadOnlyMode, false), kKmOk);
            ASSERT_TRUE(reader.keys.signingCertificate());
            ASSERT_EQ(reader.keys.encryptionKey() != nullptr, decrypts);
        }
    }
};

TEST_F(KeyReplacementTest, NoMomentOfAReplacementIsWithoutItsKeys) {
    for (const Replacement& how : kReplacements) {
        SCOPED_TRACE(how.name);
        std::filesystem::remove(path);
        session.create();
        if (how.use == KeyType::Encryption) {
            ASSERT_EQ(keys.addNewKey(KeyType::Signing, sharedKey("ec")), kKmOk);
        }
        ASSERT_EQ(keys.addNewKey(how.use, sharedKey(how.before)), kKmOk);
        const KeyId old = testKey(how.before).keyId();
        for (const StoredKey& key : std::vector(keys.keys().begin(), keys.keys().end()))
            ASSERT_EQ(installFor(keys, certificateFor(*key.key)), kKmOk);
        ASSERT_EQ(generateSuccessor(keys, how), kKmOk);
        const StoredKey waiting = *keys.successorOf(how.use);
        Session other(path);
        ASSERT_EQ(other.login(), kKmOk) << "it holds the old key in memory";
        const bool decrypts = how.use != KeyType::Signing;
        const bool decryptsAfter = decrypts && shares(how.after, KeyRole::Encryption);
        // The old key may go only when nothing is enciphered for it any more, so here it stays until the end.
        // Another session saves in between what it has: the successor with its mark.
        const auto install = [&](Session& writer) {
            return (&how != kReplacements || other.keys.saveConfiguration() == kKmOk) &&
                   installFor(writer.keys, certificateFor(*waiting.key)) == kKmOk;
        };
        dieEverywhere(install, decrypts);
        Session after(path);
        ASSERT_EQ(after.login(), kKmOk);
        const auto roleOfKey = [](Session& from, const KeyId& id) {
            const auto all = from.keys.keys();
            const auto found = std::ranges::find(all, id, [](const StoredKey& key) { return key.key->keyId(); });
            return found == all.end() ? std::nullopt : std::optional(found->role);
        };
        EXPECT_EQ(roleOfKey(after, waiting.key->keyId()), how.after);
        EXPECT_EQ(roleOfKey(after, old), without(roleOf(how.use), how.after));
        EXPECT_FALSE(after.keys.successorOf(how.use));
        EXPECT_EQ(after.keys.signingKeyType() == KeyScheme::RsaPss, how.successor == KeyScheme::RsaPss);
        if (decryptsAfter == decrypts)
            dieEverywhere([&](Session& writer) { return writer.keys.deleteKey(old) == kKmOk; }, decrypts);
        other.editRecord().setIntOpt(kOptConnectTimeout, 7);
        ASSERT_EQ(other.keys.saveConfiguration(), kKmOk);
        EXPECT_EQ(roleOfKey(other, waiting.key->keyId()), how.after) << "an old session leaves the roles";
        for (const StoredKey& key : other.keys.keys()) EXPECT_TRUE(key.bagAttributes.empty()) << "a mark is left";
        EXPECT_EQ(roleOfKey(other, old).has_value(), decryptsAfter != decrypts)
            << "and does not bring the old key back";
    }
}

TEST_F(KeyReplacementTest, ACertificateGivesNoMoreThanTheKeyBeforeDid) {
    create({{KeyType::Signing, "rsa2"}, {KeyType::Encryption, "rsa1"}});
    ASSERT_EQ(installFor(keys, certificateFor(*sharedKey("rsa2"))), kKmOk);
    ASSERT_EQ(generateSuccessor(keys, kReplacements[3]), kKmOk);
    const SignerPtr waiting = keys.successorOf(KeyType::Signing)->key;
    ASSERT_EQ(installFor(keys, certificateFor(*waiting, "both")), kKmOk);
    EXPECT_EQ(keys.signingKey()->keyId(), waiting->keyId());
    EXPECT_EQ(keys.encryptionKey()->keyId(), testKey("rsa1").keyId());
}

TEST_F(KeyReplacementTest, AWaitingKeyIsNeverForgotten) {
    create({{KeyType::Signing, "ec"}, {KeyType::Encryption, "rsa1"}});
    const KeyId old = testKey("rsa1").keyId();
    ASSERT_EQ(installFor(keys, certificateFor(*sharedKey("ec"))), kKmOk);
    ASSERT_EQ(installFor(keys, certificateFor(*sharedKey("rsa1"), "ca")), kKmOk);
    const CertPtr before = keys.encryptionCertificate();
    ASSERT_TRUE(before);
    ASSERT_EQ(generateSuccessor(keys, kReplacements[4]), kKmOk);
    const SignerPtr waiting = keys.successorOf(KeyType::Encryption)->key;
    // A certificate for signing is no end of the waiting of a key that is to decrypt.
    ASSERT_EQ(installFor(keys, certificateFor(*waiting, "sign")), kKmOk);
    ASSERT_TRUE(keys.successorOf(KeyType::Encryption));
    EXPECT_EQ(keys.encryptionKey()->keyId(), old);
    // The key in use goes before the other one is certified: that one takes its place, and at no moment is there none.
    dieEverywhere([&](Session& writer) { return writer.keys.deleteKey(old) == kKmOk; }, true);
    ASSERT_EQ(session.login(), kKmOk);
    EXPECT_EQ(keys.encryptionKey()->keyId(), waiting->keyId());
    Bytes octets;
    ASSERT_EQ(prepareCrtRequest(keys, KeyType::Encryption, {.format = RequestFormat::Der}, octets), kKmOk);
    CertificationRequest request;
    ASSERT_TRUE(request.readExactly(octets));
    EXPECT_EQ(request.info.subject, before->subject());
    SignedCertificate own;
    ASSERT_TRUE(own.readExactly(encodingOf(*certificateFor(*waiting, "enc"))));
    own.tbs.validity = certificateFor(*waiting, "sign_newer")->tbs.validity;
    ASSERT_EQ(installFor(keys, makeCert(own.encoded())), kKmOk);
    for (const StoredKey& key : keys.keys()) EXPECT_FALSE(predecessorCertificate(key));
    EXPECT_EQ(keys.signingKey()->keyId(), testKey("ec").keyId());
    // Imports and restores leave a key that signs at every moment, too.
    const PrivateKey more = testKey("rsa2");
    dieEverywhere([&](Session& writer) { return writer.keys.importKey(more, KeyRole::Signing, {}) == kKmOk; }, true);
    const std::string former = historyOf(path).back().name;
    const auto putBack = [&](Session&) {
        try {
            restoreFormerFile(path, former, SecretText(kPassword));
        } catch (const OpError&) {
            return false;
        }
        return true;
    };
    dieEverywhere(putBack, true);
}

}  // namespace
}  // namespace crv::test
