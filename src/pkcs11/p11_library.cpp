#include "pkcs11/p11_library.h"

#include <dlfcn.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "crypto/kc_hash.h"
#include "misc/c_string.h"
#include "misc/hex.h"
#include "misc/logger.h"
#include "pkcs11/ckr_name.h"
#include "pkcs11/p11_call.h"

namespace crv {
namespace {

constexpr struct {
    int code;
    const char* text;
} kResultTexts[] = {
#define CRV_P11_TEXT(name, number, text) {number, text},
    P11_RESULTS(CRV_P11_TEXT)
#undef CRV_P11_TEXT
};

/// Modules keep threads and open devices: once in the process their code stays.
constexpr int kLoadFlags = RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE;

/// The copy of the module's functions.
P11LoadFailure takeFunctions(PKCS11LibInfo& library) {
    void* symbol = dlsym(library.handle, "C_GetFunctionList");
    if (!symbol) return {"GetProcAddress", kP11NoInterface};
    const auto getFunctions = reinterpret_cast<CK_C_GetFunctionList>(symbol);
    P11Lock lock(library);
    const P11Lock::Hold hold(lock);
    CK_FUNCTION_LIST* functions = nullptr;
    const CK_RV rv = hold.held() ? getFunctions(&functions) : CKR_CANT_LOCK;
    if (rv != CKR_OK) return {"pFunctionList", kP11ModuleError, rv};
    if (!functions) return {"pFunctionList", kP11NoInterface};
    library.functions = *functions;
    return {};
}

}  // namespace

const char* getP11DErrTxt(int code) noexcept {
    for (const auto& row : kResultTexts)
        if (row.code == code) return row.text;
    return "Nierozpoznany błąd";
}

std::string convertPathToSyncName(const std::string& path) {
    if (path.empty()) return {};
    std::error_code none;
    const std::filesystem::path real = std::filesystem::canonical(path, none);
    const std::string_view folder = viewOrEmpty(std::getenv("XDG_RUNTIME_DIR"));
    return std::string(folder.empty() ? "/tmp" : folder) + "/crvp11_" + std::to_string(getuid()) + "_" +
           toHex(hashOf(KcHashAlgo::Sha1, asBytes(none ? path : real.string()))) + ".lck";
}

Pkcs11LibraryManager& Pkcs11LibraryManager::instance() {
    static Pkcs11LibraryManager* const kManager = std::make_unique<Pkcs11LibraryManager>().release();
    return *kManager;
}

P11LibraryPtr Pkcs11LibraryManager::load(const std::string& path, bool osLocking, P11LoadFailure& failure) {
    const std::scoped_lock guard(mutex_);
    if (const auto found = libraries_.find(path); found != libraries_.end()) return found->second;
    auto library = std::make_shared<PKCS11LibInfo>();
    library->path = path;
    library->osLocking = osLocking;
    library->lockFile = convertPathToSyncName(path);
    if (library->lockFile.empty()) {
        failure = {"convertPathToSyncName", kP11LoadFailed};
        return nullptr;
    }
    library->handle = dlopen(path.c_str(), kLoadFlags);
    if (!library->handle) {
        logLine(LogLevel::Error, orEmpty(dlerror()));
        failure = {"LoadLibrary", kP11LoadFailed};
        return nullptr;
    }
    failure = takeFunctions(*library);
    if (failure.result == kP11Ok)
        if (const CK_RV rv = initialise(*library); rv != CKR_OK) failure = {"C_Initialize", kP11ModuleError, rv};
    if (failure.result != kP11Ok) {
        dlclose(library->handle);
        return nullptr;
    }
    return libraries_[path] = library;
}

CK_RV Pkcs11LibraryManager::initialise(PKCS11LibInfo& library) {
    CK_C_INITIALIZE_ARGS args{};
    args.flags = CKF_OS_LOCKING_OK;
    P11Lock lock(library);
    void* const given = library.osLocking ? &args : nullptr;
    const CK_RV rv = callModule(library, lock, &CK_FUNCTION_LIST::C_Initialize, given);
    if (rv != CKR_OK && rv != CKR_CRYPTOKI_ALREADY_INITIALIZED) return rv;
    library.initialisedHere = rv == CKR_OK;
    library.pid = getpid();
    ++library.epoch;
    return CKR_OK;
}

CK_RV Pkcs11LibraryManager::finalise(PKCS11LibInfo& library) {
    P11Lock lock(library);
    return callModule(library, lock, &CK_FUNCTION_LIST::C_Finalize, static_cast<void*>(nullptr));
}

CK_RV Pkcs11LibraryManager::enterProcess(PKCS11LibInfo& library) {
    if (library.pid == getpid()) return CKR_OK;
    const std::scoped_lock guard(mutex_);
    const bool ours = library.initialisedHere;
    CK_RV rv = initialise(library);
    // Some count themselves initialised by what they remember of the parent.
    if (rv == CKR_OK && ours && !library.initialisedHere && finalise(library) == CKR_OK) rv = initialise(library);
    return rv;
}

CK_RV Pkcs11LibraryManager::restart(PKCS11LibInfo& library) {
    const std::scoped_lock guard(mutex_);
    if (!library.initialisedHere) return CKR_OK;
    static_cast<void>(finalise(library));
    return initialise(library);
}

unsigned Pkcs11LibraryManager::getCount(const std::string& path) const {
    const std::scoped_lock guard(mutex_);
    const auto found = libraries_.find(path);
    return found == libraries_.end() ? 0 : found->second->uses;
}

void Pkcs11LibraryManager::incrementCount(const std::string& path) {
    const std::scoped_lock guard(mutex_);
    if (const auto found = libraries_.find(path); found != libraries_.end()) ++found->second->uses;
}

void Pkcs11LibraryManager::decrementCount(const std::string& path) {
    const std::scoped_lock guard(mutex_);
    const auto found = libraries_.find(path);
    if (found != libraries_.end() && found->second->uses > 0) --found->second->uses;
}

void Pkcs11LibraryManager::unloadHandles() {
    const std::scoped_lock guard(mutex_);
    std::erase_if(libraries_, [](const auto& entry) {
        PKCS11LibInfo& library = *entry.second;
        if (library.uses > 0) return false;
        // In a forked process the module is the parent's to finalise.
        if (library.initialisedHere && library.pid == getpid()) {
            const CK_RV rv = finalise(library);
            if (rv != CKR_OK) logLine(LogLevel::Warning, library.path + ": C_Finalize: " + ckrName(rv));
        }
        dlclose(library.handle);
        return true;
    });
}

}  // namespace crv
