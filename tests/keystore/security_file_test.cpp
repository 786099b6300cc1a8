// The security file as octets: round trips, other tools' files, ours in other tools, damage.
#include "keystore/security_file.h"

#include <algorithm>
#include <random>

#include "asn/known_oids.h"
#include "asn/pkcs/pfx.h"
#include "config/config_oids.h"
#include "key_store_session.h"
#include "keystore/key_pairing.h"
#include "misc/memory_file.h"

namespace crv::test {
namespace {

Bytes build(const KeyStoreContents& contents, const char* password = kPassword) {
    SecretArray<20> salt;
    Bytes octets;
    EXPECT_EQ(buildSecurityFile(contents, SecretText(password), salt, octets), kKmOk);
    return octets;
}

KeyManagerResult load(ByteView octets, KeyStoreContents& out, const char* password = kPassword) {
    LoadedSecurityFile file;
    const KeyManagerResult result = readSecurityFile(octets, SecretText(password), true, file);
    return result == kKmOk ? analyzeKeysAndCerts(file, true, out) : result;
}

/// Roles of the keys, numbers of certificates, what else there is.
std::string outline(const KeyStoreContents& contents) {
    std::string text;
    for (const StoredKey& key : contents.keys) text += std::to_string(static_cast<int>(key.role));
    for (const CertList* list : {&contents.userCerts, &contents.trustedCerts})
        text += " " + std::to_string(list->size());
    return text + (contents.configuration ? " record" : "") + (contents.seed ? " seed" : "");
}

/// Some keys in some roles, some certificates where a reader would sort them to, a record and a seed.
KeyStoreContents randomContents(std::mt19937& random) {
    const auto dice = [&](unsigned sides) { return random() % sides; };
    KeyStoreContents contents;
    KeyRole left = KeyRole::Both;
    for (const char* name : {"rsa1", "rsa2", "ec", "dsa"}) {
        if (dice(2) == 0) continue;
        StoredKey key{sharedKey(name), static_cast<KeyRole>(dice(4)) & left};
        if (!isRsa(key.key->scheme())) key.role = key.role & KeyRole::Signing;
        left = without(left, key.role);
        contents.keys.push_back(key);
    }
    sortByRole(contents.keys);
    for (const char* name : {"ca", "ca_ec", "ca_md5", "sign", "sign_newer", "sign_other", "enc", "plain", "dsa"}) {
        if (dice(2) == 0) continue;
        const CertPtr cert = testCert(name);
        const bool paired = contents.findKey(cert->computeKeyIdentifierSha1Hash());
        (!paired && cert->isCaCrt() ? contents.trustedCerts : contents.userCerts).push_back(cert);
    }
    if (dice(4) != 0) {
        const auto record = std::make_shared<CRVCfgFile>();
        record->setIntOpt(kOptConnectTimeout, static_cast<long>(dice(1000)));
        record->setTrustedCAs({toBytes(encodingOf(*testCert("ca")))});
        contents.configuration = record;
        if (dice(2) != 0)
            std::ranges::generate(contents.seed.emplace(), [&] { return static_cast<uint8_t>(random()); });
    }
    return contents;
}

TEST(SecurityFile, HoldsWhateverWasPutIntoIt) {
    const unsigned seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    for (int i = 0; i < 30; ++i) {
        KeyStoreContents contents = randomContents(random);
        contents.strong = i == 7;
        KeyStoreContents again;
        ASSERT_EQ(load(build(contents), again), kKmOk);
        ASSERT_EQ(outline(again), outline(contents));
        ASSERT_EQ(build(again), build(contents)) << "the salts are the same, too";
    }
}

TEST(SecurityFile, OpensFilesOfOtherTools) {
    // file, password, result, outline
    const std::tuple<const char*, const char*, KeyManagerResult, const char*> files[] = {
        {"openssl_new.p12", "zażółć gęślą", kKmOk, "1 2 0"},
        {"openssl_old.p12", "𝄞klucz😀", kKmOk, "2 1 0"},
        {"openssl_ec.p12", "Hasło1234", kKmOk, "0 1 0"},  // an authority's key, by its certificate
        {"certtool_three.p12", "Zażółć_1", kKmOk, "120 2 0"},
        {"roots.p12", "korzenie", kKmOk, " 1 0"},
        {"roots_empty.p12", "", kKmOk, " 1 0"},
        {"openssl_ed25519.p12", "Hasło1234", kKmUnknownKeyAlgorithm, " 0 0"},
        {"openssl_new.p12", "zazolc gesla", kKmWrongPassword, " 0 0"},
        {"openssl_new.p12", "\xff\xfe", kKmWrongPassword, " 0 0"},
        {"key_rsa1.der", "x", kKmBadFormat, " 0 0"},
    };
    for (const auto& [name, password, result, holds] : files) {
        SCOPED_TRACE(std::string(name) + " under " + password);
        const std::string octets = readFile(dataFile(name));
        MemoryFile file(asBytes(octets));
        const bool unknownKey = result == kKmUnknownKeyAlgorithm;
        EXPECT_EQ(checkPasswdGF(file, SecretText(password)), unknownKey ? kKmOk : result) << "without a look inside";
        KeyStoreContents contents;
        ASSERT_EQ(load(asBytes(octets), contents, password), result);
        EXPECT_EQ(outline(contents), holds);
    }
}

TEST(SecurityFile, AnotherProgramsWordAboutAKeyComesAfterItsCertificates) {
    const TempDir dir;
    const std::string data = CRV_TEST_DATA;
    int status = 0;
    const std::string output = shell(
        "cd " + dir.path().string() + " && openssl x509 -inform DER -in " + data + "/crt_sign.der -out c.pem && " +
            "openssl pkey -inform DER -in " + data + "/key_rsa1.der -out k.pem && " +
            "openssl pkcs12 -export -keyex -inkey k.pem -in c.pem -out f.p12 -passout pass:x",
        &status);
    ASSERT_EQ(status, 0) << output;
    KeyStoreContents contents;
    ASSERT_EQ(load(asBytes(readFile(dir.file("f.p12"))), contents, "x"), kKmOk);
    EXPECT_EQ(outline(contents), "1 1 0") << "the attribute says 0x10: for encryption";
}

TEST(SecurityFile, TwoBagsOfOneCertificateKeepTheAttributesOfBoth) {
    Pfx pfx;
    for (const char* name : {"Pierwsza", "Druga"}) {
        SafeBag bag;
        bag.setFriendlyName(name);
        pfx.update(*testCert("sign"), {}, bag.otherAttributes());
    }
    const uint8_t salt[20] = {};
    ASSERT_EQ(pfx.final(PbeAlgo::Sha1TripleDesCbc, false, asBytes(kPassword), salt, sizeof salt), PfxResult::Ok);
    KeyStoreContents contents;
    ASSERT_EQ(load(pfx.encoded(), contents), kKmOk);
    ASSERT_EQ(contents.certAttributes.size(), 1u);
    Attributes both;
    ASSERT_TRUE(both.readExactly(contents.certAttributes.begin()->second));
    EXPECT_EQ(both[0].values.size(), 2u);
}

size_t count(std::string_view text, std::string_view what) {
    size_t found = 0;
    for (size_t at = 0; (at = text.find(what, at)) != std::string_view::npos; ++at) ++found;
    return found;
}

TEST(SecurityFile, OpensInOtherTools) {
    const TempDir dir;
    KeyStoreContents contents;
    contents.keys = {{sharedKey("rsa1"), KeyRole::Signing}, {sharedKey("rsa2"), KeyRole::Encryption}};
    contents.userCerts = {testCert("sign"), testCert("enc")};
    contents.trustedCerts = {testCert("ca")};
    const std::string password = "'" + std::string(kPassword) + "'";
    const auto run = [&](const std::string& command, int* status = nullptr) {
        return shell("cd " + dir.path().string() + " && " + command, status);
    };
    for (const bool withSecrets : {false, true}) {
        SCOPED_TRACE(withSecrets ? "with secret bags, which openssl does not know" : "without secret bags");
        if (withSecrets) contents.configuration = std::make_shared<CRVCfgFile>();
        if (withSecrets) contents.seed.emplace();
        writeFile(dir.file("f.p12"), std::string(asText(build(contents))));
        int status = 0;
        const std::string openssl =
            run("openssl pkcs12 -info -legacy -in f.p12 -nodes -passin pass:" + password, &status);
        EXPECT_EQ(status == 0, !withSecrets) << openssl;
        EXPECT_EQ(count(openssl, "MAC: sha1, Iteration 1\n"), 1u) << openssl;
        EXPECT_EQ(count(openssl, "pbeWithSHA1And3-KeyTripleDES-CBC, Iteration 2048"), 3u) << openssl;
        EXPECT_EQ(count(openssl, "BEGIN PRIVATE KEY"), 2u);
        EXPECT_EQ(count(openssl, "BEGIN CERTIFICATE"), 3u);
        if (withSecrets) continue;
        const std::string certtool = run("certtool --p12-info --inder --infile f.p12 --password " + password);
        EXPECT_EQ(count(certtool, "BEGIN CERTIFICATE"), 3u);
        EXPECT_EQ(count(certtool, "BEGIN ENCRYPTED PRIVATE KEY"), 2u);
        run("mkdir n && certutil -N -d sql:n --empty-password && pk12util -i f.p12 -d sql:n -W " + password);
        EXPECT_EQ(count(run("certutil -K -d sql:n"), "> rsa"), 2u);
    }
}

TEST(SecurityFile, StrongFilesOpenInFourToolsWithAllTheirSecrets) {
    const TempDir dir;
    KeyStoreContents contents;
    contents.keys = {{sharedKey("rsa1"), KeyRole::Signing}, {sharedKey("rsa2"), KeyRole::Encryption}};
    contents.userCerts = {testCert("sign"), testCert("enc")};
    contents.trustedCerts = {testCert("ca")};
    contents.configuration = std::make_shared<CRVCfgFile>();
    contents.seed.emplace();
    contents.strong = true;
    constexpr const char* kAscii = "Haslo-1234";  // keytool takes no other letters
    writeFile(dir.file("f.p12"), std::string(asText(build(contents))));
    writeFile(dir.file("a.p12"), std::string(asText(build(contents, kAscii))));
    const std::tuple<const char*, const char*, size_t> looks[] = {
        {"openssl pkcs12 -info -in f.p12 -nodes -passin pass:", "MAC: sha256, Iteration 600000\n", 1},
        {"openssl pkcs12 -info -in f.p12 -nodes -passin pass:",
         "PBES2, PBKDF2, AES-256-CBC, Iteration 600000, PRF hmacWithSHA256", 3},
        {"openssl pkcs12 -in f.p12 -nodes -passin pass:", "BEGIN PRIVATE KEY", 2},
        {"certtool --p12-info --inder --infile f.p12 --password ", "BEGIN CERTIFICATE", 3},
        {"certtool --p12-info --inder --infile f.p12 --password ", "BEGIN ENCRYPTED PRIVATE KEY", 2},
        {"mkdir n && certutil -N -d sql:n --empty-password && certutil -K -d sql:n; pk12util -i f.p12 -d sql:n -W ",
         "PKCS12 IMPORT SUCCESSFUL", 1},
        {"keytool -list -storetype PKCS12 -keystore a.p12 -storepass ", "PrivateKeyEntry", 2},
    };
    for (const auto& [command, what, times] : looks) {
        const std::string said =
            shell("cd " + dir.path().string() + " && " + command + "'" +
                      (std::string_view(command).starts_with("keytool") ? kAscii : kPassword) + "' 2>&1",
                  nullptr);
        EXPECT_EQ(count(said, what), times) << command << said;
    }
    KeyStoreContents again;
    ASSERT_EQ(load(asBytes(readFile(dir.file("f.p12"))), again), kKmOk);
    EXPECT_EQ(outline(again), "12 2 1 record seed");
    EXPECT_TRUE(again.strong);
}

/// A file of another tool: named bags, an attribute of a key, a CRL, a secret, a bag that nobody knows, a key of an
/// unknown algorithm, an unreadable certificate.
Bytes foreignFile() {
    static constexpr KnownOid kCrlBag{"1.2.840.113549.1.12.10.1.4", "crlBag"};
    static constexpr KnownOid kUnknown{"1.3.6.1.4.1.32473.99.1", "unknown"};
    SafeBag named(kCrlBag, ASNoctstr(asBytes("a CRL")));
    named.setFriendlyName("Lista główna");
    named.setLocalKeyId(asBytes("id"));
    const Bytes name = named.otherAttributes();
    PrivateKeyInfo info(testKey("rsa1"));
    info.addAttributes(name);
    Pfx pfx;
    pfx.update(info, testKey("rsa1").keyId(), name);
    pfx.update(*testCert("sign"), testKey("rsa1").keyId(), name);
    pfx.update(*testCert("ca"), {}, name);
    pfx.update(kUnknown, ASNoctstr(asBytes("another program's secret")));
    pfx.update(std::move(named));
    pfx.update(SafeBag(kUnknown, ASNnull()));
    PrivateKeyInfo edwards;
    edwards.privateKeyAlgorithm.algorithm = OID_ED25519;
    edwards.privateKey.build(asBytes("a key"));
    pfx.update(SafeBag(OID_PKCS12_KEY_BAG, edwards));
    pfx.update(SafeBag(OID_PKCS12_CERT_BAG, certificateBag(asBytes("no certificate"))));
    const uint8_t salt[20] = {};
    EXPECT_EQ(pfx.final(PbeAlgo::Sha1TripleDesCbc, false, asBytes(kPassword), salt, sizeof salt), PfxResult::Ok);
    return pfx.encoded();
}

TEST(SecurityFile, WhatOnlyOthersUnderstandSurvivesSavesAndMerges) {
    const auto look = [](ByteView octets) {
        Pfx pfx;
        PfxContents held;
        EXPECT_TRUE(pfx.readExactly(octets));
        EXPECT_EQ(pfx.getContents(PbePassword(kPassword), held), PfxResult::Ok);
        std::string text(asText(held.keys.at(0).key.privateKey.value()));
        text += std::to_string(held.keys.at(1).key.otherAttributes().size()) + " " + held.keys[1].friendlyName;
        for (const auto& certificate : held.certificates) text += ", " + certificate.friendlyName;
        text += asText(held.certificates.back().certificate);
        text += " " + std::to_string(held.secrets.size());
        std::vector<SecretBytes> others = held.others;
        std::ranges::sort(others);
        for (const SecretBytes& other : others) text += "|" + std::string(asText(other));
        return text;
    };
    const Bytes foreign = foreignFile();
    const TempDir dir;
    const std::string path = dir.file("keys.p12");
    writeFile(path, std::string(asText(foreign)));
    Session first(path), second(path);
    for (Session* session : {&first, &second}) ASSERT_EQ(session->login(), kKmOk);
    ASSERT_EQ(first.keys.addNewKey(KeyType::Encryption, sharedKey("rsa2")), kKmOk) << "merges";
    ASSERT_EQ(first.login(), kKmOk);
    std::string expected = look(foreign);
    ASSERT_NE(expected.find("Lista główna, Lista główna, Lista główna, no certificate 1|"), std::string::npos)
        << expected;
    expected.replace(expected.find(" 1|"), 3, " 3|");  // and our two
    EXPECT_EQ(look(asBytes(readFile(path))), expected);
}

TEST(SecurityFile, RefusesEveryDamage) {
    KeyStoreContents contents, out;
    contents.keys.push_back({sharedKey("ec"), KeyRole::Signing});
    contents.configuration = std::make_shared<CRVCfgFile>();
    contents.seed.emplace();
    const Bytes good = build(contents);
    for (size_t at = 0; at < good.size(); ++at) {
        for (const uint8_t flip : {uint8_t{1}, uint8_t{0x80}, uint8_t{0xFF}}) {
            Bytes bad = good;
            bad[at] ^= flip;
            const KeyManagerResult result = load(bad, out);
            ASSERT_TRUE(result == kKmWrongPassword || result == kKmBadFormat || result == kKmProtectionNotSupported)
                << "octet " << at << " xor " << static_cast<int>(flip) << ": " << result;
        }
    }
    for (size_t length = 0; length < good.size(); ++length)
        ASSERT_EQ(load(ByteView(good).first(length), out), kKmBadFormat) << length << " octets";
    Bytes longer = good;
    longer.push_back(0);
    EXPECT_EQ(load(longer, out), kKmBadFormat);
    EXPECT_TRUE(out.keys.empty());
}

}  // namespace
}  // namespace crv::test
