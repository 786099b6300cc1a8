// Memory that runs out at every allocation of every call: an answer, no crash, no lock left, no password left.
#include <gtest/gtest.h>
#include <openssl/err.h>
#include <openssl/x509.h>

#include <cstdio>
#include <functional>
#include <thread>

#include "api/file_profile.h"
#include "crypto/cipher.h"
#include "crypto/pbe.h"
#include "crypto/sign_algo_map.h"
#include "misc/aside.h"
#include "misc/file_semaphore.h"
#include "ops/database_files.h"
#include "ops/installation.h"
#include "support/cert_maker.h"

extern "C" void failAllocation(long n, int forEver);
extern "C" int allocationFailed(void);

namespace crv::test {
namespace {

long sizeOf(const Bytes& octets) {
    return static_cast<long>(octets.size());
}

/// A profile with a key for everything, certified by an authority that is trusted.
class SlowAllocation : public FileProfile {
  protected:
    SlowAllocation() {
        threadsMayStart = false;  // allocations are counted, and fail, on this one
        auto made = std::make_unique<CRVctx>();
        create(*made);
        KeyManager& keys = made->keyManager;
        EXPECT_EQ(keys.generateRsaUserKey(KeyType::Both, 65537, 2048, KeyScheme::Rsa), kKmOk);
        const Bytes spki = keys.signingKey()->publicKey().toSpki();
        const unsigned char* at = spki.data();
        const TestKey key(d2i_PUBKEY(nullptr, &at, sizeOf(spki)), EVP_PKEY_free);
        leaf_ = makeCert({.subject = {{"CN", "Jan"}}, .serial = "07"}, &root_, key).der;
        EXPECT_EQ(keys.installUserCrt(crv::makeCert(leaf_)), kKmOk);
        EXPECT_EQ(keys.addTrustedCA(crv::makeCert(root_.der)), kKmOk);
        EXPECT_EQ(keys.saveConfiguration(), kKmOk);
        EXPECT_TRUE(made->certificateManager.db().insert(leaf_));
        profile_->saveProfile(ProfileMedia::File, list_);
    }

    /// Nobody holds the lock of the key store.
    [[nodiscard]] bool lockIsFree() const {
        bool free = false;
        std::thread([&] {
            FileSemaphore lock(dir_.file("keys.p12.lck"));
            free = lock.pCond(kExclusiveLock) != 0;
        }).join();
        return free;
    }

    void begin() {
        ASSERT_EQ(crvInitExAPI(&ctx_, CRVPROFILE_MEDIA_FILE, list_.c_str(), "Ala"), 0);
        ASSERT_EQ(crvStorePINUtf8API(ctx_, CRVPIN_SIGNING_TOKEN, "Tajne123"), 0);
        ASSERT_EQ(crvAuthenticateExAPI(ctx_, 0), 0);
    }

    /// Runs the call with the n-th allocation failing, alone or with all behind it, until it does not need so many: the
    /// last time it must succeed, whatever failed before. `skip`: the smaller, the larger the steps.
    void sweep(
        const char* name, const std::function<int()>& call, const std::function<void()>& prepare = [] {},
        long skip = 5000) {
        for (int forEver : {0, 1}) {
            long n = 1;
            for (bool failed = true; failed; n += 1 + n / skip) {
                prepare();
                if (HasFailure()) return;
                failAllocation(n, forEver);
                const int code = call();
                failed = allocationFailed() != 0;
                ASSERT_TRUE(failed || code < 20)
                    << name << ' ' << n << ": " << code << (ctx_ ? crvErrorTextAPI(ctx_, code) : "");
                ASSERT_GE(code, 0) << name << ' ' << n;
                ASSERT_TRUE(code < 20 || code == ECRV_MEM || code == ECRV_DB) << name << ' ' << n << ": " << code;
                ERR_clear_error();
                ASSERT_TRUE(lockIsFree()) << name << ' ' << n;
            }
            std::printf("%s%s: %ld allocations\n", name, forEver != 0 ? ", for ever" : "", n - 1);
        }
    }

    void setPin() const { ASSERT_EQ(crvStorePINUtf8API(ctx_, CRVPIN_SIGNING_TOKEN, "Tajne123"), 0); }

