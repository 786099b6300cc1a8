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
    std::string remedy;        ///< without one: the command for a shell that makes it
    std::vector<std::string> stale;       ///< p11-kit files that name a module of ours that is not there (any more)
    std::vector<std::string> unreadable;  ///< p11-kit files that cannot be read
    std::vector<ModuleToken> tokens;
};

/// The module that p11-kit's files name, read as p11-kit reads them (in $XDG_CONFIG_HOME/pkcs11/modules or
/// ~/.config/pkcs11/modules, /etc/pkcs11/modules and the system's folder; for the superuser not in his own), else the
/// one of this program's own installation, wherever that was moved to; loads it and lists its tokens. Throws OpError:
/// FileMissing when there is none, LibraryFailed when it does not load.
[[nodiscard]] ModuleStatus moduleStatus();

}  // namespace crv
