// Profiles on tokens: SoftHSM, and the mock module where a token has to misbehave.
#include <sys/wait.h>

#include <functional>

#include "asn/pkcs/signed_data.h"
#include "asn/x509/signed_certificate.h"
#include "corvane/crvprofile.h"
#include "crypto/crypto_error.h"
#include "key_store_session.h"
#include "keystore/crt_request.h"
#include "keystore/key_store_door.h"
#include "keystore/token_key.h"
#include "pkcs11/p11_library.h"
#include "profiles/profile_kinds.h"
#include "support/soft_hsm.h"

namespace crv::test {
namespace {

const std::string kCard = "karta";

using Attributes = std::vector<std::pair<long, std::string>>;

/// A session with a token profile.
struct TokenStore {
    explicit TokenStore(const Attributes& more = {}, const char* pin = SoftHsm::kPin) {
        auto record = std::make_unique<Pkcs11Profile>();
        record->setAttr(CRVPROFILE_ATTR_PKCS11_LIBRARY, SoftHsm::mock());
        record->setAttr(CRVPROFILE_ATTR_PKCS11_KEEP_SESSION_OPEN, 1L);
        for (const auto& [id, value] : more) record->setAttr(id, value);
        context.configuration().setProfile(std::move(record));
        keys.init(context);
        if (pin) context.pins[PinSlot::SigningToken] = SecretText(pin);
    }
    KeyManagerResult login() {
        const KeyManagerResult started = keys.deviceInit();
        return started == kKmOk ? keys.initProfile(0, false) : started;
    }
    /// A change that a save brings to the token.
    KeyManagerResult save(long value) {
        context.configuration().editRecord().setIntOpt(17, value);
        return keys.saveConfiguration();
    }
    long saved() {
        keys.deinitProfile();
        context.pins[PinSlot::SigningToken] = SecretText(SoftHsm::kPin);
        EXPECT_EQ(login(), kKmOk);
        return context.configuration().record().getIntOpt(17);
    }
    KeyManagerResult sign() {
        try {
            static_cast<void>(
                keys.signingKey()->signMessage(KeyScheme::Rsa, KcHashAlgo::Sha256, asBytes("abc"), keys.random()));
            return kKmOk;
        } catch (const TokenFailure& failure) {
            return failure.result();
        }
    }

    TestContext context;
    KeyManager keys;
};

struct TokenTest : testing::Test {
    void TearDown() override { hsm.script(""); }
    /// A token with a key that signs.
    void prepare(const std::string& label = kCard) {
        hsm.initToken(label);
        hsm.generateKey(label, "rsa:2048", "01", "--usage-sign");
    }
    static std::string attribute(const std::string& label) { return label + std::string(32 - label.size(), ' '); }

