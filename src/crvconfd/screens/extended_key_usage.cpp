#include "crvconfd/screens/extended_key_usage.h"

#include <algorithm>
#include <array>

#include "asn/asn_object_id.h"
#include "config/configuration_manager.h"
#include "crvconfd/screens/oid_prompt.h"
#include "crvconfd/session/context.h"
#include "crvconfd/session/current_profile.h"
#include "crvconfd/toolkit/toolkit.h"

namespace crv {

namespace {

constexpr NumberedListTexts kUsageTexts{
    "Akceptowane rozszerzone zastosowanie klucza",
    "Podaj numer rozszerzonego zastosowania klucza do usuniecia: ",
    "Brak rozszerzonego zastosowania klucza o podanym numerze",
};

/// The accepted usages by name, byte by byte.
std::vector<NumberedEntry> sortedUsages() {
    std::vector<NumberedEntry> usages;
    for (long i = 0; i < boundProfile().getAcceptedExtKeyUsagesCount(); ++i) {
        NumberedEntry entry;
        ASNobjectId oid;
        if (!boundProfile().getAcceptedExtKeyUsage(i, entry.name, oid)) continue;
        entry.oid = oid.text();
        usages.push_back(std::move(entry));
    }
    std::stable_sort(usages.begin(), usages.end(), [](const auto& a, const auto& b) { return a.name < b.name; });
    return usages;
}

void removeUsage(size_t index) {
    changeCurrentProfile(
        [oid = sortedUsages().at(index).oid](CrvProfile& target) { target.delAcceptedExtKeyUsage(oid); });
}

/// What forbids the new pair, or null.
const char* clash(const std::string& oid, const std::string& name) {
    const auto usages = sortedUsages();
    const auto has = [&](auto member, const std::string& value) {
        return std::any_of(usages.begin(), usages.end(), [&](const auto& usage) { return usage.*member == value; });
    };
    if (has(&NumberedEntry::name, name)) return "Identyfikator o podanej nazwie został już zdefiniowany.";
    if (has(&NumberedEntry::oid, oid)) return "Indetyfikator rozszerzonego zastosowania klucza został już dodany.";
    return nullptr;
}

NumberedListEditor usageEditor() {
    return {kUsageTexts, sortedUsages, nullptr, addExtendedKeyUsage, removeUsage};
}

}  // namespace

void addExtendedKeyUsage() {
    clrScr();
    displHeader(0, "Dodawanie rozszerzonego zastosowania klucza");
    ASNobjectId oid;
    if (!askForOid({"Podaj identyfikator rozszerzonego zastosowania klucza: ", "Identyfikator nie może być pusty",
                    "Błędny identyfikator rozszerzonego zastosowania klucza"},
                   oid))
        return;
    std::string name;
    if (!askForName({"Podaj nazwę rozszerzonego zastosowania klucza: ", "Nazwa nie może być pusta"}, name)) return;
    if (const char* text = clash(oid.text(), name)) {
        errInfo(kMessageRow, "%s", text);
        return;
    }
    changeCurrentProfile([&](CrvProfile& target) { target.addAcceptedExtKeyUsage(oid.text(), name); });
}

void showExtendedKeyUsage(size_t index, const std::string& name, const std::string& identifier) {
    drawNumberedEntry(2 + static_cast<int>(index), index + 1, {identifier, name});
}

void showExtendedKeyUsages() {
    drawNumberedList(usageEditor());
}

void delExtendedKeyUsage() {
    if (const int index = askForEntry(kUsageTexts, sortedUsages().size()); index >= 0)
        removeUsage(static_cast<size_t>(index));
}

void OnExtendedKeyUsage() {
    runNumberedList(usageEditor());
}

}  // namespace crv
