// What a program does with a profile through the calls.
#include <gmock/gmock.h>
#include <openssl/x509.h>
#include <sys/wait.h>
#include <unistd.h>

#include <thread>

#include "api/file_profile.h"
#include "asn/pkcs/certification_request.h"
#include "config/config_oids.h"
#include "misc/file_semaphore.h"
#include "support/cert_maker.h"
#include "support/heap_watch.h"

namespace crv::test {
namespace {

const char* const kFilePassword = "Tajne123";

long lengthOf(const Bytes& octets) {
    return static_cast<long>(octets.size());
}

class Calls : public FileProfile {
  protected:
    Calls() { create(ctx_); }
    ~Calls() override {
        for (::CrvProfile* handle : handles_) crvFreeProfileAPI(&ctx_, handle);
    }

    void logIn(const char* password = kFilePassword) {
        ASSERT_EQ(crvLoadProfileAPI(&ctx_, profileHandle()) % WCRV_GENERIC_WARNING, CRV_OK);
        ASSERT_EQ(crvStorePINUtf8API(&ctx_, CRVPIN_SIGNING_TOKEN, password), CRV_OK);
        ASSERT_EQ(crvAuthenticateExAPI(&ctx_, 0), CRV_OK);
    }
    void pin(const char* password = kFilePassword) {
        ASSERT_EQ(crvStorePINUtf8API(&ctx_, CRVPIN_SIGNING_TOKEN, password), 0);
    }

    /// Binding without a handle: the context's own record again.
    const ::CrvProfile* profileHandle() {
        ctx_.setProfile(nullptr);
        bound_ = crvCreateProfileAPI(&ctx_, CRVPROFILE_TYPE_PKCS12);
        handles_.push_back(bound_);
        const std::pair<long, std::string> values[] = {{CRVPROFILE_ATTR_NAME, "Ala"},
                                                       {CRVPROFILE_ATTR_DB_TYPE, "corvane"},
                                                       {CRVPROFILE_ATTR_DB, dir_.file("db")},
                                                       {CRVPROFILE_ATTR_PKCS12_FILE, dir_.file("keys.p12")}};
        for (const auto& [id, value] : values)
            EXPECT_EQ(crvSetProfileAttrAPI(&ctx_, bound_, id, value.data(), static_cast<long>(value.size())), 0);
        return bound_;
    }

    /// A key for everything with a certificate of an authority that is trusted.
    void equip() {
        logIn();
        CrvKeyPlan plan{};
        plan.size = sizeof plan;
        plan.use = CRVKEY_USE_BOTH;
        pin();
        ASSERT_EQ(crvGenerateKeyAPI(&ctx_, &plan), CRV_OK);
        const Bytes chain = certified();
        long count = 0;
        pin();
        ASSERT_EQ(crvInstallUserCrtAPI(&ctx_, chain.data(), lengthOf(chain), 0, &count), CRV_OK);
        EXPECT_EQ(count, 1);
        CrvCert* root = certOf(root_.der);
        pin();
        ASSERT_EQ(crvAddTrustPointAPI(&ctx_, root), CRV_OK);
        EXPECT_EQ(crvFreeCertAPI(&ctx_, root), CRV_OK);
    }

    /// What the authority makes of the request for the signing key, with the authority's own certificate behind it.
    Bytes certified() {
        unsigned char* request = nullptr;
        long len = 0;
        CrvRequestParams params{sizeof params, CRVKEY_USE_BOTH, 0, 0, "CN=Jan,O=Firma", 1};
        EXPECT_EQ(crvPrepareCrtRequestAPI(&ctx_, &params, &request, &len), CRV_OK);
        CertificationRequest read;
        EXPECT_TRUE(read.readExactly({request, static_cast<size_t>(len)}, ASN_FLAG_CONST | ASN_FLAG_COPY));
        EXPECT_EQ(crvFreeOctetsAPI(request), CRV_OK);
        const Bytes spki = read.info.subjectPublicKeyInfo.publicKey().toSpki();
        const unsigned char* at = spki.data();
        const TestKey key(d2i_PUBKEY(nullptr, &at, lengthOf(spki)), EVP_PKEY_free);
        EXPECT_TRUE(key);
        Bytes chain =
            makeCert({.subject = {{"CN", "Jan"}, {"O", "Firma"}, {"emailAddress", "jan@firma.pl"}}, .serial = "0A7B"},
                     &root_, key)
                .der;
        chain.insert(chain.end(), root_.der.begin(), root_.der.end());
        return chain;
    }

