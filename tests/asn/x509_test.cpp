#include <gtest/gtest.h>

#include "asn/asn_strings.h"
#include "asn/x509/ext_distribution.h"
#include "asn/x509/ext_names.h"
#include "asn/x509/ext_policies.h"
#include "asn/x509/policy_id_and_note.h"
#include "asn/x509/signed_certificate.h"
#include "misc/base64_file.h"
#include "misc/hex.h"
#include "support/temp_dir.h"

namespace crv {
namespace {

using test::readFile;
using test::shell;
using test::TempDir;
using test::writeFile;

TEST(Certificates, Smoke) {
    TempDir dir;
    shell("cd " + dir.path().string() +
          " && openssl req -x509 -newkey rsa:2048 -nodes -keyout k -out c.der -outform DER -subj '/C=PL/CN=Jan  "
          "Nowak/emailAddress=a@b.pl' -utf8");
    const std::string der = readFile(dir.file("c.der"));
    SignedCertificate cert;
    ASSERT_TRUE(cert.readExactly(asBytes(der), ASN_FLAG_CONST));
    EXPECT_EQ(cert.encoded(), toBytes(asBytes(der)));
    SignedCertificate copy;
    ASSERT_GT(copy.copyObject(cert), 0);
    EXPECT_EQ(copy.encoded(), toBytes(asBytes(der)));
    EXPECT_TRUE(cert.isSignedBy(cert.keyInfo().publicKey()));
    EXPECT_TRUE(cert.isCaCrt());
    EXPECT_EQ(cert.email(), "a@b.pl");
    EXPECT_EQ(cert.subject().text(), "C=PL, CN=Jan  Nowak, E=a@b.pl");
}

}  // namespace
}  // namespace crv
