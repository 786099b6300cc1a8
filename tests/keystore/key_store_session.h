// A session with a key store: a context, a profile of a file in a folder of its own, and the key manager under test.
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>

#include "asn/x509/signed_certificate.h"
#include "config/configuration_manager.h"
#include "config/context_services.h"
#include "crypto/private_key.h"
#include "keystore/key_manager.h"
#include "support/temp_dir.h"

namespace crv::test {

inline constexpr const char* kPassword = "Zażółć-1234";
inline constexpr const char* kOtherPassword = "Inne-hasło1";
inline constexpr int kUsers = static_cast<int>(TrustPointFlag::User);

/// A context without a user: PINs are what the test puts there, a missing one counts as cancelled.
class TestContext final : public ContextServices {
  public:
    ConfigurationManager& configuration() override { return configuration_; }
    PinResult getPIN(PinSlot slot, SecretText& pin, bool* fromCache, bool) override {
        if (fromCache) *fromCache = true;
        const auto found = pins.find(slot);
        if (found == pins.end()) return kPinCancelled;
        pin = found->second;
        return pinAnswer;
    }
    void storePIN(PinSlot slot, const SecretText& pin) override { pins.insert_or_assign(slot, pin); }
    bool tokenNotice(TokenNotice notice, const std::string&) override {
        notices.push_back(notice);
        return notice != TokenNotice::FinalTry || takesRisk;
    }
    void removePINs() override { pins.clear(); }
    void report(std::string_view) override {}
    void addWarning(int) override {}
    void setDiagnosticText(std::string_view text) override { diagnostic = text; }
    void setLastDeviceError(unsigned error) override { deviceError = error; }
    void setLastPkcs11Rv(unsigned long) override {}

    std::map<PinSlot, SecretText> pins;
    std::vector<TokenNotice> notices;
    bool takesRisk = true;
    PinResult pinAnswer = kPinOk;
    std::string diagnostic;
    unsigned deviceError = 0;

  private:
    ConfigurationManager configuration_;
};

/// A file of tests/keystore/data.
std::string dataFile(const std::string& name);
PrivateKey testKey(const std::string& name);
SignerPtr sharedKey(const std::string& name);
CertPtr testCert(const std::string& name);

struct Session {
    explicit Session(std::string securityFile, const char* password = kPassword,
                     uint64_t generatorCycle = KcRbgHashIso18031::kCycle);

    void setPin(const char* pin, PinSlot slot = PinSlot::SigningToken);
    CrvProfile& profile() { return *context.configuration().profile(); }
    CRVCfgFile& editRecord() { return context.configuration().editRecord(); }
    const CRVCfgFile& record() { return context.configuration().record(); }
    /// Creates the security file, as the console does.
    KeyManagerResult create();
    KeyManagerResult login(bool readAdditional = false) { return keys.initProfile(0, readAdditional); }

    std::string path;
    TestContext context;
    KeyManager keys;
};

/// A session whose file does not exist yet.
struct KeyStoreTest : testing::Test {
    void create(std::initializer_list<std::pair<KeyType, const char*>> withKeys = {});

    TempDir dir;
    std::string path = dir.file("keys.p12");
    Session session{path};
    KeyManager& keys = session.keys;
};

}  // namespace crv::test
