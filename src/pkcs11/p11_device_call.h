// How a device calls its module. Internal to the folder.
#pragma once

#include <unistd.h>

#include "pkcs11/p11_device.h"

namespace crv {

template <class Function, class... Args>
CK_RV PKCS11Device::call(Function CK_FUNCTION_LIST::*member, Args... args) {
    if (!library_) return CKR_CRYPTOKI_NOT_INITIALIZED;
    if (const CK_RV rv = Pkcs11LibraryManager::instance().enterProcess(*library_); rv != CKR_OK) return rv;
    return callModule(*library_, *lock_, member, args...);
}

template <class Function, class... Args>
CK_RV PKCS11Device::callSession(Function CK_FUNCTION_LIST::*member, Args... args) {
    if (!library_) return CKR_CRYPTOKI_NOT_INITIALIZED;
    if (const CK_RV rv = Pkcs11LibraryManager::instance().enterProcess(*library_); rv != CKR_OK) return rv;
    if (!hasSession() || epoch_ != library_->epoch) return CKR_SESSION_HANDLE_INVALID;
    return callModule(*library_, *lock_, member, session_, args...);
}

}  // namespace crv
