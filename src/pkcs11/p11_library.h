// The PKCS#11 modules of the process: each is loaded and initialised once, whoever uses it.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>

#include <p11-kit/pkcs11.h>

#include "pkcs11/p11_result.h"

namespace crv {

/// A loaded module. Devices share it; it stays valid for them after unloadHandles.
struct PKCS11LibInfo {
    std::string path;
    std::string lockFile;  ///< on which processes take turns, unless the module locks for itself
    void* handle = nullptr;
    CK_FUNCTION_LIST functions{};  ///< a copy; pointers that the module lacks are null
    bool osLocking = false;        ///< initialised with CKF_OS_LOCKING_OK
    bool initialisedHere = false;  ///< else somebody else in this process did it, and will finalise it
    int pid = 0;                   ///< of the process that initialised it
    unsigned epoch = 0;            ///< grows with each initialisation: sessions of an earlier one are gone
    unsigned uses = 0;             ///< devices
};

using P11LibraryPtr = std::shared_ptr<PKCS11LibInfo>;

/// What went wrong with a module: the call for the log, the result, the module's value.
struct P11LoadFailure {
    const char* call = "";
    P11Result result = kP11Ok;
    CK_RV rv = CKR_OK;
};

/// The map of modules. Its mutex is held from the look-up to the end of an initialisation.
class Pkcs11LibraryManager {
  public:
    /// The one of the process; never destroyed, so nothing is finalised while the process ends.
    static Pkcs11LibraryManager& instance();

    /// The module of a path (or a bare name, which the loader looks up), loaded and initialised when it is new. With
    /// osLocking it serialises calls itself. Null with the failure: kP11LoadFailed, kP11NoInterface, kP11ModuleError.
    [[nodiscard]] P11LibraryPtr load(const std::string& path, bool osLocking, P11LoadFailure& failure);

    /// In a process that was forked from the one that initialised the module: initialises it for this one (PKCS#11 2.40
    /// usage guide 2.7.1). The value of C_Initialize; CKR_OK when there is nothing to do.
    [[nodiscard]] CK_RV enterProcess(PKCS11LibInfo& library);
    /// Finalises and initialises a module that was initialised here: some keep a token that was gone dead until then.
    /// Every session of the process is gone afterwards. One that somebody else initialised is left alone.
    [[nodiscard]] CK_RV restart(PKCS11LibInfo& library);

    /// Uses of a module; 0 for one that is not loaded.
    [[nodiscard]] unsigned getCount(const std::string& path) const;
    void incrementCount(const std::string& path);
    void decrementCount(const std::string& path);

    /// Finalises what was initialised here and forgets every module. Their code stays in the process. A module that
    /// still has uses is kept.
    void unloadHandles();

  private:
    [[nodiscard]] static CK_RV initialise(PKCS11LibInfo& library);
    [[nodiscard]] static CK_RV finalise(PKCS11LibInfo& library);

    mutable std::mutex mutex_;
    std::map<std::string, P11LibraryPtr> libraries_;
};

/// The lock file of a module (convertPathToSyncName): in $XDG_RUNTIME_DIR or /tmp, named after the user and the real
/// path. Empty when there is no path.
[[nodiscard]] std::string convertPathToSyncName(const std::string& path);

}  // namespace crv
