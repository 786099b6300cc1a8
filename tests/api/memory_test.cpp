// After each call nothing is left in memory of the PIN that it used and of what it deciphered; after the last one
// nothing of the keys.
#include <functional>

#include "api/file_profile.h"
#include "support/memory_scan.h"

namespace crv::test {
namespace {

struct Octets {
    unsigned char* data = nullptr;
    long len = 0;

    Octets() = default;
    Octets(const Octets&) = delete;
    Octets& operator=(const Octets&) = delete;
    ~Octets() { crvFreeOctetsAPI(data); }
};

class CallMemory : public FileProfile {
  protected:
    void SetUp() override {
#ifdef __SANITIZE_ADDRESS__
        GTEST_SKIP() << "the sanitizer's shadow is too large to search";
#endif
        {
            const SecretText first = freshPassword();
            SecretBytes second = toSecret(freshPassword().bytes());
            for (const char rule : {'a', '1', '.'}) second.push_back(static_cast<uint8_t>(rule));
            notePassword(after_, first);
            notePassword(after_, SecretText(asText(second)));
        }
        profile_->saveProfile(ProfileMedia::File, list_);
        CRVctx made;
        bind(made, password(kFirst).c_str());
        ASSERT_TRUE(made.dbManager.createDb());
        KeyManager& keys = made.keyManager;
        keys.beginNewProfile();
        ASSERT_EQ(keys.rbgInit(asBytes("sixty keys typed at random moments")), kKmOk);
        made.configurationManager.resetRecord();
        ASSERT_EQ(keys.saveConfiguration(), kKmOk);
        giveKey(keys);
        noteKey(last_, "user's", dynamic_cast<const PrivateKey&>(*keys.signingKey()));
    }

    [[nodiscard]] int encrypt() {
        SecretBytes plain(64);
        (void)systemRandom(plain);
        after_.emplace_back("content", ByteView(plain).first(24));
        CrvEncryptParams self{};
        self.size = sizeof self;
        self.flags = CRVENCRYPT_SELF | CRVENCRYPT_UNCHECKED;
        return crvEncryptAPI(ctx_, plain.data(), 64, &self, &message_.data, &message_.len);
    }
    [[nodiscard]] int decrypt() {
        Octets plain;
        const int code = crvDecryptAPI(ctx_, message_.data, message_.len, &plain.data, &plain.len, nullptr);
        EXPECT_EQ(plain.len, 64);
        EXPECT_TRUE(after_.back().isIn({plain.data, static_cast<size_t>(plain.len)}));
        return code;
    }
    [[nodiscard]] int sign() {
        Octets made;
        return crvSignAPI(ctx_, message_.data, message_.len, nullptr, &made.data, &made.len);
    }
    [[nodiscard]] int request() {
        Octets made;
        return crvPrepareCrtRequestAPI(ctx_, nullptr, &made.data, &made.len);
    }

    /// One of the two passwords, which nobody keeps here.
    static constexpr size_t kFirst = 0, kSecond = 2;
    [[nodiscard]] SecretText password(size_t index) const {
        SecretBytes text;
        for (const uint8_t octet : after_[index].masked) text.push_back(octet ^ kMask);
        return SecretText(asText(text));
    }

    std::vector<Needle> after_, last_;
    const std::string list_ = dir_.file("list.conf");
    CRVctx* ctx_ = nullptr;
    Octets message_;
};

TEST_F(CallMemory, HoldsNoSecretBehindACall) {
    ASSERT_EQ(crvInitExAPI(&ctx_, CRVPROFILE_MEDIA_FILE, list_.c_str(), "Ala"), 0);
    const auto pin = [&] {
        const SecretText text = password(kFirst);
        return crvStorePINUtf8API(ctx_, CRVPIN_SIGNING_TOKEN, text.c_str());
    };
    const struct {
        const char* name;
        bool usesPin;
        std::function<int()> call;
    } rows[] = {
        {"authenticate", true, [&] { return crvAuthenticateExAPI(ctx_, 0); }},
        {"save", true, [&] { return crvSaveConfigurationAPI(ctx_); }},
        {"request", false, [&] { return request(); }},
        {"encrypt", false, [&] { return encrypt(); }},
        {"decrypt", false, [&] { return decrypt(); }},
        {"sign", false, [&] { return sign(); }},
        {"change password", true, [&] { return crvChangePasswordAPI(ctx_, password(kSecond).c_str()); }},
        {"deinit", true, [&] { return crvDeinitExAPI(ctx_); }},
    };
    ASSERT_EQ(pin(), 0);
    ASSERT_NE(found(after_).find("password"), std::string::npos) << "the search finds nothing";
    for (const auto& row : rows) {
        if (row.usesPin) {
            ASSERT_EQ(pin(), 0);
        }
        EXPECT_EQ(row.call(), 0) << row.name;
        EXPECT_EQ(found(after_), "") << row.name;
    }
    EXPECT_EQ(found(last_), "");
}

}  // namespace
}  // namespace crv::test
