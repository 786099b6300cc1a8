// Answers of OCSP responders made by libcrypto, good and bad ones, and what is made of them.
#include "pki/ocsp_client.h"

#include <openssl/ocsp.h>
#include <openssl/x509.h>

#include "corvane/crverrors.h"
#include "pki/path_cases.h"

using namespace crv;
using namespace crv::test;

namespace {

using State = CrtStatus::State;

/// How an answer differs from a good one of the authority itself. Times in seconds from the moment asked about.
struct OcspPlan {
    const char* what;
    int code = 0;
    State state = State::Good;
    const char* reason = "";
    int status = V_OCSP_CERTSTATUS_GOOD;
    int64_t from = -60, to = 3600;  ///< 0: no end
    const MadeCert* signer = nullptr;
    const char* serial = "07";
    const EVP_MD* hash = EVP_sha256();
    uint8_t nonce = 1;  ///< the first octet: 1 is ours, 0 sends none
    int responseStatus = OCSP_RESPONSE_STATUS_SUCCESSFUL;
    bool noCerts = false, flip = false, critical = false, twice = false;
};

using Asn1Time = std::unique_ptr<ASN1_TIME, decltype(&ASN1_TIME_free)>;
using Certificate = std::unique_ptr<X509, decltype(&X509_free)>;

Certificate parsed(ByteView der) {
    const uint8_t* at = der.data();
    return {d2i_X509(nullptr, &at, static_cast<long>(der.size())), X509_free};
}

class OcspTest : public PathCasesTest {
  protected:
    OcspTest() { client.init(certificates, revocation); }

    Bytes answer(const OcspPlan& plan) {
        const MadeCert& signer = plan.signer ? *plan.signer : root;
        const MadeCert about = test::makeCert({.subject = {{"CN", "Jan"}}, .serial = plan.serial}, &root, key);
        const Certificate leafCert = parsed(about.der), rootCert = parsed(root.der), signerCert = parsed(signer.der);
        const auto at = [](int64_t seconds) {
            return Asn1Time(ASN1_TIME_set(nullptr, kAsked + seconds), ASN1_TIME_free);
        };
        const Asn1Time from = at(plan.from), to = at(plan.to), revoked = at(-7200);
        const bool isRevoked = plan.status == V_OCSP_CERTSTATUS_REVOKED;
        std::unique_ptr<OCSP_BASICRESP, decltype(&OCSP_BASICRESP_free)> basic(OCSP_BASICRESP_new(),
                                                                              OCSP_BASICRESP_free);
        std::unique_ptr<OCSP_CERTID, decltype(&OCSP_CERTID_free)> id(
            OCSP_cert_to_id(EVP_sha1(), leafCert.get(), rootCert.get()), OCSP_CERTID_free);
        for (int i = 0; i <= static_cast<int>(plan.twice); ++i) {
            OCSP_SINGLERESP* single = OCSP_basic_add1_status(
                basic.get(), id.get(), plan.status, isRevoked ? OCSP_REVOKED_STATUS_KEYCOMPROMISE : -1,
                isRevoked ? revoked.get() : nullptr, from.get(), plan.to == 0 ? nullptr : to.get());
            if (plan.critical) OCSP_SINGLERESP_add1_ext_i2d(single, NID_id_pkix_OCSP_archiveCutoff, to.get(), 1, 0);
        }
        Bytes nonce(OcspClient::kNonceSize, plan.nonce);
        if (plan.nonce != 0) OCSP_basic_add1_nonce(basic.get(), nonce.data(), static_cast<int>(nonce.size()));
        OCSP_basic_sign(basic.get(), signerCert.get(), signer.key.get(), plan.hash, nullptr,
                        plan.noCerts ? OCSP_NOCERTS : 0);
        std::unique_ptr<OCSP_RESPONSE, decltype(&OCSP_RESPONSE_free)> response(
            OCSP_response_create(plan.responseStatus, basic.get()), OCSP_RESPONSE_free);
        uint8_t* octets = nullptr;
        const int size = i2d_OCSP_RESPONSE(response.get(), &octets);
        Bytes der(octets, octets + size);
        OPENSSL_free(octets);
        // With no certificates behind it the signature stands at the end.
        if (plan.flip) der.back() ^= 1;
        return der;
    }