    const MadeCert root_ = makeCert({.subject = {{"CN", "Korzeń"}}, .extensions = caExtensions()});
    Bytes leaf_;
    const std::string list_ = dir_.file("list.conf");
    CRVctx* ctx_ = nullptr;
};

TEST_F(SlowAllocation, FailsWithAnAnswerInEveryCall) {
    const auto pin = [&] { setPin(); };
    CRVctx* other = nullptr;
    sweep("init", [&] {
        const int code = crvInitExAPI(&other, CRVPROFILE_MEDIA_FILE, list_.c_str(), "Ala");
        return other ? crvDeinitExAPI(other) : code;
    });
    begin();
    sweep(
        "authenticate", [&] { return crvAuthenticateExAPI(ctx_, 0); }, pin);
    pin();
    ASSERT_EQ(crvAuthenticateExAPI(ctx_, 0), 0);
    sweep("options", [&] {
        const int code = crvSetTextOptionAPI(ctx_, CRVOPT_TEXT_36, "tekst, der nicht in den kleinen Puffer passt");
        return code != 0 ? code : crvSetOptionAPI(ctx_, CRVOPT_CONNECT_TIMEOUT, 7);
    });
    sweep(
        "save", [&] { return crvSaveConfigurationAPI(ctx_); }, pin);
    sweep("keys", [&] {
        CrvKeyIterator* keys = nullptr;
        const int code = crvGetKeyIteratorAPI(ctx_, nullptr, &keys);
        return crvFreeKeyIteratorAPI(ctx_, keys), code;
    });
    CrvCert* cert = nullptr;
    ASSERT_EQ(crvGetUserCertAPI(ctx_, CRVKEY_USE_SIGN, &cert), 0);
    sweep("attributes", [&] {
        char value[4096];
        for (long id = 0; id <= CRVCERT_ATTR_PUBLIC_KEY; ++id) {
            long len = sizeof value;
            const int code = crvGetCertAttrAPI(ctx_, cert, id, value, &len);
            if (code != 0 && code != ECRV_ATTR_HAS_NO_VALUE) return code;
        }
        return 0;
    });
    sweep("find", [&] {
        CrvCertIterator* found = nullptr;
        const int code = crvFindCertsAPI(ctx_, nullptr, nullptr, &found);
        return crvFreeCertIteratorAPI(ctx_, found), code;
    });
    sweep("import", [&] { return crvImportCertsAPI(ctx_, root_.der.data(), sizeOf(root_.der), nullptr); });
    sweep("verify certificate", [&] {
        CrvVerifyResult* result = nullptr;
        const int code = crvVerifyCertAPI(ctx_, cert, nullptr, &result);
        return crvFreeVerifyResultAPI(ctx_, result), code;
    });
    sweep("trust points", [&] {
        CrvTrustPointIterator* at = nullptr;
        const int code = crvGetTrustPointIteratorAPI(ctx_, nullptr, &at);
        return crvFreeTrustPointIteratorAPI(ctx_, at), code;
    });
    unsigned char* octets = nullptr;
    long len = 0;
    sweep("request", [&] {
        const int code = crvPrepareCrtRequestAPI(ctx_, nullptr, &octets, &len);
        return crvFreeOctetsAPI(octets), code;
    });
    const Bytes content(100, 'a');
    sweep("sign", [&] {
        const int code = crvSignAPI(ctx_, content.data(), sizeOf(content), nullptr, &octets, &len);
        return crvFreeOctetsAPI(octets), code;
    });
    unsigned char *message = nullptr, *plain = nullptr;
    long messageLen = 0;
    ASSERT_EQ(crvSignAPI(ctx_, content.data(), sizeOf(content), nullptr, &message, &messageLen), 0);
    sweep("verify", [&] {
        CrvMessageVerdict* verdict = nullptr;
        const int code = crvVerifyAPI(ctx_, message, messageLen, nullptr, &plain, &len, &verdict);
        crvFreeOctetsAPI(plain);
        return crvFreeMessageVerdictAPI(ctx_, verdict), code;
    });
    crvFreeOctetsAPI(message);
    ASSERT_EQ(crvFreeCertAPI(ctx_, cert), 0);
    sweep(
        "deinit", [&] { return crvDeinitExAPI(ctx_); }, [&] { begin(); });
}

TEST_F(SlowAllocation, FailsWithAnAnswerInEveryCallThatWritesOrEnciphers) {
    constexpr long kLarge = 4;
    begin();
    const auto pin = [&] { setPin(); };
    const Bytes content(100, 'a');
    const CrvEncryptParams self{sizeof self, nullptr, 0, CRVENCRYPT_SELF | CRVENCRYPT_UNCHECKED, nullptr, 0};
    unsigned char *message = nullptr, *octets = nullptr;
    long messageLen = 0, len = 0;
    const auto encrypt = [&](unsigned char** to, long* size) {
        return crvEncryptAPI(ctx_, content.data(), sizeOf(content), &self, to, size);
    };
    sweep("encrypt", [&] {
        const int code = encrypt(&octets, &len);
        return crvFreeOctetsAPI(octets), code;
    });
    char drawn[8];
    sweep("random", [&] { return crvGetRandomAPI(ctx_, drawn, sizeof drawn); });
    ASSERT_EQ(encrypt(&message, &messageLen), 0);
    sweep("decrypt", [&] {
        const int code = crvDecryptAPI(ctx_, message, messageLen, &octets, &len, nullptr);
        return crvFreeOctetsAPI(octets), code;
    });
    crvFreeOctetsAPI(message);
    const Bytes crl = makeCrl({}, root_);
    sweep(
        "import CRL",
        [&] {
            const int code = crvImportCrlAPI(ctx_, crl.data(), sizeOf(crl), 0);
            return code == ECRV_OLD_CRL ? 0 : code;
        },
        [] {}, kLarge);
    const auto install = [&] {
        const int code = crvInstallUserCrtAPI(ctx_, leaf_.data(), sizeOf(leaf_), CRVINSTALL_ALL, nullptr);
        return code == ECRV_CRT_WITH_SUCH_USAGE_EXISTS ? 0 : code;
    };
    sweep("install", install, pin, kLarge);
    const auto change = [&] { return crvChangePasswordAPI(ctx_, "Tajne1234"); };
    const auto changeBack = [&] {
        crvStorePINUtf8API(ctx_, CRVPIN_SIGNING_TOKEN, "Tajne1234");
        if (crvChangePasswordAPI(ctx_, "Tajne123") != 0) setPin();
    };
    sweep("change password", change, changeBack, kLarge);
    changeBack();
    const MadeCert other = makeCert({.subject = {{"CN", "Inny"}}, .extensions = caExtensions()});
    CrvCertIterator* read = nullptr;
    CrvCert* cert = nullptr;
    ASSERT_EQ(crvReadCertsAPI(ctx_, other.der.data(), sizeOf(other.der), nullptr, &read), 0);
    ASSERT_EQ(crvGetNextCertAPI(ctx_, read, &cert), 0);
    const auto forget = [&] {
        setPin();
        crvDelTrustPointAPI(ctx_, cert);
        setPin();
    };
    sweep(
        "add trust point", [&] { return crvAddTrustPointAPI(ctx_, cert); }, forget, kLarge);
    ASSERT_EQ(crvFreeCertAPI(ctx_, cert) | crvFreeCertIteratorAPI(ctx_, read), 0);
    const auto deleteKeys = [&] {
        while (ctx_->keyManager.hasAnyKey()) {
            setPin();
            ASSERT_EQ(ctx_->keyManager.deleteKey(ctx_->keyManager.keys().front().key->keyId()), kKmOk);
        }
        setPin();
    };
    CrvKeyPlan plan{};
    plan.size = sizeof plan;
    plan.use = CRVKEY_USE_SIGN;
    plan.scheme = CRVSCHEME_ECDSA;
    sweep(
        "generate key", [&] { return crvGenerateKeyAPI(ctx_, &plan); }, deleteKeys, kLarge);
    const auto compact = [&]() -> int {
        CrtStore::Removed removed{};
        try {
            return ctx_->certificateManager.removeCertsOverTime(INT64_MAX, removed) ? 0 : ECRV_DB;
        } catch (const std::bad_alloc&) {
            return ECRV_MEM;
        }
    };
    const auto tell = [](const std::string& where, const std::string& what) { ADD_FAILURE() << where << ' ' << what; };
    const auto fillSound = [&] {
        ASSERT_TRUE(ctx_->certificateManager.db().insert(leaf_));
        DatabaseFiles(dir_.file("db"), {}).check(tell);
    };
    sweep("compaction", compact, fillSound, 1 << 20);
    ASSERT_EQ(crvDeinitExAPI(ctx_), 0);
}

struct Judgement {
    std::string name;
    std::function<bool()> isRight;
};

/// What is found out of one key, each as an answer that must be true.
void addJudgements(const PrivateKey& key, KeyScheme scheme, std::vector<Judgement>& all) {
    RandomBridge random(systemRandom);
    const auto hash = KcHashAlgo::Sha256;
    const Bytes digest = hashOf(hash, asBytes("abc")), other = hashOf(hash, asBytes("abd"));
    const Bytes signature = key.sign(scheme, hash, digest, random);
    const PublicKey& half = key.publicKey();
    const std::string name = signAlgoName(scheme, KcHashAlgo::None);
    all.push_back({name + " right", [=] { return half.verify(scheme, hash, digest, signature); }});
    all.push_back({name + " wrong", [=] { return !half.verify(scheme, hash, other, signature); }});
    all.push_back({name + " signs", [=] {
                       RandomBridge own(systemRandom);
                       const Bytes fresh = key.sign(scheme, hash, digest, own);
                       return fresh.size() <= signature.size() + 4 && half.verify(scheme, hash, digest, fresh);
                   }});
    all.push_back({name + " parsed", [=] { return PrivateKey::fromPkcs8(key.toPkcs8()).keyId() == key.keyId(); }});
    all.push_back({name + " equal", [=] { return PublicKey::fromSpki(half.toSpki()) == half; }});
    if (scheme == KeyScheme::Ecdsa) all.push_back({name + " agrees", [=] { return key.agree(half).size() == 32; }});
    for (const RsaPadding padding : {RsaPadding::Pkcs1, RsaPadding::Oaep}) {
        if (scheme != KeyScheme::Rsa) break;
        const Bytes sealed = half.encrypt(padding, digest);
        all.push_back({name + " opens", [=] { return toBytes(key.decrypt(padding, sealed)) == digest; }});
    }
}

// A lack of memory is no wrong signature, no bad key and no wrong password.
TEST(Allocation, NoVerdictIsMadeOfALackOfMemory) {
    RandomBridge random(systemRandom);
    std::vector<Judgement> all;
    const PrivateKey rsa = PrivateKey::generateRsa(1024, 65537, random);
    addJudgements(rsa, KeyScheme::Rsa, all);
    addJudgements(rsa, KeyScheme::RsaPss, all);
    addJudgements(PrivateKey::generateEc(static_cast<StdECId>(NID_X9_62_prime256v1), false, random), KeyScheme::Ecdsa,
                  all);
    all.push_back({"derivation", [] {
                       return deriveKey(Pbkdf2Params{PrfAlgo::Sha256, Bytes(8), 2}, {}, 9).size() == 9;
                   }});
    const Bytes key(16), plain(20), sealed = encipher(CipherAlgo::Aes128Cbc, key, key, plain);
    all.push_back({"cipher", [&] { return toBytes(decipher(CipherAlgo::Aes128Cbc, key, key, sealed)) == plain; }});
    for (const Judgement& one : all) {
        for (const int forEver : {0, 1}) {
            bool failed = true;
            for (long n = 1; failed; ++n) {
                bool right = true;
                std::string why = "wrong";
                failAllocation(n, forEver);
                try {
                    right = one.isRight();
                } catch (const std::bad_alloc&) {
                } catch (const CryptoError& error) {
                    right = false;
                    why = error.what();
                }
                failed = allocationFailed() != 0;
                EXPECT_TRUE(right) << one.name << ' ' << n << ' ' << forEver << ": " << why;
            }
        }
    }
}

}  // namespace
}  // namespace crv::test