    CrvCert* certOf(const Bytes& der) {
        CrvCertIterator* found = nullptr;
        CrvCert* cert = nullptr;
        EXPECT_EQ(crvReadCertsAPI(&ctx_, der.data(), lengthOf(der), nullptr, &found), CRV_OK);
        EXPECT_EQ(crvGetNextCertAPI(&ctx_, found, &cert), CRV_OK);
        EXPECT_EQ(crvFreeCertIteratorAPI(&ctx_, found), CRV_OK);
        return cert;
    }

    std::string attr(const CrvCert* cert, long id) {
        char value[4096];
        long len = sizeof value;
        EXPECT_EQ(crvGetCertAttrAPI(&ctx_, cert, id, value, &len), CRV_OK) << id;
        return {value, static_cast<size_t>(len)};
    }

    CRVctx ctx_;
    ::CrvProfile* bound_ = nullptr;
    std::vector<::CrvProfile*> handles_;
    const MadeCert root_ = makeCert({.subject = {{"CN", "Korzeń"}}, .extensions = caExtensions()});
};

int collect(void* user, const unsigned char* octets, long len) {
    static_cast<Bytes*>(user)->insert(static_cast<Bytes*>(user)->end(), octets, octets + len);
    return 0;
}

/// A message through a stream, in pieces of seven octets.
template <class Update>
void feed(CRVctx* ctx, CrvStream* stream, const Bytes& octets, Update update) {
    for (size_t at = 0; at < octets.size(); at += 7)
        ASSERT_EQ(update(ctx, stream, octets.data() + at, static_cast<long>(std::min<size_t>(7, octets.size() - at))),
                  0);
}

TEST_F(Calls, CarryAKeyFromItsGenerationToItsMessages) {
    equip();
    long count = 0;
    CrvKeyIterator* keys = nullptr;
    CrvKeyInfo key{};
    key.size = sizeof key;
    ASSERT_EQ(crvGetKeyIteratorAPI(&ctx_, &count, &keys), 0);
    ASSERT_EQ(crvGetNextKeyAPI(&ctx_, keys, &key), 0);
    EXPECT_EQ(std::tuple(count, key.use, key.kind, key.scheme, key.bits),
              std::tuple(1L, long{CRVKEY_USE_BOTH}, long{CRVKEY_RSA}, long{CRVSCHEME_RSA}, 2048L));
    EXPECT_EQ(attr(key.cert, CRVCERT_ATTR_KEY_ID), std::string(std::begin(key.id), std::end(key.id)));
    EXPECT_EQ(
        attr(key.cert, CRVCERT_ATTR_SUBJECT) + attr(key.cert, CRVCERT_ATTR_SERIAL) + attr(key.cert, CRVCERT_ATTR_EMAIL),
        "E=jan@firma.pl,O=Firma,CN=Jan0A7Bjan@firma.pl");
    char none[8];
    long len = sizeof none;
    EXPECT_EQ(crvGetCertAttrAPI(&ctx_, key.cert, CRVCERT_ATTR_KEY_USAGE, none, &len), ECRV_ATTR_HAS_NO_VALUE);
    EXPECT_EQ(crvGetNextKeyAPI(&ctx_, keys, &key), ECRV_KEY_NOT_FOUND);
    EXPECT_EQ(crvFreeKeyIteratorAPI(&ctx_, keys), 0);

    CrvCertIterator* found = nullptr;
    for (const auto& [query, matches] :
         {std::pair{CrvCertQuery{sizeof(CrvCertQuery), nullptr, nullptr, nullptr, nullptr, nullptr}, 2L},
          {CrvCertQuery{sizeof(CrvCertQuery), "jan", nullptr, nullptr, "0a7b", nullptr}, 1L},
          {CrvCertQuery{sizeof(CrvCertQuery), "nikt", nullptr, nullptr, nullptr, nullptr}, 0L}}) {
        EXPECT_EQ(crvFindCertsAPI(&ctx_, &query, &count, &found), 0);
        EXPECT_EQ(count, matches);
        EXPECT_EQ(crvFreeCertIteratorAPI(&ctx_, found), 0);
    }
    Bytes more = root_.der;
    more.insert(more.end(), {'x', 'y'});
    CrvImportResult imported{};
    imported.size = sizeof imported;
    EXPECT_EQ(crvImportCertsAPI(&ctx_, more.data(), lengthOf(more), &imported), WCRV_GENERIC_WARNING);
    EXPECT_EQ(std::tuple(imported.stored, imported.present), std::tuple(0L, 1L));
    const Bytes crl = makeCrl({.number = 2}, root_), older = makeCrl({.number = 1}, root_),
                foreign = makeCrl({}, makeCert({.subject = {{"CN", "Obcy"}}, .extensions = caExtensions()}));
    EXPECT_EQ(crvImportCrlAPI(&ctx_, crl.data(), lengthOf(crl), 0), 0);
    EXPECT_EQ(crvImportCrlAPI(&ctx_, older.data(), lengthOf(older), 0), ECRV_OLD_CRL);
    EXPECT_EQ(crvImportCrlAPI(&ctx_, foreign.data(), lengthOf(foreign), 0), ECRV_CRTNOTFOUND);
    EXPECT_EQ(crvImportCrlAPI(&ctx_, foreign.data(), lengthOf(foreign), 1), WCRV_GENERIC_WARNING);

    const Bytes content(1000, 'a');
    CrvSignParams beside{};
    beside.size = sizeof beside;
    beside.content = CRVSIGN_CONTENT_BESIDE;
    CrvStream* stream = nullptr;
    Bytes signature, inside, message;
    ASSERT_EQ(crvSignInitAPI(&ctx_, &beside, collect, &signature, &stream), 0);
    feed(&ctx_, stream, content, crvSignUpdateAPI);
    EXPECT_EQ(crvVerifyUpdateAPI(&ctx_, stream, content.data(), 1), ECRV_API_INV_PAR) << "a stream of another kind";
    ASSERT_EQ(crvSignFinalAPI(&ctx_, stream), 0);
    CrvMessageParams with{sizeof with, CRVMOMENT_SIGNING, 0, signature.data(), lengthOf(signature), nullptr};
    CrvMessageVerdict* verdict = nullptr;
    CrvSignerInfo signer{};
    signer.size = sizeof signer;
    ASSERT_EQ(crvVerifyInitAPI(&ctx_, &with, nullptr, nullptr, &stream), 0);
    feed(&ctx_, stream, content, crvVerifyUpdateAPI);
    ASSERT_EQ(crvVerifyFinalAPI(&ctx_, stream, &verdict), 0);
    ASSERT_EQ(crvGetSignerInfoAPI(&ctx_, verdict, 0, &signer), 0);
    EXPECT_EQ(attr(signer.cert, CRVCERT_ATTR_SERIAL) + signer.reason, "0A7B");
    EXPECT_EQ(signer.digest, CRVDIGEST_SHA256);
    EXPECT_EQ(crvGetSignerInfoAPI(&ctx_, verdict, 1, &signer), ECRV_API_INV_PAR);
    EXPECT_EQ(crvFreeMessageVerdictAPI(&ctx_, verdict), 0);
    EXPECT_EQ(crvVerifyAPI(&ctx_, content.data(), lengthOf(content) - 1, &with, nullptr, nullptr, &verdict),
              ECRV_MSGSIGN);
    EXPECT_EQ(crvFreeMessageVerdictAPI(&ctx_, verdict), 0);

    unsigned char *whole = nullptr, *plain = nullptr;
    long wholeLen = 0, plainLen = 0;
    CrvCert *mine = nullptr, *foreignCert = certOf(root_.der);
    ASSERT_EQ(crvGetUserCertAPI(&ctx_, CRVKEY_USE_SIGN, &mine), 0);
    const CrvCert* const both[] = {mine, foreignCert};
    for (const auto& [level, signers, code] : {std::tuple(CRVSIGN_LEVEL_B, 1L, 0),
                                               {CRVSIGN_LEVEL_B, 2L, ECRV_UNP_KEY_CRT},
                                               {CRVSIGN_LEVEL_T, 1L, ECRV_TS_NO_SERVER_DEF},
                                               {CRVSIGN_LEVEL_LT, 1L, ECRV_TS_NO_SERVER_DEF}}) {
        beside.level = level;
        beside.signers = both;
        beside.signers_count = signers;
        EXPECT_EQ(crvSignAPI(&ctx_, content.data(), 1, &beside, &whole, &wholeLen), code) << level;
        EXPECT_EQ(whole != nullptr, code == 0);
        EXPECT_EQ(crvFreeOctetsAPI(whole), 0);
    }
    EXPECT_EQ(crvFreeCertAPI(&ctx_, mine) + crvFreeCertAPI(&ctx_, foreignCert), 0);
    ASSERT_EQ(crvSignAPI(&ctx_, content.data(), lengthOf(content), nullptr, &whole, &wholeLen), 0);
    ASSERT_EQ(crvVerifyAPI(&ctx_, whole, wholeLen, nullptr, &plain, &plainLen, &verdict), 0);
    EXPECT_EQ(Bytes(plain, plain + plainLen), content);
    EXPECT_EQ(crvFreeMessageVerdictAPI(&ctx_, verdict) + crvFreeOctetsAPI(plain), 0);
    whole[wholeLen - 1] ^= 1;
    EXPECT_EQ(crvVerifyAPI(&ctx_, whole, wholeLen, nullptr, &plain, &plainLen, &verdict), ECRV_MSGSIGN);
    EXPECT_EQ(plain, nullptr) << "content of a signature that is not good";
    EXPECT_EQ(crvFreeMessageVerdictAPI(&ctx_, verdict) + crvFreeOctetsAPI(whole), 0);

    const CrvEncryptParams toSelf{
        sizeof toSelf, nullptr, 0, CRVENCRYPT_SELF | CRVENCRYPT_OAEP, "2.16.840.1.101.3.4.1.46", CRVMSG_FORM_PEM};
    const CrvEncryptParams toNobody{sizeof toNobody, nullptr, 0, 0, nullptr, 0};
    EXPECT_EQ(crvEncryptAPI(&ctx_, content.data(), 1, &toNobody, &whole, &wholeLen), ECRV_RECCRT);
    ASSERT_EQ(crvEncryptAPI(&ctx_, content.data(), lengthOf(content), &toSelf, &whole, &wholeLen), 0);
    CrvDecryptInfo info{};
    info.size = sizeof info;
    ASSERT_EQ(crvDecryptInitAPI(&ctx_, collect, &inside, &stream), 0);
    feed(&ctx_, stream, Bytes(whole, whole + wholeLen), crvDecryptUpdateAPI);
    ASSERT_EQ(crvDecryptFinalAPI(&ctx_, stream, &info), 0);
    EXPECT_EQ(inside, content);
    EXPECT_EQ(info.authenticated, 1);
    EXPECT_EQ(crvDecryptAPI(&ctx_, whole, wholeLen / 2, &plain, &plainLen, &info), ECRV_INV_CRV_MSG);
    EXPECT_EQ(crvFreeOctetsAPI(whole), 0);
}

TEST_F(Calls, OptionsHoldOverTheLogInAndAreSaved) {
    ctx_.setProfile(nullptr);
    ASSERT_EQ(crvSetOptionAPI(&ctx_, CRVOPT_CONNECT_TIMEOUT, 5), 0);
    ASSERT_EQ(crvSetTextOptionAPI(&ctx_, CRVOPT_TEXT_36, "mój"), 0);
    EXPECT_EQ(crvSetTextOptionAPI(&ctx_, CRVOPT_TEXT_36, "\xff"), ECRV_TEXT_CONVERT);
    ASSERT_EQ(crvStorePINUtf8API(&ctx_, CRVPIN_SIGNING_TOKEN, kFilePassword), 0);
    ctx_.setProfile(profile_->clone());
    ASSERT_EQ(crvAuthenticateExAPI(&ctx_, 0), 0) << "PINs and options were for the profile to come";
    long value = 0;
    EXPECT_EQ(crvGetOptionAPI(&ctx_, CRVOPT_CONNECT_TIMEOUT, &value), 0);
    EXPECT_EQ(value, 5);
    EXPECT_EQ(crvSaveConfigurationAPI(&ctx_), ECRV_SGN_PIN_NOT_PRES) << "the log-in used the PIN up";
    pin("Inne1234");
    EXPECT_EQ(crvSaveConfigurationAPI(&ctx_), ECRV_PASSWORD);
    ASSERT_EQ(crvSetOptionAPI(&ctx_, CRVOPT_REMEMBER_PIN_INFO, 1), 0);
    pin();
    for (int time : {1, 2}) EXPECT_EQ(crvSaveConfigurationAPI(&ctx_), 0) << time;
    CRVctx other;
    other.setProfile(profile_->clone());
    ASSERT_EQ(crvStorePINUtf8API(&other, CRVPIN_SIGNING_TOKEN, kFilePassword), 0);
    ASSERT_EQ(crvAuthenticateExAPI(&other, 0), 0);
    EXPECT_EQ(crvGetOptionAPI(&other, CRVOPT_CONNECT_TIMEOUT, &value), 0);
    EXPECT_EQ(value, 5);
    EXPECT_STREQ(crvGetTextOptionAPI(&other, CRVOPT_TEXT_36), "mój");
    ASSERT_EQ(crvChangePasswordAPI(&ctx_, "krótkie"), ECRV_PASSWORD);
    ASSERT_EQ(crvChangePasswordAPI(&ctx_, "Nowe-9876"), 0);
    logIn("Nowe-9876");
#define CRV_STANDARD(number, constant, standard, unit, meaning) \
    EXPECT_EQ(CRVCfgFile().getIntOpt(number), standard) << #constant;
    CRV_OPTION_LIST(CRV_STANDARD)
}

TEST_F(Calls, RefuseWhatIsUnfit) {
    logIn();
    CrvKeyPlan tooShort{sizeof tooShort, CRVKEY_USE_SIGN, 0, 1024, nullptr, 0, nullptr, nullptr};
    CrvKeyPlan ecDecrypts{sizeof ecDecrypts, CRVKEY_USE_BOTH, CRVSCHEME_ECDSA, 0, nullptr, 0, nullptr, nullptr};
    CrvKeyPlan stopped{sizeof stopped, CRVKEY_USE_SIGN, 0, 4096, nullptr, 0, [](void*) { return 1; }, nullptr};
    struct Later {
        CrvCertQuery query;
        long more;
    } later{{sizeof(Later), nullptr, nullptr, nullptr, nullptr, nullptr}, 0};
    CrvCertIterator* found = nullptr;
    CrvStream* stream = nullptr;
    CrvCert* cert = nullptr;
    ::CrvProfile* profile = crvCreateProfileAPI(&ctx_, CRVPROFILE_TYPE_PKCS12);
    CrvSrvParams server{};
    server.size = sizeof server;
    server.name = "A", server.addr = "a.pl", server.usage = CRVSRV_USAGE_CRL, server.type = CRVSRV_TYPE_LDAP;
    server.ca_dn = reinterpret_cast<const unsigned char*>("0\x01x"), server.ca_dn_len = 3;
    const std::tuple<int, int, const char*> cases[] = {
        {crvGenerateKeyAPI(&ctx_, nullptr), ECRV_API_INV_PAR, "no plan"},
        {crvGenerateKeyAPI(&ctx_, &ecDecrypts), ECRV_API_INV_PAR, "an EC key that decrypts"},
        {(pin(), crvGenerateKeyAPI(&ctx_, &tooShort)), ECRV_UNSUPPORTED_KEY_LEN_CERT_VERSION, "bits"},
        {(pin(), crvGenerateKeyAPI(&ctx_, &stopped)), ECRV_ACTION_CANCELLED, "stopped"},
        {crvGetUserCertAPI(&ctx_, CRVKEY_USE_SIGN, &cert), ECRV_USERCRT, "no certificate"},
        {crvSignInitAPI(&ctx_, nullptr, collect, nullptr, &stream), ECRV_SKEYS_NOT_PRES, "no key"},
        {crvFindCertsAPI(&ctx_, &later.query, nullptr, &found), CRV_OK, "a later program"},
        {crvFreeCertIteratorAPI(&ctx_, found), CRV_OK, ""},
        {(later.more = 1, crvFindCertsAPI(&ctx_, &later.query, nullptr, &found)), ECRV_API_INV_PAR, "its new member"},
        {(pin(), crvInstallUserCrtAPI(&ctx_, root_.der.data(), lengthOf(root_.der), 0, nullptr)), ECRV_UNP_KEY_CRT,
         "no key"},
        {crvAddSrvAPI(&ctx_, profile, &server), ECRV_API_INV_PAR, "ca_dn"},
        {crvDelSrvAPI(&ctx_, profile, nullptr), ECRV_API_INV_PAR, "a null name"},
        {(server.size = 8, crvAddSrvAPI(&ctx_, profile, &server)), ECRV_API_INV_PAR, "nothing but a size"},
    };
    for (const auto& [code, expected, what] : cases) EXPECT_EQ(code, expected) << what;
    // Freeing says nothing about the operation before.
    EXPECT_EQ(crvFreeProfileAPI(&ctx_, profile), 0);
    EXPECT_EQ(crvGetLastCodeAPI(&ctx_), ECRV_API_INV_PAR);
    Bytes first(40, 0), second(40, 0);
    for (Bytes* one : {&first, &second})
        EXPECT_EQ(crvGetRandomAPI(&ctx_, reinterpret_cast<char*>(one->data()), lengthOf(*one)), 0);
    EXPECT_NE(first, second);
}

TEST_F(Calls, OneCallerAtATimeAndNoLockWhileTheUserTypes) {
    struct Seen {
        CRVctx* ctx;
        std::string lock;
        int code = -1;
        bool free = false;
    } seen{&ctx_, dir_.file("keys.p12.lck")};
    const CrvPinPrompt prompt = [](void* user, long, char* text, long size) {
        auto& at = *static_cast<Seen*>(user);
        std::thread([&at] {
            at.code = crvSetOptionAPI(at.ctx, CRVOPT_CONNECT_TIMEOUT, 1);
            FileSemaphore lock(at.lock);
            at.free = lock.pCond(kExclusiveLock) != 0;
        }).join();
        std::snprintf(text, static_cast<size_t>(size), "%s", kFilePassword);
        return int{CRVPIN_GIVEN};
    };
    ctx_.setProfile(profile_->clone());
    ASSERT_EQ(crvSetPINPromptAPI(&ctx_, prompt, &seen), 0);
    EXPECT_EQ(crvAuthenticateExAPI(&ctx_, 0), 0);
    EXPECT_EQ(seen.code, ECRV_INV_WRK_MODE);
    EXPECT_TRUE(seen.free);
    ASSERT_EQ(crvSetLockTimeoutAPI(&ctx_, 0), 0);
    std::thread([&] {
        FileSemaphore held(seen.lock);
        ASSERT_EQ(held.p(kExclusiveLock), 1);
        std::thread([&] { EXPECT_EQ(crvSaveConfigurationAPI(&ctx_), ECRV_LOCK); }).join();
    }).join();
    EXPECT_EQ(crvSaveConfigurationAPI(&ctx_), 0);
}

TEST_F(Calls, AChildOfAForkIsAnswered) {
    CRVctx* own = nullptr;
    ASSERT_EQ(crvInitExAPI(&own, 0, nullptr, nullptr), 0);
    const pid_t child = fork();
    if (child == 0) {
        long value = 0;
        CRVctx* fresh = nullptr;
        _exit(crvGetOptionAPI(own, CRVOPT_CONNECT_TIMEOUT, &value) == ECRV_INV_WRK_MODE &&
                      crvInitExAPI(&fresh, 0, nullptr, nullptr) == ECRV_INV_WRK_MODE && crvErrorTextAPI(own, 0)
                  ? 0
                  : 1);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(crvDeinitExAPI(own), 0);
}

TEST_F(Calls, LeaveNoPasswordInMemory) {
    const int leaks = heap_watch::leaksOf(
        kFilePassword,
        [&] {
            logIn();
            pin();
            EXPECT_EQ(crvSaveConfigurationAPI(&ctx_), 0);
            pin();
            EXPECT_EQ(crvChangePasswordAPI(&ctx_, "Nowe-9876"), 0);
            logIn("Nowe-9876");
        },
        "Nowe-9876");
    EXPECT_EQ(leaks, 0);
}

TEST_F(Calls, ADamagedRecordDoesNotEndTheIteration) {
    const std::string list = dir_.file("list.conf");
    for (const char* name : {"A", "B", "C"}) {
        profile_->setAttr(CRVPROFILE_ATTR_NAME, name);
        profile_->saveProfile(ProfileMedia::File, list);
    }
    UniversalConfMgr damaged(ProfileMedia::File);
    damaged.loadIfExists(list);
    damaged.setData("\\B\\Pkcs12File", 5L);
    damaged.seveToFile(list);
    CrvProfileIterator* at = nullptr;
    ASSERT_EQ(crvGetProfileIteratorAPI(&ctx_, CRVPROFILE_MEDIA_FILE, list.c_str(), nullptr, &at), 0);
    for (int code : {int{CRV_OK}, int{ECRV_INV_REG}, int{CRV_OK}}) {
        ::CrvProfile* profile = crvGetNextProfileAPI(&ctx_, at);
        EXPECT_EQ(crvGetLastCodeAPI(&ctx_), code);
        EXPECT_EQ(profile == nullptr, code != 0);
        EXPECT_EQ(crvFreeProfileAPI(&ctx_, profile), 0);
    }
    EXPECT_EQ(crvGetNextProfileAPI(&ctx_, at), nullptr);
    EXPECT_EQ(crvGetLastCodeAPI(&ctx_), 0);
    EXPECT_EQ(crvFreeProfileIteratorAPI(&ctx_, at), 0);
}

}  // namespace
}  // namespace crv::test
