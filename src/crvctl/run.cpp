#include "crvctl/run.h"

#include <algorithm>
#include <cstdlib>

#include "crvctl/secrets.h"
#include "crvctl/texts.h"

namespace crv::ctl {
namespace {

/// Whether a word that stands for a list was given, and is not one of the verb's own that has a value.
bool asksForList(const Call& call, const char* name) {
    const auto& own = call.verb->options;
    return call.has(name) &&
           std::ranges::none_of(own, [&](const OptionRow& row) { return std::string_view(row.name) == name; });
}

ListPlace placeOf(const Call& call) {
    const char* list = std::getenv("CRV_PROFILE_FILE");
    if (call.has("list-file")) return {AvailableProfiles::File, *call.value("list-file")};
    if (asksForList(call, "user")) return {AvailableProfiles::User, {}};
    if (asksForList(call, "common")) return {AvailableProfiles::Common, {}};
    if (list) return {AvailableProfiles::File, list};
    return {};
}

}  // namespace

std::string namedProfile(const Call& call) {
    const char* variable = std::getenv("CRV_PROFILE");
    return call.value("profile").value_or(variable ? variable : "");
}

Run::Run(Call& given, Output& output) : call(given), out(output), place(placeOf(given)) {
    mode.dryRun = call.has("dry-run");
    if (const auto seconds = call.value("wait")) mode.waitSeconds = std::strtod(seconds->c_str(), nullptr);
    if (!call.has("signer")) return;
    for (const ProfileMedia media : {ProfileMedia::User, ProfileMedia::Common})
        CrvProfile::setDefaultCfgFileName(media, CrvProfile::getSignerCfgFileName(media));
}

std::string Run::profileName() const {
    const auto& operands = call.verb->operands;
    if (!operands.empty() && operands[0].kind == ValueKind::Profile && !call.operands.empty()) return call.operands[0];
    return namedProfile(call);
}

void Run::confirm(const char* question, const std::string& about) const {
    if (mode.dryRun || call.has("yes")) return;
    if (!askYesNo(call, std::string(tr(question)) + " " + about)) throw OpError(OpFault::NotConfirmed, about);
}

}  // namespace crv::ctl
