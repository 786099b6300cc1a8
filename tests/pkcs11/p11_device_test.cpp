#include "pkcs11/p11_device.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>

#include "asn/pkcs/digest_info.h"
#include "misc/exceptions.h"
#include "support/soft_hsm.h"

using namespace crv;
using test::SoftHsm;

namespace {

const std::string kLabel = "karta";

/// A token with an RSA key that signs, behind the mock.
class P11Device : public testing::Test {
  protected:
    static void SetUpTestSuite() {
        hsm = std::make_unique<SoftHsm>();
        hsm->initToken(kLabel);
        hsm->generateKey(kLabel, "rsa:2048", "01");
        hsm->generateKey(kLabel, "EC:prime256v1", "02");
    }
    static void TearDownTestSuite() {
        Pkcs11LibraryManager::instance().unloadHandles();
        hsm.reset();
    }
    void TearDown() override { hsm->script(""); }

    /// A device on the token, logged in, on the mock or another module.
    static PKCS11Device opened(const std::string& module = SoftHsm::mock()) {
        PKCS11Device device;
        EXPECT_EQ(device.initLibMap(module), kP11Ok);
        EXPECT_EQ(device.initSlots(true), kP11Ok);
        EXPECT_EQ(device.openSession(0, true), kP11Ok);
        EXPECT_EQ(device.login("1234", 4, CKU_USER, false), kP11Ok);
        return device;
    }
    static P11Result sign(PKCS11Device& device, Bytes& signature) {
        PKCS11Device::Handle key = 0;
        const Bytes id{1};
        if (const P11Result found = device.getRSAPrivateKeyHandle(id, key); found != kP11Ok) return found;
        return device.signRSA(key, info(), signature);
    }
    static Bytes info() { return DigestInfo(KcHashAlgo::Sha256, hashOf(KcHashAlgo::Sha256, asBytes("abc"))).encoded(); }

    static std::unique_ptr<SoftHsm> hsm;
};

std::unique_ptr<SoftHsm> P11Device::hsm;

/// Runs in a child process; its failures fail the test.
pid_t inChild(const std::function<bool()>& work) {
    const pid_t pid = fork();
    if (pid == 0) _exit(work() ? 0 : 1);
    return pid;
}
int statusOf(pid_t pid) {
    int status = -1;
    waitpid(pid, &status, 0);
    return status;
}

}  // namespace

TEST_F(P11Device, WhatIsNoModuleSaysWhy) {
    PKCS11Device device;
    EXPECT_EQ(device.initLibMap("/no/such.so"), kP11LoadFailed);
    EXPECT_EQ(device.initLibMap("libz.so.1"), kP11NoInterface);
    EXPECT_STREQ(getP11DErrTxt(kP11NoInterface), "Biblioteka nie zawiera interfejsu PKCS#11");
    EXPECT_STREQ(getP11DErrTxt(-13), "Nierozpoznany błąd");
    EXPECT_EQ(Pkcs11LibraryManager::instance().getCount("libz.so.1"), 0U);
}

TEST_F(P11Device, TwoDevicesShareOneModule) {
    hsm->script("");
    PKCS11Device first = opened();
    {
        const PKCS11Device second = first.cloneDevice();
        EXPECT_EQ(second.slotCount(), first.slotCount());
        EXPECT_EQ(Pkcs11LibraryManager::instance().getCount(SoftHsm::mock()), 2U);
    }
    EXPECT_LE(hsm->calls("C_Initialize"), 1);
    EXPECT_THROW(static_cast<void>(first.openSession(0, true)), VtestException);
    EXPECT_EQ(first.closeSession(), kP11Ok);
    EXPECT_THROW(static_cast<void>(first.openSession(99, true)), VtestException);
    EXPECT_EQ(first.logout(), kP11NoSession);
}

