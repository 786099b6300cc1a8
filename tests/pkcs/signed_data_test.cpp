// Signed contents, bundles and requests.
#include "asn/pkcs/signed_data.h"

#include <gtest/gtest.h>

#include "asn/known_oids.h"
#include "asn/pkcs/certification_request.h"
#include "asn/pkcs/encrypted_data.h"
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

PrivateKey keyFromFile(const std::string& name) {
    return fromFile<PrivateKeyInfo>(name).key();
}

RandomBridge& systemBridge() {
    static RandomBridge bridge(systemRandom);
    return bridge;
}

Bytes textBytes(const char* text) {
    return toBytes(asBytes(text));
}

TEST(SignedData, SignaturesOfOthersAreChecked) {
    const Bytes content = dataFile("content.txt");
    for (const char* name :
         {"cms_rsa", "cms_detached", "cms_noattr", "cms_ec", "cms_pss", "cms_dsa", "cms_stream", "cms_certtool"}) {
        SCOPED_TRACE(name);
        const SignedData data = signedDataOf(dataFile(std::string(name) + ".der"));
        const PublicKey other = fromFile<SignedCertificate>("crt_ec.der").keyInfo().publicKey();
        EXPECT_EQ(data.content().value_or(content), content);
        EXPECT_EQ(data.verify(), data.content() ? SignatureCheck::good : SignatureCheck::noContent);
        EXPECT_EQ(data.verify(content), SignatureCheck::good);
        EXPECT_EQ(data.verify(other, content) == SignatureCheck::good, std::string(name) == "cms_ec");
    }
}

TEST(SignedData, AlteredPartsAreFound) {
    using Change = void (*)(SignedData&);
    constexpr std::pair<Change, SignatureCheck> kRows[] = {
        {[](SignedData&) {}, SignatureCheck::good},
        {[](SignedData& d) { d.encapContentInfo.buildData(textBytes("other")); }, SignatureCheck::bad},
        {[](SignedData& d) { d.encapContentInfo.contentType = OID_PKCS7_ENVELOPED_DATA; }, SignatureCheck::bad},
        {[](SignedData& d) { d.signerInfos[0].signedAttrs->set(OID_PKCS9_SIGNING_TIME, Time(0)); },
         SignatureCheck::bad},
        {[](SignedData& d) { d.signerInfos[0].signedAttrs->clear(); }, SignatureCheck::bad},
        {[](SignedData& d) { d.signerInfos[0].signedAttrs.reset(); }, SignatureCheck::bad},
        {[](SignedData& d) { d.signerInfos[0].digestAlgorithm.algorithm = OID_SHA1; }, SignatureCheck::bad},
        {[](SignedData& d) { d.signerInfos[0].digestAlgorithm.algorithm = OID_MGF1; }, SignatureCheck::unsupported},
        {[](SignedData& d) { d.certificates.reset(); }, SignatureCheck::noCertificate},
        {[](SignedData& d) { d.signerInfos.clear(); }, SignatureCheck::noSignature},
    };
    for (const auto& [change, check] : kRows) {
        SignedData data = signedDataOf(dataFile("cms_rsa.der"));
        change(data);
        EXPECT_EQ(data.verify(), check);
    }
}

TEST(SignedData, OthersVerifyWhatWeSign) {
    struct Row {
        const char* name;
        KeyScheme scheme;
        KcHashAlgo hash;
        bool detached;
    };
    constexpr Row kRows[] = {
        {"rsa", KeyScheme::rsa, KcHashAlgo::sha256, false},
        {"rsa", KeyScheme::rsaPss, KcHashAlgo::sha512, true},
        {"ec", KeyScheme::ecdsa, KcHashAlgo::sha256, false},
    };
    const Bytes content = dataFile("content.txt");
    for (const Row& row : kRows) {
        const auto certificate = fromFile<SignedCertificate>(std::string("crt_") + row.name + ".der");
        const PrivateKey key = keyFromFile(std::string("key_") + row.name + ".der");
        SignedData data;
        data.sign(content, {key, certificate, row.scheme, row.hash, 1'800'000'000, row.detached}, systemBridge());
        ContentInfo info;
        info.build(OID_PKCS7_SIGNED_DATA, data);
        const SignedData again = signedDataOf(info.encoded());
        EXPECT_EQ(again.verify(row.detached ? std::optional<ByteView>(content) : std::nullopt), SignatureCheck::good);
        EXPECT_EQ(again.signerInfos[0].signingTime(), 1'800'000'000);
        const std::string detached = row.detached ? " -content " CRV_TEST_DATA "/content.txt" : "";
        const std::string said = openssl("cms -verify -binary -noverify -inform DER" + detached, info);
        EXPECT_NE(said.find("successful"), std::string::npos) << row.name << said;
    }
}

TEST(SignedData, BundlesHoldCertificatesAndLists) {
    const SignedData others = signedDataOf(dataFile("p7_bundle.der"));
    EXPECT_EQ(others.certificateList().size(), 3U);
    EXPECT_EQ(others.verify(), SignatureCheck::noSignature);
    SignedData ours;
    for (const SignedCertificate& certificate : others.certificateList()) ours.addCertificate(certificate);
    ours.addCrl(fromFile<SignedCertRevList>("crl_rsa.der"));
    ContentInfo info;
    info.build(OID_PKCS7_SIGNED_DATA, ours);
    const std::string said = openssl("pkcs7 -inform DER -print_certs", info);
    for (const char* part : {"-BEGIN CERTIFICATE-", "-BEGIN X509 CRL-"}) EXPECT_NE(said.find(part), std::string::npos);
}

TEST(CertificationRequest, RequestsOfOthersAreUnderstood) {
    for (const std::string& name : dataFiles("req_", ".der")) {
        SCOPED_TRACE(name);
        const auto request = fromFile<CertificationRequest>(name);
        if (name == "req_ed25519.der") {
            EXPECT_THROW(static_cast<void>(request.isSigned()), CryptoError) << "a key that is unknown here";
            continue;
        }
        EXPECT_TRUE(request.isSigned());
        if (name == "req_certtool.der") continue;
        EXPECT_EQ(request.info.subject.find(OID_AT_COMMON_NAME), "Jan Kowalski");
        EXPECT_EQ(request.requestedExtensions().get<KeyUsage>(OID_CE_KEY_USAGE)->namedBits(),
                  kDigitalSignature | kNonRepudiation);
    }
}

TEST(CertificationRequest, OthersVerifyWhatWeSign) {
    using enum KeyScheme;
    for (const auto& [name, scheme] : {std::pair{"rsa", rsa}, {"ec", ecdsa}, {"dsa", dsa}}) {
        const PrivateKey key = keyFromFile(std::string("key_") + name + ".der");
        CertificationRequest request;
        request.info.subject = *DistinguishedName::fromText("CN=Łucja, C=PL");
        request.info.subjectPublicKeyInfo = SubjectPublicKeyInfo(key.publicKey());
        KeyUsage usage;
        usage.setNamedBits(kKeyEncipherment);
        Extensions extensions;
        extensions.set(OID_CE_KEY_USAGE, usage, true);
        request.setRequestedExtensions(extensions);
        request.sign(key, scheme, KcHashAlgo::sha1, systemBridge());
        EXPECT_TRUE(request.isSigned());
        const std::string said = openssl("req -inform DER -verify -noout -text", request);
        for (const char* text : {"verify OK", "Key Encipherment"})
            EXPECT_NE(said.find(text), std::string::npos) << said;
        request.info.version.setValue(1);
        EXPECT_FALSE(request.isSigned());
    }
}

}  // namespace
}  // namespace crv::test
