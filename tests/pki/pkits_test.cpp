// NIST PKITS: every case along the path that it gives, and with the path left to be found.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <regex>
#include <set>

#include "asn/x509/signed_certificate.h"
#include "crypto/crypto_error.h"
#include "pki/certificate_manager.h"
#include "pki/revocation_manager.h"
#include "support/temp_dir.h"

using namespace crv;
using crv::test::TempDir;

namespace {

const std::string kData = CRV_SOURCE_DIR "/tests/data/pkits/";
constexpr int64_t kMoment = 1338508800;  // 2012-06-01: SHA-1 and short keys still pass

/// One line of cases.json.
class Case {
  public:
    explicit Case(std::string line) : line_(std::move(line)) {}

    [[nodiscard]] std::string text(const std::string& name) const {
        std::smatch found;
        return std::regex_search(line_, found, std::regex('"' + name + R"x(": "([^"]*)")x")) ? found[1].str() : "";
    }
    [[nodiscard]] bool flag(const std::string& name) const {
        return line_.find('"' + name + "\": true") != std::string::npos;
    }
    [[nodiscard]] std::vector<std::string> list(const std::string& name) const {
        std::smatch found;
        std::vector<std::string> out;
        if (!std::regex_search(line_, found, std::regex('"' + name + R"x(": \[([^\]]*)\])x"))) return out;
        const std::string all = found[1];
        const std::regex item("\"([^\"]*)\"");
        for (std::sregex_iterator at(all.begin(), all.end(), item), end; at != end; ++at) out.push_back((*at)[1]);
        return out;
    }
    [[nodiscard]] bool has(const std::string& name) const { return line_.find('"' + name + '"') != std::string::npos; }

  private:
    std::string line_;
};

ASNobjectId policyOf(const std::string& name) {
    static const std::string prefix = "NIST-test-policy-";
    if (name == "anyPolicy") return ASNobjectId(OID_ANY_POLICY);
    return ASNobjectId::fromText("2.16.840.1.101.3.2.1.48." + name.substr(prefix.size())).value();
}

std::set<ASNobjectId> policiesOf(const std::vector<std::string>& names) {
    std::set<ASNobjectId> out;
    for (const std::string& name : names) out.insert(policyOf(name));
    return out;
}

PathOptions optionsOf(const Case& one) {
    PathOptions options{kMoment, 0, RevocationCheck::Required};
    for (const std::string& name : one.list("initial_policy_set")) options.policies.push_back(policyOf(name));
    options.explicitPolicy = one.flag("initial_explicit_policy");
    options.inhibitMapping = one.flag("initial_policy_mapping_inhibit");
    options.inhibitAnyPolicy = one.flag("initial_inhibit_any_policy");
    return options;
}

Bytes contentOf(const std::string& path) {
    std::ifstream file(kData + path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

class PkitsTest : public testing::Test {
  protected:
    void setUp(const Case& one) {
        DbConfig config;
        config.setType("w pamieci");
        config.dbName = dir.path().string() + std::to_string(++count);
        database.init(config);
        path.clear();
        for (const std::string& name : one.list("path"))
            path.insert(path.begin(), cache.certificate(contentOf("certs/" + name + ".crt")));
        for (const std::string& name : one.list("crls"))
            EXPECT_EQ(revocation.insert(contentOf("crls/" + name + ".crl")), CrlInsert::Stored) << name;
        for (const CertPtr& certificate : path) EXPECT_TRUE(certificates.db().insert(encodingOf(*certificate)));
    }
    static bool isSigned(const CertPtr& one, const CertPtr& by) {
        try {
            return one->isSignedBy(by->keyInfo().publicKey());
        } catch (const CryptoError&) {  // a key that leaves its parameters to its issuer
            return false;
        }
    }
    /// The path without the certificates that issued none of the others but only sign CRLs.
    [[nodiscard]] CertList chain() const {
        CertList out{path.front()};
        for (size_t i = 1; i < path.size(); ++i) {
            const CertPtr& below = out.back();
            const bool other = !isSigned(below, path[i]) && std::any_of(path.begin(), path.end(), [&](const auto& one) {
                return isSigned(below, one);
            });
            if (path[i]->subject() == below->issuer() && !other) out.push_back(path[i]);
        }
        return out;
    }
    static void expect(const PathVerdict& found, const Case& one, const char* how) {
        const std::string what = one.text("section") + " " + one.text("title") + " " + how;
        EXPECT_EQ(found.good(), one.flag("valid"))
            << what << ": " << found.code << " " << found.clause << " " << found.reason << " at " << found.failedAt;
        EXPECT_EQ(found.good(), found.clause.empty()) << what;
        if (!found.good() || one.list("initial_policy_set").empty()) return;
        const std::set<ASNobjectId> policies(found.policies.begin(), found.policies.end());
        const auto wanted = one.has("user_constrained_policy_set") ? policiesOf(one.list("user_constrained_policy_set"))
                                                                   : policiesOf({"NIST-test-policy-1"});
        EXPECT_EQ(policies, wanted) << what;
    }

    const TempDir dir;
    int count = 0;
    DbManager database;
    CertificateCache cache;
    CertificateManager certificates;
    RevocationManager revocation;
    CertList path;
};

TEST_F(PkitsTest, EveryCaseEndsAsItShould) {
    certificates.init(database, cache, [this] { return CertList{path.back()}; });
    revocation.init(certificates);
    std::ifstream cases(kData + "cases.json");
    size_t read = 0;
    for (std::string line; std::getline(cases, line);) {
        if (line.find("\"section\"") == std::string::npos) continue;
        const Case one(line);
        ++read;
        setUp(one);
        expect(certificates.checkPath(chain(), optionsOf(one)), one, "along the path");
        expect(certificates.buildPath(path.front(), optionsOf(one)), one, "searching");
    }
    EXPECT_EQ(read, 249U);
}

}  // namespace
