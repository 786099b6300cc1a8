// Signed contents, bundles and requests.
#include "asn/pkcs/signed_data.h"

#include <gtest/gtest.h>

#include "asn/known_oids.h"
#include "asn/pkcs/certification_request.h"
#include "asn/pkcs/private_key_info.h"
#include "asn/x509/signed_cert_rev_list.h"
#include "crypto/crypto_error.h"
#include "crypto/private_key.h"
#include "pkcs/data_file.h"

namespace crv::test {
namespace {

SignedData signedDataOf(const Bytes& octets) {
    ContentInfo info;
    SignedData data;
    EXPECT_TRUE(info.readExactly(octets) && info.get(OID_PKCS7_SIGNED_DATA, data));
    return data;
}

PrivateKey keyOf(const char* kind) {
    return fromFile<PrivateKeyInfo>(std::string("key_") + kind + ".der").key();
}

RandomBridge& systemBridge() {
    static RandomBridge bridge(systemRandom);
    return bridge;
}

TEST(SignedData, SignaturesOfOthersAreChecked) {
    const Bytes content = dataFile("content.txt");
    const PublicKey ec = fromFile<SignedCertificate>("crt_ec.der").keyInfo().publicKey();
    for (const char* name :
         {"cms_rsa", "cms_detached", "cms_noattr", "cms_ec", "cms_pss", "cms_dsa", "cms_stream", "cms_certtool"}) {
        SCOPED_TRACE(name);
        const SignedData data = signedDataOf(dataFile(std::string(name) + ".der"));
        EXPECT_EQ(data.content().value_or(content), content);
        EXPECT_EQ(data.verify(), data.content() ? SignatureCheck::Good : SignatureCheck::NoContent);
        EXPECT_EQ(data.verify(content), SignatureCheck::Good);
        EXPECT_EQ(data.verify(ec, content) == SignatureCheck::Good, std::string(name) == "cms_ec");
    }
}

TEST(SignedData, AlteredPartsAreFound) {
    using Change = void (*)(SignedData&);
    using enum SignatureCheck;
    const std::tuple<const char*, Change, SignatureCheck> rows[] = {
        {"content", [](SignedData& d) { d.encapContentInfo.buildData(asBytes("other")); }, Bad},
        {"type", [](SignedData& d) { d.encapContentInfo.contentType = OID_PKCS7_ENVELOPED_DATA; }, Bad},
        {"time", [](SignedData& d) { d.signerInfos[0].signedAttrs->set(OID_PKCS9_SIGNING_TIME, Time(0)); }, Bad},
        {"empty attributes", [](SignedData& d) { d.signerInfos[0].signedAttrs->clear(); }, Bad},
        {"no attributes", [](SignedData& d) { d.signerInfos[0].signedAttrs.reset(); }, Bad},
        {"digest", [](SignedData& d) { d.signerInfos[0].digestAlgorithm.algorithm = OID_SHA1; }, Bad},
        {"no digest", [](SignedData& d) { d.signerInfos[0].digestAlgorithm.algorithm = OID_MGF1; }, Unsupported},
        {"certificate", [](SignedData& d) { d.certificates.reset(); }, NoCertificate},
        {"signer", [](SignedData& d) { d.signerInfos.clear(); }, NoSignature},
    };
    EXPECT_EQ(signedDataOf(dataFile("p7_bundle.der")).certificateList().size(), 3U);
    for (const auto& [part, change, check] : rows) {
        SignedData data = signedDataOf(dataFile("cms_rsa.der"));
        change(data);
        EXPECT_EQ(data.verify(), check) << part;
    }
}

TEST(SignedData, OthersVerifyWhatWeSign) {
    const std::tuple<const char*, KeyScheme, KcHashAlgo, bool, bool> rows[] = {
        {"rsa", KeyScheme::Rsa, KcHashAlgo::Sha256, false, true},
        {"rsa", KeyScheme::RsaPss, KcHashAlgo::Sha512, true, true},
        {"ec", KeyScheme::Ecdsa, KcHashAlgo::Sha256, false, true},
        {"ec", KeyScheme::Ecdsa, KcHashAlgo::Sha256, false, false},
    };
    const Bytes content = dataFile("content.txt");
    for (const auto& [kind, scheme, hash, detached, inside] : rows) {
        const auto certificate = fromFile<SignedCertificate>(std::string("crt_") + kind + ".der");
        const PrivateKey key = keyOf(kind);
        SignedData data;
        data.addCrl(fromFile<SignedCertRevList>("crl_rsa.der"));
        data.sign(content, {key, inside ? &certificate : nullptr, scheme, hash, 1'800'000'000, detached},
                  systemBridge());
        ContentInfo info;
        info.build(OID_PKCS7_SIGNED_DATA, data);
        const SignedData again = signedDataOf(info.encoded());
        const auto beside = detached ? std::optional<ByteView>(content) : std::nullopt;
        EXPECT_EQ(inside ? again.verify(beside) : again.verify(key.publicKey(), beside), SignatureCheck::Good);
        EXPECT_EQ(again.signerInfos[0].signingTime(), 1'800'000'000);
        std::string options = detached ? " -content " CRV_TEST_DATA "/content.txt" : "";
        if (!inside) options += std::string(" -certfile " CRV_TEST_DATA "/crt_") + kind + ".der";
        const std::string said = openssl("cms -verify -binary -noverify -inform DER" + options, info);
        EXPECT_NE(said.find("successful"), std::string::npos) << kind << said;
    }
}

TEST(CertificationRequest, RequestsOfOthersAreUnderstood) {
    for (const std::string& name : dataFiles("req_")) {
        SCOPED_TRACE(name);
        CertificationRequest request;
        ASSERT_TRUE(request.readExactly(dataFile(name)));
        if (name == "req_ed25519.der") {
            EXPECT_THROW(static_cast<void>(request.isSigned()), CryptoError) << "a key that is unknown here";
            continue;
        }
        EXPECT_TRUE(request.isSigned());
        if (name != "req_certtool.der") {
            EXPECT_EQ(request.info.subject.find(OID_AT_COMMON_NAME), "Jan Kowalski");
            EXPECT_EQ(request.requestedExtensions().get<KeyUsage>(OID_CE_KEY_USAGE)->namedBits(),
                      kDigitalSignature | kNonRepudiation);
        }
        request.info.version.setValue(1);
        EXPECT_FALSE(request.isSigned());
    }
}

}  // namespace
}  // namespace crv::test
