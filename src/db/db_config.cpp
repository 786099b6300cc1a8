#include "db/db_config.h"
#include "misc/exceptions.h"
#include "misc/secret.h"

#include <algorithm>
#include <array>

namespace crv {

namespace {

constexpr std::array kKinds{kDbKindFile, kDbKindMemory, kDbKindNone, kDbKindPg};
constexpr std::string_view kTypeKey = "dbtype";
constexpr long kTypeAttr = 17;

struct Setting {
    long attr;
    std::string_view key;
    std::string DbConfig::*value;
};

constexpr std::array<Setting, 4> kSettings{{{2, "db", &DbConfig::db},
                                            {18, "dbname", &DbConfig::dbName},
                                            {19, "dblogin", &DbConfig::dbLogin},
                                            {20, "dbpass", &DbConfig::dbPass}}};

const Setting* settingOf(long attr) {
    const auto* it = std::find_if(kSettings.begin(), kSettings.end(), [&](const Setting& s) { return s.attr == attr; });
    return it == kSettings.end() ? nullptr : it;
}

}  // namespace

DbConfig& DbConfig::operator=(const DbConfig& other) {
    if (this != &other) *this = DbConfig(other);
    return *this;
}

DbConfig& DbConfig::operator=(DbConfig&& other) noexcept {
    db.swap(other.db);
    dbName.swap(other.dbName);
    dbLogin.swap(other.dbLogin);
    dbPass.swap(other.dbPass);
    type_.swap(other.type_);
    return *this;
}

DbConfig::~DbConfig() {
    dbPass.resize(dbPass.capacity());  // what a longer value left behind, too
    wipeMemory(dbPass.data(), dbPass.size());
}

void DbConfig::setType(const std::string& type) {
    if (std::find(kKinds.begin(), kKinds.end(), type) == kKinds.end()) {
        std::string text = "Niepoprawna wartosc parametru konfiguracyjnego: dbType. Dopuszczalne wartosci to: ";
        for (const std::string_view kind : kKinds) text.append(kind).append(kind == kKinds.back() ? "" : ", ");
        throw StoreError(StoreCause::Refused, text);
    }
    type_ = type;
}

void DbConfig::load(RwCfgStrValue& source) {
    DbConfig read;
    std::string type;
    if (source.read(std::string(kTypeKey), type)) read.setType(type);
    for (const Setting& s : kSettings) (void)source.read(std::string(s.key), read.*s.value);
    *this = std::move(read);
}

void DbConfig::save(RwCfgStrValue& target) const {
    if (type_.empty()) throw StoreError(StoreCause::NotFound, "Parametr: " + std::string(kTypeKey) + " nie istnieje");
    target.write(std::string(kTypeKey), type_);
    for (const Setting& s : kSettings) {
        if (!(this->*s.value).empty()) target.write(std::string(s.key), this->*s.value);
    }
}

bool DbConfig::getAttr(long id, std::string& value) const {
    const Setting* setting = settingOf(id);
    if (!setting && id != kTypeAttr) return false;
    value = setting ? this->*setting->value : type_;
    return true;
}

bool DbConfig::setAttr(long id, const std::string& value) {
    const Setting* setting = settingOf(id);
    if (!setting && id != kTypeAttr) return false;
    if (!setting) {
        setType(value);
    } else {
        this->*setting->value = value;
    }
    return true;
}

}  // namespace crv
