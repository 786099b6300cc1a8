#include <gtest/gtest.h>

#include <map>

#include "asn/x509/algorithm_params.h"
#include "asn/x509/ext_distribution.h"
#include "asn/x509/ext_names.h"
#include "asn/x509/ext_policies.h"
#include "asn/x509/policy_id_and_note.h"
#include "asn/x509/signed_certificate.h"
#include "crypto/sign_algo_map.h"
#include "misc/hex.h"
#include "support/temp_dir.h"

namespace crv {
namespace {

using test::readFile;
using test::shell;
using test::TempDir;
using test::writeFile;

constexpr const char* kConfig = R"(
[req]
distinguished_name = dn
[dn]
[mask_t61]
string_mask = MASK:4
distinguished_name = dn
[mask_bmp]
string_mask = MASK:2048
distinguished_name = dn
[small]
basicConstraints = critical,CA:TRUE
keyUsage = digitalSignature
[all]
basicConstraints = critical,CA:TRUE,pathlen:3
keyUsage = critical,keyCertSign,cRLSign,decipherOnly
extendedKeyUsage = serverAuth,1.3.6.1.4.1.32473.9.9
subjectKeyIdentifier = hash
authorityKeyIdentifier = keyid:always,issuer:always
subjectAltName = email:jan@example.org,DNS:example.org,URI:http://example.org/x,IP:192.0.2.7,IP:2001:db8::1,RID:1.2.3.4,dirName:dir,otherName:1.2.3.4;UTF8:inny
certificatePolicies = 1.2.3.4,@policy
policyConstraints = requireExplicitPolicy:3,inhibitPolicyMapping:0
policyMappings = 1.2.3.4:1.2.3.5
inhibitAnyPolicy = 2
nameConstraints = critical,permitted;email:.example.org,excluded;IP:10.0.0.0/255.0.0.0
crlDistributionPoints = points
freshestCRL = URI:http://example.org/delta.crl
authorityInfoAccess = OCSP;URI:http://ocsp.example.org,caIssuers;URI:http://example.org/ca.cer
2.5.29.16 = DER:30:22:80:0F:31:39:37:30:30:31:30:31:30:30:30:30:30:30:5A:81:0F:31:39:37:30:30:31:30:32:30:30:30:30:30:30:5A
1.3.6.1.5.5.7.1.3 = DER:30:0A:30:08:06:06:04:00:8E:46:01:01
1.3.6.1.4.1.32473.7 = DER:05:00
[dir]
CN = Katalog
[policy]
policyIdentifier = 1.2.3.9
CPS.1 = http://example.org/cps
userNotice.1 = @notice
[notice]
explicitText = UTF8:Tekst
organization = Org
noticeNumbers = 1,2
[points]
fullname = URI:http://example.org/ca.crl,URI:ldap://example.org/cn=ca
CRLissuer = dirName:dir
reasons = keyCompromise,CACompromise
)";

struct Source {
    const char* key;      ///< openssl command that makes the key "k"
    const char* request;  ///< options of "openssl req -x509" besides the common ones
    bool knownKey;        ///< whether the key can be made and checks the signature
};

const std::map<std::string, Source> kSources = {
    {"rsa-all",
     {"genrsa -out k 2048", "-extensions all -subj '/C=PL/O=Firma, \"A\" \\+ B/OU=#1 /CN=Zażółć gęślą jaźń'", true}},
    {"pss",
     {"genpkey -algorithm RSA-PSS -pkeyopt rsa_keygen_bits:2048 -out k",
      "-sha384 -sigopt rsa_padding_mode:pss -sigopt rsa_pss_saltlen:17 -extensions small -subj '/CN=pss'", true}},
    {"dsa", {"genpkey -paramfile dsa.par -out k", "-sha256 -extensions small -subj '/CN=dsa'", true}},
    {"ec-named",
     {"genpkey -algorithm EC -pkeyopt ec_paramgen_curve:P-384 -out k", "-sha384 -subj '/DC=pl/DC=x/UID=u/CN=ec'",
      true}},
    {"ec-explicit",
     {"genpkey -algorithm EC -pkeyopt ec_paramgen_curve:P-256 -pkeyopt ec_param_enc:explicit -out k", "-subj '/CN=ec'",
      true}},
    {"ed25519", {"genpkey -algorithm ED25519 -out k", "-subj '/CN=ed'", false}},
    {"t61", {"genrsa -out k 2048", "-section mask_t61 -subj '/CN=Óscar ñ/GN=b'", true}},
    {"bmp", {"genrsa -out k 2048", "-section mask_bmp -subj '/CN=Łódź'", true}},
    {"long",
     {"genrsa -out k 2048",
      "-set_serial 0xFFEEDDCCBBAA99887766554433221100FFEEDDCC -days 40000 -subj "
      "'/CN=a+SN=b+GN=c/1.3.6.1.4.1.32473.5=d'",
      true}},
};

/// The certificates of the table and one of certtool's, made once.
class MadeCertificates : public testing::Test {
  protected:
    static void SetUpTestSuite() {
        dir_ = new TempDir;
        writeFile(dir_->file("cnf"), kConfig);
        run("openssl genpkey -genparam -algorithm DSA -pkeyopt dsa_paramgen_bits:1024 -pkeyopt dsa_paramgen_q_bits:160 "
            "-out dsa.par");
        for (const auto& [name, source] : kSources) {
            run(std::string("openssl ") + source.key);
            run(std::string("openssl req -x509 -new -utf8 -config cnf -key k -outform DER -out ") + name + " " +
                source.request);
        }
        writeFile(dir_->file("tpl"),
                  "cn = \"Test, Certtool\"\nserial = 007\nca\ncert_signing_key\nemail = \"x@y.pl\"\n"
                  "crl_dist_points = \"http://a.b/c\"\npolicy1 = \"1.2.3\"\npolicy1_txt = \"napis\"\n");
        run("certtool --generate-privkey --key-type ecdsa --curve secp256r1 --outfile k2");
        run("certtool --generate-self-signed --outder --load-privkey k2 --template tpl --outfile certtool");
    }
    static void TearDownTestSuite() { delete dir_; }

