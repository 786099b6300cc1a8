#include "support/soft_hsm.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <sstream>

namespace crv::test {
namespace {

void mustRun(const std::string& command) {
    int status = 0;
    const std::string said = shell(command, &status);
    EXPECT_EQ(status, 0) << command << "\n" << said;
}

}  // namespace

SoftHsm::SoftHsm() {
    std::filesystem::create_directory(dir_.path() / "tokens");
    const std::string conf = dir_.file("softhsm2.conf");
    writeFile(conf, "directories.tokendir = " + dir_.file("tokens") + "\nlog.level = ERROR\n");
    setenv("SOFTHSM2_CONF", conf.c_str(), 1);
    setenv("XDG_RUNTIME_DIR", dir_.path().c_str(), 1);
    setenv("CRV_MOCK_LOG", dir_.file("mock.log").c_str(), 1);
    setenv("CRV_MOCK_SCRIPT", dir_.file("mock.script").c_str(), 1);
    script("");
}

SoftHsm::~SoftHsm() {
    for (const char* name : {"SOFTHSM2_CONF", "XDG_RUNTIME_DIR", "CRV_MOCK_LOG", "CRV_MOCK_SCRIPT"}) unsetenv(name);
}

void SoftHsm::initToken(const std::string& label, const std::string& pin) {
    pins_[label] = pin;
    mustRun("softhsm2-util --init-token --free --label '" + label + "' --so-pin 12345678 --pin " + pin);
}

void SoftHsm::deleteToken(const std::string& label) const {
    mustRun("softhsm2-util --delete-token --token '" + label + "'");
}

std::string SoftHsm::tool(const std::string& label, const std::string& options) const {
    return shell(std::string("pkcs11-tool --module ") + kModule + " --token-label '" + label + "' --login --pin " +
                 pins_.at(label) + " " + options + " 2>&1");
}

void SoftHsm::generateKey(const std::string& label, const std::string& type, const std::string& id,
                          const std::string& more) const {
    const std::string said = tool(label, "--keypairgen --key-type " + type + " --id " + id + " " + more);
    EXPECT_NE(said.find("Private Key Object"), std::string::npos) << said;
}

std::string SoftHsm::mock() {
    return std::filesystem::read_symlink("/proc/self/exe").parent_path().string() + "/pkcs11_mock.so";
}

void SoftHsm::script(const std::string& lines) const {
    writeFile(dir_.file("mock.script"), lines);
    writeFile(dir_.file("mock.log"), "");
}

int SoftHsm::calls(const std::string& line) const {
    std::istringstream log(mockLog());
    int count = 0;
    for (std::string each; std::getline(log, each);) count += each == line;
    return count;
}

}  // namespace crv::test
