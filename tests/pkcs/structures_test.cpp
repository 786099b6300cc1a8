// What every structure of this folder must do with files of other programs.
#include <gtest/gtest.h>

#include "asn/pkcs/certification_request.h"
#include "asn/pkcs/dsa_private_key.h"
#include "asn/pkcs/ec_private_key.h"
#include "asn/pkcs/pfx.h"
#include "asn/pkcs/rsa_private_key.h"
#include "asn/x509/signed_cert_rev_list.h"
#include "pkcs/data_file.h"

namespace crv::test {
namespace {

struct Kind {
    const char* prefix;
    const char* suffix;
    std::unique_ptr<ASNobject> (*make)();
};
template <class T>
std::unique_ptr<ASNobject> make() {
    return std::make_unique<T>();
}
const Kind kKinds[] = {
    {"pfx_", ".p12", make<Pfx>},
    {"key_", ".der", make<PrivateKeyInfo>},
    {"enc_", ".der", make<EncryptedPrivateKeyInfo>},
    {"cms_", ".der", make<ContentInfo>},
    {"p7_", ".der", make<ContentInfo>},
    {"req_", ".der", make<CertificationRequest>},
    {"crl_", ".der", make<SignedCertRevList>},
    {"plain_rsa", ".der", make<RSAPrivateKey>},
    {"plain_dsa", ".der", make<DSAPrivateKey>},
    {"plain_ec", ".der", make<ECPrivateKey>},
};

void PrintTo(const Kind& kind, std::ostream* out) {
    *out << kind.prefix;
}

class Structures : public testing::TestWithParam<Kind> {};

/// Keeping mode gives back the octets whatever their form is; the other one as long as they are DER (and
/// do not leave out a MAC's count of 1, which we write).
TEST_P(Structures, GiveBackTheOctetsThatWereRead) {
    const auto names = dataFiles(GetParam().prefix, GetParam().suffix);
    ASSERT_FALSE(names.empty());
    for (const std::string& name : names) {
        const Bytes octets = dataFile(name);
        const auto object = GetParam().make();
        ASSERT_TRUE(object->readExactly(octets, ASN_FLAG_CONST)) << name;
        EXPECT_EQ(object->encoded(), octets) << name;
        ASSERT_TRUE(object->readExactly(octets)) << name;
        if (octets[1] == 0x80 || name == "pfx_nomaciter.p12") continue;
        EXPECT_EQ(object->encoded(), octets) << name;
    }
}

TEST_P(Structures, TruncatedFilesAreRefusedAtEveryOctet) {
    for (const std::string& name : dataFiles(GetParam().prefix, GetParam().suffix)) {
        const Bytes octets = dataFile(name);
        const auto object = GetParam().make();
        for (size_t length = 0; length < octets.size(); ++length)
            ASSERT_FALSE(object->readExactly(ByteView(octets).first(length))) << name << " cut to " << length;
    }
}

INSTANTIATE_TEST_SUITE_P(Pkcs, Structures, testing::ValuesIn(kKinds), [](const auto& row) {
    std::string name = row.param.prefix;
    std::erase(name, '_');
    return name;
});

}  // namespace
}  // namespace crv::test
