// Verbs on the key store: the store itself, policies, settings.
#include <algorithm>

#include "asn/x509/signed_certificate.h"
#include "crvctl/secrets.h"
#include "crvctl/show.h"
#include "crvctl/verbs.h"
#include "keystore/file_history.h"
#include "misc/ascii.h"
#include "misc/file_ops.h"
#include "ops/policies.h"
#include "ops/settings.h"

namespace crv::ctl {
namespace {

Value valueOf(const SettingValue& value) {
    if (const auto* number = std::get_if<long>(&value)) return *number;
    if (const auto* text = std::get_if<std::string>(&value)) return *text;
    return {};
}

Fields settingFields(Session& session, const Setting& setting) {
    return {{"name", setting.name},
            {"value", valueOf(setting.get(session, setting))},
            {"default", valueOf(setting.standard)}};
}

}  // namespace

void storeInit(Run& run) {
    Session session(run.profile(), run.mode);
    hintAtHistory(run, session.configuration().securityFileName());
    session.create(readSecret(run.call, "password", true), run.call.has("strong"));
    run.out.change("add", "store", session.configuration().securityFileName());
}

void storePasswd(Run& run) {
    Session session = openChanging(run);
    session.changePassword(readSecret(run.call, "new-password", true));
    run.out.change("set", "password", session.configuration().securityFileName());
    warnOfHistory(run, session);
    warnOfCopies(run, session, "the former security files keep the password of before");
}

void storeCheck(Run& run) {
    Session session = openReading(run);
    run.out.field("file", session.configuration().securityFileName());
    run.out.field("keys", session.keys().keys().size());
    run.out.field("certificates", session.keys().userCerts().size());
    run.out.field("trustPoints", session.keys().trustedPoints().size());
    if (session.configuration().keyMedium() == KeyMedium::File)
        run.out.field("protection", session.keys().isStronglyProtected() ? "strong" : "compatible");
}

void storeBackup(Run& run) {
    // Only what its password opens is worth keeping.
    Session session = openReading(run);
    const Bytes octets = importFile(session.configuration().securityFileName());
    exportFile(targetOf(run, run.call.operand(0)), session.profile(), octets, WriteMode::Private);
    run.out.change("write", "backup", run.call.operand(0));
}

void storeHistory(Run& run) {
    Session session(run.profile(), run.mode);
    const bool clear = run.call.has("clear");
    if (clear) {
        run.confirm("Delete all former security files? No key that only they hold can then be read.",
                    historyFolder(session.configuration().securityFileName()));
    }
    for (const FormerFile& former : readableHistory(session.configuration().securityFileName())) {
        if (clear) run.out.change("remove", "file", former.path);
        if (!clear)
            run.out.item({{"name", former.name}, {"octets", static_cast<long>(former.size)}, {"file", former.path}});
    }
    if (clear) session.clearHistory();
}

void storeRestore(Run& run) {
    Session session(run.profile(), run.mode);
    const SecretText password = readSecret(run.call, "password");
    const std::string file = session.configuration().securityFileName();
    const KeysNotIn lost = keysNotIn(file, run.call.operand(0), password);
    std::string names;
    for (const KeyId& key : lost.keys) names += (names.empty() ? "" : ", ") + hexOf(key);
    if (!lost.known) {
        run.confirm(
            "Put the former security file in the place of the present one, which may have newer keys? This password "
            "does not open it, so they cannot be compared.",
            run.call.operand(0));
    } else if (!names.empty()) {
        run.confirm("Put the former security file in the place of the present one? It lacks these keys:", names);
    } else {
        run.confirm("Put the former security file in the place of the present one?", run.call.operand(0));
    }
    session.restoreFormer(run.call.operand(0), password);
    run.out.change("restore", "store", file);
}

void storeProtect(Run& run) {
    Session session = openChanging(run);
    session.protect(run.call.operand(0) == "strong");
    run.out.change("set", "protection", run.call.operand(0));
    warnOfHistory(run, session);
    warnOfCopies(run, session, "the former security files keep the protection of before");
}

void policyList(Run& run) {
    Session session = openReading(run);
    for (const auto& policy : session.configuration().record().getPolicies())
        run.out.item({{"oid", policy.policyId.text()}, {"name", std::string(policy.noteText())}});
}

void policyAdd(Run& run) {
    Session session = openChanging(run);
    addPolicyTo(session.access(), run.call.operand(0), run.call.operand(1));
    save(run, session);
    run.out.change("add", "policy", run.call.operand(0));
}

void policyRemove(Run& run) {
    Session session = openChanging(run);
    removePolicyFrom(session.access(), run.call.operand(0));
    save(run, session);
    run.out.change("remove", "policy", run.call.operand(0));
}

void settingList(Run& run) {
    Session session = openReading(run);
    for (const Setting& setting : settings()) run.out.item(settingFields(session, setting));
}

void settingGet(Run& run) {
    const Setting& setting = findSetting(run.call.operand(0));
    Session session = openReading(run);
    for (auto& [key, value] : settingFields(session, setting)) run.out.field(key, value);
}

void settingSet(Run& run) {
    const Setting& setting = findSetting(run.call.operand(0));
    Session session = openChanging(run);
    setting.set(session, setting, run.call.operand(1));
    save(run, session);
    run.out.change("set", "setting", setting.name + "=" + run.call.operand(1));
}

void settingReset(Run& run) {
    const Setting& setting = findSetting(run.call.operand(0));
    Session session = openChanging(run);
    resetSetting(session, setting);
    save(run, session);
    run.out.change("reset", "setting", setting.name);
}

}  // namespace crv::ctl
