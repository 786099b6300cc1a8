// The world in which cases of paths and CRLs are tried: a root, an authority's database, a profile's policy.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <ctime>

#include "misc/hex.h"
#include "pki/certificate_manager.h"
#include "pki/revocation_manager.h"
#include "support/cert_maker.h"
#include "support/temp_dir.h"

namespace crv::test {

using Texts = std::vector<std::pair<std::string, std::string>>;

inline const int64_t kAsked = time(nullptr);

inline CertPlan caPlan(const std::string& name, Texts more = {}) {
    Texts all = caExtensions();
    for (auto& one : more) {
        std::erase_if(all, [&](const auto& old) { return old.first == one.first && one.second.find("DER") != 0; });
        if (!one.second.empty()) all.push_back(std::move(one));
    }
    return {.subject = {{"CN", name}}, .extensions = all};
}

/// A value of an extension that libcrypto's texts cannot express.
inline std::string der(const ASNobject& value, const char* front = "") {
    return front + std::string("DER:") + toHex(value.encoded());
}

class PathCasesTest : public testing::Test {
  protected:
    PathCasesTest() {
        certificates.init(database, cache, [this] { return trust; });
        certificates.setAlgorithmPolicy([this] { return policy; });
        revocation.init(certificates);
        fresh();
        trust.push_back(crv::makeCert(root.der));
    }
    void fresh() {
        DbConfig config;
        config.setType("w pamieci");
        config.dbName = dir.path().string() + std::to_string(++databases);
        database.init(config);
    }
    MadeCert issue(const CertPlan& plan, const MadeCert& issuer, TestKey with = nullptr) {
        const MadeCert made = test::makeCert(plan, &issuer, with ? with : key);
        EXPECT_TRUE(certificates.db().insert(ByteView(made.der)));
        return made;
    }
    PathVerdict path(const MadeCert& made, PathOptions options = {}) {
        options.time = kAsked;
        return certificates.buildPath(crv::makeCert(made.der), options);
    }

    const TempDir dir;
    int databases = 0;
    DbManager database;
    CertificateCache cache;
    CertificateManager certificates;
    RevocationManager revocation;
    CertList trust;
    std::optional<std::string> policy;
    const TestKey key = test::makeKey(), rootKey = test::makeKey();
    const MadeCert root = test::makeCert(caPlan("Korzeń"), nullptr, rootKey);
};

}  // namespace crv::test
