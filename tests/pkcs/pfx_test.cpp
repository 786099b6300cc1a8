// Security files and foreign PKCS#12 files.
#include "asn/pkcs/pfx.h"

#include <gtest/gtest.h>

#include "asn/known_oids.h"
#include "asn/pkcs/encrypted_data.h"
#include "asn/pkcs/secret_encoding.h"
#include "asn/x509/signed_certificate.h"
#include "crypto/private_key.h"
#include "pkcs/data_file.h"
#include "support/temp_dir.h"

namespace crv::test {
namespace {

constexpr KnownOid kConfigBag{"1.3.6.1.4.1.32473.2.6.1", "config"};
constexpr KnownOid kSeedBag{"1.3.6.1.4.1.32473.2.6.2", "seed"};

Pfx readPfx(const Bytes& octets) {
    Pfx pfx;
    EXPECT_TRUE(pfx.readExactly(octets));
    return pfx;
}

PrivateKeyInfo keyFromFile(const std::string& name) {
    PrivateKeyInfo key;
    EXPECT_TRUE(key.readExactly(dataFile(name))) << name;
    return key;
}

KeyId keyIdOf(const PrivateKeyInfo& key) {
    return PrivateKey::fromPkcs8(encodedSecret(key)).keyId();
}

SignedCertificate certificateFromFile(const std::string& name) {
    SignedCertificate certificate;
    EXPECT_TRUE(certificate.readExactly(dataFile(name), ASN_FLAG_CONST | ASN_FLAG_COPY)) << name;
    return certificate;
}

const Bytes& random20() {
    static const Bytes octets(20, 0x5A);
    return octets;
}

/// A file with everything, as the key manager writes one.
Pfx fullPfx(bool secrets = true) {
    Pfx pfx;
    PrivateKeyInfo signing = keyFromFile("key_rsa.der");
    signing.setKeyUsage(kDigitalSignature | kNonRepudiation);
    pfx.update(signing, keyIdOf(signing));
    const PrivateKeyInfo other = keyFromFile("key_ec.der");
    pfx.update(other, keyIdOf(other));
    pfx.update(certificateFromFile("crt_rsa.der"), keyIdOf(signing));
    pfx.update(certificateFromFile("crt_ec.der"), keyIdOf(other));
    if (secrets) {
        pfx.update(kConfigBag, ASNsequenceList<ASNinteger>());
        pfx.update(kSeedBag, ASNoctstr(Bytes(20, 7)));
    }
    EXPECT_EQ(pfx.final(PbeAlgo::sha1TripleDesCbc, false, asBytes(kPassword), random20().data(), 20), PfxResult::ok);
    return pfx;
}

TEST(Pfx, ForeignFilesGiveUpTheirContents) {
    struct Row {
        const char* file;
        const char* password;
        size_t keys, certificates;
        const char* name;
    };
    constexpr Row kRows[] = {
        {"pfx_openssl3.p12", kPassword, 1, 1, "Jan Kowalski ćwiczy"},
        {"pfx_legacy.p12", kPassword, 1, 1, ""},
        {"pfx_3des.p12", kPassword, 1, 2, ""},
        {"pfx_nomaciter.p12", kPassword, 1, 1, ""},
        {"pfx_keybag.p12", kPassword, 1, 1, ""},
        {"pfx_certs.p12", kPassword, 0, 2, ""},
        {"pfx_empty.p12", "", 1, 1, ""},
        {"pfx_certtool.p12", kPassword, 1, 1, "PrÃ³ba"},  // its writer took UTF-8 for Latin 1
        {"pfx_nss.p12", kPassword, 1, 1, "Jan Kowalski - Próba"},
        {"pfx_nss_old.p12", kPassword, 1, 1, "Jan Kowalski - Próba"},
    };
    for (const Row& row : kRows) {
        SCOPED_TRACE(row.file);
        const Pfx pfx = readPfx(dataFile(row.file));
        PfxContents contents;
        ASSERT_EQ(pfx.getContents(PbePassword(row.password), contents), PfxResult::ok);
        ASSERT_EQ(contents.keys.size(), row.keys);
        ASSERT_EQ(contents.certificates.size(), row.certificates);
        SignedCertificate certificate;
        EXPECT_TRUE(certificate.readExactly(contents.certificates[0].certificate));
        if (row.keys == 0) continue;
        EXPECT_EQ(contents.keys[0].friendlyName, row.name);
        EXPECT_EQ(keyIdOf(contents.keys[0].key), certificate.computeKeyIdentifierSha1Hash());
        EXPECT_EQ(contents.keys[0].localKeyId, contents.certificates[0].localKeyId);
        EXPECT_FALSE(contents.keys[0].localKeyId.empty());
    }
}

TEST(Pfx, WhatIsNotRightIsToldApart) {
    struct Row {
        const char* file;
        const char* password;
        PfxResult result;
    };
    constexpr Row kRows[] = {
        {"pfx_3des.p12", "zażółć1", PfxResult::macMismatch}, {"pfx_3des.p12", "", PfxResult::macMismatch},
        {"pfx_keybag.p12", "other", PfxResult::macMismatch}, {"pfx_empty.p12", "x", PfxResult::macMismatch},
        {"pfx_nomac.p12", kPassword, PfxResult::malformed},  {"pfx_3des.p12", kPassword, PfxResult::ok},
        {"pfx_nomaciter.p12", kPassword, PfxResult::ok},
    };
    for (const Row& row : kRows) {
        const Pfx pfx = readPfx(dataFile(row.file));
        PfxContents contents;
        EXPECT_EQ(pfx.getContents(PbePassword(row.password), contents), row.result) << row.file;
        EXPECT_EQ(pfx.verifyPassword(PbePassword(row.password)), row.result) << row.file;
    }
}

TEST(Pfx, EmptyPasswordIsTriedInBothForms) {
    Pfx pfx;
    pfx.update(certificateFromFile("crt_ec.der"), {});
    for (const Bytes& form : {Bytes{}, Bytes{0, 0}}) {
        ASSERT_EQ(pfx.final(PbeAlgo::sha1Rc2Cbc40, true, form, random20().data(), 20), PfxResult::ok);
        PfxContents contents;
        EXPECT_EQ(readPfx(pfx.encoded()).getContents(PbePassword(""), contents), PfxResult::ok);
        EXPECT_EQ(contents.certificates.size(), 1U);
    }
}

TEST(Pfx, WrittenContentsComeBackInOrder) {
    const Bytes octets = fullPfx().encoded();
    PfxContents contents;
    ASSERT_EQ(readPfx(octets).getContents(PbePassword(kPassword), contents), PfxResult::ok);
    ASSERT_EQ(contents.keys.size(), 2U);
    EXPECT_EQ(contents.keys[0].key.keyUsage(), kDigitalSignature | kNonRepudiation);
    EXPECT_EQ(contents.keys[1].key.encoded(), dataFile("key_ec.der"));
    ASSERT_EQ(contents.certificates.size(), 2U);
    EXPECT_EQ(contents.certificates[1].certificate, dataFile("crt_ec.der"));
    for (size_t i = 0; i < 2; ++i) {
        EXPECT_EQ(contents.keys[i].localKeyId, contents.certificates[i].localKeyId);
        EXPECT_EQ(contents.keys[i].localKeyId.size(), 20U);
    }
    ASSERT_EQ(contents.secrets.size(), 2U);
    EXPECT_EQ(contents.secret(kConfigBag)->getLength(), 2);
    ASNoctstr seed;
    ASSERT_TRUE(contents.secret(kSeedBag)->decode(seed));
    EXPECT_EQ(toBytes(seed.value()), Bytes(20, 7));
    EXPECT_EQ(contents.secret(OID_PKCS7_DATA), nullptr);
}

/// Collects the salts of all encryptions of a file in the order of its octets, and its layout.
struct Layout {
    std::string contents;  // e encrypted certificates, k a key's own content, s secrets
    std::vector<Bytes> salts;

