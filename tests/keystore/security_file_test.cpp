// The security file as octets: round trips, other tools' files, ours in other tools, damage.
#include "src/security_file.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "corvane/crvprofile.h"
#include "key_store_session.h"
#include "misc/memory_file.h"
#include "src/config_oids.h"
#include "src/key_pairing.h"
#include "support/temp_dir.h"

namespace crv::test {
namespace {

const char* const kKeyNames[] = {"rsa1", "rsa2", "ec", "dsa"};
const char* const kCertNames[] = {"ca", "ca_ec", "ca_md5", "sign", "sign_newer", "sign_other", "enc", "plain", "dsa"};

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

std::string describe(const KeyStoreContents& contents) {
    std::vector<std::string> lines;
    for (const StoredKey& key : contents.keys)
        lines.push_back("key " + std::to_string(int(key.role)) + std::string(asText(key.key.toPkcs8())));
    const std::pair<const char*, const CertList*> lists[] = {{"user ", &contents.userCerts},
                                                             {"trusted ", &contents.trustedCerts}};
    for (const auto& [name, list] : lists)
        for (const CertPtr& cert : *list) lines.push_back(name + std::string(asText(encodingOf(*cert))));
    std::ranges::sort(lines);
    std::string all;
    for (const std::string& line : lines) all += line + "\n";
    if (contents.configuration) all += "record " + std::string(asText(contents.configuration->encoded()));
    if (contents.seed) all += "seed " + std::string(asText(*contents.seed));
    return all;
}

/// Some keys in some roles, some certificates where a reader would sort them to, a record and a seed.
KeyStoreContents randomContents(std::mt19937& random) {
    const auto dice = [&](unsigned sides) { return random() % sides; };
    KeyStoreContents contents;
    KeyRole left = KeyRole::Both;
    for (const char* name : kKeyNames) {
        if (dice(2) == 0) continue;
        StoredKey key{testKey(name), KeyRole(dice(4)) & left};
        if (!isRsa(key.key.scheme())) key.role = key.role & KeyRole::Signing;
        left = without(left, key.role);
        contents.keys.push_back(key);
    }
    sortByRole(contents.keys);
    for (const char* name : kCertNames) {
        if (dice(2) == 0) continue;
        const CertPtr cert = testCert(name);
        const bool paired = contents.findKey(cert->computeKeyIdentifierSha1Hash());
        (!paired && cert->isCaCrt() ? contents.trustedCerts : contents.userCerts).push_back(cert);
    }
    if (dice(4) != 0) {
        const auto record = std::make_shared<CRVCfgFile>();
        record->setIntOpt(17, long(dice(1000)));
        record->setTrustedCAs({toBytes(encodingOf(*testCert("ca")))});
        contents.configuration = record;
        if (dice(2) != 0) std::ranges::generate(contents.seed.emplace(), [&] { return uint8_t(random()); });
    }
    return contents;
}

TEST(SecurityFile, HoldsWhateverWasPutIntoIt) {
    const unsigned seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    for (int i = 0; i < 30; ++i) {
        const KeyStoreContents contents = randomContents(random);
        KeyStoreContents again;
        ASSERT_EQ(load(build(contents), again), kKmOk);
        ASSERT_EQ(describe(again), describe(contents));
    }
}

TEST(SecurityFile, OpensFilesOfOtherTools) {
    // file, password, result, roles of the keys in order, user's and trusted certificates
    const std::tuple<const char*, const char*, KeyManagerResult, const char*, size_t, size_t> files[] = {
        {"openssl_new.p12", "zażółć gęślą", kKmOk, "1", 1, 1},
        {"openssl_old.p12", "𝄞klucz😀", kKmOk, "2", 1, 0},
        {"openssl_ec.p12", "Hasło1234", kKmOk, "0", 1, 0},  // an authority's key, by its certificate
        {"certtool_three.p12", "Zażółć_1", kKmOk, "120", 2, 0},
        {"nss.p12", "Gęś+Ósemka9", kKmOk, "1", 1, 0},
        {"roots.p12", "korzenie", kKmOk, "", 0, 1},
        {"roots_empty.p12", "", kKmOk, "", 0, 1},
        {"openssl_ed25519.p12", "Hasło1234", kKmUnknownKeyAlgorithm, "", 0, 0},
        {"openssl_new.p12", "zazolc gesla", kKmWrongPassword, "", 0, 0},
        {"openssl_new.p12", "\xff\xfe", kKmWrongPassword, "", 0, 0},
        {"key_rsa1.der", "x", kKmBadFormat, "", 0, 0},
    };
    for (const auto& [name, password, result, roles, userCerts, trustedCerts] : files) {
        SCOPED_TRACE(std::string(name) + " under " + password);
        KeyStoreContents contents;
        ASSERT_EQ(load(asBytes(readFile(dataFile(name))), contents, password), result);
        std::string found;
        for (const StoredKey& key : contents.keys) found += char('0' + int(key.role));
        EXPECT_EQ(found, roles);
        EXPECT_EQ(contents.userCerts.size(), userCerts);
        EXPECT_EQ(contents.trustedCerts.size(), trustedCerts);
    }
}

KeyStoreContents ordinaryContents(bool withSecrets) {
    KeyStoreContents contents;
    contents.keys = {{testKey("rsa1"), KeyRole::Signing}, {testKey("rsa2"), KeyRole::Encryption}};
    contents.userCerts = {testCert("sign"), testCert("enc")};
    contents.trustedCerts = {testCert("ca")};
    if (withSecrets) {
        contents.configuration = std::make_shared<CRVCfgFile>();
        contents.seed.emplace();
    }
    return contents;
}

int count(const std::string& text, const std::string& what) {
    int found = 0;
    for (size_t at = 0; (at = text.find(what, at)) != std::string::npos; ++at) ++found;
    return found;
}

TEST(SecurityFile, OpensInOtherTools) {
    const TempDir dir;
    const std::string p12 = dir.file("f.p12");
    const auto out = [&](const std::string& command, int* status) {
        return shell("cd " + dir.path().string() + " && " + command, status);
    };
    const std::string openssl = "openssl pkcs12 -legacy -in f.p12 -nodes -passin 'pass:" + std::string(kPassword) + "'";
    int status = 0;
    for (const bool withSecrets : {false, true}) {
        SCOPED_TRACE(withSecrets ? "with secret bags" : "without secret bags");
        writeFile(p12, std::string(asText(build(ordinaryContents(withSecrets)))));
        const std::string printed = out(openssl, &status);
        EXPECT_EQ(status == 0, !withSecrets) << printed;
        EXPECT_EQ(printed.find("Mac verify error"), std::string::npos);
        EXPECT_EQ(count(printed, "BEGIN PRIVATE KEY"), 2);
        EXPECT_EQ(count(printed, "BEGIN CERTIFICATE"), 3);
    }
    writeFile(p12, std::string(asText(build(ordinaryContents(false)))));
    const std::string certtool =
        out("certtool --p12-info --inder --infile f.p12 --password '" + std::string(kPassword) + "'", &status);
    EXPECT_EQ(status, 0) << certtool;
    EXPECT_EQ(count(certtool, "BEGIN CERTIFICATE"), 3);
    EXPECT_EQ(count(certtool, "BEGIN ENCRYPTED PRIVATE KEY"), 2);
    const std::string nss = out("mkdir n && certutil -N -d sql:n --empty-password && pk12util -i f.p12 -d sql:n -W '" +
                                    std::string(kPassword) + "' && certutil -K -d sql:n",
                                &status);
    EXPECT_EQ(status, 0) << nss;
    EXPECT_NE(nss.find("< 1> rsa"), std::string::npos) << nss;
}

TEST(SecurityFile, RefusesEveryDamage) {
    KeyStoreContents contents;
    contents.keys.push_back({testKey("ec"), KeyRole::Signing});
    contents.configuration = std::make_shared<CRVCfgFile>();
    contents.seed.emplace();
    const Bytes good = build(contents);
    KeyStoreContents out;
    for (size_t at = 0; at < good.size(); ++at)
        for (const uint8_t flip : {uint8_t{1}, uint8_t{0x80}, uint8_t{0xFF}}) {
            Bytes bad = good;
            bad[at] ^= flip;
            const KeyManagerResult result = load(bad, out);
            ASSERT_TRUE(result == kKmWrongPassword || result == kKmBadFormat)
                << "octet " << at << " xor " << int(flip) << ": " << result;
        }
    for (size_t length = 0; length < good.size(); ++length)
        ASSERT_EQ(load(ByteView(good).first(length), out), kKmBadFormat) << length << " octets";
    Bytes longer = good;
    longer.push_back(0);
    EXPECT_EQ(load(longer, out), kKmBadFormat);
    EXPECT_TRUE(out.keys.empty());
}

TEST(SecurityFile, ChecksAPasswordAlone) {
    const Bytes good = build(ordinaryContents(true));
    const auto check = [](ByteView octets, const char* password) {
        MemoryFile file(octets);
        return checkPasswdGF(file, SecretText(password));
    };
    EXPECT_EQ(check(good, kPassword), kKmOk);
    EXPECT_EQ(check(good, "Zazolc-1234"), kKmWrongPassword);
    EXPECT_EQ(check(ByteView(good).first(100), kPassword), kKmBadFormat);
    EXPECT_EQ(check({}, kPassword), kKmBadFormat);
}

}  // namespace
}  // namespace crv::test
