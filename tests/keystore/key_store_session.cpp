#include "key_store_session.h"

#include "corvane/crvprofile.h"
#include "profiles/profile_kinds.h"

namespace crv::test {

std::string dataFile(const std::string& name) {
    return std::string(CRV_TEST_DATA) + "/" + name;
}

PrivateKey testKey(const std::string& name) {
    return PrivateKey::fromPkcs8(asBytes(readFile(dataFile("key_" + name + ".der"))));
}

SignerPtr sharedKey(const std::string& name) {
    return std::make_shared<const PrivateKey>(testKey(name));
}

CertPtr testCert(const std::string& name) {
    return makeCert(asBytes(readFile(dataFile("crt_" + name + ".der"))));
}

Session::Session(std::string securityFile, const char* password, uint64_t generatorCycle)
    : path(std::move(securityFile)), keys(generatorCycle) {
    auto record = std::make_unique<Pkcs12Profile>();
    if (!path.empty()) record->setAttr(CRVPROFILE_ATTR_PKCS12_FILE, path);
    context.configuration().setProfile(std::move(record));
    setPin(password);
    keys.init(context);
}

void Session::setPin(const char* pin, PinSlot slot) {
    context.pins.insert_or_assign(slot, SecretText(pin));
}

KeyManagerResult Session::create() {
    keys.beginNewProfile();
    const KeyManagerResult seeded = keys.rbgInit(asBytes("twenty octets of keys"));
    return seeded == kKmOk ? keys.saveConfiguration() : seeded;
}

void KeyStoreTest::create(std::initializer_list<std::pair<KeyType, const char*>> withKeys) {
    ASSERT_EQ(session.create(), kKmOk);
    for (const auto& [use, name] : withKeys) ASSERT_EQ(keys.addNewKey(use, sharedKey(name)), kKmOk);
}

}  // namespace crv::test
