#include "key_store_session.h"

#include "corvane/crvprofile.h"
#include "profiles/profile_kinds.h"
#include "support/temp_dir.h"

namespace crv::test {

std::string dataFile(const std::string& name) {
    return std::string(CRV_TEST_DATA) + "/" + name;
}

PrivateKey testKey(const std::string& name) {
    return PrivateKey::fromPkcs8(asBytes(readFile(dataFile("key_" + name + ".der"))));
}

CertPtr testCert(const std::string& name) {
    return makeCert(asBytes(readFile(dataFile("crt_" + name + ".der"))));
}

Session::Session(const std::string& securityFile, const char* password, uint64_t generatorCycle)
    : path(securityFile), keys(generatorCycle) {
    auto record = std::make_unique<Pkcs12Profile>();
    if (!securityFile.empty()) record->setAttr(CRVPROFILE_ATTR_PKCS12_FILE, securityFile);
    context.configuration().setProfile(std::move(record));
    setPassword(password);
    keys.init(context);
}

KeyManagerResult Session::create() {
    keys.beginNewProfile();
    const KeyManagerResult seeded = keys.rbgInit(asBytes("twenty octets of keys"));
    return seeded == kKmOk ? keys.saveConfiguration() : seeded;
}

}  // namespace crv::test