    static std::string run(const std::string& command) {
        return shell("cd " + dir_->path().string() + " && { " + command + "; } 2>&1");
    }
    static std::vector<std::string> names() {
        std::vector<std::string> all = {"certtool"};
        for (const auto& [name, source] : kSources) all.push_back(name);
        return all;
    }
    static Bytes der(const std::string& name) { return toBytes(asBytes(readFile(dir_->file(name)))); }
    static SignedCertificate certificate(const std::string& name) {
        SignedCertificate cert;
        EXPECT_TRUE(cert.readExactly(der(name), ASN_FLAG_CONST | ASN_FLAG_COPY)) << name;
        return cert;
    }
    static TempDir* dir_;
};

TempDir* MadeCertificates::dir_ = nullptr;

TEST_F(MadeCertificates, RoundTripToTheSameOctetsInEveryMode) {
    for (const std::string& name : names()) {
        const Bytes octets = der(name);
        for (const unsigned char mode : {uint8_t{0}, ASN_FLAG_CONST, uint8_t{3}}) {
            SignedCertificate cert;
            ASSERT_TRUE(cert.readExactly(octets, mode)) << name;
            EXPECT_EQ(cert.encoded(), octets) << name << " mode " << static_cast<int>(mode);
            const SignedCertificate copy = cert;
            EXPECT_EQ(copy.encoded(), octets) << name;
            EXPECT_EQ(copy.fingerprint(KcHashAlgo::Sha1), hashOf(KcHashAlgo::Sha1, octets));
        }
    }
}

TEST_F(MadeCertificates, TruncationAtEveryOctetIsNoCertificate) {
    // Each piece is a block of its own, for the sanitizer.
    for (Bytes part = der("rsa-all"); !part.empty();) {
        part = Bytes(part.begin(), part.end() - 1);
        for (const unsigned char mode : {uint8_t{0}, ASN_FLAG_CONST})
            ASSERT_LE(SignedCertificate().readFromBuff(part, mode), 0) << part.size();
    }
}

/// Names and extensions that are views are checked by a walk, changeable ones by their objects.
TEST_F(MadeCertificates, ViewsTakeWhatObjectsTakeAfterAnyChangedOctet) {
    const Bytes sound = der("rsa-all");
    size_t taken = 0;
    for (size_t at = 0; at < sound.size(); ++at) {
        for (const int change : {1, 2, 4, 0x10, 0x20, 0x40, 0x80, 0xFF}) {
            Bytes octets = sound;
            octets[at] = static_cast<uint8_t>(octets[at] ^ change);
            SignedCertificate views, objects;
            const bool readable = objects.readExactly(octets);
            ASSERT_EQ(views.readExactly(octets, ASN_FLAG_CONST), readable) << at << " ^ " << change;
            if (!readable) continue;
            ++taken;
            ASSERT_EQ(views.subject().text(), objects.subject().text()) << at << " ^ " << change;
            ASSERT_EQ(views.extensions().size(), objects.extensions().size()) << at << " ^ " << change;
        }
    }
    EXPECT_GT(taken, sound.size());
    SignedCertificate moved, cert = certificate("rsa-all");
    moved = std::move(cert);
    const DistinguishedName issuer = std::move(moved.tbs.issuer);
    EXPECT_EQ(issuer.text(), certificate("rsa-all").issuer().text());
}

TEST_F(MadeCertificates, AgreeWithWhatOpensslPrints) {
    for (const std::string& name : names()) {
        const SignedCertificate cert = certificate(name);
        const std::string printed =
            run("openssl x509 -in " + name +
                " -inform DER -noout -subject -issuer -serial -dates -dateopt iso_8601"
                " -ocspid -nameopt esc_2253,esc_ctrl,utf8,dump_nostr,dump_der,sep_comma_plus_space,sname");
        const auto hash = cert.computeKeyIdentifierSha1Hash();
        for (const std::string& line : {"subject=" + cert.subject().text(), "issuer=" + cert.issuer().text(),
                                        "serial=" + toHex(cert.serialNumber().magnitude()),
                                        "notBefore=" + timeText(*cert.tbs.validity.notBefore.seconds()) + "Z",
                                        "notAfter=" + timeText(*cert.tbs.validity.notAfter.seconds()) + "Z",
                                        "Public key OCSP hash: " + toHex(hash)})
            EXPECT_NE(printed.find(line + "\n"), std::string::npos) << name << ": " << line << "\n" << printed;
    }
}

TEST_F(MadeCertificates, KeysAreMadeAndCheckTheSignature) {
    const PublicKey stranger = certificate("long").keyInfo().publicKey();
    for (const auto& [name, source] : kSources) {
        const SignedCertificate cert = certificate(name);
        if (!source.knownKey) {
            EXPECT_ANY_THROW(static_cast<void>(cert.keyInfo().publicKey())) << name;
            EXPECT_FALSE(readSignAlgorithm(cert.signatureAlgorithm)) << name;
            continue;
        }
        EXPECT_TRUE(cert.isSignedBy(cert.keyInfo().publicKey())) << name;
        EXPECT_TRUE(name == "long" || !cert.isSignedBy(stranger)) << name;
        SignedCertificate changed;
        ASSERT_GT(changed.copyObject(cert), 0);
        changed.tbs.serialNumber.setValue(1);
        EXPECT_FALSE(changed.isSignedBy(changed.keyInfo().publicKey())) << name;
        changed.tbs.serialNumber = cert.tbs.serialNumber;
        EXPECT_TRUE(changed.isSignedBy(changed.keyInfo().publicKey())) << name << ": put together again";
    }
    const auto pss = readSignAlgorithm(certificate("pss").signatureAlgorithm);
    ASSERT_TRUE(pss);
    EXPECT_EQ(pss->scheme, KeyScheme::RsaPss);
    EXPECT_EQ(pss->hash, KcHashAlgo::Sha384);
    EXPECT_EQ(pss->pss.saltLength, 17);
}

TEST_F(MadeCertificates, ParametersOfTheKeysAreUnderstood) {
    EcParams named, written;
    DsaParams dsa;
    for (const auto& [name, params] :
         {std::pair<const char*, ASNobject*>{"ec-named", &named}, {"ec-explicit", &written}, {"dsa", &dsa}})
        ASSERT_TRUE(*params << *certificate(name).keyInfo().algorithm.parameters) << name;
    EXPECT_TRUE(*named.namedCurve() == OID_CURVE_P384);
    EXPECT_EQ(written.namedCurve(), nullptr);
    EXPECT_TRUE(written.chosenAs<EcDomainParams>()->fieldId.fieldType == OID_PRIME_FIELD);
    EXPECT_EQ(written.chosenAs<EcDomainParams>()->order.magnitude().size(), 32U);
    EXPECT_EQ(dsa.p.magnitude().size(), 128U);
    EXPECT_EQ(dsa.q.magnitude().size(), 20U);
}

TEST_F(MadeCertificates, EveryExtensionIsDecoded) {
    const SignedCertificate cert = certificate("rsa-all");
    const Extensions& all = cert.extensions();
    const auto key = cert.computeKeyIdentifierSha1Hash();
    EXPECT_EQ(all.get<BasicConstraints>(OID_CE_BASIC_CONSTRAINTS)->pathLenConstraint->value(), 3);
    EXPECT_TRUE(all.find(OID_CE_BASIC_CONSTRAINTS)->critical.value());
    EXPECT_FALSE(all.find(OID_CE_EXT_KEY_USAGE)->critical.value());
    EXPECT_EQ(cert.keyUsage()->names(), (std::vector<std::string>{"keyCertSign", "cRLSign", "decipherOnly"}));
    EXPECT_EQ((*all.get<ExtKeyUsage>(OID_CE_EXT_KEY_USAGE))[1].text(), "1.3.6.1.4.1.32473.9.9");
    EXPECT_EQ(cert.getKeyIdFromCert(), Bytes(key.begin(), key.end()));
    EXPECT_EQ(cert.authorityKeyId(), Bytes(key.begin(), key.end()));
    const auto authority = all.get<AuthorityKeyIdentifier>(OID_CE_AUTHORITY_KEY_ID);
    EXPECT_TRUE(*(*authority->authorityCertIssuer)[0].name() == cert.subject());
    EXPECT_EQ(authority->authorityCertSerialNumber->decimal(), cert.serialNumber().decimal());

    std::string names;
    const auto alternatives = all.get<GeneralNames>(OID_CE_SUBJECT_ALT_NAME);
    for (const GeneralName& name : *alternatives) names += name.text() + "\n";
    EXPECT_EQ(names,
              "email:jan@example.org\nDNS:example.org\nURI:http://example.org/x\nIP Address:192.0.2.7\n"
              "IP Address:2001:db8::1\nRegistered ID:1.2.3.4\nDirName:CN=Katalog\notherName:1.2.3.4:inny\n");
    EXPECT_EQ(cert.emails(), (std::vector<std::string>{"jan@example.org"}));

    const auto policies = all.get<CertificatePolicies>(OID_CE_CERTIFICATE_POLICIES);
    EXPECT_FALSE((*policies)[0].policyQualifiers);
    const auto& qualifiers = *(*policies)[1].policyQualifiers;
    EXPECT_EQ(qualifiers[0].text(), "http://example.org/cps");
    EXPECT_EQ(qualifiers[1].text(), "Tekst");
    UserNotice notice;
    ASSERT_TRUE(notice << qualifiers[1].qualifier);
    EXPECT_EQ(notice.noticeRef->organization.utf8(), "Org");
    EXPECT_EQ(notice.noticeRef->noticeNumbers[1].value(), 2);
    EXPECT_EQ(all.get<PolicyConstraints>(OID_CE_POLICY_CONSTRAINTS)->requireExplicitPolicy->value(), 3);
    EXPECT_EQ((*all.get<PolicyMappings>(OID_CE_POLICY_MAPPINGS))[0].subjectDomainPolicy.text(), "1.2.3.5");
    EXPECT_EQ(all.get<ASNinteger>(OID_CE_INHIBIT_ANY_POLICY)->value(), 2);
    const auto constraints = all.get<NameConstraints>(OID_CE_NAME_CONSTRAINTS);
    EXPECT_EQ((*constraints->permittedSubtrees)[0].base.value(), ".example.org");
    EXPECT_EQ((*constraints->excludedSubtrees)[0].base.value(), "10.0.0.0/255.0.0.0");

    const auto points = all.get<CrlDistributionPoints>(OID_CE_CRL_DISTRIBUTION_POINTS);
    EXPECT_EQ(points->uris(), (std::vector<std::string>{"http://example.org/ca.crl", "ldap://example.org/cn=ca"}));
    EXPECT_EQ((*points)[0].reasons->names(), (std::vector<std::string>{"keyCompromise", "cACompromise"}));
    EXPECT_EQ((*(*points)[0].cRLIssuer)[0].value(), "CN=Katalog");
    EXPECT_EQ(all.get<CrlDistributionPoints>(OID_CE_FRESHEST_CRL)->uris()[0], "http://example.org/delta.crl");
    EXPECT_EQ(all.get<InfoAccess>(OID_PE_AUTHORITY_INFO_ACCESS)->uris(OID_AD_OCSP)[0], "http://ocsp.example.org");
    EXPECT_EQ(all.get<InfoAccess>(OID_PE_AUTHORITY_INFO_ACCESS)->uris(OID_AD_CA_REPOSITORY).size(), 0U);
    EXPECT_EQ(all.get<PrivateKeyUsagePeriod>(OID_CE_PRIVATE_KEY_USAGE_PERIOD)->notAfter->seconds(), 86400);
    EXPECT_TRUE((*all.get<QcStatements>(OID_PE_QC_STATEMENTS))[0].statementId == OID_QCS_COMPLIANCE);
    EXPECT_FALSE(all.get<ASNinteger>(OID_CE_KEY_USAGE)) << "of another type";
    EXPECT_FALSE(all.get<ASNinteger>(OID_CE_CRL_NUMBER)) << "absent";
}

TEST_F(MadeCertificates, AuthoritiesAndAddresses) {
    for (const char* name : {"rsa-all", "long", "certtool"}) EXPECT_TRUE(certificate(name).isCaCrt()) << name;
    EXPECT_FALSE(certificate("pss").isCaCrt()) << "keyUsage without keyCertSign";
    EXPECT_EQ(certificate("certtool").email(), "x@y.pl");
    EXPECT_EQ(certificate("t61").email(), "");
    const auto until = *certificate("long").tbs.validity.notAfter.seconds();
    EXPECT_TRUE(certificate("long").isValidAt(until));
    EXPECT_FALSE(certificate("long").isValidAt(until + 1));
    EXPECT_EQ(certificate("t61").getKeyIdFromCert().size(), 20U);
    EXPECT_TRUE(certificate("certtool").isSelfIssued());
}

DistinguishedName name(const char* text) {
    return *DistinguishedName::fromText(text);
}

TEST(DistinguishedNames, TextBothWays) {
    const std::pair<const char*, const char*> kRows[] = {
        {"CN=Jan Kowalski, O=Firma", "CN=Jan Kowalski, O=Firma"},
        {" cn = a\\, b ;2.5.4.10=\"x;y\"+OU=#0C0161", "CN=a\\, b, O=x\\;y + OU=a"},
        {"CN=\\C5\\82\\ ", "CN=ł\\ "},
        {"CN=\\#x\\0A", "CN=\\#x\\0A"},
        {"CN=", "CN="},
        {"1.2.3.4=#0500", "1.2.3.4=#0500"},
        {"", ""},
    };
    for (const auto& [in, out] : kRows) {
        EXPECT_EQ(name(in).text(), out);
        EXPECT_TRUE(name(out) == name(in)) << in;
    }
    for (const char* bad : {"CN", "=a", "CN=a,", "CN=a+", "CN=\"a", "CN=\"a\"b", "CN=a\\", "XX=a", "CN=#05", "CN=#0",
                            ",CN=a", "1.2.3.=a"})
        EXPECT_FALSE(DistinguishedName::fromText(bad)) << bad;
    DistinguishedName made;
    made.add(OID_AT_COUNTRY, "PL");
    made.add(OID_PKCS9_EMAIL, "a@b");
    made.add(OID_AT_COMMON_NAME, "Ł");
    EXPECT_EQ(toHex(made.encoded()),
              "302E310B300906035504061302504C3112301006092A864886F70D0109011603614062310B300906035504030C02C581");
    EXPECT_EQ(made.find(OID_PKCS9_EMAIL), "a@b");
    EXPECT_EQ(made.find(OID_AT_ORGANIZATION), std::nullopt);
}

TEST(DistinguishedNames, CompareByTheirNormalisedForm) {
    EXPECT_EQ(name("CN=\\ Jan  KOWALSKI \\ , O=x").normalize().text(), "CN=jan kowalski, O=x");
    const std::tuple<const char*, const char*, bool> kRows[] = {
        {"CN=Jan  Kowalski", "cn=JAN KOWALSKI", true},
        {"CN=#1E06004A0061006E", "CN=jan", true},  // another string type
        {"CN=a+OU=b", "OU=B+CN=A", true},          // a set has no order
        {"CN=a, OU=b", "OU=b, CN=a", false},
        {"CN=Ł", "CN=ł", true},  // only ASCII letters fold
        {"CN=a", "CN=a, O=b", false},
        {"CN=#0C02C3A9", "CN=é", true},
        {"CN=#0C01FF", "CN=#0C01FE", false},  // both no UTF-8, so not the same for being shown alike
    };
    for (const auto& [one, other, same] : kRows) EXPECT_EQ(name(one) == name(other), same) << one << other;
    const DistinguishedName normal = name("CN=A  B").normalize();
    EXPECT_EQ(normal.encoded(), normal.normalize().encoded());
    EXPECT_EQ(normal[0][0].value.getTag(), ASN_TAG_UTF8);
}

TEST(DistinguishedNames, LinesForAScreen) {
    const DistinguishedName odd = name("CN=Łoś\\1B[2J, O=α");
    EXPECT_EQ(odd.lines({true, false}).at(0), "CN=Łoś\\1B[2J");
    EXPECT_EQ(odd.lines({false, false}), (std::vector<std::string>{"CN=\xA3o\x9C\\1B[2J", "O=?"}));
    for (const bool utf8 : {false, true}) EXPECT_EQ(odd.lines({utf8, true}).at(0), "CN=\\C5\\81o\\C5\\9B\\1B[2J");
    EXPECT_EQ(displayText("a\u202Eb\u0085\u061C", {}), "a\\E2\\80\\AEb\\C2\\85\\D8\\9C");
}

TEST(SignAlgorithms, EveryRowGoesBothWays) {
    size_t rows = 0;
    for (const SignAlgo& row : signAlgoMap()) {
        const auto identifier = signAlgorithm(row.scheme, row.hash);
        EXPECT_EQ(identifier.has_value(), row.scheme != KeyScheme::None && isHash(row.hash)) << row.name;
        EXPECT_NE(ASNobjectId::fromText(row.oid)->name(), row.oid) << "has a name";
        if (!identifier) continue;
        ++rows;
        AlgorithmIdentifier back;
        ASSERT_TRUE(back.readExactly(identifier->encoded()));
        const auto read = readSignAlgorithm(back);
        ASSERT_TRUE(read) << row.name;
        EXPECT_EQ(read->scheme, row.scheme) << row.name;
        EXPECT_EQ(read->hash, row.hash) << row.name;
        EXPECT_EQ(signAlgorithmName(back), row.name);
    }
    EXPECT_EQ(rows, 31U);
    for (const auto& [scheme, encoding] : {std::pair{KeyScheme::RsaPss, "300D06092A864886F70D01010A3000"},
                                           {KeyScheme::Rsa, "300D06092A864886F70D0101050500"},
                                           {KeyScheme::Ecdsa, "300906072A8648CE3D0401"}})
        EXPECT_EQ(toHex(signAlgorithm(scheme, KcHashAlgo::Sha1)->encoded()), encoding);
    EXPECT_FALSE(readSignAlgorithm(AlgorithmIdentifier(OID_RSA_PSS))) << "PSS without parameters";
    EXPECT_FALSE(readSignAlgorithm(AlgorithmIdentifier(OID_RSA_ENC)));
}

TEST_F(MadeCertificates, AlgorithmsInsideAndOutsideMustAgree) {
    SignedCertificate cert;
    ASSERT_GT(cert.copyObject(certificate("bmp")), 0);
    const PublicKey key = cert.keyInfo().publicKey();
    EXPECT_EQ(SubjectPublicKeyInfo(key).encoded(), cert.keyInfo().encoded());
    EXPECT_TRUE(cert.isSignedBy(key));
    cert.signatureAlgorithm.parameters.reset();
    EXPECT_TRUE(cert.isSignedBy(key)) << "absent parameters and NULL are the same";
    cert.signatureAlgorithm = *signAlgorithm(KeyScheme::Rsa, KcHashAlgo::Sha512);
    EXPECT_FALSE(cert.isSignedBy(key));

    SignedCertificateWithDesc described;
    described.certificate = certificate("bmp");
    described.description.emplace("Urząd");
    SignedCertificateWithDesc back;
    ASSERT_TRUE(back.readExactly(described.encoded()));
    EXPECT_EQ(back.description->utf8(), "Urząd");
    EXPECT_EQ(back.certificate.encoded(), der("bmp"));
}

TEST(Extensions, BuiltOnesHaveTheirDerForm) {
    Extensions extensions;
    KeyUsage usage;
    usage.setNamedBits(1U << KeyUsage::kDigitalSignature | 1U << KeyUsage::kNonRepudiation);
    extensions.set(OID_CE_KEY_USAGE, usage, true);
    IssuingDistributionPoint point;
    point.distributionPoint.emplace();
    auto& names = dynamic_cast<GeneralNames&>(*point.distributionPoint->setChosenIndex(0));
    names.add().setText(GeneralName::kUri, "x:y");
    point.onlyContainsCaCerts.setValue(true);
    extensions.set(OID_CE_ISSUING_DISTRIBUTION_POINT, point);
    EXPECT_EQ(toHex(extensions.encoded()),
              "3027300E0603551D0F0101FF0404030206C030150603551D1C040E300CA007A0058603783A798201FF");
    Extensions back;
    ASSERT_TRUE(back.readExactly(extensions.encoded()));
    const auto read = back.get<IssuingDistributionPoint>(OID_CE_ISSUING_DISTRIBUTION_POINT);
    EXPECT_TRUE(read->onlyContainsCaCerts.value());
    EXPECT_FALSE(read->indirectCrl.value());
    EXPECT_EQ((*read->distributionPoint->fullName())[0].text(), "URI:x:y");
    GeneralName directory;
    directory.setName(name("CN=a"));
    EXPECT_EQ(toHex(directory.encoded()), "A40E300C310A30080603550403130161");
}

TEST(SmallStructures, PolicyNoteKeepsItsZeroOctet) {
    const PolicyIdAndNote policy(*ASNobjectId::fromText("1.2.3"), "Ala");
    EXPECT_EQ(toHex(policy.encoded()), "300A06022A030404416C6100");
    EXPECT_EQ(policy.noteText(), "Ala");
    PolicyIdAndNote bare;
    ASSERT_TRUE(bare.readExactly(policy.encoded()));
    bare.note.build(std::string_view("Bez"));
    EXPECT_EQ(bare.noteText(), "Bez");
}

TEST(SmallStructures, TimeTakesTheTypeThatItsYearAsksFor) {
    const auto text = [](int64_t seconds) { return std::string(Time(seconds).chosenAs<ASNtimeString>()->text()); };
    EXPECT_EQ(text(2524607999), "491231235959Z");
    EXPECT_EQ(text(2524608000), "20500101000000Z");
    EXPECT_EQ(text(-631152001), "19491231235959Z");
    EXPECT_EQ(text(INT64_MAX / 2), "99991231235959Z");
    EXPECT_EQ(Time().seconds(), std::nullopt);
}

}  // namespace
}  // namespace crv