    explicit Layout(const Pfx& pfx) {
        ASNoctstr octets;
        AuthenticatedSafe safe;
        EXPECT_TRUE(pfx.authSafe.getData(octets) && safe.readExactly(octets.value()));
        for (const ContentInfo& content : safe) {
            EncryptedData enciphered;
            SafeContents bags;
            if (content.get(OID_PKCS7_ENCRYPTED_DATA, enciphered)) {
                contents += 'e';
                take(enciphered.encryptedContentInfo.contentEncryptionAlgorithm);
            } else if (content.getData(octets) && bags.readExactly(octets.value())) {
                takeBags(bags);
            }
        }
    }

    void takeBags(const SafeContents& bags) {
        contents += bags[0].bagId == OID_PKCS12_SECRET_BAG ? 's' : 'k';
        for (const SafeBag& bag : bags) {
            EncryptedData enciphered;
            EncryptedPrivateKeyInfo shrouded;
            if (bag.bagValue.value.decode(enciphered)) {
                EXPECT_FALSE(bag.bagAttributes);
                take(enciphered.encryptedContentInfo.contentEncryptionAlgorithm);
            } else if (bag.bagValue.value.decode(shrouded)) {
                EXPECT_EQ(bags.size(), 1U);
                take(shrouded.encryptionAlgorithm);
            }
        }
    }