TEST_F(P11Device, SignsAndReadsBothKindsOfKeys) {
    PKCS11Device device = opened();
    const auto publicKey = [&](uint8_t id) {
        PKCS11Device::Handle handle = 0;
        P11Attributes attributes;
        const auto find = id == 1 ? &PKCS11Device::getRSAPublicKeyHandle : &PKCS11Device::getECPublicKeyHandle;
        EXPECT_EQ((device.*find)({&id, 1}, handle), kP11Ok);
        EXPECT_EQ(device.getObjectAttributeTab(handle, kPublicKeyAttributes, attributes), kP11Ok);
        // The same key with a raw point, as other tokens have it.
        P11Attributes raw = attributes;
        if (id == 2) raw[CKA_EC_POINT].erase(raw[CKA_EC_POINT].begin(), raw[CKA_EC_POINT].begin() + 2);
        EXPECT_EQ(publicKeyOf(attributes).value(), publicKeyOf(raw).value());
        return publicKeyOf(attributes).value();
    };
    Bytes signature;
    ASSERT_EQ(sign(device, signature), kP11Ok);
    EXPECT_TRUE(
        publicKey(1).verify(KeyScheme::Rsa, KcHashAlgo::Sha256, hashOf(KcHashAlgo::Sha256, asBytes("abc")), signature));
    PKCS11Device::Handle key = 0;
    bool right = false;
    ASSERT_EQ(device.getRSAPublicKeyHandle(Bytes{1}, key), kP11Ok);
    EXPECT_EQ(device.verifyRSA(key, info(), signature, right), kP11Ok);
    EXPECT_TRUE(right);
    EXPECT_EQ(publicKey(2).curve(), StdECId::P256);
    SecretBytes secret;
    ASSERT_EQ(device.getECPrivateKeyHandle(Bytes{2}, key), kP11Ok);
    EXPECT_EQ(device.generateDHSecret(key, CKM_ECDH1_DERIVE, publicKey(2).keyBits(), 32, secret), kP11Ok);
    EXPECT_EQ(secret.size(), 32U);
}

TEST_F(P11Device, LiesAndFailuresAreFoundOut) {
    const struct {
        const char* script;
        std::function<P11Result(PKCS11Device&)> work;
        P11Result result;
    } cases[] = {
        {"C_GetSlotList * lie", [](PKCS11Device& d) { return d.initSlots(true); }, kP11BadData},
        {"C_GetSlotList * rv 0x150", [](PKCS11Device& d) { return d.initSlots(true); }, kP11ModuleError},
        {"C_FindObjects * lie",
         [](PKCS11Device& d) {
             PKCS11Device::Handles all;
             return d.getAllPrivateKeyHandles(all);
         },
         kP11TooMany},
        {"C_GetAttributeValue * lie",
         [](PKCS11Device& d) {
             Bytes value;
             PKCS11Device::Handle key = 0;
             EXPECT_EQ(d.getRSAPublicKeyHandle(Bytes{1}, key), kP11Ok);
             return d.getObjectAttribute(key, CKA_MODULUS, value);
         },
         kP11NoAttribute},
        {"C_Sign * rv 0x30",
         [](PKCS11Device& d) {
             Bytes s;
             return sign(d, s);
         },
         kP11ModuleError},
        {"C_GetTokenInfo * lie",
         [](PKCS11Device& d) {
             P11TokenInfo token;
             const P11Result result = d.getTokenInfo(0, token);
             EXPECT_EQ(token.label, "?[2J?");
             return result;
         },
         kP11Ok},
        {"C_GetTokenInfo * rv 0xE0",
         [](PKCS11Device& d) {
             P11TokenInfo t;
             return d.getTokenInfo(0, t);
         },
         kP11NoToken},
    };
    for (const auto& each : cases) {
        hsm->script("");
        PKCS11Device device = opened();
        hsm->script(each.script);
        EXPECT_EQ(each.work(device), each.result) << each.script;
    }
}

TEST_F(P11Device, ForkedProcessInitialisesForItself) {
    PKCS11Device device = opened();
    Bytes before;
    ASSERT_EQ(sign(device, before), kP11Ok);
    hsm->script("");
    const pid_t child = inChild([&] {
        Bytes signature;
        const bool forgotten =
            sign(device, signature) == kP11ModuleError && device.lastRv() == CKR_SESSION_HANDLE_INVALID;
        static_cast<void>(device.closeSession());
        PKCS11Device own = opened();
        return forgotten && sign(own, signature) == kP11Ok && signature == before;
    });
    EXPECT_EQ(statusOf(child), 0);
    EXPECT_GE(hsm->calls("C_Initialize"), 1);
    Bytes again;
    EXPECT_EQ(sign(device, again), kP11Ok);
}

TEST_F(P11Device, ProcessesTakeTurnsInAModuleWithoutLocking) {
    hsm->script("* * pause");
    const auto rounds = [] {
        PKCS11Device device = opened();
        Bytes signature;
        for (int i = 0; i < 200; ++i)
            if (sign(device, signature) != kP11Ok) return false;
        return true;
    };
    Pkcs11LibraryManager::instance().unloadHandles();
    const pid_t a = inChild(rounds), b = inChild(rounds);
    EXPECT_EQ(statusOf(a), 0);
    EXPECT_EQ(statusOf(b), 0);
    EXPECT_GE(hsm->calls("C_Sign"), 400);
    EXPECT_EQ(hsm->calls("overlap"), 0);
}
