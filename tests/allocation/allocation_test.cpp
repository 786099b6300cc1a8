// Memory that runs out at every allocation of every call: an answer, no crash, no lock left, no password left.
#include <gtest/gtest.h>
#include <openssl/err.h>
#include <openssl/x509.h>

#include <cstdio>
#include <functional>
#include <thread>

#include "api/file_profile.h"
#include "misc/file_semaphore.h"
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

    /// Runs the call with the n-th allocation failing, alone or with all behind it, until it does not need so many.
    void sweep(
        const char* name, const std::function<int()>& call, const std::function<void()>& prepare = [] {}) {
        for (int forEver : {0, 1}) {
            long n = 1;
            for (bool failed = true; failed; n += 1 + n / kSkip) {
                prepare();
                failAllocation(n, forEver);
                const int code = call();
                failed = allocationFailed() != 0;
                ASSERT_TRUE(failed || code < 20)
                    << name << ' ' << n << ": " << code << (ctx_ ? crvErrorTextAPI(ctx_, code) : "");
                ASSERT_GE(code, 0) << name << ' ' << n;
                ERR_clear_error();
                ASSERT_TRUE(lockIsFree()) << name << ' ' << n;
            }
            std::printf("%s%s: %ld allocations\n", name, forEver != 0 ? ", for ever" : "", n - 1);
        }
    }

    static constexpr long kSkip = 50;  // beyond 50 allocations in growing steps, so that long calls end
    const MadeCert root_ = makeCert({.subject = {{"CN", "Korzeń"}}, .extensions = caExtensions()});
    Bytes leaf_;
    const std::string list_ = dir_.file("list.conf");
    CRVctx* ctx_ = nullptr;
};

TEST_F(SlowAllocation, FailsWithAnAnswerInEveryCall) {
    const auto pin = [&] { ASSERT_EQ(crvStorePINUtf8API(ctx_, CRVPIN_SIGNING_TOKEN, "Tajne123"), 0); };
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

}  // namespace
}  // namespace crv::test