    void take(const AlgorithmIdentifier& algorithm) {
        PbeParameters parameters;
        EXPECT_TRUE(algorithm.algorithm == OID_PBE_SHA1_3DES && algorithm.parameters->decode(parameters));
        EXPECT_EQ(parameters.iterations.value(), 2048);
        salts.push_back(toBytes(parameters.salt.value()));
    }
};

TEST(Pfx, SaltsAreAChainOfDigests) {
    const Pfx pfx = readPfx(fullPfx().encoded());
    Layout layout(pfx);
    EXPECT_EQ(layout.contents, "ekks");
    layout.salts.push_back(toBytes(pfx.macData->macSalt.value()));
    ASSERT_EQ(layout.salts.size(), 6U);
    Bytes chain = random20();
    for (const Bytes& salt : layout.salts) {
        chain = hashOf(KcHashAlgo::sha1, chain);
        EXPECT_EQ(salt, Bytes(chain.begin(), chain.begin() + 8));
    }
}

TEST(Pfx, MacIsOneIterationOfHmacSha1AndWritten) {
    const Pfx pfx = readPfx(fullPfx().encoded());
    const Bytes mac = pfx.macData->encoded();
    EXPECT_EQ(Bytes(mac.end() - 3, mac.end()), (Bytes{2, 1, 1}));
    const SecretBytes unicode = Pfx::convertToUTF16BE(kPassword);
    EXPECT_EQ(unicode.size(), 2 * 7U + 2);
    EXPECT_TRUE(pfx.verifyHMAC_SHA1(unicode));
    EXPECT_FALSE(pfx.verifyHMAC_SHA1(Pfx::convertToUTF16BE("x")));
    EXPECT_EQ(pfx.computeHMAC_SHA1(unicode), toSecret(pfx.macData->mac.digest.value()));
    EXPECT_FALSE(readPfx(dataFile("pfx_certs.p12")).verifyHMAC_SHA1(unicode)) << "a SHA-512 MAC";
}

TEST(Pfx, WithoutSecretsOrCertificatesTheirContentsAreLeftOut) {
    Pfx keysOnly;
    keysOnly.update(keyFromFile("key_ec.der"), Bytes(20, 1));
    ASSERT_EQ(keysOnly.final(PbeAlgo::sha1TripleDesCbc, false, asBytes("x"), random20().data(), 20), PfxResult::ok);
    EXPECT_EQ(Layout(keysOnly).contents, "k");
    Pfx nothing;
    ASSERT_EQ(nothing.final(PbeAlgo::sha1TripleDesCbc, false, asBytes("x"), random20().data(), 20), PfxResult::ok);
    PfxContents contents;
    EXPECT_EQ(readPfx(nothing.encoded()).getContents(PbePassword("x"), contents), PfxResult::ok);
    EXPECT_EQ(nothing.final(PbeAlgo::sha1TripleDesCbc, false, asBytes("\xff"), random20().data(), 20),
              PfxResult::noMemory);
}

TEST(Pfx, OthersReadWhatWeWrite) {
    TempDir dir;
    const Bytes octets = fullPfx(false).encoded();  // they know no secret bags of this layout
    writeFile(dir.file("our.p12"), std::string(asText(octets)));
    const std::string listing = shell("openssl pkcs12 -in " + dir.file("our.p12") +
                                      " -info -nodes -passin 'pass:" + std::string(kPassword) + "'");
    EXPECT_NE(listing.find("MAC: sha1, Iteration 1\n"), std::string::npos) << listing;
    EXPECT_NE(listing.find("pbeWithSHA1And3-KeyTripleDES-CBC, Iteration 2048"), std::string::npos) << listing;
    for (const char* part : {"BEGIN CERTIFICATE", "BEGIN PRIVATE KEY"}) {
        const size_t first = listing.find(part);
        EXPECT_NE(listing.find(part, first + 1), std::string::npos) << listing;
    }
}

/// The standard's own layout of a secret bag, and bags nested and unknown, all of which others may write.
TEST(Pfx, NestedUnknownAndPlainSecretBagsAreRead) {
    SecretBag secret;
    secret.secretTypeId = kSeedBag;
    secret.secretValue.value.build(ASNoctstr(Bytes{1, 2}));
    const auto nest = [](const SafeContents& inner) {
        SafeContents outer;
        outer.add(SafeBag(OID_PKCS12_SAFE_CONTENTS_BAG, inner));
        return outer;
    };
    SafeContents bags;
    bags.add(SafeBag(OID_PKCS12_CRL_BAG, ASNnull()));
    bags.add(SafeBag(OID_PKCS12_SECRET_BAG, secret));
    bags.add(SafeBag(OID_PKCS12_KEY_BAG, keyFromFile("key_ec.der")));
    const auto read = [&](const SafeContents& all, PfxContents& contents) {
        Pfx pfx;
        AuthenticatedSafe safe;
        safe.add().buildData(all.encoded());
        pfx.authSafe.buildData(safe.encoded());
        pfx.macData.emplace().macSalt.build(random20());
        pfx.macData->mac = DigestInfo(KcHashAlgo::sha1, pfx.computeHMAC_SHA1(Pfx::convertToUTF16BE("x")));
        return pfx.getContents(PbePassword("x"), contents);
    };
    PfxContents contents;
    EXPECT_EQ(read(nest(nest(bags)), contents), PfxResult::ok);
    EXPECT_EQ(contents.keys.size(), 1U);
    EXPECT_NE(contents.secret(kSeedBag), nullptr);
    for (int i = 0; i < 20; ++i) bags = nest(bags);
    EXPECT_EQ(read(bags, contents), PfxResult::malformed) << "nested too deeply";
    EXPECT_TRUE(contents.keys.empty());
}

TEST(Pfx, FlippedOctetsOfTheContentsAreFound) {
    const Bytes good = fullPfx().encoded();
    for (size_t at = 30; at < good.size(); at += 7) {
        Bytes bad = good;
        bad[at] ^= 0x10;
        Pfx pfx;
        PfxContents contents;
        if (!pfx.readExactly(bad)) continue;
        EXPECT_NE(pfx.getContents(PbePassword(kPassword), contents), PfxResult::ok) << at;
    }
}

}  // namespace
}  // namespace crv::test
