#include "keystore/token_modules.h"

#include <atomic>

#include "pkcs11/p11_library.h"

namespace crv {
namespace {

std::atomic<int> keyManagers{0};

}  // namespace

TokenModulesUse::TokenModulesUse() {
    ++keyManagers;
}

TokenModulesUse::~TokenModulesUse() {
    if (--keyManagers == 0) Pkcs11LibraryManager::instance().unloadHandles();
}

}  // namespace crv
