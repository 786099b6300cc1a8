#include "crvconfd/screens/user_policies.h"

#include "config/configuration_manager.h"
#include "crvconfd/engines/numbered_list.h"
#include "crvconfd/screens/oid_prompt.h"
#include "crvconfd/session/context.h"
#include "crvconfd/session/messages.h"
#include "crvconfd/session/prot_cfg.h"
#include "crvconfd/toolkit/toolkit.h"
#include "ops/policies.h"

namespace crv {

namespace {

constexpr NumberedListTexts kPolicyTexts{
    "Lista polityk użytkownika",
    "Podaj numer polityki do usuniecia: ",
    "Brak polityki o podanym numerze",
};

constexpr CodeText kPolicyFaults[] = {
    {static_cast<int>(PolicyFault::AnyPolicy), "Nie można dodawać identyfikatora ANY POLICY"},
    {static_cast<int>(PolicyFault::SameIdentifier), "Polityka o podanym identyfikatorze została już zdefiniowana."},
    {static_cast<int>(PolicyFault::SameName), "Polityka o podanej nazwie zostala już zdefiniowana."},
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

/// Changes the list and saves; a list that could not be saved is not kept either.
template <class Change>
void changePolicies(const Change& change) {
    const auto before = cfgManager->record().getPolicies();
    change(keyStoreAccess());
    if (!writeProtCfg()) cfgManager->editRecord().setPolicies(before);
}

void removePolicy(size_t index) {
    const std::string oid = cfgManager->record().getPolicies()[index].policyId.text();
    changePolicies([&](const KeyStoreAccess& access) { removePolicyFrom(access, oid); });
}

/// False, after a message, for a policy that cannot be added.
bool mayAdd(const ASNobjectId& oid, const std::string& name = {}) {
    const PolicyFault fault = faultOfPolicy(cfgManager->record().getPolicies(), oid, name);
    if (fault != PolicyFault::None) showCode(kPolicyFaults, static_cast<int>(fault));
    return fault == PolicyFault::None;
}

NumberedListEditor policyEditor() {
    return {kPolicyTexts, policies, drawAnyPolicy, addPolicy, removePolicy};
}

}  // namespace

void showPolicy(size_t index, const PolicyIdAndNote& policy) {
    drawNumberedEntry(2 + static_cast<int>(index), index + 1, entryOf(policy));
}

bool showPolicies() {
    if (!mayChangePolicies(keyStoreAccess())) {
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
    if (!mayAdd(oid)) return;
    std::string name;
    if (!askForName({"Podaj nazwę polityki: ", "Nazwa polityki nie może być pusta"}, name) || !mayAdd(oid, name))
        return;
    changePolicies([&](const KeyStoreAccess& access) { addPolicyTo(access, oid.text(), name); });
}

void delPolicy() {
    if (const int index = askForEntry(kPolicyTexts, policies().size()); index >= 0)
        removePolicy(static_cast<size_t>(index));
}

void OnUserPolicies() {
    if (showPolicies()) runNumberedList(policyEditor());
}

}  // namespace crv
