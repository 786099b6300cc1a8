// The options of a configuration record by name, with values as text.
#pragma once

#include <span>
#include <string>
#include <variant>

#include "asn/asn_object_id.h"
#include "misc/nothing.h"

namespace crv {

class Session;

/// Nothing: the record holds no value and there is no fixed default.
using SettingValue = std::variant<Nothing, long, std::string>;

struct Setting {
    std::string name;  ///< "connect-timeout"
    long option;       ///< its number among the library's options; 0 when it is none
    const KnownOid* field;
    SettingValue standard;  ///< while the record has no such field
    SettingValue (*get)(Session& session, const Setting& setting);
    /// Changes the record of the session, which is not saved. Throws OpError: BadValue for a text that does not fit,
    /// KeyStoreFailed for an algorithm that the signing key cannot use.
    void (*set)(Session& session, const Setting& setting, const std::string& text);
};

/// Integer options in the order of their registration, then the others.
std::span<const Setting> settings();
/// Throws OpError (ObjectMissing).
const Setting& findSetting(const std::string& name);

/// The cipher of content with that word; null when there is none.
const KnownOid* cipherOf(const std::string& word);

/// The default again; not saved.
void resetSetting(Session& session, const Setting& setting);

}  // namespace crv
