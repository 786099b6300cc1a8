// The integer options of a configuration record by name.
#pragma once

#include <span>
#include <string>

#include "config/config_oids.h"

namespace crv {

class CRVCfgFile;

struct Setting {
    long id;
    std::string name;  ///< the identifier's name in lower case: "connect-timeout"
    const KnownOid* field;
    long standard;  ///< while the record has no such field
};

/// In the order of their registration.
std::span<const Setting> settings();
/// Throws OpError (ObjectMissing).
const Setting& findSetting(const std::string& name);

}  // namespace crv
