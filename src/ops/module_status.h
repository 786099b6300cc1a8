// Whether other programs find the PKCS#11 module over profiles, and what it shows them.
#pragma once

#include <string>
#include <vector>

namespace crv {

struct ModuleToken {
    std::string label;
    std::string serialNumber;
    std::string slot;
};

struct ModuleStatus {
    std::string library;       ///< path of the module
    std::string registration;  ///< the p11-kit file that names it; empty without one, and then p11-kit does not load it
    std::string folder;        ///< where a user's file for p11-kit goes
    std::vector<ModuleToken> tokens;
};

/// The module that p11-kit's files name (in ~/.config/pkcs11/modules, /etc/pkcs11/modules and the system's folder),
/// else the one beside this program or where it is installed; loads it and lists its tokens. Throws OpError:
/// FileMissing when there is none, LibraryFailed when it does not load.
[[nodiscard]] ModuleStatus moduleStatus();

}  // namespace crv
