#include "ops/settings.h"

#include <algorithm>
#include <vector>

#include "misc/ascii.h"
#include "ops/op_error.h"

namespace crv {
namespace {

std::string nameOf(std::string_view constant) {
    for (const std::string_view prefix : {"OID_CRV_CONFIG_", "OID_CRVOPT_", "OID_CRV_"}) {
        if (!constant.starts_with(prefix)) continue;
        constant.remove_prefix(prefix.size());
        break;
    }
    std::string name(constant);
    for (char& c : name) c = c == '_' ? '-' : asciiLower(c);
    return name;
}

std::vector<Setting> makeSettings() {
    std::vector<Setting> rows;
#define CRV_SETTING(option, symbol, constant, tail, value) \
    rows.push_back({option, nameOf(#constant), &constant, value});
    CRV_INT_OPTIONS(CRV_SETTING)
#undef CRV_SETTING
    return rows;
}

}  // namespace

std::span<const Setting> settings() {
    static const std::vector<Setting> rows = makeSettings();
    return rows;
}

const Setting& findSetting(const std::string& name) {
    const auto found = std::ranges::find(settings(), name, &Setting::name);
    if (found == settings().end()) throw OpError(OpFault::ObjectMissing, name);
    return *found;
}

}  // namespace crv
