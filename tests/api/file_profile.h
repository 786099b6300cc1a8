// A profile for tests of calls.
#pragma once

#include <gtest/gtest.h>
#include <openssl/x509.h>

#include "config/config_oids.h"
#include "context/crvctx.h"
#include "corvane/crvapi.h"
#include "crypto/private_key.h"
#include "crypto/public_key.h"
#include "support/cert_maker.h"
#include "support/temp_dir.h"

namespace crv::test {

/// A file profile with its database and, when made, its security file under the password "Tajne123".
class FileProfile : public testing::Test {
  protected:
    FileProfile() {
        profile_->setAttr(CRVPROFILE_ATTR_NAME, "Ala");
        profile_->setAttr(CRVPROFILE_ATTR_DB_TYPE, "corvane");
        profile_->setAttr(CRVPROFILE_ATTR_DB, dir_.file("db"));
        profile_->setAttr(CRVPROFILE_ATTR_PKCS12_FILE, dir_.file("keys.p12"));
    }

    void bind(CRVctx& ctx, const char* pin = "Tajne123") const {
        ctx.setProfile(profile_->clone());
        ASSERT_EQ(crvStorePINUtf8API(&ctx, 1, pin), 0);
    }

    /// Creates database and security file and stays logged in.
    void create(CRVctx& ctx) const {
        bind(ctx);
        ASSERT_TRUE(ctx.dbManager.createDb());
        ctx.keyManager.beginNewProfile();
        ASSERT_EQ(ctx.keyManager.rbgInit(asBytes("sixty keys typed at random moments")), kKmOk);
        ctx.configurationManager.resetRecord();
        ctx.configurationManager.editRecord().setIntOpt(kOptConnectTimeout, 77);
        ASSERT_EQ(ctx.keyManager.saveConfiguration(), kKmOk);
    }

    /// A key for both uses with its certificate and a trusted point, saved.
    static void giveKey(KeyManager& keys) {
        ASSERT_EQ(keys.generateRsaUserKey(KeyType::Both, 65537, 2048, KeyScheme::Rsa), kKmOk);
        const Bytes spki = dynamic_cast<const PrivateKey&>(*keys.signingKey()).publicKey().toSpki();
        const unsigned char* at = spki.data();
        const TestKey key(d2i_PUBKEY(nullptr, &at, static_cast<long>(spki.size())), EVP_PKEY_free);
        const MadeCert root = makeCert({.subject = {{"CN", "Korzeń"}}, .extensions = caExtensions()});
        ASSERT_EQ(keys.installUserCrt(crv::makeCert(makeCert({.subject = {{"CN", "Jan"}}}, &root, key).der)), kKmOk);
        ASSERT_EQ(keys.addTrustedCA(crv::makeCert(root.der)), kKmOk);
        ASSERT_EQ(keys.saveConfiguration(), kKmOk);
    }

    TempDir dir_;
    std::unique_ptr<CrvProfile> profile_ = CrvProfile::create(CRVPROFILE_TYPE_PKCS12);
};

}  // namespace crv::test
