#include "keystore/token_modules.h"

#include <atomic>

#include "pkcs11/p11_library.h"

namespace crv {
namespace {

std::atomic<int> keyManagers{0};

}  // namespace

TokenModulesUse::TokenModulesUse() {
    // Made now: at the end there may be no memory for it.
    static_cast<void>(Pkcs11LibraryManager::instance());
    ++keyManagers;
}

TokenModulesUse::~TokenModulesUse() {
    if (--keyManagers == 0) Pkcs11LibraryManager::instance().unloadHandles();
}

}  // namespace crv
