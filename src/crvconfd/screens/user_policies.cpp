#include "crvconfd/screens/user_policies.h"

#include <algorithm>

#include "config/config_oids.h"
#include "config/configuration_manager.h"
#include "crvconfd/engines/numbered_list.h"
#include "crvconfd/screens/oid_prompt.h"
#include "crvconfd/session/context.h"
#include "crvconfd/session/prot_cfg.h"
#include "crvconfd/toolkit/toolkit.h"
#include "keystore/key_manager.h"
#include "ops/policies.h"

namespace crv {

namespace {

constexpr NumberedListTexts kPolicyTexts{
    "Lista polityk użytkownika",
    "Podaj numer polityki do usuniecia: ",
    "Brak polityki o podanym numerze",
};

NumberedEntry entryOf(const PolicyIdAndNote& policy) {
    return {policy.policyId.text(), std::string(policy.noteText())};
}

std::vector<NumberedEntry> policies() {
    std::vector<NumberedEntry> entries;
    for (const auto& policy : cfgManager->record().getPolicies()) entries.push_back(entryOf(policy));
    return entries;
}

void drawAnyPolicy() {
    displText(2, 1, "%s", kAnyPolicy);
    displText(2, 25, "ANY POLICY");
}

bool allowed() {
    return (keyManager->signingKey() && keyManager->signingCertificate()) ||
           cfgManager->record().getIntOpt(kOptDecryptOnly) != 0;
}

/// A list that could not be saved is not kept either.
void store(const CRVCfgFile::Policies& list) {
    const auto before = cfgManager->record().getPolicies();
    cfgManager->editRecord().setPolicies(list);
    if (!writeProtCfg()) cfgManager->editRecord().setPolicies(before);
}

void removePolicy(size_t index) {
    auto list = cfgManager->record().getPolicies();
    list.remove(index);
    store(list);
}

NumberedListEditor policyEditor() {
    return {kPolicyTexts, policies, drawAnyPolicy, addPolicy, removePolicy};
}

}  // namespace

void showPolicy(size_t index, const PolicyIdAndNote& policy) {
    drawNumberedEntry(2 + static_cast<int>(index), index + 1, entryOf(policy));
}

bool showPolicies() {
    if (!allowed()) {
        errInfo(kMessageRow, "Brak klucza lub certyfikatu do podpisywania");
        return false;
    }
    drawNumberedList(policyEditor());
    return true;
}

void addPolicy() {
    clrScr();
    displHeader(0, "Dodawanie polityki");
    ASNobjectId oid;
    if (!askForOid({"Podaj identyfikator polityki: ", "Identyfikator polityki nie może być pusty",
                    "Błędny identyfikator polityki"},
                   oid))
        return;
    auto list = cfgManager->record().getPolicies();
    const auto any = [&](auto same) { return std::any_of(list.begin(), list.end(), same); };
    if (oid.text() == kAnyPolicy) return errInfo(kMessageRow, "Nie można dodawać identyfikatora ANY POLICY");
    if (any([&](const auto& policy) { return policy.policyId == oid; }))
        return errInfo(kMessageRow, "Polityka o podanym identyfikatorze została już zdefiniowana.");
    std::string name;
    if (!askForName({"Podaj nazwę polityki: ", "Nazwa polityki nie może być pusta"}, name)) return;
    const PolicyIdAndNote added(oid, name);
    if (any([&](const auto& policy) { return policy.note == added.note; }))
        return errInfo(kMessageRow, "Polityka o podanej nazwie zostala już zdefiniowana.");
    list.add(added);
    store(list);
}

void delPolicy() {
    if (const int index = askForEntry(kPolicyTexts, policies().size()); index >= 0)
        removePolicy(static_cast<size_t>(index));
}

void OnUserPolicies() {
    if (showPolicies()) runNumberedList(policyEditor());
}

}  // namespace crv
