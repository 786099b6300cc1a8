#include "crvctl/run.h"

#include <cstdlib>

#include "crvctl/secrets.h"
#include "crvctl/texts.h"

namespace crv::ctl {
namespace {

ListPlace placeOf(const Call& call) {
    const char* list = std::getenv("CRV_PROFILE_FILE");
    if (call.has("list-file")) return {AvailableProfiles::File, *call.value("list-file")};
    if (call.has("user")) return {AvailableProfiles::User, {}};
    if (call.has("common")) return {AvailableProfiles::Common, {}};
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