    OcspClient client;
};

TEST_F(OcspTest, OnlyAnAnswerOfWhoMayAboutTheCertificateNowIsBelieved) {
    const Texts ocspUse{{"extendedKeyUsage", "OCSPSigning"}};
    const auto delegate = [&](const char* name, const char* serial, Texts extensions, const MadeCert& by) {
        return test::makeCert({.subject = {{"CN", name}}, .serial = serial, .extensions = std::move(extensions)}, &by,
                              key);
    };
    const MadeCert otherRoot = test::makeCert(caPlan("Korzeń"));
    const MadeCert good = delegate("Dobry", "20", ocspUse, root), revoked = delegate("Odwołany", "21", ocspUse, root);
    const MadeCert plain = delegate("Bez celu", "22", {}, root), alien = delegate("Obcy", "23", ocspUse, otherRoot);
    const MadeCert uncheckedDelegate = delegate("Bez sprawdzania", "21", {ocspUse[0], {"noCheck", "ignored"}}, root);
    const MadeCert renamed = test::makeCert(caPlan("Inny"), nullptr, rootKey);
    const MadeCert expired = test::makeCert(
        {.subject = {{"CN", "Dawny"}}, .serial = "24", .notAfter = -60, .extensions = ocspUse}, &root, key);
    ASSERT_EQ(revocation.insert(makeCrl({.entries = {{"21"}}}, root)), CrlInsert::Stored);

    constexpr int kBad = ECRV_TCP_PROT;
    const OcspPlan plans[] = {
        {.what = "good"},
        {.what = "revoked", .state = State::Revoked, .status = V_OCSP_CERTSTATUS_REVOKED},
        {.what = "unknown", .state = State::Unknown, .status = V_OCSP_CERTSTATUS_UNKNOWN},
        {.what = "without nonce", .nonce = 0},
        {.what = "clock a little slow", .from = 200},
        {.what = "just over", .from = -7200, .to = -200},
        {.what = "no end", .to = 0},
        {.what = "no end and old", .code = kBad, .reason = "names no end", .from = -90'000, .to = 0},
        {.what = "expired", .code = kBad, .reason = "out of date", .from = -7200, .to = -600},
        {.what = "future", .code = kBad, .reason = "future", .from = 600, .to = 7200},
        {.what = "wrong serial", .code = kBad, .reason = "not about", .serial = "08"},
        {.what = "two answers", .code = kBad, .reason = "not about", .twice = true},
        {.what = "flipped signature", .code = kBad, .reason = "nobody signed", .noCerts = true, .flip = true},
        {.what = "foreign nonce", .code = kBad, .reason = "nonce", .nonce = 2},
        {.what = "SHA-1", .code = kBad, .reason = "hash", .hash = EVP_sha1()},
        {.what = "critical extension", .code = kBad, .reason = "critical", .critical = true},
        {.what = "try later", .code = kBad, .reason = "status 3", .responseStatus = OCSP_RESPONSE_STATUS_TRYLATER},
        {.what = "authority under another name",
         .code = kBad,
         .reason = "nobody signed",
         .signer = &renamed,
         .noCerts = true},
        {.what = "delegate", .signer = &good},
        {.what = "delegate that is not to be checked", .signer = &uncheckedDelegate},
        {.what = "delegate that stays away", .code = kBad, .reason = "nobody signed", .signer = &good, .noCerts = true},
        {.what = "delegate without purpose", .code = kBad, .reason = "not for OCSP", .signer = &plain},
        {.what = "delegate of another authority", .code = kBad, .reason = "not of the authority", .signer = &alien},
        {.what = "revoked delegate", .code = kBad, .reason = "no CRL tells", .signer = &revoked},
        {.what = "expired delegate", .code = kBad, .reason = "not valid now", .signer = &expired},
    };
    const CertPtr leaf = crv::makeCert(test::makeCert({.subject = {{"CN", "Jan"}}, .serial = "07"}, &root, key).der);
    OcspQuestion question =
        client.question(leaf, keyOf(*cache.facts(crv::makeCert(root.der)), {}), crv::makeCert(root.der), kAsked, true);
    question.nonce.assign(OcspClient::kNonceSize, 1);
    for (const OcspPlan& plan : plans) {
        SCOPED_TRACE(plan.what);
        OcspAnswer found;
        const Bytes der = answer(plan);
        const NetVerdict verdict = client.judge(question, der, found);
        EXPECT_EQ(verdict.code, plan.code) << verdict.cause;
        EXPECT_NE(verdict.cause.find(plan.reason), std::string::npos) << verdict.cause;
        if (verdict.code != 0) continue;
        EXPECT_EQ(found.status.state, plan.state);
        EXPECT_EQ(found.status.source.age, -plan.from);
        EXPECT_EQ(found.keeps, plan.to != 0);
        question.time = kAsked + 8000;
        EXPECT_NE(client.judge(question, der, found).code == 0, plan.to != 0)
            << "an answer of before is used after its end";
        question.time = kAsked;
    }
}

}  // namespace
