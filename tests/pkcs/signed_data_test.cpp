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
#include "support/temp_dir.h"

namespace crv::test {
namespace {

template <class T>
T fromFile(const std::string& name) {
    T object;
    EXPECT_TRUE(object.readExactly(dataFile(name), ASN_FLAG_CONST | ASN_FLAG_COPY)) << name;
    return object;
}

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
        const bool detached = !data.content();
        EXPECT_EQ(detached, std::string(name) == "cms_detached");
        if (detached) {
            EXPECT_EQ(data.verify(), SignatureCheck::noContent);
        }
        EXPECT_EQ(data.verify(content), SignatureCheck::good);
        EXPECT_EQ(data.certificateList().size(), 1U);
        const PublicKey other = fromFile<SignedCertificate>("crt_ec.der").keyInfo().publicKey();
        if (std::string(name) != "cms_ec") {
            EXPECT_NE(data.verify(other, content), SignatureCheck::good);
        }
        if (!detached) {
            EXPECT_EQ(*data.content(), content);
        }
    }
}

TEST(SignedData, AlteredPartsAreFound) {
    const Bytes good = dataFile("cms_rsa.der");
    const PublicKey key = fromFile<SignedCertificate>("crt_rsa.der").keyInfo().publicKey();
    const SignedData whole = signedDataOf(good);
    SignedData data = whole;
    data.encapContentInfo.buildData(textBytes("other"));
    EXPECT_EQ(data.verify(), SignatureCheck::bad);
    data = whole;
    data.encapContentInfo.contentType = OID_PKCS7_ENVELOPED_DATA;
    EXPECT_EQ(data.verify(), SignatureCheck::bad) << "type of the content";
    data = whole;
    data.signerInfos[0].signedAttrs->set(OID_PKCS9_SIGNING_TIME, Time(0));
    EXPECT_EQ(data.verify(), SignatureCheck::bad) << "signed attributes";
    data = whole;
    data.signerInfos[0].signedAttrs->clear();
    EXPECT_EQ(data.verify(), SignatureCheck::bad) << "no attributes at all";
    data = whole;
    data.signerInfos[0].digestAlgorithm = AlgorithmIdentifier(OID_AES128_CBC);
    EXPECT_EQ(data.verify(), SignatureCheck::unsupported);
    data = whole;
    data.certificates.reset();
    EXPECT_EQ(data.verify(), SignatureCheck::noCertificate);
    EXPECT_EQ(data.verify(key), SignatureCheck::good);
    data.signerInfos.clear();
    EXPECT_EQ(data.verify(key), SignatureCheck::noSignature);
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
    TempDir dir;
    writeFile(dir.file("content"), "treść");
    for (const Row& row : kRows) {
        const auto certificate = fromFile<SignedCertificate>(std::string("crt_") + row.name + ".der");
        const PrivateKey key = keyFromFile(std::string("key_") + row.name + ".der");
        SignedData data;
        data.sign(textBytes("treść"), {key, certificate, row.scheme, row.hash, 1'800'000'000, row.detached},
                  systemBridge());
        ContentInfo info;
        info.build(OID_PKCS7_SIGNED_DATA, data);
        const Bytes octets = info.encoded();
        const SignedData again = signedDataOf(octets);
        const Bytes content = textBytes("treść");
        EXPECT_EQ(again.verify(row.detached ? std::optional<ByteView>(content) : std::nullopt), SignatureCheck::good);
        EXPECT_EQ(again.signerInfos[0].signingTime(), 1'800'000'000);
        writeFile(dir.file("signed.der"), std::string(asText(octets)));
        const std::string said =
            shell("openssl cms -verify -binary -noverify -inform DER -in " + dir.file("signed.der") +
                  (row.detached ? " -content " + dir.file("content") : ""));
        EXPECT_NE(said.find("successful"), std::string::npos) << row.name << said;
    }
}

TEST(SignedData, BundlesHoldCertificatesAndLists) {
    SignedData data = signedDataOf(dataFile("p7_bundle.der"));
    const std::vector<SignedCertificate> list = data.certificateList();
    ASSERT_EQ(list.size(), 3U);
    EXPECT_EQ(data.verify(), SignatureCheck::noSignature);
    SignedData built;
    for (const SignedCertificate& certificate : list) built.addCertificate(certificate);
    built.addCrl(fromFile<SignedCertRevList>("crl_rsa.der"));
    ContentInfo info;
    info.build(OID_PKCS7_SIGNED_DATA, built);
    TempDir dir;
    writeFile(dir.file("bundle.p7"), std::string(asText(info.encoded())));
    const std::string said = shell("openssl pkcs7 -inform DER -print_certs -in " + dir.file("bundle.p7"));
    size_t count = 0;
    for (size_t at = 0; (at = said.find("-----BEGIN", at)) != std::string::npos; ++at) ++count;
    EXPECT_EQ(count, 4U) << said;
}

TEST(CertificationRequest, RequestsOfOthersAreUnderstood) {
    for (const std::string& name : dataFiles("req_", ".der")) {
        SCOPED_TRACE(name);
        const auto request = fromFile<CertificationRequest>(name);
        if (name == "req_ed25519.der") {
            EXPECT_THROW(static_cast<void>(request.isSigned()), CryptoError) << "a key that is unknown here";
        } else {
            EXPECT_TRUE(request.isSigned());
        }
        const auto usage = request.requestedExtensions().get<KeyUsage>(OID_CE_KEY_USAGE);
        if (name == "req_certtool.der") continue;
        EXPECT_EQ(request.info.subject.find(OID_AT_COMMON_NAME), "Jan Kowalski");
        ASSERT_TRUE(usage);
        EXPECT_EQ(usage->namedBits(), kDigitalSignature | kNonRepudiation);
    }
}

TEST(CertificationRequest, OthersVerifyWhatWeSign) {
    TempDir dir;
    for (const auto& [name, scheme] :
         {std::pair{"rsa", KeyScheme::rsa}, {"ec", KeyScheme::ecdsa}, {"dsa", KeyScheme::dsa}}) {
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
        writeFile(dir.file("r.der"), std::string(asText(request.encoded())));
        const std::string said = shell("openssl req -inform DER -verify -noout -text -in " + dir.file("r.der"));
        EXPECT_NE(said.find("verify OK"), std::string::npos) << name << said;
        EXPECT_NE(said.find("Key Encipherment"), std::string::npos) << said;
        request.info.version.setValue(1);
        EXPECT_FALSE(request.isSigned());
    }
}

}  // namespace
}  // namespace crv::test