    SoftHsm hsm;
};

int inFork(const std::function<bool()>& work) {
    const pid_t pid = fork();
    if (pid == 0) _exit(work() ? 0 : 1);
    int status = -1;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST_F(TokenTest, AKeyMadeOnTheTokenIsCertifiedAndFoundAgain) {
    hsm.initToken(kCard);
    TokenStore store;
    ASSERT_EQ(store.login(), kKmOk) << "a token without keys";
    EXPECT_FALSE(store.keys.hasAnyKey());
    EXPECT_TRUE(store.keys.keyLimits(KeyType::Both)->generates);
    ASSERT_EQ(store.save(40), kKmOk) << "unsigned, as nothing signs yet";
    ASSERT_EQ(store.keys.generateRsaUserKey(KeyType::Both, 65537, 2048, KeyScheme::Rsa), kKmOk);
    Bytes request;
    ASSERT_EQ(prepareCrtRequest(store.keys, KeyType::Both, {}, request), kKmOk);
    writeFile(hsm.dir().file("req"), std::string(asText(request)));
    const std::string ca = "cd " + hsm.dir().path().string() + " && openssl ";
    EXPECT_NE(shell(ca + "req -verify -noout -in req").find("verify OK"), std::string::npos);
    shell(ca +
          "req -x509 -newkey rsa:2048 -nodes -keyout ca.key -out ca.pem -subj /CN=CA && openssl x509 -req -in req "
          "-CA ca.pem -CAkey ca.key -CAcreateserial -outform DER -out crt.der");
    const CertPtr certificate = makeCert(asBytes(readFile(hsm.dir().file("crt.der"))));
    ASSERT_EQ(store.keys.installUserCrt(certificate), kKmOk);
    ASSERT_EQ(store.keys.saveConfiguration(), kKmOk);
    const std::string objects = hsm.tool(kCard, "-O");
    int same = 0;
    for (size_t at = objects.find("ID:"); at != std::string::npos; at = objects.find("ID:", at + 1))
        same += objects.compare(at, 52, objects, objects.find("ID:"), 52) == 0;
    EXPECT_EQ(same, 3) << objects;

    TokenStore again;
    ASSERT_EQ(again.login(), kKmOk);
    EXPECT_EQ(again.context.configuration().record().getIntOpt(17), 40);
    ASSERT_TRUE(again.keys.signingCertificate());
    EXPECT_EQ(again.keys.signingKey(), again.keys.encryptionKey());
    EXPECT_EQ(again.keys.signingKey()->keyId(), certificate->computeKeyIdentifierSha1Hash());
}

TEST_F(TokenTest, EveryMechanismSignsAndDecrypts) {
    hsm.initToken(kCard);
    hsm.generateKey(kCard, "rsa:2048", "01");
    hsm.initToken("ec");
    hsm.generateKey("ec", "EC:prime256v1", "02");
    const struct {
        const char* card;
        const char* hidden;  // mechanisms that the token then lacks
        KeyScheme scheme;
        KcHashAlgo hash;
        bool possible;
    } rows[] = {
        {"karta", "", KeyScheme::Rsa, KcHashAlgo::Sha3256, true},
        {"karta", "0x1", KeyScheme::Rsa, KcHashAlgo::Sha512, true},
        {"karta", "0x9", KeyScheme::Rsa, KcHashAlgo::Sha1, true},
        {"karta", "0x1", KeyScheme::Rsa, KcHashAlgo::Sha3256, false},
        {"karta", "", KeyScheme::RsaPss, KcHashAlgo::Sha256, true},
        {"karta", "0xd", KeyScheme::RsaPss, KcHashAlgo::Sha384, true},
        {"karta", "", KeyScheme::RsaPss, KcHashAlgo::Sha3256, true},
        {"ec", "", KeyScheme::Ecdsa, KcHashAlgo::Sha512, true},
    };
    for (const auto& row : rows) {
        TokenStore store({{CRVPROFILE_ATTR_SKEY_TOK, attribute(row.card)}});
        hsm.script(*row.hidden ? std::string("C_GetMechanismInfo * hide ") + row.hidden : "");
        ASSERT_EQ(store.login(), kKmOk);
        const Signer& key = *store.keys.signingKey();
        const auto sign = [&] { return key.signMessage(row.scheme, row.hash, asBytes("abc"), store.keys.random()); };
        if (row.possible) {
            EXPECT_TRUE(key.publicKey().verify(row.scheme, row.hash, hashOf(row.hash, asBytes("abc")), sign()));
        } else {
            EXPECT_THROW(sign(), CryptoError);
        }
        if (!isRsa(row.scheme)) {
            const auto other = PrivateKey::generateEc(StdECId::P256, false, store.keys.random());
            EXPECT_EQ(key.agree(other.publicKey()), other.agree(key.publicKey()));
            continue;
        }
        // Without CKM_RSA_PKCS, and for a hash that PKCS#11 does not name, the padding is taken off here.
        for (const auto& [padding, oaep] :
             {std::pair{RsaPadding::Pkcs1, OaepParams{}}, {RsaPadding::Oaep, OaepParams{}}}) {
            const Bytes enciphered = key.publicKey().encrypt(padding, asBytes("tajne"), oaep);
            EXPECT_EQ(asText(key.decrypt(padding, enciphered, oaep)), "tajne") << row.hidden;
            Bytes wrong = enciphered;
            wrong[100] ^= 1;
            EXPECT_THROW(static_cast<void>(key.decrypt(padding, wrong, oaep)), CryptoError);
        }
    }
}

TEST_F(TokenTest, TokensAndKeysAreFoundByWhatTheProfileSays) {
    hsm.initToken(kCard);
    hsm.generateKey(kCard, "EC:secp384r1", "01");
    hsm.generateKey(kCard, "rsa:2048", "02");
    prepare("druga");
    hsm.initToken("pusta");
    hsm.initToken("para");
    for (const char* id : {"0a", "0b"}) hsm.generateKey("para", "EC:prime256v1", id);
    hsm.initToken("blizna");
    hsm.initToken("blizna");
    const auto card = [](const char* label) {
        return std::pair<long, std::string>(CRVPROFILE_ATTR_SKEY_TOK, attribute(label));
    };
    const struct {
        Attributes profile;
        KeyManagerResult result;
        size_t keys;
        int signs;  // CKA_ID of the key
        int decrypts;
    } rows[] = {
        {{card("karta")}, kKmOk, 2, 1, 2},
        {{card("karta"), {CRVPROFILE_ATTR_SKEY_ID, "\x03"}}, kKmTokenKeyNotFound, 0, 0, 0},
        {{card("karta"), {CRVPROFILE_ATTR_DKEY_ID, "\x02"}}, kKmOk, 2, 1, 2},
        {{card("pusta")}, kKmOk, 0, 0, 0},
        {{card("nieznana")}, kKmCardNotFound, 0, 0, 0},
        {{card("blizna")}, kKmManyCards, 0, 0, 0},
        {{card("para")}, kKmRoleTaken, 0, 0, 0},
        {{card("para"), {CRVPROFILE_ATTR_SKEY_ID, "\x0b"}}, kKmOk, 2, 11, 0},
        {{{CRVPROFILE_ATTR_SKEY_ID, "\x0b"}}, kKmOk, 2, 11, 0},
        {{card("karta"), {CRVPROFILE_ATTR_CERT_FILTER, "jan"}}, kKmCardNotFound, 0, 0, 0},
        {{card("karta"), {CRVPROFILE_ATTR_READER_NAME, "inny"}}, kKmCardNotFound, 0, 0, 0},
        {{card("blizna"), {CRVPROFILE_ATTR_DKEY_TOK, attribute("karta")}}, kKmManySigningCards, 0, 0, 0},
        {{card("karta"), {CRVPROFILE_ATTR_DKEY_TOK, attribute("blizna")}}, kKmManyDecryptionCards, 0, 0, 0},
        {{{CRVPROFILE_ATTR_PKCS11_LIBRARY, "/no/such.so"}}, kKmPkcs11Init, 0, 0, 0},
    };
    const auto idOf = [](const Signer* key) { return key ? dynamic_cast<const TokenKey&>(*key).facts().id.at(0) : 0; };
    for (const auto& row : rows) {
        TokenStore store(row.profile);
        SCOPED_TRACE(row.profile.front().second + (row.profile.size() > 1 ? row.profile[1].second : ""));
        EXPECT_EQ(store.login(), row.result);
        EXPECT_EQ(store.keys.keys().size(), row.keys);
        EXPECT_EQ(idOf(store.keys.signingKey()), row.signs);
        EXPECT_EQ(idOf(store.keys.encryptionKey()), row.decrypts);
    }
}

TEST_F(TokenTest, PinsAreSentOnceAndOnlyWhenTheTokenTakesThem) {
    prepare();
    hsm.initToken("druga", "98765");
    hsm.generateKey("druga", "rsa:2048", "02");
    const Attributes one{{CRVPROFILE_ATTR_SKEY_TOK, attribute(kCard)}};
    const struct {
        const char* script;
        const char* pin;
        KeyManagerResult result;
        int logins;
        int external;
    } rows[] = {
        {"", "1234", kKmOk, 1, 0},
        {"", "4321", kKmWrongPassword, 1, 0},
        {"", "1", kKmWrongPassword, 0, 0},
        {"", nullptr, kKmCancelled, 0, 0},
        {"C_GetTokenInfo * flags 0x40000", "1234", kKmCardBlocked, 0, 0},
        {"C_GetTokenInfo * flags 0x20000", "1234", kKmCancelled, 0, 0},
        {"C_GetTokenInfo * flags 0x10000", "1234", kKmOk, 1, 0},
        {"C_GetTokenInfo * flags 0x100", nullptr, kKmOk, 0, 1},
        {"C_Login * rv 0xA4", "1234", kKmCardBlocked, 1, 0},
        {"C_Login * rv 0x50", "1234", kKmCancelled, 1, 0},
        {"C_Login * rv 0x100", "1234", kKmOk, 1, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.script) + " " + (row.pin ? row.pin : "-"));
        TokenStore store(one, row.pin);
        store.context.takesRisk = false;
        hsm.script(row.script);
        EXPECT_EQ(store.login(), row.result);
        EXPECT_EQ(hsm.calls("C_Login"), row.logins);
        EXPECT_EQ(hsm.calls("C_Login null"), row.external);
    }
    // Two tokens, and a session that is opened anew for each operation.
    TokenStore store({{CRVPROFILE_ATTR_SKEY_TOK, attribute(kCard)}, {CRVPROFILE_ATTR_DKEY_TOK, attribute("druga")}});
    store.context.pins[PinSlot::DecryptionToken] = SecretText("98765");
    hsm.script("");
    ASSERT_EQ(store.login(), kKmOk);
    EXPECT_EQ(hsm.calls("C_Login"), 2);
    EXPECT_EQ(store.sign(), kKmOk);
    const Bytes enciphered = store.keys.encryptionKey()->publicKey().encrypt(RsaPadding::Pkcs1, asBytes("tajne"));
    EXPECT_EQ(asText(store.keys.encryptionKey()->decrypt(RsaPadding::Pkcs1, enciphered)), "tajne");
    EXPECT_EQ(hsm.calls("C_Login"), 2);
    TokenStore closing({{CRVPROFILE_ATTR_SKEY_TOK, attribute(kCard)}, {CRVPROFILE_ATTR_PKCS11_KEEP_SESSION_OPEN, "0"}});
    hsm.script("");
    ASSERT_EQ(closing.login(), kKmOk);
    EXPECT_EQ(hsm.calls("C_Login"), 1) << "opening is one operation";
    closing.context.pins[PinSlot::SigningToken] = SecretText("4321");
    EXPECT_EQ(closing.sign(), kKmWrongPassword);
    EXPECT_EQ(closing.sign(), kKmWrongPassword);
    EXPECT_EQ(hsm.calls("C_Login"), 2) << "a PIN that was refused is not sent again";
}

TEST_F(TokenTest, ASafeProfileIsLoggedInToWhenItHasTo) {
    prepare("Profil bezpieczny");
    TokenStore store({}, nullptr);
    hsm.script("");
    ASSERT_EQ(store.login(), kKmOk);
    EXPECT_TRUE(store.keys.signingKey()) << "by its public half";
    EXPECT_EQ(store.sign(), kKmCancelled);
    EXPECT_EQ(hsm.calls("C_Login"), 0);
    store.context.pins[PinSlot::SigningToken] = SecretText(SoftHsm::kPin);
    EXPECT_EQ(store.save(3), kKmOk);
    EXPECT_EQ(hsm.calls("C_Login"), 1);
    store.context.configuration().editRecord().setIntOpt(46, 1);
    EXPECT_EQ(store.login(), kKmOk);
}

TEST_F(TokenTest, AKeyThatWantsItsPinEachTimeGetsIt) {
    hsm.initToken(kCard);
    hsm.generateKey(kCard, "rsa:2048", "01", "--usage-sign --always-auth");
    TokenStore store;
    ASSERT_EQ(store.login(), kKmOk);
    const std::pair<const char*, KeyManagerResult> pins[] = {
        {nullptr, kKmNoSigningKeyPin}, {"9999", kKmWrongSigningKeyPin}, {SoftHsm::kPin, kKmOk}};
    for (const auto& [pin, result] : pins) {
        if (pin) store.context.pins[PinSlot::SigningKey] = SecretText(pin);
        EXPECT_EQ(store.sign(), result);
    }
}

TEST_F(TokenTest, ATokenThatWasTakenOutIsFoundAgainOrMissed) {
    prepare();
    const std::string tokens = hsm.dir().file("tokens"), away = hsm.dir().file("away");
    TokenStore store;
    ASSERT_EQ(store.login(), kKmOk);
    ASSERT_EQ(store.sign(), kKmOk);
    // Out and in again between two operations.
    hsm.script("C_SignInit 1 rv 0x32");
    EXPECT_EQ(store.sign(), kKmOk);
    hsm.script("C_CreateObject 1 rv 0x30");
    EXPECT_EQ(store.save(31), kKmOk);
    hsm.script("");
    shell("mv " + tokens + " " + away + " && mkdir " + tokens);
    EXPECT_EQ(store.sign(), kKmCardNotFound);
    EXPECT_EQ(store.save(32), kKmCardNotFound);
    shell("rmdir " + tokens + " && mv " + away + " " + tokens);
    EXPECT_EQ(store.saved(), 31);
    EXPECT_EQ(store.sign(), kKmOk);
    hsm.deleteToken(kCard);
    EXPECT_EQ(store.save(33), kKmCardNotFound);
    prepare();
    EXPECT_EQ(store.sign(), kKmCardNotFound) << "of the same label, but another one";
    EXPECT_EQ(store.saved(), 30) << "a new log-in takes it";
    EXPECT_EQ(store.sign(), kKmOk);
}

using SlowTokenTest = TokenTest;
TEST_F(SlowTokenTest, TheRecordIsTheOldOrTheNewOneWhereverASaveEnds) {
    prepare();
    {
        TokenStore store;
        ASSERT_EQ(store.login(), kKmOk);
        ASSERT_EQ(store.save(1), kKmOk);
    }
    long before = 1;
    bool ended = false;
    for (int call = 1; !ended; ++call) {
        Pkcs11LibraryManager::instance().unloadHandles();
        const int status = inFork([&] {
            TokenStore store;
            if (store.login() != kKmOk) return false;
            hsm.script("* " + std::to_string(call) + " kill");
            return store.save(call + 1) == kKmOk;
        });
        hsm.script("");
        ended = status == 0;
        TokenStore store;
        const long now = store.saved();
        EXPECT_TRUE(now == before || now == call + 1) << call;
        before = 1000 + call;
        ASSERT_EQ(store.save(before), kKmOk) << "clears up what was left";
        ASSERT_LT(call, 200);
    }
    EXPECT_GT(before, 1010) << "a save makes more calls than that";
    EXPECT_EQ(hsm.tool(kCard, "-O --type data").find("konfiguracja"),
              hsm.tool(kCard, "-O --type data").rfind("konfiguracja"));
}

TEST_F(TokenTest, ARecordThatIsFullForgedOrIgnored) {
    prepare();
    TokenStore store;
    ASSERT_EQ(store.login(), kKmOk);
    ASSERT_EQ(store.save(7), kKmOk);
    hsm.script("C_CreateObject * rv 0x31");
    EXPECT_EQ(store.save(8), kKmCardFileSystem);
    hsm.script("");
    EXPECT_EQ(store.saved(), 7);
    TokenStore ignoring({{CRVPROFILE_ATTR_IGNORE_SFT_FILE, "1"}});
    ASSERT_EQ(ignoring.login(), kKmOk);
    EXPECT_EQ(ignoring.save(9), kKmOk);
    EXPECT_EQ(store.saved(), 7);
    // Two sessions: what either changed is there.
    TokenStore other;
    ASSERT_EQ(other.login(), kKmOk);
    other.context.configuration().editRecord().setIntOpt(39, 5);
    ASSERT_EQ(other.keys.saveConfiguration(), kKmOk);
    ASSERT_EQ(store.save(11), kKmOk);
    EXPECT_EQ(other.saved(), 11);
    EXPECT_EQ(other.context.configuration().record().getIntOpt(39), 5);
    store.keys.deinitProfile();
    const std::string objects = hsm.tool(kCard, "-O --type data");
    const std::string label = objects.substr(objects.find("konfiguracja"), 14);
    writeFile(hsm.dir().file("record"), std::string("\x30\0", 2));
    hsm.tool(kCard, "--delete-object --type data --label '" + label.substr(0, label.find('\'')) + "'");
    hsm.tool(kCard, "--write-object " + hsm.dir().file("record") +
                        " --type data --private --application-label Corvane --application-id 1.3.6.1.4.1.32473.2.7.1 "
                        "--label 'konfiguracja 99'");
    TokenStore victim;
    EXPECT_EQ(victim.login(), kKmConfigurationSignature) << hsm.tool(kCard, "-O --type data");
}

TEST_F(TokenTest, LiesEndInACodeAndNeverHang) {
    prepare();
    const std::pair<const char*, KeyManagerResult> lies[] = {
        {"C_GetSlotList * lie", kKmCardNotFound},
        {"C_GetSlotList * rv 0x150", kKmCardNotFound},
        {"C_GetTokenInfo * lie", kKmOk},
        {"C_FindObjects * lie", kKmCardError},
        {"C_GetAttributeValue * lie", kKmOk},
        {"C_OpenSession * rv 0x5", kKmCardError},
        {"C_FindObjectsInit * rv 0x2", kKmNoMemory},
        {"C_GenerateRandom * rv 0x5", kKmCardError},
        {"C_GetTokenInfo * rv 0xE0", kKmCardNotFound},
    };
    for (const auto& [script, result] : lies) {
        TokenStore store;
        hsm.script(script);
        EXPECT_EQ(store.login(), result) << script;
    }
    hsm.script("");
    TokenStore store;
    ASSERT_EQ(store.login(), kKmOk);
    hsm.script("C_Sign * lie");
    EXPECT_EQ(store.sign(), kKmCardError) << "a signature that does not verify";
    EXPECT_EQ(store.save(5), kKmCardError);
    hsm.script("");
    EXPECT_EQ(inFork([&] { return store.sign() == kKmOk; }), 0) << "a forked process";
    EXPECT_EQ(store.sign(), kKmOk);
}

}  // namespace
}  // namespace crv::test
