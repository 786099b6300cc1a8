#include "profiles/accepted_usages.h"

#include <algorithm>

#include "asn/asn_object_id.h"
#include "corvane/crverrors.h"
#include "misc/exceptions.h"
#include "profiles/attr_set.h"
#include "profiles/universal_conf_mgr.h"

namespace crv {
namespace {

constexpr struct {
    std::string_view oid;
    const char* description;
} kWellKnown[] = {
    {"1.3.6.1.5.5.7.3.1", "Uwierzytelnienie serwera SSL/TLS"},
    {"1.3.6.1.5.5.7.3.2", "Uwierzytelnienie klienta SSL/TLS"},
    {"1.3.6.1.5.5.7.3.3", "Podpisywanie kodu aplikacji"},
    {"1.3.6.1.5.5.7.3.4", "Zabezpieczanie poczty elektronicznej (S/MIME)"},
    {"1.3.6.1.5.5.7.3.8", "Podpisywanie znaczników czasu"},
    {"1.3.6.1.5.5.7.3.9", "Podpisywanie odpowiedzi OCSP"},
    {"1.3.6.1.4.1.311.20.2.2", " Logowanie karty inteligentnej"},
};

constexpr const char* kFolder = "extKeyUsages\\";

}  // namespace

const char* AcceptedUsages::getExtKeyUsageDescription(std::string_view oid) {
    const auto* row = std::ranges::find_if(kWellKnown, [oid](const auto& known) { return known.oid == oid; });
    return row == std::end(kWellKnown) ? nullptr : row->description;
}

void AcceptedUsages::addAcceptedExtKeyUsage(const std::string& oid, const std::string& description) {
    const auto refuse = [](const char* reason) { throw CrvApiException(ECRV_INV_REG, reason); };
    if (!ASNobjectId::fromText(oid)) refuse("Niepoprawny identyfikator rozszerzenia");
    if (description.empty()) refuse("Brak nazwy rozszerzenia");
    if (!fitsList(description)) refuse("Niedozwolony znak w nazwie rozszerzenia");
    if (std::ranges::any_of(usages_, [&](const Usage& u) { return u.description == description && u.oid != oid; }))
        refuse("Rozszerzenie extKeyUsage o zadanej nazwie i różnej wartości już istnieje");
    auto same = std::ranges::find(usages_, oid, &Usage::oid);
    if (same == usages_.end()) {
        usages_.push_back({description, oid});
    } else {
        same->description = description;
    }
}

bool AcceptedUsages::delAcceptedExtKeyUsage(std::string_view oid) {
    return std::erase_if(usages_, [oid](const Usage& usage) { return usage.oid == oid; }) != 0;
}

bool AcceptedUsages::getAcceptedExtKeyUsage(long index, std::string& description, ASNobjectId& oid) const {
    if (index < 0 || index >= getAcceptedExtKeyUsagesCount()) return false;
    const Usage& usage = usages_[static_cast<size_t>(index)];
    description = usage.description;
    return oid.setText(usage.oid);
}

void AcceptedUsages::loadUsages(const UniversalConfMgr& store, const std::string& prefix) {
    usages_.clear();
    UniversalConfMgr::Iterator at;
    for (store.getIterator(at, prefix + kFolder, UCMNodeType::String); at; ++at) {
        const std::string oid = at.getDescr();
        if (!ASNobjectId::fromText(oid))
            throw CrvApiException(ECRV_INV_REG, "Niepoprawna wartość rozszerzonego zastosowania klucza w rejestrze");
        usages_.push_back({std::get<std::string>(at.getData().value), oid});
    }
    for (UCMNodeType type : {UCMNodeType::Long, UCMNodeType::Binary}) {
        store.getIterator(at, prefix + kFolder, type);
        if (at) {
            throw CrvApiException(ECRV_INV_REG,
                                  "Błąd odczytu akceptowanych rozszerzonych zastosowań klucza z rejestru");
        }
    }
}

void AcceptedUsages::saveUsages(UniversalConfMgr& store, const std::string& prefix) const {
    for (const Usage& usage : usages_) store.setData((prefix + kFolder + usage.oid).c_str(), usage.description.c_str());
}

}  // namespace crv
